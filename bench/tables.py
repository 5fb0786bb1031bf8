"""Writes the tables of pages in Markdown, from the measurements of one run.

A run replaces the blocks between two such comments; the first has its name:

    <!-- measured: goals -->
    ...
    <!-- end of what is measured -->
"""

import re

from rows import duration, lookup

END = "<!-- end of what is measured -->"

HEAP = {
    "connection": "connection",
    "event_stream": "stream of events, open",
    "callback_stream": "stream of questions, open",
    "subscription": "subscription to a window of its own",
    "answered_window": "window that a client answers for",
    "question": "question that waits for its answer",
}


def sizes(name, *numbers):
    return [f"{name}/{number}" for number in numbers]


COSTS = (
    ("look-up among 10, 1,000 and 100,000 windows",
     [lookup("Windows<MessageComparator>", keys)
      for keys in (10, 1_000, 100_000)]),
    ("subscribing and unsubscribing among 10, 1,000 and 100,000 windows",
     sizes("event_stream.SubscribeAndUnsubscribe", 10, 1_000, 100_000)),
    ("an event to 1, 100 and 1,000 streams",
     sizes("event_stream.Publish", 1, 100, 1_000)),
    ("a question and its answer, among 1 and 1,000 windows",
     sizes("callback_stream.AskAndAnswer", 1, 1_000)),
    ("opening, subscribing and completing a stream of events, with 0, 100 and "
     "10,000 other keys",
     sizes("event_stream.OpenSubscribeComplete", 0, 100, 10_000)),
    ("the same of questions",
     sizes("callback_stream.OpenSubscribeComplete", 0, 100, 10_000)),
)


def goals(rows, measurements):
    lines = ["| name | what | ours, each | ratio (lowest, highest) | reach | |",
             "|---|---|---|---|---|---|"]
    for row in rows:
        low, high = row.range(measurements)
        reach, verdict = "", ""
        if row.reach:
            reach = row.goal().replace("<=", "≤").replace(">=", "≥")
            verdict = "reached" if row.met(measurements) else "**missed**"
        lines.append(
            f"| `{row.name}` | {row.what} | "
            f"{row.show(measurements[row.ours].median)} | "
            f"{row.ratio(measurements):.3g} ({low:.3g}, {high:.3g}) | "
            f"{reach} | {verdict} |")
    return lines


def costs(measurements):
    lines = ["| operation | time |", "|---|---|"]
    for what, names in COSTS:
        times = [duration(measurements[name].median) for name in names]
        lines.append(f"| {what} | {', '.join(times)} |")
    return lines


def heap(measurements):
    lines = ["| for each | bytes |", "|---|---|"]
    for name, thing in HEAP.items():
        size = measurements["memory." + name].median
        lines.append(f"| {thing} | {size:,.0f} |")
    return lines


def rewrite(path, blocks):
    """Replaces the blocks of a page. `blocks` has their new lines, by name."""
    page = path.read_text(encoding="utf-8")
    for name, lines in blocks.items():
        start = f"<!-- measured: {name} -->"
        block = re.compile(f"{re.escape(start)}.*?{re.escape(END)}", re.DOTALL)
        text = "\n".join([start, *lines, END])
        page, count = block.subn(lambda _: text, page)
        if count != 1:
            raise ValueError(f"{path} has {count} blocks of the name '{name}'")
    path.write_text(page, encoding="utf-8")
