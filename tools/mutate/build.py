"""The build of the mutated copy: every mutant is in it, switched off."""

from __future__ import annotations

import hashlib
import json
import pathlib
import re
import subprocess
import sys

import suites
from places import Mutant
from switches import SWITCH_HEADER, MutatedFile

# What the copy needs to be configured.
_COPIED = ["CMakeLists.txt", "cmake", "src", "clients", "examples", "tools", "bench",
           "docs", "scripts"]
_PLACE = re.compile(r"(?P<path>/\S+?):(?P<line>\d+):(?P<column>\d+): (?P<text>.*)")


class BuildFailed(Exception):
    pass


class MutatedTree:
    """The copy in build/mutate. Paths of sources are below the source root."""

    def __init__(self, root: pathlib.Path) -> None:
        self._root = root
        self.source = root / "build/mutate/source"
        self.build = root / "build/mutate/build"
        self._memory = root / "build/mutate/dropped.json"
        self.files: list[MutatedFile] = []
        self._copy()
        self._recall()

    def make(self) -> None:
        """Builds the suites. Mutants that do not compile are dropped."""
        self._write_all()
        if not (self.build / "build.ninja").exists():
            _run(["cmake", "-S", self.source, "-B", self.build, "-G", "Ninja",
                  "-DCMAKE_CXX_COMPILER=g++", "-DCMAKE_BUILD_TYPE=Debug",
                  # Switches give warnings that the sources do not.
                  "-DCMAKE_CXX_FLAGS_DEBUG=-O1 -w"])
        # Libraries first: they are what does not compile.
        self._make(["torvane_method_kind", "torvane_stream", "torvane_generator",
                    "torvane_serving", "torvane_transport"])
        self._make(["torvane_browser_window"])
        self._make(suites.all_suites() + ["generated_code_unittest", "protoc-gen-rpc"])
        self._remember()

    def dropped(self) -> int:
        return sum(mutant.dropped for file in self.files for mutant in file.mutants)

    def suite(self, name: str) -> tuple[pathlib.Path, pathlib.Path]:
        """The program, and the folder that it runs in."""
        program = next((self.build / "src").rglob(name))
        folder = self.source / program.parent.relative_to(self.build)
        return program, folder

    def _copy(self) -> None:
        listed = subprocess.run(
            ["git", "ls-files", "--cached", "--others", "--exclude-standard", "--",
             *_COPIED], cwd=self._root, check=True, capture_output=True, text=True)
        number = 0
        paths = [p for p in listed.stdout.splitlines() if (self._root / p).is_file()]
        for path in paths:
            target = self.source / path
            target.parent.mkdir(parents=True, exist_ok=True)
            if not suites.is_mutated(path):
                _write(target, (self._root / path).read_bytes())
                continue
            file = MutatedFile(path, (self._root / path).read_text())
            for mutant in file.mutants:
                number += 1
                mutant.number = number
            self.files.append(file)
        _write(self.source / "src" / SWITCH_HEADER,
               pathlib.Path(__file__).with_name(SWITCH_HEADER).read_bytes())
        kept = {self.source / path for path in paths} | {
            self.source / "src" / SWITCH_HEADER}
        for path in self.source.rglob("*"):
            if path.is_file() and path not in kept:
                path.unlink()

    def _write_all(self) -> None:
        for file in self.files:
            _write(self.source / file.path, file.code().encode())

    def _make(self, targets: list[str]) -> None:
        while True:
            result = subprocess.run(
                ["ninja", "-C", self.build, "-k", "0", *targets],
                capture_output=True, text=True)
            if result.returncode == 0:
                return
            dropped = self._drop_faulty(result.stdout)
            print(f"    {dropped} changes do not compile and are dropped",
                  file=sys.stderr, flush=True)
            if dropped == 0:
                raise BuildFailed(result.stdout[-4000:])
            self._write_all()

    def _drop_faulty(self, output: str) -> int:
        """Drops a mutant for each line of a mutated source with an error."""
        by_path = {str(self.source / file.path): file for file in self.files}
        dropped = 0
        lines: set[tuple[str, int]] = set()
        for path, line, column in sorted(faults(output, set(by_path))):
            if (path, line) in lines:
                continue
            lines.add((path, line))
            mutant = by_path[path].at_fault(line, column)
            at_fault = [mutant] if mutant else self._of_constants(by_path[path].line(line))
            for mutant in at_fault:
                mutant.dropped = True
                dropped += 1
        return dropped

    def _of_constants(self, line: str) -> list[Mutant]:
        """The mutants of the constants that the line names. They are variables,
        which it may not be able to use."""
        names = set(re.findall(r"\bk[A-Z]\w*", line))
        return [mutant for file in self.files for name in names
                for mutant in file.of_constant(name)]

    def _remember(self) -> None:
        """So that the next build need not find out again what does not compile."""
        self._memory.write_text(json.dumps({
            _hash(file): [i for i, m in enumerate(file.mutants) if m.dropped]
            for file in self.files}))

    def _recall(self) -> None:
        if not self._memory.exists():
            return
        known = json.loads(self._memory.read_text())
        for file in self.files:
            for i in known.get(_hash(file), []):
                file.mutants[i].dropped = True


def faults(output: str, paths: set[str]) -> set[tuple[str, int, int]]:
    """The places in these sources that GCC's errors are about: for each error its
    own, or what it was compiled for, or the constant that has become a variable."""
    found: set[tuple[str, int, int]] = set()
    required_from: tuple[str, int, int] | None = None
    fault: tuple[str, int, int] | None = None
    for text in output.splitlines():
        match = _PLACE.match(text)
        if not match:
            continue
        path = str(pathlib.Path(match["path"]).resolve())
        place = (path, int(match["line"]), int(match["column"]))
        if "error: " in match["text"]:
            found |= {fault} if fault else set()
            fault = place if path in paths else required_from
            required_from = None
        elif path in paths and "required from" in match["text"]:
            required_from = required_from or place
        elif path in paths and "not initialized with a constant" in match["text"]:
            fault = place
    return found | ({fault} if fault else set())


def _hash(file: MutatedFile) -> str:
    """Of the source and of what can be changed in it."""
    changes = "\n".join(m.change for m in file.mutants)
    return hashlib.sha256((file.path + file.source.text + changes).encode()).hexdigest()


def _write(path: pathlib.Path, content: bytes) -> None:
    """Leaves a file alone that need not be built again."""
    if not path.exists() or path.read_bytes() != content:
        path.write_bytes(content)


def _run(command: list[object]) -> None:
    result = subprocess.run([str(word) for word in command], capture_output=True,
                            text=True)
    if result.returncode != 0:
        raise BuildFailed(result.stdout + result.stderr)
