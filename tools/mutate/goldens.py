"""Makes the generator's golden files anew with a mutant, as somebody would who
takes a mistake for a wanted change, and says whether anything else notices: the
tests beside the comparison, the compiler, or the tests of the generated code."""

from __future__ import annotations

import hashlib
import json
import pathlib
import shlex
import shutil
import subprocess
import tempfile
import threading

from build import MutatedTree
from judge import Suites, passes
from suites import RPC

_TESTDATA = f"{RPC}/generator/testdata"
_TEST = f"{RPC}/generator/generated_code_unittest.cc"
_LIBRARY = "libtorvane_generator_golden.a"
_FIRST = "interleaved"  # It has methods of all kinds.


class Goldens:
    def __init__(self, tree: MutatedTree, all_suites: Suites) -> None:
        self._build = tree.build
        self._suites = all_suites
        self._testdata = tree.source / _TESTDATA
        self._golden = self._testdata / "golden"
        self._test = tree.source / _TEST
        self._wanted = self._read()
        # There is one folder of test data, into which the generator's own test
        # writes.
        self._writing = threading.Lock()
        self._known: dict[str, str] = {}
        commands = json.loads((tree.build / "compile_commands.json").read_text())
        self._commands = {entry["file"]: shlex.split(entry["command"])
                          for entry in commands}
        linked = subprocess.run(
            ["ninja", "-C", tree.build, "-t", "commands", "generated_code_unittest"],
            check=True, capture_output=True, text=True).stdout.splitlines()
        self._link = shlex.split(linked[-1].split("&&")[1])

    def who_notices(self, number: int) -> str:
        with self._writing:
            try:
                for name in ("rpc_generator_unittest", "plugin_unittest"):
                    if self._suites[name].notices(number, UPDATE_GOLDENS="1"):
                        return name
                made = self._read()
            finally:
                self._restore()
        changed = {path: content for path, content in made.items()
                   if path.parent == self._golden and content != self._wanted.get(path)}
        if not changed:
            return ""
        key = hashlib.sha256(repr(sorted(changed.items())).encode()).hexdigest()
        if key not in self._known:
            self._known[key] = self._who_notices_code(changed)
        return self._known[key]

    def who_notices_as_they_are(self, path: str, number: int) -> str:
        """The first suite of the file that notices, or ""."""
        with self._writing:
            return self._suites.who_notices(path, number)

    def _read(self) -> dict[pathlib.Path, bytes]:
        return {path: path.read_bytes() for path in sorted(self._testdata.rglob("*"))
                if path.suffix in (".h", ".cc", ".expected")}

    def _restore(self) -> None:
        for path, content in self._read().items():
            if content != self._wanted.get(path):
                if path in self._wanted:
                    path.write_bytes(self._wanted[path])
                else:
                    path.unlink()

    def _who_notices_code(self, changed: dict[pathlib.Path, bytes]) -> str:
        """Tries one service first: most mistakes show in each."""
        stems = sorted({_stem(path) for path in changed},
                       key=lambda stem: (stem != _FIRST, stem))
        one = {path: text for path, text in changed.items() if _stem(path) == stems[0]}
        return (self._who_notices_files(stems[:1], one) or
                self._who_notices_files(stems, changed))

    def _who_notices_files(self, stems: list[str],
                           changed: dict[pathlib.Path, bytes]) -> str:
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            golden = folder / "golden"
            shutil.copytree(self._golden, golden)
            for path, content in changed.items():
                (golden / path.name).write_bytes(content)
            sources = [self._golden / f"{stem}.rpc.cc" for stem in stems]
            if any(path.suffix == ".h" for path in changed):
                sources.append(self._test)
            objects = [folder / f"{source.name}.o" for source in sources]
            for source, compiled in zip(sources, objects):
                if not self._compile(source, golden, compiled):
                    return "compiler"
            program = folder / "generated_code_unittest"
            if not self._link_with(objects, folder, program):
                return "linker"
            return "" if passes([program], folder) else "generated_code_unittest"

    def _compile(self, source: pathlib.Path, golden: pathlib.Path,
                 compiled: pathlib.Path) -> bool:
        command = [word.replace(str(self._golden), str(golden))
                   for word in self._commands[str(source)]]
        command[command.index("-o") + 1] = str(compiled)
        return passes(command, self._build)

    def _link_with(self, objects: list[pathlib.Path], folder: pathlib.Path,
                   program: pathlib.Path) -> bool:
        """Takes these objects in place of those of the same names, in the library
        too: what they lack would else be found there."""
        names = [path.name for path in objects]
        command = [self._without(word, names, folder) if word.endswith(_LIBRARY) else word
                   for word in self._link
                   if pathlib.Path(word).name not in names]
        place = command.index("-o")
        command[place + 1] = str(program)
        command[place:place] = [str(path) for path in objects]
        return passes(command, self._build)

    def _without(self, library: str, names: list[str], folder: pathlib.Path) -> str:
        """A copy of the library without these objects."""
        copy = folder / _LIBRARY
        shutil.copy(self._build / library, copy)
        subprocess.run(["ar", "d", copy, *names], check=True)
        return str(copy)


def _stem(path: pathlib.Path) -> str:
    return path.name.rsplit(".rpc.", 1)[0]
