"""Finds the places of a source that can be changed, and says how each is written
with a switch for every change.

A node is a range of the source that has switches. Nodes lie within each other
or apart. A node's code may hold a part of the source twice: once as it stands,
with its line breaks, and once flattened into a line, so that every statement
stays on its line."""

from __future__ import annotations

from collections.abc import Callable
from dataclasses import dataclass, field

from cpp import (Body, Condition, RangeFor, Source, Statement, flatten, quote)


@dataclass(eq=False)
class Mutant:
    """One change of one place."""

    kind: str
    change: str
    position: int
    number: int = 0  # That the switch compares with.
    dropped: bool = False


class Writer:
    """What the code of a node is written with."""

    def __init__(self, keep: Callable[[int, int], str]) -> None:
        self.keep = keep  # The source of a range, nodes inside it included.

    def flat(self, start: int, end: int) -> str:
        return flatten(self.keep(start, end))

    def on(self, mutant: Mutant) -> str:
        """The condition that holds while the mutant is switched on."""
        return "false" if mutant.dropped else f"MUTANT({mutant.number})"


@dataclass(eq=False)
class Node:
    start: int
    end: int
    mutants: list[Mutant]
    write: Callable[[Writer], str]
    children: list[Node] = field(default_factory=list)


_COMPARISONS = {
    "==": ["!="],
    "!=": ["=="],
    "<": ["<=", ">="],
    ">": [">=", "<="],
    "<=": ["<", ">"],
    ">=": [">", "<"],
}
_ASSIGNMENTS = {"=", "+=", "-=", "*=", "/=", "|=", "&=", "^=", "<<=", ">>="}
_ENDS = _ASSIGNMENTS | {",", ";", "?", ":", "return", "case", "{", "}"}
_NO_CALLEES = {"if", "for", "while", "switch", "return", "sizeof", "decltype",
               "requires", "defined", "catch", "alignof", "new", "noexcept"}
_INTEGERS = {"int", "size_t", "int32_t", "uint32_t", "int64_t", "uint64_t"}


