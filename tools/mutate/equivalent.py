"""The list of mutants that change nothing that can be seen."""

from __future__ import annotations

import pathlib


class Equivalents:
    """A line is "FILE | LINE OF THE SOURCE | CHANGE | REASON"; other lines are
    comments, and empty. The same change of the same line text occurs more than
    once in some files; the second time it ends in "#2"."""

    def __init__(self, path: pathlib.Path) -> None:
        self._reasons: dict[str, str] = {}
        for line in path.read_text().splitlines():
            if line and not line.startswith("#"):
                name, _, reason = line.rpartition(" | ")
                self._reasons[name] = reason

    def names(self) -> set[str]:
        return set(self._reasons)

    def reason(self, name: str) -> str:
        return self._reasons.get(name, "")
