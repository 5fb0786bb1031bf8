#!/usr/bin/python3
"""Tests of what changes are made, and of how they are judged."""

from __future__ import annotations

import argparse
import contextlib
import io
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import unittest

import build
import judge
import run
import suites
import watch
from equivalent import Equivalents
from switches import SWITCH_HEADER, MutatedFile

_COMPILER = "g++"  # As scripts/mutate uses it.

# Every line holds what one kind of change is tried on; main() prints the outcome.
_PROGRAM = """\
#include <iostream>

void Say(const char* what) {  // A comment, with "quotes".
  std::cout << what; }
void Show(int n) { std::cout << n; }
bool Less(int a, int b) {
  return a < b;
}
bool Both(bool a, bool b) {
  return a && b;
}
bool IsSet(bool is_set) {
  return is_set;
}
int Sum() {
  int sum = 0;
  for (const int i : {1, 2, 4})
    sum += i;
  return sum;
}
int Minus(int a, int b) {
  return a - b;
}
void InOrder() {
  Say("one");
  // Comments between statements stay.
  Say("two");
}
void Last() {
  if (Less(1, 2))
    return Say("yes");
  Say("no");
}
int line = __LINE__;

int main() {
  Show(Less(1, 1));
  Show(Less(2, 1));
  Show(Both(true, false));
  Show(IsSet(true));
  Show(Sum());
  Show(Minus(5, 3));
  InOrder();
  Last();
  Show(line);
}
"""
_OUTCOME = "000172onetwoyes34"


class Program:
    """The program above, built once with all changes that compile."""

    def __init__(self, folder: pathlib.Path) -> None:
        self.file = MutatedFile("program.cc", _PROGRAM)
        for number, mutant in enumerate(self.file.mutants, start=1):
            mutant.number = number
        source = folder / "program.cc"
        source.write_text(self.file.code())
        self.path = folder / "program"
        header = pathlib.Path(__file__).with_name(SWITCH_HEADER).parent
        subprocess.run([_COMPILER, "-std=c++20", "-w", f"-I{header}",
                        str(source), "-o", str(self.path)], check=True)

    def outcome(self, number: int) -> str:
        result = subprocess.run([self.path], capture_output=True, text=True,
                                env={"TORVANE_MUTANT": str(number)}, timeout=60)
        return result.stdout

    def number(self, line: int, change: str) -> int:
        return next(m.number for m in self.file.mutants
                    if self.file.line_of(m) == line and m.change == change)


class Changes(unittest.TestCase):
    @classmethod
    def setUpClass(cls) -> None:
        cls._folder = tempfile.TemporaryDirectory()
        cls.program = Program(pathlib.Path(cls._folder.name))

    @classmethod
    def tearDownClass(cls) -> None:
        cls._folder.cleanup()

    def expect(self, line: int, change: str, outcome: str) -> None:
        self.assertEqual(self.program.outcome(self.program.number(line, change)), outcome)

    def test_program_is_as_before_while_no_mutant_is_switched_on(self) -> None:
        self.assertEqual(self.program.outcome(0), _OUTCOME)

    def test_every_line_stays_where_it_was(self) -> None:
        lines = self.program.file.code().split("\n")
        for number, line in enumerate(_PROGRAM.split("\n")):
            for comment in ("// A comment", "// Comments between", "int line"):
                if comment in line:
                    self.assertIn(comment, lines[number])

    def test_comparison_is_made_another(self) -> None:
        self.expect(7, "<= instead of < in a < b", "100172onetwoyes34")
        self.expect(7, ">= instead of < in a < b", "110172onetwono34")

    def test_condition_is_joined_otherwise_and_loses_a_side(self) -> None:
        self.expect(10, "|| instead of && in a && b", "001172onetwoyes34")
        self.expect(10, "without b behind &&", "001172onetwoyes34")
        self.expect(10, "without a before &&", _OUTCOME)

    def test_condition_is_taken_for_true_and_for_false(self) -> None:
        self.expect(30, "false instead of Less ( 1 , 2 )", "000172onetwono34")
        self.expect(30, "true instead of Less ( 1 , 2 )", _OUTCOME)

    def test_returned_truth_value_is_negated(self) -> None:
        self.expect(13, "returns !(is_set)", "000072onetwoyes34")

    def test_constant_is_one_more_and_one_less(self) -> None:
        self.expect(16, "1 instead of 0", "000182onetwoyes34")
        self.expect(42, "6 instead of 5", "000173onetwoyes34")
        self.expect(42, "4 instead of 5", "000171onetwoyes34")

    def test_text_is_left_out(self) -> None:
        self.expect(25, '"" instead of "one"', "000172twoyes34")

    def test_first_and_last_element_are_left_out(self) -> None:
        self.expect(17, "without the first of { 1 , 2 , 4 }", "000162onetwoyes34")
        self.expect(17, "without the last of { 1 , 2 , 4 }", "000132onetwoyes34")

    def test_neighbouring_statements_are_swapped(self) -> None:
        self.expect(25, 'Say ( "two" ) ; before Say ( "one" ) ;',
                    "000172twooneyes34")

    def test_call_is_left_out(self) -> None:
        self.expect(27, 'without Say ( "two" ) ;', "000172oneyes34")
        self.expect(31, 'without return Say ( "yes" ) ;', "000172onetwo34")

    def test_program_says_which_mutants_it_gets_to(self) -> None:
        marks = judge.reached(self.program.path, pathlib.Path("."),
                              1 + len(self.program.file.mutants), "any")
        self.assertTrue(marks[self.program.number(7, "<= instead of < in a < b")])
        self.assertFalse(marks[self.program.number(32, 'without Say ( "no" ) ;')])

    def test_neighbouring_arguments_are_swapped(self) -> None:
        self.expect(42, "3 before 5", "00017-2onetwoyes34")


