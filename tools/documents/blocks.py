"""The fenced blocks of a page, and who runs each.

Comments right above a block say what its text does not:

    <!-- run by: NAME -->         a test of CTest, or a script, that runs the block
    <!-- needs: PROGRAM, ... -->  where one of these is missing, so is who runs it
    <!-- run first: COMMAND -->   a command that the reader has no need of
    <!-- compiled as: NAME -->    fragments_unittest.cc compiles and runs the fragment
    <!-- not run: REASON -->      one of NOT_RUN, with its words
    <!-- file: PATH -->           the block is this file of the sources; "run by" says
                                  who uses that
    <!-- part of: PATH -->        the same of lines of a file that stand together there

A block of commands (sh, console) without "run by" is run here. A block that stands
right below another one, with no line between them, is what that one prints.
"""

import re
from dataclasses import dataclass, field
from typing import Dict, List, Optional

# Why a block may be run by nobody. Its scripts, presets, targets and tests are still
# looked up.
NOT_RUN = {
    "takes too long": "longer than a test may; the page says what was seen",
    "changes this machine": "packages, services or lock files of whoever reads it",
}
FENCE = re.compile(r"^```(\w*)$")
# Blocks of other kinds, which would be overlooked.
OTHER_FENCE = re.compile(r"^\s*(```|~~~)")
INDENTED = re.compile(r"^(    |\t)")
COMMENT = re.compile(r"^<!-- (run by|needs|run first|compiled as|not run|file|part of): (.*) -->$")


class Fault(Exception):
    """Something about a page that is not as it should be; names page and line."""


@dataclass
class Block:
    page: str
    line: int
    language: str
    text: str
    comments: Dict[str, List[str]] = field(default_factory=dict)
    output: Optional[str] = None

    def fault(self, text: str) -> Fault:
        return Fault(f"{self.page}:{self.line}: {text}")

    def comment(self, name: str) -> Optional[str]:
        """The comment of that name; there may be one of each, but for "run first"."""
        found = self.comments.get(name, [])
        if len(found) > 1:
            raise self.fault(f'two comments "{name}"')
        return found[0] if found else None

    def names(self, name: str) -> List[str]:
        """The comma-separated names of that comment."""
        return [word.strip() for word in (self.comment(name) or "").split(",") if word.strip()]


def read_blocks(page: str, text: str) -> List[Block]:
    blocks: List[Block] = []
    comments: Dict[str, List[str]] = {}
    lines = text.splitlines()
    at = 0
    below_block = False
    while at < len(lines):
        fence = FENCE.match(lines[at])
        comment = COMMENT.match(lines[at])
        if fence:
            end = find_end(page, lines, at)
            content = "\n".join(lines[at + 1 : end]) + "\n"
            if below_block and not fence[1]:
                blocks[-1].output = content
            else:
                blocks.append(Block(page, at + 1, fence[1], content, comments))
            comments, at, below_block = {}, end + 1, True
            continue
        if OTHER_FENCE.match(lines[at]):
            raise Fault(f"{page}:{at + 1}: a fence that this test cannot read")
        if INDENTED.match(lines[at]):
            raise Fault(f"{page}:{at + 1}: an indented line, which may be a block")
        if comment:
            comments.setdefault(comment[1], []).append(comment[2])
        elif comments:
            raise Fault(f"{page}:{at + 1}: a comment about a block that does not stand above one")
        at, below_block = at + 1, False
    return blocks


def find_end(page: str, lines: List[str], start: int) -> int:
    for at in range(start + 1, len(lines)):
        if lines[at] == "```":
            return at
    raise Fault(f"{page}:{start + 1}: a block without end")


def commands(text: str) -> List[str]:
    """The commands of a text, each with the lines that it goes on in."""
    found: List[str] = []
    open_line = False
    for line in text.splitlines():
        if open_line:
            found[-1] += "\n" + line
        elif line.strip() and not line.startswith("#"):
            found.append(line)
        open_line = bool(found) and found[-1].endswith("\\")
    return found


def without_note(command: str) -> str:
    """The command without the note behind it. A # in quotes begins none."""
    words = re.match(r"""(?:'[^']*'|"(?:\\.|[^"\\])*"|\\.|(?!\s+# )[^'"\\])*""", command, re.S)
    assert words
    if not re.match(r"\s+# |$", command[words.end():]):
        raise AssertionError(f"a quote without end: {command}")
    return words[0]


def dialogue(block: Block) -> List[List[str]]:
    """Of a console block: each command, and the lines that it prints."""
    turns: List[List[str]] = []
    for line in block.text.splitlines():
        if line.startswith("$ "):
            turns.append([line[2:]])
        elif turns:
            turns[-1].append(line)
        else:
            raise block.fault("a console block begins with a command, after '$ '")
    return turns


def code_spans(text: str) -> List[str]:
    """What stands between backticks in the text of a page, outside of blocks."""
    prose = re.sub(r"^```.*?^```$", "", text, flags=re.M | re.S)
    return re.findall(r"`([^`\n]+)`", prose)
