"""Reads C++ as far as is needed to find places to change: tokens, brackets, and
the statements of function bodies. Knows the style of this project's sources (as
clang-format leaves them), and no types."""

from __future__ import annotations

import re
from dataclasses import dataclass, field

_TOKEN = re.compile(
    r"""
      (?P<space>[ \t\r\n\\]+)
    | (?P<comment>//[^\n]*|/\*.*?\*/)
    | (?P<directive>^\#(?:\\\n|[^\n])*)
    | (?P<raw>R"(?P<delimiter>[^(\s]*)\(.*?\)(?P=delimiter)")
    | (?P<string>"(?:\\.|[^"\\\n])*")
    | (?P<char>'(?:\\.|[^'\\\n])+')
    | (?P<number>\d[\w']*(?:\.\d*)?)
    | (?P<word>[A-Za-z_]\w*)
    | (?P<sign><=>|<<=|>>=|\.\.\.|->\*|::|->|\+\+|--|&&|\|\||[<>=!+\-*/%&|^]=|<<|[^\s\w])
    """,
    re.VERBOSE | re.MULTILINE | re.DOTALL)

_OPENING = {"(": ")", "[": "]", "{": "}"}


@dataclass(frozen=True)
class Token:
    kind: str  # raw, string, char, number, word, sign
    text: str
    start: int
    end: int


@dataclass
class Statement:
    """What stands between two semicolons, or a compound one such as an if."""

    kind: str  # expression, declaration, return, jump, compound, label
    first: int  # Tokens [first, last].
    last: int


@dataclass
class Condition:
    """The condition of an if or a loop: tokens [first, last]."""

    keyword: str
    first: int
    last: int


@dataclass
class RangeFor:
    """for (DECLARATION : SEQUENCE) BODY, as numbers of tokens."""

    opening: int
    colon: int
    closing: int
    body: Statement


@dataclass
class Body:
    """A function's or lambda's body: tokens (opening, closing)."""

    opening: int
    closing: int
    returns: str  # The word before the function's name, "" where not known.
    blocks: list[list[Statement]] = field(default_factory=list)
    conditions: list[Condition] = field(default_factory=list)
    range_fors: list[RangeFor] = field(default_factory=list)