class Faults(unittest.TestCase):
    """What the compiler says leads to the change that does not compile."""

    def test_change_that_does_not_compile_is_found(self) -> None:
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name).resolve()
            file = MutatedFile("f.cc", "#include <cstdio>\n\nvoid F() {\n"
                               '  std::fputs("text", stdout); std::fflush(stdout);\n}\n')
            for number, mutant in enumerate(file.mutants, start=1):
                mutant.number = number
            source = folder / "f.cc"
            source.write_text(file.code())
            header = pathlib.Path(__file__).parent
            errors = subprocess.run(
                [_COMPILER, "-std=c++20", "-w", f"-I{header}", "-c", str(source), "-o",
                 str(folder / "f.o")], capture_output=True, text=True).stderr
        faults = build.faults(errors, {str(source)})
        self.assertEqual({file.at_fault(line, column).change for _, line, column in faults},
                         {'stdout before "text"'})


class Names(unittest.TestCase):
    def test_name_of_a_mutant_does_not_depend_on_its_line(self) -> None:
        code = "\n\nvoid F() {\n  G();\n}\n"
        first = MutatedFile("f.cc", code)
        second = MutatedFile("f.cc", "\n\n" + code)
        self.assertEqual(first.name_of(first.mutants[0]), second.name_of(second.mutants[0]))
        self.assertEqual(first.name_of(first.mutants[0]),
                         "f.cc | G(); | without G ( ) ;")


class Templates(unittest.TestCase):
    def test_statements_of_written_code_are_left_out(self) -> None:
        file = MutatedFile("f.cc", '\n\nvoid F() {\n  Print(R"(\n  Call();\n)");\n}\n')
        self.assertIn("without Call();", [m.change for m in file.mutants])


class Constants(unittest.TestCase):
    def test_constant_becomes_a_variable_and_pure_functions_stay(self) -> None:
        file = MutatedFile("f.h", "\n\ninline constexpr int kMost = 7;\n"
                           "struct A { virtual void F() = 0; int n = 1; };\n")
        self.assertEqual({m.change for m in file.mutants},
                         {"8 instead of 7", "6 instead of 7", "2 instead of 1",
                          "0 instead of 1"})
        self.assertIn("inline const int kMost", file.code())
        for mutant in file.mutants:
            mutant.dropped = True
        self.assertIn("inline constexpr int kMost = 7;", file.code())


class Impatient:
    """Waits for a tenth of a second, of work or of idleness."""

    def __init__(self, worked: float, idled: float) -> None:
        self._limits = worked, idled

    def hear(self, printed: bytes) -> bool:
        return False

    def is_over(self, worked: float, idled: float) -> bool:
        return worked > self._limits[0] or idled > self._limits[1]


