"""Measures, prints the table, and writes summary.json, charts and pages.

    python3 -B bench/run.py BUILD_FOLDER [--rounds N] [--keep-docs]
"""

import argparse
import datetime
import json
import os
import pathlib
import platform
import sys

import charts
import measure
import rows
import tables

ROOT = pathlib.Path(__file__).parent.parent


def machine():
    """The number of cores and the processor's model."""
    model = platform.machine()
    with open("/proc/cpuinfo", encoding="utf-8") as cpuinfo:
        for line in cpuinfo:
            if line.startswith("model name"):
                model = line.split(":", 1)[1].strip()
                break
    return f"{os.cpu_count()} cores of {model}"


def print_table(measurements):
    print(f"{'':29} {'ours':>9} {'':9} {'':9} {'ratio':>7}\n"
          f"{'':29} {'median':>9} {'min':>9} {'max':>9} {'median':>7} "
          f"{'min':>7} {'max':>7}  reach")
    for row in rows.ROWS:
        ours = measurements[row.ours]
        low, high = row.range(measurements)
        verdict = row.goal()
        if verdict:
            verdict += "" if row.met(measurements) else "  MISSED"
        print(f"{row.name:29} {row.show(ours.median):>9} "
              f"{row.show(ours.low):>9} {row.show(ours.high):>9} "
              f"{row.ratio(measurements):7.3g} {low:7.3g} "
              f"{high:7.3g}  {verdict}")
    print("\nHeap of the host, bytes for each:")
    for thing in tables.HEAP:
        print(f"  {thing:16} {measurements['memory.' + thing].median:8,.0f}")


def print_verdict(measurements):
    missed = [row.name for row in rows.GOALS if not row.met(measurements)]
    count = len(rows.GOALS)
    print(f"\n{count - len(missed)} of {count} goals reached"
          f"{'; missed: ' + ', '.join(missed) if missed else ''}")
    print(f"{measurements.busy_runs} of {measurements.runs} runs had to wait "
          "for their core. Ratios of CPU time bear that; unary_p99_vs_p50 does "
          "not.")


def draw_charts(measurements, when, where):
    folder = ROOT / "docs/bench"
    folder.mkdir(parents=True, exist_ok=True)
    charts.draw_headline(measurements, when, where, folder / "headline.svg")
    charts.draw_lookups(measurements, when, where, folder / "lookups.svg")
    charts.draw_goals(rows.GOALS, measurements, when, where,
                      folder / "goals.svg")


def write_pages(measurements, when, where, rounds):
    occasion = [f"Measured by `scripts/bench` on {when}, on {where}, in "
                f"{rounds} rounds; {measurements.busy_runs} of "
                f"{measurements.runs} runs had to wait for their core."]
    tables.rewrite(ROOT / "docs/performance.md", {
        "occasion": occasion,
        "goals": tables.goals(rows.ROWS, measurements),
        "costs": tables.costs(measurements),
        "heap": tables.heap(measurements),
    })


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=pathlib.Path)
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
    where = machine()
    draw_charts(measurements, when, where)
    write_pages(measurements, when, where, arguments.rounds)


if __name__ == "__main__":
    try:
        main()
    except KeyboardInterrupt:
        sys.exit(130)
