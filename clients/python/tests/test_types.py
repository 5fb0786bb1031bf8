"""What type checkers know of the methods: that it is what the contract says, and that
they find mistakes by it."""

import importlib.util
import inspect
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

from clients_page import programs, section
from declarations import PATH, methods_of
from torvane.contract import builtin_contract
from torvane.service import Windows

GENERATOR = os.path.join(os.path.dirname(__file__), "..", "make_types.py")

# Each line with a mistake says, after "#!", what mypy says of it.
MISTAKES = """
import torvane

async def calls(client: torvane.Client) -> None:
    windows = client.windows
    await windows.set_titel(1, title="x")  #! no attribute "set_titel"
    await windows.set_title(1, titel="x")  #! argument "titel" for "set_title"
    await windows.set_title(1, "x")  #! Too many positional arguments for "set_title"
    await windows.set_title()  #! Too few arguments for "set_title"
    await windows.set_title(1, title=3)  #! Argument "title" to "set_title"
    await windows.set_title("1", title="x")  #! Argument 1 to "set_title"
    await windows.show(1, timeout="soon")  #! Argument "timeout" to "show"
    await windows.set_bounds(1, bounds={"with": 3})  #! Argument "bounds" to "set_bounds"
    await windows.set_vibrancy(1, material="MENU")  #! Argument "material" to "set_vibrancy"
    windows.show(1)  #! must be used
    title: str = windows.get_title(1)  #! "Coroutine[Any, Any, str]"
    number: int = await windows.get_title(1)  #! "str", variable has type "int"
    print(await windows.show(1))  #! does not return a value
    print((await windows.get_bounds(1)).widht)  #! "Rect" has no attribute "widht"

async def streams(client: torvane.Client, again: torvane.Reconnecting) -> None:
    async for event in client.windows.closed(1):
        print(event.titel)  #! "BrowserWindowClosed" has no attribute "titel"
    async for missed in again.windows.when_browser_window_closed(1):
        print(missed.title)  #! "Missed"
    client.windows.closed("1")  #! Argument 1 to "closed"
    client.windows.on_close_window(1, handler=3)  #! No overload variant of "on_close_window"
    client.windows.on_close_window(1)(3)  #! Argument 1 has incompatible type "int"
    await again.windows.is_visibel(1)  #! no attribute "is_visibel"

def blocking(
    client: torvane.blocking.Client, again: torvane.blocking.ReconnectingClient
) -> None:
    client.windows.set_titel(1)  #! no attribute "set_titel"
    again.windows.set_title(1, titel="x")  #! argument "titel" for "set_title"
    number: int = client.windows.get_title(1)  #! "str", variable has type "int"
    for event in client.windows.closed(1):
        print(event.titel)  #! "BrowserWindowClosed" has no attribute "titel"
    for missed in again.windows.closed(1):
        print(missed.title)  #! "Missed"
"""

CORRECT = """
from typing import TYPE_CHECKING, Optional, Union

import torvane

if TYPE_CHECKING:
    from torvane.contract_types import Rect

async def calls(windows: torvane.Windows, x: Optional[int]) -> "Rect":
    await windows.set_position(1, x=x, y=None, timeout=None)
    await windows.set_bounds(1, bounds=await windows.get_bounds(2))
    await windows.set_window_style_flags(await windows.get_window_style_flags(1))
    await windows.set_window_display_policy(1, policy=2, timeout=0.5)
    closed: bool = await windows.close(1)
    return await windows.get_bounds(1)

async def streams(client: Union[torvane.Client, torvane.Reconnecting]) -> None:
    async for event in client.windows.closed():
        if not isinstance(event, torvane.Missed):
            title: str = await client.windows.get_title(event.browser_id)
    await client.service("rpc.status.ServerStatus").get_status()
"""


class Declarations(unittest.TestCase):
    def test_are_those_that_the_generator_makes(self):
        made = subprocess.run(
            [sys.executable, "-B", GENERATOR], stdout=subprocess.PIPE, text=True, check=True
        ).stdout
        with open(PATH, encoding="utf-8") as file:
            self.assertEqual(file.read(), made, "make_types.py says how to bring it up to date")

    def test_have_exactly_the_methods_and_parameters_that_there_are(self):
        windows = Windows(None, builtin_contract())
        functions = {name: getattr(windows, name) for name in dir(windows) if name[0] != "_"}
        self.assertEqual(len(functions), 41 + len(["closed"]))
        for client, calls in (
            ("Windows", "AsyncCalls"),
            ("ReconnectingWindows", "AsyncCalls"),
            ("BlockingWindows", "BlockingCalls"),
            ("BlockingReconnectingWindows", "BlockingCalls"),
        ):
            declared = {**methods_of(calls), **methods_of(client)}
            self.assertEqual(set(declared), set(functions))
            for name, function in functions.items():
                with self.subTest(f"{client}.{name}"):
                    parameters = list(inspect.signature(function).parameters)
                    self.assertEqual(declared[name].parameters, parameters)

    def test_calls_return_the_same_with_and_without_asyncio(self):
        for name, method in methods_of("BlockingCalls").items():
            with self.subTest(name):
                asynchronous = methods_of("AsyncCalls")[name]
                self.assertEqual(method, asynchronous._replace(is_async=False))
                self.assertTrue(asynchronous.is_async)


@unittest.skipUnless(
    importlib.util.find_spec("mypy"), "Python has no mypy: scripts/setup installs python3-mypy"
)
class Mypy(unittest.TestCase):
    def errors(self, *texts):
        """What mypy says of programs: (program, line, error) of each error."""
        folder = tempfile.mkdtemp(prefix="torvane-python-")
        self.addCleanup(shutil.rmtree, folder)
        for number, text in enumerate(texts):
            with open(os.path.join(folder, f"program_{number}.py"), "w", encoding="utf-8") as file:
                file.write(text)
        package = os.environ["PACKAGE"]
        ended = subprocess.run(
            # A handler may return what it reads in a question, which has no type.
            [sys.executable, "-m", "mypy", "--no-warn-return-any", "--cache-dir=/dev/null"]
            + ["--config-file", f"{package}/pyproject.toml", *sorted(os.listdir(folder))],
            cwd=folder,
            env={**os.environ, "MYPYPATH": f"{package}/src"},
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
        )
        self.assertIn(ended.returncode, (0, 1), ended.stdout)
        self.assertIn(f"{len(texts)} source file", ended.stdout)
        found = re.findall(r"^(.+?):(\d+): error: (.*)$", ended.stdout, re.M)
        return [(program, int(line), error) for program, line, error in found]

    def test_has_nothing_to_say_of_correct_programs(self):
        of_page = [program.text for program in programs(section("Python", 2), "python")]
        self.assertEqual(self.errors(CORRECT, *of_page), [])

    def test_finds_each_mistake(self):
        found = {line: error for _, line, error in self.errors(MISTAKES)}
        expected = {}
        for number, line in enumerate(MISTAKES.splitlines(), 1):
            if "#! " in line:
                expected[number] = line.split("#! ")[1]
        self.assertEqual(set(found), set(expected), found)
        for number, text in expected.items():
            with self.subTest(text):
                self.assertIn(text, found[number])


if __name__ == "__main__":
    unittest.main()
