"""Runs every command and program of the pages, or knows which test does.

    documents_test.py SOURCE BUILD CTEST PROTOC PROGRAM=PATH...

Prints each fault with page and line. Blocks of commands run in one shell for each page
(shell.py); a block of the language proto is compiled, one of python run with what is
below it for output. Who runs other blocks stands in comments above them (blocks.py).
Commands of the build are held against what there is (project.py), also those that
stand in the text between backticks.
"""

import concurrent.futures
import glob
import os
import re
import shutil
import subprocess
import sys
import tempfile
from dataclasses import dataclass
from typing import Dict, List, Sequence

from blocks import (
    NOT_RUN, Block, Fault, code_spans, commands, dialogue, read_blocks, without_note)
from project import Project
from shell import Shell

COMMANDS = ("sh", "console")
PROGRAMS = ("cmake", "cpp", "js", "proto", "python")
OPTIONAL = ("rpc_gateway", "web_browser")
# What blocks need and some machines lack.
INSTALLED = ("Xvfb", "grpc_python_plugin", "node", "npm", "openbox", "openssl", "systemd-analyze")


@dataclass
class Surroundings:
    source: str
    build: str
    protoc: str
    programs: Dict[str, str]
    project: Project
    # Programs that may be missing.
    optional: Sequence[str]

    def has(self, program: str) -> bool:
        return program in self.programs or shutil.which(program) is not None