class Finder:
    """The nodes of one source."""

    def __init__(self, source: Source, strings: bool = True) -> None:
        self.source = source
        self.nodes: list[Node] = []
        self._in_body = [False] * len(source.tokens)
        for body in source.bodies:
            for i in range(body.opening, body.closing):
                self._in_body[i] = True
        for body in source.bodies:
            self._find_in_body(body)
        skipped = self._tokens_that_must_stay()
        for i in range(len(source.tokens)):
            if self._in_body[i] and i not in skipped:
                self._find_operator(i)
                self._find_literal(i, strings)
                self._find_call(i)
        self._find_initialisers()
        self.nodes = _nest(self.nodes)

    # What the finders below are written with.

    def _start(self, i: int) -> int:
        return self.source.tokens[i].start

    def _end(self, i: int) -> int:
        return self.source.tokens[i].end

    def _word(self, i: int) -> str:
        return self.source.word(i)

    def _text(self, first: int, last: int) -> str:
        return flatten(self.source.text[self._start(first):self._end(last)])

    def _add(self, start: int, end: int, mutants: list[Mutant],
             write: Callable[[Writer], str]) -> None:
        if mutants:
            self.nodes.append(Node(start, end, mutants, write))

    def _tokens_that_must_stay(self) -> set[int]:
        """Those of case labels and of declarations of constants."""
        skipped: set[int] = set()
        for i, token in enumerate(self.source.tokens):
            if token.text == "case":
                while self._word(i) != ":":
                    skipped.add(i)
                    i += 1
            elif token.text in ("constexpr", "static_assert", "requires"):
                while self._word(i) not in (";", "{"):
                    skipped.add(i)
                    i += 1
        return skipped

    # Statements.

    def _find_in_body(self, body: Body) -> None:
        for block in body.blocks:
            run: list[Statement] = []
            for statement in block:
                if statement.kind in ("expression", "compound"):
                    run.append(statement)
                    continue
                if self._is_last_call(statement, body):
                    run.append(statement)
                self._find_run(run)
                run = []
                self._find_return(statement, body)
            self._find_run(run)
        for condition in body.conditions:
            self._find_condition(condition)
        for loop in body.range_fors:
            self._find_elements(loop)

    def _is_last_call(self, statement: Statement, body: Body) -> bool:
        """Whether it is "return Call();" of a function that returns nothing."""
        return (statement.kind == "return" and body.returns == "void" and
                statement.last > statement.first + 1)

    def _find_run(self, run: list[Statement]) -> None:
        """Leaves out each call, and swaps each two neighbours."""
        if not run:
            return
        removals: list[Mutant | None] = []
        swaps: list[Mutant | None] = []
        for i, statement in enumerate(run):
            text = self._text(statement.first, statement.last)
            is_call = statement.kind != "compound"
            position = self._start(statement.first)
            removals.append(
                Mutant("removed call", f"without {_short(text)}", position)
                if is_call else None)
            if i + 1 == len(run):
                continue
            following = self._text(run[i + 1].first, run[i + 1].last)
            swaps.append(
                Mutant("order", f"{_short(following)} before {_short(text)}",
                       position) if following != text else None)
        swaps.append(None)
        mutants = [m for m in removals + swaps if m]

        def write(writer: Writer) -> str:
            code = ""
            for i, statement in enumerate(run):
                start, end = self._start(statement.first), self._end(statement.last)
                if i > 0:
                    code += writer.keep(self._end(run[i - 1].last), start)
                swap, before = swaps[i], swaps[i - 1] if i > 0 else None
                if swap and not swap.dropped:
                    code += (f"if ({writer.on(swap)}) "
                             f"{{ {self._as_call(run[i + 1], writer)} }} ")
                off = " || ".join(writer.on(m) for m in (removals[i], before)
                                  if m and not m.dropped)
                if not off:
                    code += writer.keep(start, end)
                elif statement.kind == "return":
                    code += f"{{ if ({off}) return; {writer.keep(start, end)} }}"
                else:
                    code += f"{{ if (!({off})) {{ {writer.keep(start, end)} }} }}"
            return code

        self._add(self._start(run[0].first), self._end(run[-1].last), mutants, write)

    def _as_call(self, statement: Statement, writer: Writer) -> str:
        first = statement.first + (statement.kind == "return")
        return writer.flat(self._start(first), self._end(statement.last))

    def _find_return(self, statement: Statement, body: Body) -> None:
        first, last = statement.first + 1, statement.last - 1
        if statement.kind != "return":
            return
        if first > last:
            self._find_early_return(statement)
            return
        start, end = self._start(first), self._end(last)
        text = self._text(first, last)
        # Literals and operators have changes of their own.
        if first == last and self.source.tokens[first].kind != "word":
            return
        if text in ("true", "false", "nullptr") or any(
                self._is_operator(i) for i in range(first, last + 1)):
            return
        if body.returns == "bool":
            mutant = Mutant("constant", f"returns !({_short(text)})", start)
            self._add(start, end, [mutant], lambda writer: (
                f"({writer.on(mutant)} != static_cast<bool>({writer.keep(start, end)}))"))
        elif body.returns in _INTEGERS:
            mutant = Mutant("constant", f"returns {_short(text)} + 1", start)
            self._add(start, end, [mutant], lambda writer: (
                f"(({writer.keep(start, end)}) + ({writer.on(mutant)} ? 1 : 0))"))

    def _find_early_return(self, statement: Statement) -> None:
        start, end = self._start(statement.first), self._end(statement.last)
        mutant = Mutant("condition", "without return ;", start)
        self._add(start, end, [mutant], lambda writer: (
            f"{{ if (!{writer.on(mutant)}) {writer.keep(start, end)} }}"))

    def _find_condition(self, condition: Condition) -> None:
        """Takes the condition for true, and for false. A loop would not end."""
        start, end = self._start(condition.first), self._end(condition.last)
        text = _short(self._text(condition.first, condition.last))
        never = Mutant("condition", f"false instead of {text}", start)
        always = Mutant("condition", f"true instead of {text}", start)
        if condition.keyword != "if":
            self._add(start, end, [never], lambda writer: (
                f"(!{writer.on(never)} && ({writer.keep(start, end)}))"))
            return
        self._add(start, end, [never, always], lambda writer: (
            f"({writer.on(always)} || (!{writer.on(never)} && "
            f"({writer.keep(start, end)})))"))

    def _find_elements(self, loop: RangeFor) -> None:
        """Leaves out the first element of a sequence, and the last."""
        after = self._end(loop.opening)
        sequence = (self._start(loop.colon + 1), self._end(loop.closing - 1))
        body = (self._start(loop.body.first), self._end(loop.body.last))
        text = _short(self._text(loop.colon + 1, loop.closing - 1))
        first = Mutant("element", f"without the first of {text}", sequence[0])
        last = Mutant("element", f"without the last of {text}", sequence[0])

        def write(writer: Writer) -> str:
            name = f"mutant_elements_{loop.opening}"
            count = f"mutation::Count({writer.flat(*sequence)})"
            return (f"mutation::Elements {name}{{{writer.on(first)}, "
                    f"{writer.on(last)} ? {count} : 0}}; "
                    f"{writer.keep(after, body[0])}"
                    f"{{ if ({name}.LeaveOut()) continue; {writer.keep(*body)} }}")

        self._add(after, body[1], [first, last], write)

    # Operators.

    def _is_operator(self, i: int) -> bool:
        text = self._word(i)
        return text in ("&&", "||", "!") or self._is_comparison(i)

    def _is_comparison(self, i: int) -> bool:
        """Brackets of templates have no spaces around them."""
        source = self.source
        return (source.tokens[i].kind == "sign" and self._word(i) in _COMPARISONS and
                source.text[self._start(i) - 1] in " \n" and
                source.text[self._end(i)] in " \n" and
                self._word(i - 1) != "operator")

    def _find_operator(self, i: int) -> None:
        if self._is_comparison(i):
            self._find_comparison(i)
        elif self._word(i) in ("&&", "||") and self.source.text[self._end(i)] in " \n":
            self._find_junction(i)
        elif self._word(i) == "!":
            self._find_negation(i)

    def _operands(self, i: int, ends: set[str]) -> tuple[int, int]:
        """The first token of the left operand, the last of the right one."""
        partner = self.source.partner
        first = i
        while self._word(first - 1) not in ends:
            if self._word(first - 1) in "([" and self._word(first - 1):
                break
            first = partner.get(first - 1, first - 1)
        last = self._end_of_operand(i + 1, ends)
        return first, last

    def _end_of_operand(self, i: int, ends: set[str]) -> int:
        partner = self.source.partner
        while True:
            if self._word(i) in ("(", "[", "{"):
                i = partner[i]
            following = self._word(i + 1)
            if following in (")", "]") or (following in ends and following != "{"):
                return i
            i += 1

    def _find_comparison(self, i: int) -> None:
        first, last = self._operands(i, _ENDS | {"&&", "||"})
        start, end = self._start(first), self._end(last)
        if self._is_whole_condition(first, last) and self._word(i) in ("==", "!="):
            return
        left = (start, self._end(i - 1))
        right = (self._start(i + 1), end)
        text = _short(self._text(first, last))
        sign = self._word(i)
        mutants = [Mutant("comparison", f"{other} instead of {sign} in {text}",
                          self._start(i)) for other in _COMPARISONS[sign]]
        others = list(_COMPARISONS[sign])
        if sign == "<" and self._is_bound_of_loop(first):
            mutants.append(Mutant("element", f"without the last, {text}", start))
            others.append("+ 1 <")

        def write(writer: Writer) -> str:
            code = f"({writer.keep(start, end)})"
            for mutant, other in zip(mutants, others):
                if not mutant.dropped:
                    code = (f"({writer.on(mutant)} ? "
                            f"{writer.flat(*left)} {other} {writer.flat(*right)}"
                            f" : {code})")
            return code

        self._add(start, end, mutants, write)

    def _is_whole_condition(self, first: int, last: int) -> bool:
        """These are taken for true and false already."""
        return any(c.keyword == "if" and c.first == first and c.last == last
                   for body in self.source.bodies for c in body.conditions)

    def _is_bound_of_loop(self, first: int) -> bool:
        return any(c.keyword == "for" and c.first == first
                   for body in self.source.bodies for c in body.conditions)

    def _find_junction(self, i: int) -> None:
        """A || B is !(!A && !B), so one expression can be both."""
        sign = self._word(i)
        ends = _ENDS | {"||"} if sign == "&&" else _ENDS
        first, last = self._operands(i, ends)
        if sign == "&&":  # Of a && b && c, the right operand of the first is b.
            last = self._end_of_operand(i + 1, ends | {"&&"})
        else:
            last = self._end_of_operand(i + 1, ends | {"||"})
        start, end = self._start(first), self._end(last)
        other = "||" if sign == "&&" else "&&"
        text = _short(self._text(first, last))
        position = self._start(i)
        swapped = Mutant("condition", f"{other} instead of {sign} in {text}", position)
        left = (start, self._end(i - 1))
        right = (self._start(i + 1), end)
        no_left, no_right = (
            Mutant("condition", f"without {_short(self._text(*side))} {where} {sign}",
                   position)
            for side, where in (((first, i - 1), "before"), ((i + 1, last), "behind")))

        def write(writer: Writer) -> str:
            gap = writer.keep(left[1], self._start(i)) + writer.keep(self._end(i), right[0])
            skip_left, skip_right = writer.on(no_left), writer.on(no_right)
            a = f"static_cast<bool>({writer.keep(*left)})"
            b = f"static_cast<bool>({writer.keep(*right)})"
            if sign == "&&":
                a, b = f"({skip_left} || {a})", f"({skip_right} || {b})"
                flip = writer.on(swapped)
            else:
                a, b = f"(!{skip_left} && {a})", f"(!{skip_right} && {b})"
                flip = f"(!{writer.on(swapped)})"
            return f"({flip} != (({flip} != {a}) &&{gap} ({flip} != {b})))"

        self._add(start, end, [swapped, no_left, no_right], write)

    def _find_negation(self, i: int) -> None:
        last = self._end_of_operand(i + 1, _ENDS | {"&&", "||"} | set(_COMPARISONS))
        if self._is_whole_condition(i, last):
            return
        start, end = self._start(i), self._end(last)
        mutant = Mutant("condition", f"without ! in {_short(self._text(i, last))}", start)
        self._add(start, end, [mutant], lambda writer: (
            f"({writer.on(mutant)} != ({writer.keep(start, end)}))"))

    # Literals.

    def _find_literal(self, i: int, strings: bool) -> None:
        token = self.source.tokens[i]
        if token.kind == "number":
            self._find_number(i)
        elif token.kind == "char":
            code = token.text[1:-1]
            if len(code) == 1:
                self._find_constant(i, [f"'{chr(ord(code) + 1)}'"])
        elif token.text in ("true", "false"):
            self._find_constant(i, ["false" if token.text == "true" else "true"])
        elif token.kind == "string" and strings:
            self._find_string(i)
        elif token.kind == "raw":
            self._find_template(i)

    def _find_number(self, i: int) -> None:
        digits = self._word(i).replace("'", "").rstrip("uUlL")
        try:
            value = int(digits, 0)
        except ValueError:
            return
        suffix = self._word(i).replace("'", "")[len(digits):]
        others = [value + 1] + ([value - 1] if value > 0 else [])
        self._find_constant(i, [f"{other}{suffix}" for other in others])

    def _find_constant(self, i: int, others: list[str]) -> None:
        start, end = self._start(i), self._end(i)
        mutants = [Mutant("constant", f"{other} instead of {self._word(i)}", start)
                   for other in others]
        self._add(start, end, mutants,
                  lambda writer: _choice(writer, mutants, others, self._word(i)))

    def _find_string(self, i: int) -> None:
        if self.source.tokens[i - 1].kind == "string" or self._word(i) == '""':
            return
        last = i
        while self.source.tokens[last + 1].kind == "string":
            last += 1
        start, end = self._start(i), self._end(last)
        mutant = Mutant("constant", f'"" instead of {_short(self._text(i, last))}', start)
        self._add(start, end, [mutant], lambda writer: (
            f'({writer.on(mutant)} ? "" : {writer.keep(start, end)})'))

    def _find_template(self, i: int) -> None:
        """Code that the generator writes: leaves out each statement of it."""
        text = self._word(i)
        opening = text.index("(") + 1
        lines = text[opening:text.rindex(")")].split("\n")
        mutants, others = [], []
        position = self._start(i) + opening
        for k, line in enumerate(lines):
            for change, new_line in _changes_of_template_line(line):
                mutants.append(Mutant("template", change, position))
                others.append(quote("\n".join(lines[:k] + new_line + lines[k + 1:])))
            position += len(line) + 1
        self._add(self._start(i), self._end(i), mutants,
                  lambda writer: _choice(writer, mutants, others, text))

    # Calls.

    def _find_call(self, i: int) -> None:
        """Swaps each two neighbouring arguments."""
        if self._word(i) != "(":
            return
        first = self._start_of_callee(i)
        if first is None:
            return
        arguments = self._arguments(i)
        start, end = self._start(first), self._end(self.source.partner[i])
        swaps = []
        for k in range(len(arguments) - 1):
            a, b = self._text(*arguments[k]), self._text(*arguments[k + 1])
            if a != b:
                swaps.append((k, Mutant("argument", f"{_short(b)} before {_short(a)}",
                                        self._start(arguments[k][0]))))

        def write(writer: Writer) -> str:
            code = writer.keep(start, end)
            for k, mutant in swaps:
                if mutant.dropped:
                    continue
                ranges = [(self._start(a), self._end(b)) for a, b in arguments]
                ranges[k], ranges[k + 1] = ranges[k + 1], ranges[k]
                swapped = ", ".join(writer.flat(*r) for r in ranges)
                callee = writer.flat(start, self._start(i))
                code = f"({writer.on(mutant)} ? {callee}({swapped}) : {code})"
            return code

        self._add(start, end, [m for _, m in swaps], write)

    def _start_of_callee(self, opening: int) -> int | None:
        source, k = self.source, opening - 1
        while True:
            if self._word(k) == ">":
                k = self._start_of_angle(k) - 1
            elif self._word(k) in (")", "]"):
                k = source.partner[k] - 1
                continue
            if source.tokens[k].kind != "word" or self._word(k) in _NO_CALLEES:
                return None
            if self._word(k - 1) not in ("::", ".", "->"):
                break
            if self._word(k - 1) == "::" and source.tokens[k - 2].kind != "word" and (
                    self._word(k - 2) != ">"):
                k -= 1
                break
            k -= 2
        if self._word(k).isupper() or "ABSL_" in self._word(k):
            return None
        before = source.tokens[k - 1]
        if before.kind == "word" and before.text not in ("return", "else"):
            return None  # A declaration, or new.
        return None if before.text in (">", "&", "*") else k

    def _start_of_angle(self, k: int) -> int:
        depth = 0
        while True:
            depth += (self._word(k) == ">") - (self._word(k) == "<")
            if depth == 0 or k == 0:
                return k
            k -= 1

    def _arguments(self, opening: int) -> list[tuple[int, int]]:
        closing = self.source.partner[opening]
        arguments, first, i = [], opening + 1, opening + 1
        while i < closing:
            if self._word(i) == ",":
                arguments.append((first, i - 1))
                first = i + 1
            elif self._word(i) in ("(", "[", "{"):
                i = self.source.partner[i]
            i += 1
        return arguments + [(first, closing - 1)] if first < closing else arguments

    # What stands outside of functions.

    def _find_initialisers(self) -> None:
        """Members and constants that are given a number or a truth value."""
        for i in range(1, len(self.source.tokens) - 1):
            # "= 0" after brackets makes a function pure.
            if self._in_body[i] or self._word(i) != "=" or self._word(i - 1) in (
                    "operator", ")", "const", "override"):
                continue
            end = i
            while self._word(end) not in (";", ",", ")", "{", ">"):
                end += 1
            literals = [k for k in range(i + 1, end)
                        if self.source.tokens[k].kind == "number" or
                        self._word(k) in ("true", "false")]
            declared_as = self._specifiers(i)
            if self._word(end) != ";" or not literals or "constinit" in [
                    self._word(k) for k in declared_as]:
                continue
            for k in literals:
                self._find_literal(k, strings=False)
            for k in declared_as:
                if self._word(k) == "constexpr":
                    self._make_variable(k, end, declared_as)

    def _specifiers(self, i: int) -> list[int]:
        found = []
        while i > 0 and self._word(i) not in (";", "{", "}", "(", ")"):
            found.append(i)
            i -= 1
        return found

    def _make_variable(self, i: int, end: int, declared_as: list[int]) -> None:
        """A switch is no constant expression."""
        is_inline = any(self._word(k) == "inline" for k in declared_as)
        start, end = self._start(i), self._end(end)
        inner = [node for node in self.nodes if start <= node.start and node.end <= end]
        mutants = [mutant for node in inner for mutant in node.mutants]
        rest = self._end(i)

        def write(writer: Writer) -> str:
            if all(mutant.dropped for mutant in mutants):
                return writer.keep(start, end)
            return ("const" if is_inline else "inline const") + writer.keep(rest, end)

        self.nodes.append(Node(start, end, [], write))


