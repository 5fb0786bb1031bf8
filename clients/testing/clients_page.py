"""The programs of docs/clients.md. Below each stands its transcript: what it prints,
what is typed at the host, after "host> ", and what that prints, after "host: "."""

import os
import re
from typing import Iterator, NamedTuple

HOST_PROMPT = "host> "
HOST_PRINTS = "host: "


class Program(NamedTuple):
    heading: str
    text: str
    transcript: str


def page() -> str:
    with open(os.environ["CLIENTS_PAGE"], encoding="utf-8") as file:
        return file.read()


def section(heading: str, level: int) -> str:
    """The text below a heading of this level, up to the next of its level or above."""
    found = re.search(rf"^#{{{level}}} {heading}\n(.*?)(?=^#{{1,{level}}} |\Z)", page(), re.M | re.S)
    if not found:
        raise AssertionError(f"docs/clients.md has no section {heading}")
    return found[1]


def programs(text: str, language: str) -> Iterator[Program]:
    """The programs in this language, of a text with headings of the third level."""
    count = 0
    for part in re.split(r"^### ", text, flags=re.M):
        for program, transcript in re.findall(
            rf"^```{language}\n(.*?)^```\n```\n(.*?)^```\n", part, flags=re.M | re.S
        ):
            count += 1
            yield Program(part.splitlines()[0], program, transcript)
    # A program without transcript would not be run.
    if text.count(f"```{language}\n") != count:
        raise AssertionError("a program of docs/clients.md has no transcript below it")