class Page:
    """Checks one page; faults are in the order of its blocks."""

    def __init__(self, name: str, text: str, surroundings: Surroundings) -> None:
        self.name = name
        self.text = text
        self.around = surroundings
        self.faults: List[str] = []
        self.ran = 0
        self._shell: "Shell | None" = None

    def check(self) -> None:
        try:
            for block in read_blocks(self.name, self.text):
                self._guard(self._check_block, block)
            self._check_spans()
        except Fault as fault:
            self.faults.append(str(fault))
        finally:
            self._close()

    def _guard(self, function, block: Block) -> None:
        try:
            function(block)
        except Fault as fault:
            self.faults.append(str(fault))
        except AssertionError as error:
            self.faults.append(str(block.fault(str(error))))

    def _close(self) -> None:
        if not self._shell:
            return
        try:
            self._shell.close()
        except AssertionError as error:
            self.faults.append(f"{self.name}: {error}")

    def _check_block(self, block: Block) -> None:
        if block.language == "text":
            self._check_picture(block)
            return
        if block.comment("file") or block.comment("part of"):
            self._check_shown_file(block)
            return
        if block.language not in COMMANDS + PROGRAMS:
            raise block.fault(f"no test runs the language '{block.language}'; a picture is 'text'")
        self._look_up(block)
        if not self._has_what_it_needs(block):
            return
        reason = block.comment("not run")
        if reason:
            if reason not in NOT_RUN:
                raise block.fault(f"'{reason}' is no reason: {', '.join(NOT_RUN)}")
        elif block.comment("run by"):
            self._check_runners(block)
        elif block.comment("compiled as"):
            self._check_fragment(block)
        else:
            self._run(block)

    def _check_picture(self, block: Block) -> None:
        """Commands do not hide in a block that nobody runs."""
        for line in block.text.splitlines():
            word = line.split(" ")[0]
            if word in ("$", "cmake", "ctest", *self.around.programs) or word.startswith("scripts/"):
                raise block.fault(f"a command in a block of the language text: {line}")

    def _check_shown_file(self, block: Block) -> None:
        name = block.comment("file") or block.comment("part of")
        assert name
        path = os.path.join(self.around.source, name)
        if not os.path.isfile(path):
            raise block.fault(f"there is no file {name}")
        with open(path, encoding="utf-8") as file:
            text = file.read()
        if block.comment("file") and block.text != text:
            raise block.fault(f"{name} is not the same")
        if f"\n{block.text}" not in f"\n{text}":
            raise block.fault(f"{name} does not have these lines")
        if not block.comment("run by"):
            raise block.fault("nobody runs this: 'run by' names who does")
        if self._has_what_it_needs(block):
            self._check_runners(block)

    def _has_what_it_needs(self, block: Block) -> bool:
        for program in block.names("needs"):
            if program not in self.around.optional:
                raise block.fault(f"'{program}' is none of {', '.join(self.around.optional)}")
        return all(self.around.has(program) for program in block.names("needs"))

    def _look_up(self, block: Block) -> None:
        if block.language not in COMMANDS:
            return
        for command in self._commands(block):
            for fault in self.around.project.faults(command):
                raise block.fault(fault)

    def _commands(self, block: Block) -> List[str]:
        if block.language == "console":
            return [turn[0] for turn in dialogue(block)]
        return commands(block.text)

    def _check_runners(self, block: Block) -> None:
        for name in block.names("run by"):
            if self.around.project.has_script(name):
                for command in self._commands(block) if block.language in COMMANDS else []:
                    if not self.around.project.script_runs(name, command):
                        raise block.fault(f"{name} does not run '{command}'")
            elif not self.around.project.has_test(name):
                raise block.fault(f"there is no test {name}, which is said to run this")

    def _check_fragment(self, block: Block) -> None:
        """fragments.cmake cuts the fragment out; a source has to include it."""
        name = block.comment("compiled as")
        source = os.path.join(os.path.dirname(__file__), "fragments_unittest.cc")
        with open(source, encoding="utf-8") as file:
            if f'#include "documents/{name}.inc"' not in file.read():
                raise block.fault(f"fragments_unittest.cc does not include documents/{name}.inc")

    def _run(self, block: Block) -> None:
        if block.language == "proto":
            self._compile_proto(block)
        elif block.language in COMMANDS + ("python",):
            self._run_in_shell(block)
        else:
            raise block.fault("nobody runs this: 'run by' names who does")
        self.ran += 1

    def _compile_proto(self, block: Block) -> None:
        text = block.text if "syntax =" in block.text else 'syntax = "proto3";\n' + block.text
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "page.proto")
            with open(path, "w", encoding="utf-8") as file:
                file.write(text)
            ended = subprocess.run(
                [self.around.protoc, f"-I{folder}", f"--descriptor_set_out={os.devnull}", path],
                stderr=subprocess.PIPE, check=False, text=True)
            if ended.returncode != 0:
                raise block.fault(ended.stderr)

    def _run_in_shell(self, block: Block) -> None:
        if not self._shell:
            self._shell = Shell(self.around.source, self.around.build, self.around.programs)
        for command in block.comments.get("run first", []):
            self._run_command(command)
        if block.language == "python":
            printed = self._shell.run("/usr/bin/python3 - <<'PAGE'\n" + block.text + "PAGE")
            self._compare(block, printed, (block.output or "").splitlines())
        elif block.language == "sh":
            printed = []
            for command in commands(block.text):
                printed += self._run_command(command)
            if block.output is not None:
                self._compare(block, printed, block.output.splitlines())
        else:
            for command, *wanted in dialogue(block):
                self._compare(block, self._run_command(command), wanted)

    def _run_command(self, command: str) -> List[str]:
        assert self._shell
        bare = without_note(command)
        if "Ctrl-C" in command[len(bare):]:
            return self._shell.run_until_interrupted(bare)
        if bare.endswith("&"):
            self._shell.start(bare.rstrip("& "))
            return []
        return self._shell.run(bare)

    def _compare(self, block: Block, printed: List[str], wanted: List[str]) -> None:
        """Three dots stand for anything on their line."""
        pattern = "\n".join(wanted)
        pattern = re.escape(pattern).replace(re.escape("..."), ".*")
        if not re.fullmatch(pattern, "\n".join(printed)):
            raise block.fault("prints\n" + "\n".join(printed) + "\ninstead of\n" + "\n".join(wanted))

    def _check_spans(self) -> None:
        for span in code_spans(self.text):
            # A table has to write \| for |.
            for fault in self.around.project.faults(span.replace("\\|", "|")):
                self.faults.append(f"{self.name}: `{span}`: {fault}")


def pages(source: str) -> List[str]:
    found = ["README.md", "clients/python/README.md"]
    return found + sorted(os.path.relpath(path, source) for path in glob.glob(f"{source}/docs/*.md"))


def main() -> int:
    source, build, ctest, protoc, *programs = sys.argv[1:]
    built = dict(program.split("=", 1) for program in programs)
    whole = all(program in built for program in OPTIONAL)
    around = Surroundings(source, build, protoc, built, Project(source, build, ctest, whole),
                          OPTIONAL + INSTALLED)
    checked = []
    for name in pages(source):
        with open(os.path.join(source, name), encoding="utf-8") as file:
            checked.append(Page(name, file.read(), around))
    with concurrent.futures.ThreadPoolExecutor() as executor:
        list(executor.map(Page.check, checked))
    for page in checked:
        print(f"{page.name}: {page.ran} blocks run here")
    faults = [fault for page in checked for fault in page.faults]
    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
