"""Writes a source anew with a switch at each place that can be changed, and with
every line where it was."""

from __future__ import annotations

import re
from collections.abc import Iterator

from cpp import Source
from places import Finder, Mutant, Node, Writer

SWITCH_HEADER = "mutation.h"


class MutatedFile:
    """A source with its switches. `path` is relative to the source root."""

    def __init__(self, path: str, text: str) -> None:
        self.path = path
        self.source = Source(text)
        self._nodes = Finder(self.source).nodes
        self.mutants = sorted(set(_mutants_of(self._nodes)),
                              key=lambda m: (m.position, m.kind, m.change))

    def line_of(self, mutant: Mutant) -> int:
        return self.source.line_of(mutant.position)

    def name_of(self, mutant: Mutant) -> str:
        """Says which mutant it is, also when lines move."""
        line = self.source.line_text(self.line_of(mutant))
        return f"{self.path} | {line} | {mutant.change}"

    def code(self) -> str:
        return _include_switch(self._render(0, len(self.source.text), self._nodes))

    def at_fault(self, line: int, column: int) -> Mutant | None:
        """The mutant that is likely to be why the line does not compile: that of
        the last switch before the column, or of the first behind it, or else the
        riskiest one around the line."""
        present = {m.number: m for m in self.mutants if not m.dropped}
        code = self.code().split("\n")[line - 1]
        before = [int(number) for number in _SWITCH.findall(code[:column])]
        behind = [int(number) for number in _SWITCH.findall(code[column:])]
        for number in before[::-1] + behind:
            if number in present:
                return present[number]
        around = self._around(line)
        return around[0] if around else None

    def of_constant(self, name: str) -> list[Mutant]:
        """The mutants of a constant that is declared here."""
        declared = re.compile(rf"constexpr [^;=]*\b{name}(\[\])? =")
        return [m for m in self.mutants if not m.dropped and
                declared.search(self.source.line_text(self.line_of(m)))]

    def line(self, line: int) -> str:
        return self.source.line_text(line)

    def _around(self, line: int) -> list[Mutant]:
        """The mutants whose code may stand on the line, the riskiest first."""
        found: list[tuple[tuple[int, int], Mutant]] = []

        def visit(nodes: list[Node]) -> None:
            for node in nodes:
                first = self.source.line_of(node.start)
                last = self.source.line_of(node.end)
                if first <= line <= last:
                    found.extend(((_RISKS.get(m.kind, 9), last - first), m)
                                 for m in node.mutants if not m.dropped)
                    visit(node.children)

        visit(self._nodes)
        return [mutant for _, mutant in sorted(found, key=lambda f: f[0])]

    def _render(self, start: int, end: int, nodes: list[Node]) -> str:
        code, position = "", start
        for node in nodes:
            if node.start < start or node.end > end:
                continue
            code += self.source.text[position:node.start] + self._render_node(node)
            position = node.end
        return code + self.source.text[position:end]

    def _render_node(self, node: Node) -> str:
        def keep(start: int, end: int) -> str:
            return self._render(start, end, node.children)

        if node.mutants and all(mutant.dropped for mutant in node.mutants):
            return keep(node.start, node.end)
        return node.write(Writer(keep))


# Of those switches that choose between two expressions: these have types.
_SWITCH = re.compile(r"MUTANT ?\( ?(\d+) ?\) \?")

# How likely a change is not to compile, by its kind: 0 is the likeliest.
_RISKS = {"argument": 0, "constant": 1, "element": 2, "comparison": 3,
          "template": 4, "order": 5, "removed call": 6}


def _mutants_of(nodes: list[Node]) -> Iterator[Mutant]:
    for node in nodes:
        yield from (mutant for mutant in node.mutants if not mutant.dropped)
        yield from _mutants_of(node.children)


def _include_switch(code: str) -> str:
    """In the place of the first empty line, so that all others keep theirs."""
    lines = code.split("\n")
    lines[lines.index("")] = f'#include "{SWITCH_HEADER}"'
    return "\n".join(lines)