_NEVER = 1e9
_HERE = pathlib.Path(".")


class Watching(unittest.TestCase):
    def setUp(self) -> None:
        self._folder = tempfile.TemporaryDirectory()
        self.fifo = pathlib.Path(self._folder.name) / "fifo"
        os.mkfifo(self.fifo)

    def tearDown(self) -> None:
        self._folder.cleanup()

    def test_program_that_waits_for_ever_is_ended(self) -> None:
        self.assertFalse(watch.passes(["sleep", "1000"], _HERE, Impatient(_NEVER, 0.1)))

    def test_program_that_works_for_ever_is_ended(self) -> None:
        self.assertFalse(watch.passes(["sh", "-c", "while :; do :; done"], _HERE,
                                      Impatient(0.1, _NEVER)))

    def test_program_that_closes_its_output_is_watched_on(self) -> None:
        self.assertFalse(watch.passes(["sh", "-c", "exec >&-; sleep 1000"], _HERE,
                                      Impatient(_NEVER, 0.1)))

    def test_program_that_fails_does_not_pass(self) -> None:
        patience = Impatient(_NEVER, _NEVER)
        self.assertFalse(watch.passes(["false"], _HERE, patience))
        self.assertTrue(watch.passes(["true"], _HERE, patience))

    def test_what_a_program_leaves_behind_is_ended(self) -> None:
        """Even in a process group of its own."""
        held = os.open(self.fifo, os.O_RDWR)
        reader = os.open(self.fifo, os.O_RDONLY)
        self.assertTrue(watch.passes(
            ["bash", "-c", f"set -m; sleep 1000 > {self.fifo} &"], _HERE,
            Impatient(_NEVER, _NEVER)))
        os.close(held)
        self.assertEqual(os.read(reader, 1), b"")  # No sleep has it any more.
        os.close(reader)

    def test_nothing_runs_on_when_the_script_is_ended(self) -> None:
        for number in (signal.SIGKILL, signal.SIGTERM):
            script = subprocess.Popen(
                [sys.executable, "-B", "-c", f"""
import pathlib, signal, sys
sys.path.insert(0, {os.path.dirname(os.path.abspath(__file__))!r})
import judge, watch
signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
def wait_for_ever(_):
    judge.passes(["sh", "-c", "exec 3> {self.fifo}; echo >&3; exec sleep 1000"],
                 pathlib.Path("."))
with watch.workers(2) as pool:
    list(pool.map(wait_for_ever, range(4)))
"""], stderr=subprocess.DEVNULL)
            with open(self.fifo, "rb", buffering=0) as running:
                # Two have begun, and two wait for their turn.
                self.assertEqual(running.read(1), b"\n")
                self.assertEqual(running.read(1), b"\n")
                script.send_signal(number)
                script.wait()
                self.assertEqual(running.read(), b"")

    def test_each_test_of_a_suite_has_a_patience_of_its_own(self) -> None:
        patience = judge.TestByTest({"A.Short": 0.0, "A.Long": 100.0})
        self.assertTrue(patience.hear(b"noise\n[ RUN      ] A.Long\n"))
        self.assertFalse(patience.hear(b"[       OK ] A.Long (3 ms)\n"))
        self.assertFalse(patience.is_over(worked=300.0, idled=300.0))
        self.assertTrue(patience.hear(b"[ RUN      ] A.Long\n...\n[ RUN      ] A.Short\n"))
        self.assertTrue(patience.is_over(worked=3.0, idled=0.0))
        self.assertTrue(patience.is_over(worked=0.0, idled=3.0))


