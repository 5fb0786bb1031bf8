"""Writes the tables of a page in Markdown, from the measurements of one run.

A table stands between two comments, which name it:

    <!-- measured: goals -->
    ...
    <!-- end of what is measured -->
"""

import re

from charts import duration

END = "<!-- end of what is measured -->"

HEAP = {
    "connection": "connection",
    "stream": "stream, open, of either kind",
    "subscription": "subscription to a window of its own",
    "answered_window": "window that a client answers for",
    "question": "question that waits for its answer",
}


def goals(rows, measurements):
    lines = ["| name | what | median (lowest, highest) | ratio | reach | |",
             "|---|---|---|---|---|---|"]
    for row in rows:
        ours = measurements[row.ours]
        show = duration if row.theirs else "{:.2f}".format
        reach, verdict = "", ""
        if row.reach:
            reach = row.goal().replace("<=", "≤").replace(">=", "≥")
            verdict = "reached" if row.met(measurements) else "**missed**"
        lines.append(
            f"| `{row.name}` | {row.what} | {show(ours.median)} "
            f"({show(ours.low)}, {show(ours.high)}) | "
            f"{row.ratio(measurements):.3g} | {reach} | {verdict} |")
    return lines


def heap(measurements):
    lines = ["| for each | bytes |", "|---|---|"]
    for name, thing in HEAP.items():
        size = measurements["memory." + name].median
        lines.append(f"| {thing} | {size:,.0f} |")
    return lines


def replace(page, name, lines):
    """The page with its table `name` replaced."""
    start = f"<!-- measured: {name} -->"
    table = re.compile(f"{re.escape(start)}.*?{re.escape(END)}", re.DOTALL)
    text = "\n".join([start, *lines, END])
    page, count = table.subn(lambda _: text, page)
    if count != 1:
        raise ValueError(f"the page has {count} tables of the name '{name}'")
    return page
