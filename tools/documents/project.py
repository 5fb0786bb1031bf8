"""What commands of a page may name: scripts with their options, presets, targets and
tests. Commands of the build are not run by this test; they are held against these.

A build that is not whole, since something optional is not installed, lacks targets and
tests that pages rightly name: there they are not looked up."""

import json
import os
import re
import shlex
import subprocess
from typing import Dict, List


class Project:
    def __init__(self, source: str, build: str, ctest: str, whole: bool) -> None:
        self.source = source
        self._whole = whole
        self._help: Dict[str, str] = {}
        shown = subprocess.run(
            [ctest, "--test-dir", build, "--show-only=json-v1"],
            stdout=subprocess.PIPE, check=True, text=True)
        self._labels: Dict[str, List[str]] = {}
        for test in json.loads(shown.stdout)["tests"]:
            labels = [p["value"] for p in test["properties"] if p["name"] == "LABELS"]
            self._labels[test["name"]] = labels[0] if labels else []
        with open(os.path.join(source, "CMakePresets.json"), encoding="utf-8") as file:
            self._presets = {preset["name"] for preset in json.load(file)["configurePresets"]}
        with open(os.path.join(build, "build.ninja"), encoding="utf-8") as file:
            self._targets = set(re.findall(r"^build ([\w/.-]+): phony", file.read(), re.M))

    def has_test(self, name: str) -> bool:
        return name in self._labels

    def has_script(self, name: str) -> bool:
        """Whether this is one of the commands, which all know --help."""
        return name.startswith("scripts/") and os.access(os.path.join(self.source, name), os.X_OK)

    def script_runs(self, script: str, command: str) -> bool:
        """Whether the script is what the command runs, or names that itself."""
        program = command.split()[0]
        with open(os.path.join(self.source, script), encoding="utf-8") as file:
            return program == script or not program.startswith("scripts/") or program in file.read()

    def faults(self, command: str) -> List[str]:
        """What the commands of a line name, and there is not. <x> stands for a name."""
        if re.search(r"<\w+>", command):
            return []
        found: List[str] = []
        for part in re.split(r"&&|\|\||;", re.sub(r"\\\n", " ", command)):
            try:
                words = shlex.split(part, comments=True)
            except ValueError:
                continue
            while words and re.match(r"^\w+=", words[0]):
                words.pop(0)
            if words:
                found += self._faults_of(words[0], words[1:])
        return found

    def _faults_of(self, program: str, words: List[str]) -> List[str]:
        if program.startswith("scripts/"):
            return self._script_faults(program, words)
        if program not in ("cmake", "ctest"):
            return []
        found = []
        options = self._options(words)
        found += [f"no preset {name}" for name in options.get("--preset", []) if name not in self._presets]
        if not self._whole:
            return found
        found += [f"no target {name}" for name in options.get("--target", []) if name not in self._targets]
        if program == "ctest":
            names, labels = options.get("-R", []), options.get("-L", [])
            if (names or labels) and not self._matches(names, labels):
                found.append("no test matches " + " ".join(names + labels))
        return found

    def _options(self, words: List[str]) -> Dict[str, List[str]]:
        """The values behind each option, up to the next one."""
        options: Dict[str, List[str]] = {}
        values: List[str] = []
        for word in words:
            if word.startswith("-"):
                values = options.setdefault(word, [])
            else:
                values.append(word)
        return options

    def _matches(self, names: List[str], labels: List[str]) -> bool:
        return any(
            all(re.search(pattern, name) for pattern in names)
            and all(any(re.search(pattern, label) for label in of_test) for pattern in labels)
            for name, of_test in self._labels.items())

    def _script_faults(self, script: str, words: List[str]) -> List[str]:
        if not os.path.exists(os.path.join(self.source, script)):
            return [f"no script {script}"]
        if not self.has_script(script):
            return []
        if script not in self._help:
            self._help[script] = subprocess.run(
                [os.path.join(self.source, script), "--help"],
                stdout=subprocess.PIPE, check=True, text=True).stdout
        return [f"{script} --help has no {word}" for word in words
                if word.startswith("-") and not re.search(rf"(?<![\w-]){word}(?![\w-])", self._help[script])]