class Source:
    """One file, read."""

    def __init__(self, text: str) -> None:
        self.text = text
        self.tokens = tokenize(text)
        self.partner = _match_brackets(self.tokens)
        self.bodies: list[Body] = []
        i = 0
        while i < len(self.tokens):
            if self.tokens[i].text == "{" and self._opens_body(i):
                self._read_body(i)
                i = self.partner[i]
            i += 1

    def line_of(self, position: int) -> int:
        return self.text.count("\n", 0, position) + 1

    def line_text(self, line: int) -> str:
        return self.text.split("\n")[line - 1].strip()

    def word(self, i: int) -> str:
        return self.tokens[i].text if 0 <= i < len(self.tokens) else ""

    def _opens_body(self, i: int) -> bool:
        """Whether the brace opens a body: of a function, not of a class, a
        namespace, an enum or a list of values."""
        before = self.word(i - 1)
        if before in (")", "]"):
            return not self._is_requires(i)
        if before in ("const", "override", "final", "noexcept", "mutable"):
            return self.word(i - 2) in (")", "const", "override", "noexcept")
        # After initialisers of members: ") : a_(b), c_{d} {".
        if before == "}":
            return self.word(self.partner[i - 1] - 1).endswith("_")
        # A lambda that names its type: ") -> bool {".
        return self.tokens[i - 1].kind == "word" and self.word(i - 2) == "->"

    def _is_requires(self, i: int) -> bool:
        before = self.partner[i - 1] - 1
        return self.word(before) == "requires"

    def _read_body(self, opening: int) -> None:
        body = Body(opening, self.partner[opening], self._return_type(opening))
        self.bodies.append(body)
        self._read_block(opening, body)

    def _return_type(self, opening: int) -> str:
        i = opening - 1
        while i > 0 and self.word(i) in ("const", "override", "final", "noexcept"):
            i -= 1
        if self.word(i) != ")":
            return ""
        name = self.partner[i] - 1
        if self.word(name) == ")":  # operator()
            name -= 2
        if self.tokens[name].kind != "word":
            return ""
        while self.word(name - 1) == "::":
            name -= 2
        return self.word(name - 1)

    def _read_block(self, opening: int, body: Body) -> None:
        statements: list[Statement] = []
        body.blocks.append(statements)
        i = opening + 1
        while i < self.partner[opening]:
            statement = self._read_statement(i, body)
            statements.append(statement)
            i = statement.last + 1

    def _read_statement(self, i: int, body: Body) -> Statement:
        word = self.word(i)
        if word == "{":
            self._read_block(i, body)
            return Statement("compound", i, self.partner[i])
        if word in ("if", "for", "while", "switch"):
            return self._read_compound(i, body)
        if word == "case" or (word == "default" and self.word(i + 1) == ":"):
            while self.word(i) != ":":
                i += 1
            return Statement("label", i, i)
        last = self._end_of_simple(i, body)
        return Statement(self._kind_of_simple(i, last), i, last)

    def _read_compound(self, i: int, body: Body) -> Statement:
        keyword = self.word(i)
        opening = i + 1
        is_constexpr = self.word(opening) == "constexpr"
        if is_constexpr:
            opening += 1
        closing = self.partner[opening]
        self._read_lambdas(opening + 1, closing, body)
        inner = self._read_branch(closing + 1, body)
        colons = [k for k in range(opening + 1, closing)
                  if self.word(k) == ":" and self._depth_between(opening, k) == 0]
        semicolons = [k for k in range(opening + 1, closing)
                      if self.word(k) == ";" and self._depth_between(opening, k) == 0]
        if keyword == "for" and colons and not semicolons:
            body.range_fors.append(RangeFor(opening, colons[0], closing, inner))
        elif keyword == "for" and len(semicolons) == 2:
            if semicolons[1] > semicolons[0] + 1:
                body.conditions.append(
                    Condition("for", semicolons[0] + 1, semicolons[1] - 1))
        elif keyword in ("if", "while") and not is_constexpr:
            first = semicolons[0] + 1 if semicolons else opening + 1
            if not any(self.word(k) == "=" for k in range(first, closing)):
                body.conditions.append(Condition(keyword, first, closing - 1))
        last = inner.last
        if keyword == "if" and self.word(last + 1) == "else":
            last = self._read_branch(last + 2, body).last
        return Statement("compound", i, last)

    def _read_branch(self, i: int, body: Body) -> Statement:
        """The statement after an if, an else or a for: a block of its own."""
        statement = self._read_statement(i, body)
        if self.word(i) != "{":
            body.blocks.append([statement])
        return statement

    def _depth_between(self, opening: int, i: int) -> int:
        depth, k = 0, opening + 1
        while k < i:
            if self.word(k) in _OPENING:
                if self.partner[k] > i:
                    depth += 1
                else:
                    k = self.partner[k]
            k += 1
        return depth

    def _end_of_simple(self, i: int, body: Body) -> int:
        first = i
        while self.word(i) != ";":
            if self.word(i) in _OPENING:
                i = self.partner[i]
            i += 1
        self._read_lambdas(first, i, body)
        return i

    def _read_lambdas(self, first: int, end: int, body: Body) -> None:
        k = first
        while k < end:
            if self.word(k) == "{" and self._opens_body(k):
                inner = Body(k, self.partner[k], "")
                self.bodies.append(inner)
                self._read_block(k, inner)
                k = self.partner[k]
            k += 1

    def _kind_of_simple(self, first: int, last: int) -> str:
        word = self.word(first)
        if word == "return":
            return "return"
        if word in ("break", "continue"):
            return "jump"
        if word in ("const", "auto", "static", "constexpr", "using", "typedef",
                    "struct", "static_assert", "unsigned", "int", "bool",
                    "size_t", "char", "void", "uint8_t", "uint32_t",
                    "uint64_t", "int64_t"):
            return "declaration"
        if first == last:
            return "jump"  # An empty statement.
        i = first
        if self.tokens[i].kind != "word" or word in ("delete", "this"):
            return "expression"
        while True:
            i += 1
            if self.word(i) == "<" and self.text[self.tokens[i].start - 1] != " ":
                i = self.end_of_angle(i) + 1
            if self.word(i) != "::":
                break
            i += 1
        while self.word(i) in ("&", "*", "const", "&&"):
            i += 1
        return "declaration" if self.tokens[i].kind == "word" else "expression"

    def end_of_angle(self, i: int) -> int:
        """The > that closes the < at i."""
        depth = 0
        while i < len(self.tokens):
            text = self.word(i)
            depth += text == "<"
            depth -= 1 if text == ">" else 0
            if depth <= 0:
                return i
            i += 1
        return i


def tokenize(text: str) -> list[Token]:
    """All tokens but comments and directives."""
    tokens = []
    position = 0
    while position < len(text):
        match = _TOKEN.match(text, position)
        assert match, text[position:position + 40]
        kind = match.lastgroup
        if match.group("raw"):
            kind = "raw"
        if kind not in ("space", "comment", "directive"):
            tokens.append(Token(kind, match.group(), match.start(), match.end()))
        position = match.end()
    return tokens


def _match_brackets(tokens: list[Token]) -> dict[int, int]:
    partner: dict[int, int] = {}
    open_ones: list[int] = []
    for i, token in enumerate(tokens):
        if token.kind != "sign":
            continue
        if token.text in _OPENING:
            open_ones.append(i)
        elif token.text in _OPENING.values():
            opening = open_ones.pop()
            partner[opening] = i
            partner[i] = opening
    return partner


def flatten(code: str) -> str:
    """The code in one line, without comments."""
    words = []
    for token in tokenize(code):
        words.append(_escaped(token.text) if token.kind == "raw" else token.text)
    return " ".join(words)


def _escaped(raw: str) -> str:
    content = raw[raw.index("(") + 1:raw.rindex(")")]
    return quote(content)


def quote(content: str) -> str:
    """A string literal in one line."""
    content = content.replace("\\", "\\\\").replace('"', '\\"')
    return '"' + content.replace("\n", "\\n").replace("?", "\\?") + '"'
