"""Draws charts as SVG files, from the measurements of one run."""

import math
from html import escape

from rows import duration

STYLE = """
  text { font: 13px system-ui, sans-serif; fill: #24292f; }
  .title { font-size: 16px; font-weight: 600; }
  .note { font-size: 11px; fill: #57606a; }
  .ours { fill: #0969da; } .peer { fill: #8c959f; } .limit { fill: #c9d1d9; }
  .missed { fill: #cf6a28; }
  .line { stroke: #57606a; stroke-dasharray: 4 3; }
"""

WIDTH = 760
BAR = 18
GAP = 6
LEFT = 200
RIGHT = 110


class Canvas:
    """Collects SVG elements from top to bottom; `y` is where the next one goes."""

    def __init__(self):
        self.elements = []
        self.y = 16

    def text(self, x, text, style="", anchor="start"):
        self.elements.append(
            f'<text x="{x:.1f}" y="{self.y:.1f}" class="{style}" '
            f'text-anchor="{anchor}">{escape(text)}</text>')

    def bar(self, x, width, style):
        self.elements.append(
            f'<rect x="{x:.1f}" y="{self.y - BAR + 5:.1f}" '
            f'width="{max(width, 1):.1f}" height="{BAR}" class="{style}" '
            f'rx="2"/>')

    def heading(self, title, note=""):
        self.y += 12
        self.text(12, title, "title")
        if note:
            self.y += 18
            self.text(12, note, "note")
        self.y += 26

    def labelled_bar(self, label, width, style, value):
        self.text(LEFT - 10, label, anchor="end")
        self.bar(LEFT, width, style)
        self.text(LEFT + width + 8, value)
        self.y += BAR + GAP

    def write(self, path):
        height = self.y + 4
        path.write_text(
            f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" '
            f'height="{height:.0f}" viewBox="0 0 {WIDTH} {height:.0f}">\n'
            f"<style>{STYLE}</style>\n"
            f'<rect width="{WIDTH}" height="{height:.0f}" fill="#ffffff"/>\n' +
            "\n".join(self.elements) + "\n</svg>\n")


LABELS = {
    "epoll": ("raw epoll, no content", "limit"),
    "rpc": ("this service", "ours"),
    "grpc": ("gRPC", "peer"),
    "capnp": ("Cap'n Proto", "peer"),
}

PANELS = (
    ("unary", "A call and its answer"),
    ("pipelined", "A call, 64 in flight"),
    ("question", "A question of the browser and its answer"),
    ("fanout", "An event to 1,000 streams on 10 connections"),
)


def draw_headline(measurements, when, machine, path):
    """CPU time of both processes for each operation, peer by peer."""
    canvas = Canvas()
    canvas.heading("CPU time of client and server together",
                   f"{when}, {machine}; both processes on one core; medians. "
                   "Each panel has a scale of its own.")
    for mode, title in PANELS:
        times = {
            peer: measurements[f"{mode}.{peer}.cpu"].median for peer in LABELS
        }
        longest = max(times.values())
        canvas.text(LEFT, title)
        canvas.y += 22
        for peer, (label, style) in LABELS.items():
            width = times[peer] / longest * (WIDTH - LEFT - RIGHT)
            canvas.labelled_bar(label, width, style, duration(times[peer]))
        canvas.y += 14
    canvas.write(path)


def draw_lookups(measurements, when, machine, path):
    """Look-ups by number of keys, on a logarithmic scale."""
    kinds = (
        ("Integers", "map of integers", "limit"),
        ("Windows<MessageComparator>", "by content", "ours"),
        ("Windows<NaiveComparator>", "by content, naively", "peer"),
    )
    canvas = Canvas()
    canvas.heading("Finding a window in a registry",
                   f"{when}, {machine}; medians; logarithmic scale")
    for keys in (10, 1_000, 100_000):
        canvas.text(LEFT, f"{keys:,} windows")
        canvas.y += 22
        for kind, label, style in kinds:
            time = measurements[
                f"message_comparator.{kind}/keys:{keys}/learnable:0"].median
            width = math.log10(time) / 4 * (WIDTH - LEFT - RIGHT)
            canvas.labelled_bar(label, width, style, duration(time))
        canvas.y += 14
    canvas.write(path)


def draw_goals(rows, measurements, when, machine, path):
    """Draws a bar for each goal, and a line at the place of the goal."""
    canvas = Canvas()
    canvas.heading("Goals",
                   f"{when}, {machine}. The line is the goal; left of it is "
                   "better. Logarithmic scale, from a sixteenth.")
    left, reached, doubling = 230, 300, 75  # Where bars start, and how long.
    goal_x = left + reached
    top = canvas.y - 10
    for row in rows:
        ratio = row.ratio(measurements)
        used = row.reach / ratio if row.at_least else ratio / row.reach
        length = reached + doubling * math.log2(used)
        canvas.text(left - 10, row.name, anchor="end")
        canvas.bar(left, length,
                   "ours" if row.met(measurements) else "missed")
        canvas.text(max(left + length, goal_x) + 8,
                    f"{ratio:.3g}  ({row.goal()})")
        canvas.y += BAR + GAP
    canvas.elements.append(
        f'<line x1="{goal_x}" x2="{goal_x}" y1="{top:.1f}" '
        f'y2="{canvas.y - 14:.1f}" class="line"/>')
    canvas.write(path)
