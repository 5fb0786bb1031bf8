"""Clients in Node, with packages of npm in the versions of package-lock.json."""

import json
import os
import unittest
from typing import List

from clients_page import programs, section
from npm import LOCK_FILE, install_packages, read
from support import DEADLINE, PROGRAMS, QUESTIONS, GatewayTestCase

SERVICES = """\
grpc.reflection.v1.ServerReflection
grpc.reflection.v1alpha.ServerReflection
rpc.BrowserWindow
rpc.directory.WindowDirectory
rpc.reflection.ServerReflection
rpc.status.ServerStatus
"""


class Node(GatewayTestCase):
    @classmethod
    def setUpClass(cls) -> None:
        modules = install_packages()
        super().setUpClass()
        os.symlink(modules, os.path.join(cls.folder, "node_modules"))

    def run_node(self, text: str, transcript: str, arguments: List[str] = []) -> None:
        with open(os.path.join(self.folder, "program.mjs"), "w", encoding="utf-8") as file:
            file.write(text)
        self.run_program([os.environ["NODE"], "program.mjs", *arguments], self.folder, transcript)

    def run_named(self, name: str, transcript: str, arguments: List[str] = []) -> None:
        with open(os.path.join(PROGRAMS, name), encoding="utf-8") as program:
            self.run_node(program.read(), transcript, arguments)

    def test_the_program_of_the_page_prints_what_that_says(self) -> None:
        (program,) = programs(section("gRPC", 2), "js")
        self.run_node(program.text, program.transcript)

    def test_answers_in_another_order_are_told_apart_by_call_id(self) -> None:
        self.run_named("questions.mjs", QUESTIONS)

    def test_a_call_fails_when_its_deadline_is_over(self) -> None:
        self.run_named("deadline.mjs", DEADLINE)

    def test_reflection_gives_a_stock_client_the_contract(self) -> None:
        for version in "v1", "v1alpha":
            with self.subTest(version):
                transcript = SERVICES + "methods: 41\nWindow 1\n"
                self.run_named("reflection.mjs", transcript, [version])


class LockFile(unittest.TestCase):
    def test_it_names_the_public_registry_alone(self) -> None:
        packages = json.loads(read(os.path.join(os.environ["NODE_PACKAGES"], LOCK_FILE)))["packages"]
        packages.pop("")
        self.assertGreater(len(packages), 3)
        for name, package in packages.items():
            with self.subTest(name):
                self.assertRegex(package["resolved"], r"^https://registry\.npmjs\.org/")
                self.assertIn("integrity", package)
