"""Measures the browser: confirmed changes, start-up and memory, and prints a table.

    cmake --build --preset release --target web_browser confirmed_changes_benchmark
    examples/web_browser/bench/bench.py [BUILD FOLDER]

On a virtual display of its own, under openbox. Runs of both clients take turns; the
least of all counts, since whatever else the machine does only adds to it.
"""

import json
import os
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.join(HERE, "../../..")
BUILD = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else os.path.join(ROOT, "build/release"))
sys.path.insert(0, os.path.join(HERE, "../tests"))
os.environ["WEB_BROWSER"] = os.path.join(BUILD, "examples/web_browser/web_browser")
BENCHMARK = os.path.join(BUILD, "examples/web_browser/bench/confirmed_changes_benchmark")

import programs  # noqa: E402
from observer import Observer  # noqa: E402

ROUNDS = 5
STARTS = 5


def confirmed_changes(screen):
    with programs.WebBrowser(screen, "--windows", "1") as browser:
        output = subprocess.run(
            [
                BENCHMARK,
                "--benchmark_format=json",
                f"--benchmark_repetitions={ROUNDS}",
                "--benchmark_enable_random_interleaving=true",
            ],
            env={**os.environ, **screen.environment, "WEB_BROWSER_SOCKET": browser.socket},
            check=True,
            stdout=subprocess.PIPE,
        ).stdout
    runs = [run for run in json.loads(output)["benchmarks"] if run["run_type"] == "iteration"]
    for change in ("SetBounds", "Maximize"):
        least, median = [
            [
                min(run[counter] for run in runs if run["name"].startswith(f"{change}<{client}>"))
                for client in ("BareClient", "ServiceClient")
            ]
            for counter in ("least", "median")
        ]
        for name, (bare, service) in ("least", least), ("least of medians", median):
            print(f"{change}, {name}: bare {bare:.0f} us, service {service:.0f} us, "
                  f"{service / bare:.2f} times")


def proportional_memory(pid):
    """What a process takes, its share of what it shares included, in MB."""
    with open(f"/proc/{pid}/smaps_rollup") as rollup:
        (line,) = [line for line in rollup if line.startswith("Pss:")]
    return int(line.split()[1]) / 1024


def start_up(screen):
    taken = []
    for _ in range(STARTS):
        start = time.monotonic()
        with programs.WebBrowser(screen, "--windows", "1"):
            taken.append(time.monotonic() - start)
    print(f"start-up until the first window is open and served: least of {STARTS} "
          f"{1000 * min(taken):.0f} ms")


def memory(screen, page):
    for windows in (1, 5):
        with programs.WebBrowser(screen, *[page] * windows) as browser:
            observer = Observer(screen)
            for number in range(1, windows + 1):
                seen = observer.window(number)
                observer.wait_until(lambda: seen.title() == "ready", "a page")
            observer.close()
            pages = browser.children("WebKitWebProcess")
            own = proportional_memory(browser.process.pid)
            each = sum(map(proportional_memory, pages)) / max(len(pages), 1)
            print(f"memory with {windows} windows: browser {own:.0f} MB, "
                  f"each of {len(pages)} pages {each:.0f} MB")


def main():
    with programs.Screen() as screen, programs.WindowManager(screen):
        confirmed_changes(screen)
        start_up(screen)
        with tempfile.NamedTemporaryFile("w", suffix=".html") as page:
            page.write("<title>ready</title><p>A page.")
            page.flush()
            memory(screen, page.name)


if __name__ == "__main__":
    main()
