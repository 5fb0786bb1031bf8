"""A client with grpcio, and stubs from the derived contract."""

import os
import sys

from clients_page import programs, section
from support import DEADLINE, PROGRAMS, QUESTIONS, GatewayTestCase

PYTHON = [sys.executable, "-B", "-u"]


class Python(GatewayTestCase):
    def run_named(self, name: str, transcript: str) -> None:
        with open(os.path.join(PROGRAMS, name), encoding="utf-8") as program:
            self.run_program([*PYTHON, "-c", program.read()], self.folder, transcript)

    def test_the_program_of_the_page_prints_what_that_says(self) -> None:
        (program,) = programs(section("gRPC", 2), "python")
        self.run_program([*PYTHON, "-c", program.text], self.folder, program.transcript)

    def test_answers_in_another_order_are_told_apart_by_call_id(self) -> None:
        self.run_named("questions.py", QUESTIONS)

    def test_a_call_fails_when_its_deadline_is_over(self) -> None:
        self.run_named("deadline.py", DEADLINE)