def _changes_of_template_line(line: str) -> list[tuple[str, list[str]]]:
    code = line.strip()
    if code.startswith("//"):
        return []
    changes: list[tuple[str, list[str]]] = []
    if code.endswith(";"):
        changes.append((f"without {_short(code)}", []))
    for one, other in (("$request$", "$response$"), ("$response$", "$request$"),
                       ("$index$", "0"), ("$service_index$", "0")):
        if one in code:
            changes.append((f"{other} instead of {one} in {_short(code)}",
                            [line.replace(one, other)]))
    return changes


def _choice(writer: Writer, mutants: list[Mutant], others: list[str], text: str) -> str:
    chosen = [f"{writer.on(mutant)} ? {other} : "
              for mutant, other in zip(mutants, others) if not mutant.dropped]
    return f"({''.join(chosen)}{text})"


def _short(text: str) -> str:
    return text if len(text) <= 60 else text[:57] + "..."


def _nest(nodes: list[Node]) -> list[Node]:
    """Puts nodes into those around them. One that crosses another is left out."""
    top: list[Node] = []
    around: list[Node] = []
    for node in sorted(nodes, key=lambda n: (n.start, -n.end)):
        while around and around[-1].end <= node.start:
            around.pop()
        if around and node.end > around[-1].end:
            for mutant in node.mutants:
                mutant.dropped = True
            continue
        (around[-1].children if around else top).append(node)
        around.append(node)
    return top