class Samples(unittest.TestCase):
    """Which mutants run, of 100 in two folders."""

    def setUp(self) -> None:
        calls = "".join(f"  G{i}();\n" for i in range(100))
        self.all = [
            run.Verdict(file, mutant, file.name_of(mutant))
            for folder in ("stream", "serving")
            for file in [MutatedFile(f"{suites.RPC}/{folder}/f.h",
                                     f"void F() {{\n{calls}}}\n")]
            for mutant in file.mutants if mutant.kind == "removed call"]

    def drawn(self, seed: int, sample: int | None = 20, only: str = "") -> list[str]:
        arguments = argparse.Namespace(only=only, sample=sample, seed=seed)
        return [v.name for v in run.choose(self.all, arguments)]

    def test_sample_is_the_same_for_the_same_seed(self) -> None:
        self.assertEqual(len(set(self.drawn(seed=7))), 20)
        self.assertEqual(self.drawn(seed=7), self.drawn(seed=7))
        self.assertNotEqual(self.drawn(seed=7), self.drawn(seed=8))

    def test_without_a_sample_all_of_a_folder_run(self) -> None:
        names = [v.name for v in self.all]
        self.assertEqual(self.drawn(seed=7, sample=None), names)
        self.assertEqual(self.drawn(seed=7, sample=len(names) + 1), names)
        self.assertEqual(self.drawn(seed=7, sample=None, only="stream"),
                         [n for n in names if "/stream/" in n])


class Reports(unittest.TestCase):
    def setUp(self) -> None:
        path = f"{suites.RPC}/stream/f.h"
        file = MutatedFile(path, "\n\nvoid F() {\n  G();\n}\n")
        self.verdict = run.Verdict(file, file.mutants[0], file.name_of(file.mutants[0]))
        self._folder = tempfile.TemporaryDirectory()
        self.list = pathlib.Path(self._folder.name) / "equivalent.txt"
        self.list.write_text("# Nothing.\n")

    def tearDown(self) -> None:
        self._folder.cleanup()

    def good(self, whole: bool = False) -> bool:
        folders = {suites.folder_of(self.verdict.file.path)} if whole else set()
        with contextlib.redirect_stdout(io.StringIO()) as shown:
            good = run.report([self.verdict], Equivalents(self.list), folders)
        self.shown = shown.getvalue()
        return good

    def test_mutant_that_is_left_is_shown_with_its_line(self) -> None:
        self.good()
        line = f"{suites.RPC}/stream/f.h:4: {self.verdict.mutant.kind}: "
        self.assertIn(line, self.shown)
        self.verdict.noticed_by = "some_unittest"
        self.good()
        self.assertNotIn(line, self.shown)

    def test_mutant_that_only_the_golden_files_notice_is_left(self) -> None:
        file = MutatedFile(f"{suites.RPC}/generator/f.cc", "\n\nvoid F() {\n  G();\n}\n")
        self.verdict = run.Verdict(file, file.mutants[0], file.name_of(file.mutants[0]))
        self.verdict.noticed_by = "rpc_generator_unittest"
        self.assertFalse(self.good())
        self.assertIn("(but by the golden files)", self.shown)
        self.verdict.noticed_by_others = "rpc_generator_unittest"
        self.assertTrue(self.good())

    def test_mutant_without_a_reason_is_a_failure(self) -> None:
        self.assertFalse(self.good())

    def test_mutant_with_a_reason_is_none(self) -> None:
        self.list.write_text(f"{self.verdict.name} | nobody sees it\n")
        self.assertTrue(self.good())

    def test_goal_is_judged_when_all_mutants_have_run(self) -> None:
        self.list.write_text(f"{self.verdict.name} | nobody sees it\n")
        self.assertFalse(self.good(whole=True))

    def test_folder_is_whole_when_all_its_mutants_have_run(self) -> None:
        def verdict(path: str) -> run.Verdict:
            file = MutatedFile(f"{suites.RPC}/{path}", "\n\nvoid F() {\n  G();\n}\n")
            return run.Verdict(file, file.mutants[0], file.name_of(file.mutants[0]))

        a, b, other = map(verdict, ("serving/a.h", "serving/b.h", "transport/c.h"))
        self.assertNotIn("serving", [
            f.name for f in run.whole_folders([a, other], [a, b, other])])
        whole = [f.name for f in run.whole_folders([a, b], [a, b, other])]
        self.assertIn("serving", whole)
        self.assertNotIn("transport", whole)

    def test_reason_for_a_mutant_that_is_noticed_is_a_failure(self) -> None:
        self.verdict.noticed_by = "some_unittest"
        self.assertTrue(self.good(whole=True))
        self.list.write_text(f"{self.verdict.name} | nobody sees it\n")
        self.assertFalse(self.good())


if __name__ == "__main__":
    unittest.main()
