"""What documents_test.py finds wrong with a page, in a small project of its own.

    checker_test.py PROTOC
"""

import json
import os
import subprocess
import sys
import tempfile
import unittest
from typing import List

from documents_test import Page, Surroundings
from project import Project

CTEST = {
    "tests": [
        {"name": "apps/one", "properties": [{"name": "LABELS", "value": ["apps"]}]},
        {"name": "base/two", "properties": []},
    ]
}
SCRIPT = """#!/bin/sh
# Runs scripts/other, too.
echo "greet [--loud]"
"""
# Says that it is ready, and ends with its argument when it gets a signal.
SERVER = """#!/usr/bin/python3
import signal, sys
signals = [signal.SIGINT, signal.SIGTERM]
signal.pthread_sigmask(signal.SIG_BLOCK, signals)
print("ready", flush=True)
signal.sigwait(signals)
sys.exit(int(sys.argv[1]))
"""


class CheckerTest(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory(prefix="torvane-checker-")
        self.addCleanup(folder.cleanup)
        self.source = folder.name
        build = os.path.join(folder.name, "build")
        self.write("CMakePresets.json", json.dumps({"configurePresets": [{"name": "release"}]}))
        self.write("build/build.ninja", "build window_host: phony\n")
        self.write("build/tests.json", json.dumps(CTEST))
        ctest = self.write("build/ctest", f"#!/bin/sh\ncat {build}/tests.json\n")
        self.write("scripts/greet", SCRIPT)
        self.write("scripts/other", "#!/bin/sh\n")
        program = self.write("build/program", "#!/bin/sh\necho hello\n")
        server = self.write("build/server", SERVER)
        programs = {"program": program, "server": server}
        self.around = Surroundings(
            self.source, build, PROTOC, programs, Project(self.source, build, ctest, True),
            ("program", "no-such-program"))
        self.part = Project(self.source, build, ctest, False)

    def write(self, name: str, text: str) -> str:
        path = os.path.join(self.source, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        os.chmod(path, 0o755)
        return path

    def faults(self, text: str) -> List[str]:
        page = Page("page.md", text, self.around)
        page.check()
        return page.faults

    def finds(self, fault: str, text: str) -> None:
        """That the page has this fault and no other."""
        found = self.faults(text)
        self.assertEqual(len(found), 1, found)
        self.assertIn(fault, found[0])

    def good(self, text: str) -> None:
        self.assertEqual(self.faults(text), [])


class WhoRunsABlock(CheckerTest):
    def test_a_block_without_language_is_run_by_nobody(self) -> None:
        self.finds("no test runs the language ''", "```\nprogram\n```\n")

    def test_a_program_needs_somebody_who_runs_it(self) -> None:
        self.finds("nobody runs this", "```cmake\nproject(x)\n```\n")
        self.good("<!-- run by: apps/one -->\n```cmake\nproject(x)\n```\n")

    def test_who_runs_it_has_to_exist(self) -> None:
        self.finds("page.md:2: there is no test apps/three",
                   "<!-- run by: apps/one, apps/three -->\n```sh\nfalse\n```\n")

    def test_a_script_has_to_run_the_scripts_of_the_block(self) -> None:
        self.good("<!-- run by: scripts/greet -->\n```sh\nscripts/greet\nscripts/other\n```\n")
        self.finds("scripts/other does not run 'scripts/greet'",
                   "<!-- run by: scripts/other -->\n```sh\nscripts/greet\n```\n")

    def test_a_reason_for_nobody_is_one_of_a_few(self) -> None:
        self.good("<!-- not run: takes too long -->\n```sh\nfalse\n```\n")
        self.finds("'did not feel like it' is no reason",
                   "<!-- not run: did not feel like it -->\n```sh\nfalse\n```\n")

    def test_what_is_missing_is_left_out(self) -> None:
        self.good("<!-- needs: program, no-such-program -->\n```sh\nfalse\n```\n")
        self.finds("ends with 1", "<!-- needs: program -->\n```sh\nfalse\n```\n")

    def test_what_may_be_missing_is_known(self) -> None:
        self.finds("'progam' is none of", "<!-- needs: progam -->\n```sh\nfalse\n```\n")
        self.write("own/one.conf", "a;\n")
        self.finds("'progam' is none of", "<!-- file: own/one.conf -->\n<!-- run by: apps/one -->\n"
                   "<!-- needs: progam -->\n```nginx\na;\n```\n")

    def test_a_fragment_has_to_be_included(self) -> None:
        self.good("<!-- compiled as: stub_call -->\n```cpp\nx;\n```\n")
        self.finds("does not include documents/stub.inc",
                   "<!-- compiled as: stub -->\n```cpp\nx;\n```\n")

    def test_a_fragment_has_its_name_for_itself(self) -> None:
        block = "<!-- compiled as: {} -->\n```cpp\nx;\n```\n"
        pages = [self.write("one.md", block.format("one") + block.format("two")),
                 self.write("two.md", block.format("three") + block.format("two"))]
        writer = os.path.join(os.path.dirname(__file__), "write_fragments.py")
        ended = subprocess.run([sys.executable, "-B", writer, os.path.join(self.source, "out"), *pages],
                               stderr=subprocess.PIPE, check=False, text=True)
        self.assertEqual((ended.returncode, ended.stderr),
                         (1, "two.md:6: another block is compiled as two, too\n"))

    def test_a_file_that_is_shown_is_the_same(self) -> None:
        self.write("own/one.conf", "a;\nb;\nc;\n")
        whole = "<!-- file: own/one.conf -->\n<!-- run by: apps/one -->\n"
        self.good(whole + "```nginx\na;\nb;\nc;\n```\n")
        self.finds("own/one.conf is not the same", whole + "```nginx\na;\nb;\n```\n")
        part = "<!-- part of: own/one.conf -->\n<!-- run by: apps/one -->\n"
        self.good(part + "```nginx\nb;\nc;\n```\n")
        for other in "a;\nc;\n", ";\nb;\n", "b\n":
            self.finds("own/one.conf does not have these lines", part + f"```nginx\n{other}```\n")

    def test_a_file_that_is_shown_is_there_and_used(self) -> None:
        self.write("own/one.conf", "a;\n")
        block = "```nginx\na;\n```\n"
        self.finds("there is no file own/two.conf", f"<!-- file: own/two.conf -->\n{block}")
        self.finds("nobody runs this", f"<!-- file: own/one.conf -->\n{block}")
        self.finds("there is no test apps/three",
                   f"<!-- file: own/one.conf -->\n<!-- run by: apps/three -->\n{block}")

    def test_commands_do_not_hide_in_pictures(self) -> None:
        self.good("```text\n---> program\n```\n")
        for command in ("program --flag", "scripts/greet", "$ ls", "cmake .."):
            self.finds("a command in a block of the language text", f"```text\n{command}\n```\n")

    def test_a_comment_has_to_stand_above_a_block(self) -> None:
        self.finds("page.md:2: a comment about a block", "<!-- run by: apps/one -->\n\n```sh\nfalse\n```\n")

    def test_a_fence_that_is_indented_is_not_overlooked(self) -> None:
        self.finds("a fence that this test cannot read", "- x\n\n  ```sh\n  false\n  ```\n")

    def test_blocks_of_other_kinds_are_not_overlooked(self) -> None:
        self.finds("page.md:3: a fence that this test cannot read", "x\n\n~~~sh\nfalse\n~~~\n")
        for block in "    false", "\tfalse":
            self.finds("page.md:3: an indented line", f"x\n\n{block}\n")


class Running(CheckerTest):
    def test_a_command_that_fails(self) -> None:
        self.finds("page.md:1: ends with 1: false", "```sh\ntrue\nfalse\n```\n")

    def test_commands_of_a_page_share_a_shell_and_its_folder(self) -> None:
        self.good("```sh\nname=x   # a note\nmkdir own && cd own\n```\n\n"
                  "```sh\ntest $name = x && test $(basename $PWD) = own && \\\n  test -d ../scripts\n```\n")

    def test_a_note_is_not_part_of_a_command_and_quotes_hold_none(self) -> None:
        self.good("```sh\necho '1  # 2' \"3 # \\\" # 4\" # it's a note\n```\n```\n1  # 2 3 # \" # 4\n```\n")
        self.finds("a quote without end", "```sh\necho '1  # 2\n```\n")

    def test_what_comes_first_is_run(self) -> None:
        self.good("<!-- run first: touch one -->\n```sh\ncat one\n```\n")

    def test_output_is_compared(self) -> None:
        self.good("```console\n$ program\nhello\n$ true\n$ echo 1 2 3\n1 ... 3\n```\n")
        self.finds("instead of\ngoodbye", "```console\n$ program\ngoodbye\n```\n")
        self.finds("instead of\nhello", "```console\n$ true\nhello\n```\n")
        self.finds("prints\nhello\ninstead of\n", "```console\n$ program\n```\n")
        self.finds("instead of\nbye", "```sh\nprogram\n```\n```\nbye\n```\n")

    def test_a_console_block_begins_with_a_command(self) -> None:
        self.finds("begins with a command", "```console\nhello\n```\n")

    def test_python_and_proto_run_here(self) -> None:
        self.good("```python\nprint(1)\n```\n```\n1\n```\n")
        self.finds("instead of\n2", "```python\nprint(1)\n```\n```\n2\n```\n")
        self.good("```proto\nmessage M { int64 x = 1; }\n```\n")
        self.finds("page.proto", "```proto\nmessage M { int64 x = 0; }\n```\n")

    def test_the_background_is_waited_for_and_ended(self) -> None:
        self.good("```sh\nsh -c 'touch up && exec server 0' &\ncat up\n```\n")

    def test_the_background_has_to_get_ready(self) -> None:
        self.finds("has ended its output", "```sh\nprogram &\n```\n")

    def test_the_background_has_to_last_and_to_end_well(self) -> None:
        self.finds("page.md: ends with 1", "```sh\nsh -c 'echo ready' &\nwait\n```\n")
        self.finds("page.md: ends with 1", "```sh\nserver 3 &\n```\n")

    def test_ctrl_c_ends_a_command(self) -> None:
        self.good("```sh\nserver 0    # until Ctrl-C\n```\n")
        self.finds("ends with 4", "```sh\nserver 4    # until Ctrl-C\n```\n")


class WhatCommandsName(CheckerTest):
    def test_scripts_and_their_options(self) -> None:
        above = "<!-- not run: takes too long -->\n```sh\n"
        self.good(above + "scripts/greet --loud\n```\n")
        self.finds("no script scripts/gone", above + "scripts/gone\n```\n")
        self.finds("scripts/greet --help has no --quiet", above + "X=1 scripts/greet --quiet\n```\n")

    def test_presets_targets_and_tests(self) -> None:
        above = "<!-- not run: takes too long -->\n```sh\n"
        self.good(above + "cmake --preset release && cmake --build --preset release --target window_host\n"
                  "ctest --preset release -R on -L app\n```\n")
        self.finds("no preset fast", above + "cmake --preset fast\n```\n")
        self.finds("no target host", above + "cmake --build --preset release --target host\n```\n")
        self.finds("no test matches two apps", above + "ctest --preset release -R two -L apps\n```\n")

    def test_targets_and_tests_are_looked_up_only_in_a_build_that_is_whole(self) -> None:
        for command, fault in ("ctest -R three", "no test matches three"), (
                "cmake --build build --target host", "no target host"):
            self.assertEqual(self.around.project.faults(command), [fault])
            self.assertEqual(self.part.faults(command), [])
        self.assertEqual(self.part.faults("cmake --preset fast"), ["no preset fast"])

    def test_also_in_the_text(self) -> None:
        self.good("`ctest -R 'one\\|two'` and `scripts/greet --loud` and `ctest -R <name>`\n")
        self.finds("`scripts/greet --quiet`", "says `scripts/greet --quiet`\n")


if __name__ == "__main__":
    PROTOC = sys.argv.pop(1)
    unittest.main()
