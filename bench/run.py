"""Measures, prints the table, and writes summary.json, the page and its charts.

    python3 -B bench/run.py BUILD_FOLDER DOCS_FOLDER [--rounds N] [--keep-docs]
"""

import argparse
import datetime
import json
import os
import pathlib
import platform

import charts
import measure
import rows
import tables


def machine():
    """The kind of machine, without its name."""
    model = platform.machine()
    with open("/proc/cpuinfo", encoding="utf-8") as cpuinfo:
        for line in cpuinfo:
            if line.startswith("model name"):
                model = line.split(":", 1)[1].strip()
                break
    return f"{os.cpu_count()} cores of {model}"


def print_table(measurements):
    print(f"{'':29} {'median':>9} {'min':>9} {'max':>9} {'ratio':>7} "
          f"{'lowest':>7} {'highest':>7}  reach")
    for row in rows.ROWS:
        ours = measurements[row.ours]
        show = charts.duration if row.theirs else "{:.2f}".format
        low, high = row.range(measurements)
        verdict = row.goal()
        if verdict:
            verdict += "" if row.met(measurements) else "  MISSED"
        print(f"{row.name:29} {show(ours.median):>9} {show(ours.low):>9} "
              f"{show(ours.high):>9} {row.ratio(measurements):7.3g} "
              f"{low:7.3g} {high:7.3g}  {verdict}")
    print("\nHeap of the host, bytes for each:")
    for thing in tables.HEAP:
        print(f"  {thing:16} {measurements['memory.' + thing].median:8,.0f}")


def print_verdict(measurements):
    goals = [row for row in rows.ROWS if row.reach]
    missed = [row.name for row in goals if not row.met(measurements)]
    print(f"\n{len(goals) - len(missed)} of {len(goals)} goals reached"
          f"{'; missed: ' + ', '.join(missed) if missed else ''}")
    if measurements.busy_runs:
        print(f"{measurements.busy_runs} of {measurements.runs} runs shared "
              "their core with other programs. Ratios of CPU time bear that; "
              "unary_p99_vs_p50 does not.")


def draw_charts(measurements, when, folder):
    folder.mkdir(parents=True, exist_ok=True)
    goals = [row for row in rows.ROWS if row.reach]
    charts.draw_headline(measurements, when, machine(),
                         folder / "headline.svg")
    charts.draw_lookups(measurements, when, machine(), folder / "lookups.svg")
    charts.draw_goals(goals, measurements, when, machine(),
                      folder / "goals.svg")


def write_page(measurements, when, rounds, path):
    occasion = (f"Measured on {when}, on {machine()}, in {rounds} rounds; "
                f"{measurements.busy_runs} of {measurements.runs} runs shared "
                "their core with other programs.")
    page = path.read_text(encoding="utf-8")
    page = tables.replace(page, "occasion", [occasion])
    page = tables.replace(page, "goals", tables.goals(rows.ROWS, measurements))
    page = tables.replace(page, "heap", tables.heap(measurements))
    path.write_text(page, encoding="utf-8")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("docs", type=pathlib.Path)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--keep-docs", action="store_true")
    arguments = parser.parse_args()

    measurements = measure.measure(arguments.build, arguments.rounds)
    print_table(measurements)
    print_verdict(measurements)

    measurements.save(arguments.build / "measurements.json")
    summary = {row.name: row.ratio(measurements) for row in rows.ROWS}
    (arguments.build / "summary.json").write_text(
        json.dumps(summary, indent=2) + "\n")

    if arguments.keep_docs:
        return
    when = datetime.date.today().isoformat()
    draw_charts(measurements, when, arguments.docs / "bench")
    write_page(measurements, when, arguments.rounds,
               arguments.docs / "performance.md")


if __name__ == "__main__":
    main()
