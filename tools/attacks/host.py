"""The host under attack: window_host as a process of its own."""

from __future__ import annotations

import os
import pathlib
import re
import select
import shutil
import signal
import subprocess
import tempfile
import time

from wire import PATIENCE, Silence


class Limits:
    """The host's limits, as its --help tells their names and defaults.

    So an attack goes as far as the host allows, whatever that is today.
    """

    def __init__(self, program: pathlib.Path):
        text = subprocess.run([program, "--help"], check=True, text=True,
                              stdout=subprocess.PIPE).stdout
        rows = re.findall(
            r"^  --([a-z-]+) (?:N|SECONDS) .*?default: ([0-9.]+)$", text,
            re.MULTILINE | re.DOTALL)
        self._defaults = {
            flag.replace("-", "_"): float(default) for flag, default in rows
        }

    def __contains__(self, name: str) -> bool:
        return name in self._defaults

    def get(self, name: str, otherwise: int) -> int:
        """The default of a limit, or `otherwise` if the host has none."""
        return int(self._defaults.get(name, otherwise))

    def __getitem__(self, name: str) -> int:
        return int(self._defaults[name])


class Host:
    """Runs a host until it is left; then kills it if it still runs."""

    def __init__(self, program: pathlib.Path, *flags: str):
        self._folder = tempfile.mkdtemp(prefix="attack.")  # Mode 0700.
        self.path = f"{self._folder}/host.sock"
        self._records = open(f"{self._folder}/records", "w+",
                             encoding="utf-8", errors="backslashreplace")
        self._printed = bytearray()
        self.process = subprocess.Popen(
            [program, "--socket", self.path, *flags], stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, stderr=self._records)
        try:
            self.await_line("ready at")
        except Silence:
            self.end()
            raise

    def __enter__(self) -> Host:
        return self

    def __exit__(self, *_: object) -> None:
        self.end()

    def end(self) -> None:
        """Kills it, if it still runs, and removes its files."""
        self.process.kill()
        self.process.wait()
        for pipe in (self.process.stdin, self.process.stdout, self._records):
            pipe.close()
        shutil.rmtree(self._folder)

    @property
    def is_running(self) -> bool:
        return self.process.poll() is None

    def type(self, line: str) -> None:
        """Types a line at the host's console."""
        self.process.stdin.write(line.encode() + b"\n")
        self.process.stdin.flush()

    def await_line(self, part: str, patience: float = PATIENCE) -> str:
        """The next line that the host prints with this in it."""
        deadline = time.monotonic() + patience
        output = self.process.stdout
        while True:
            line, newline, rest = self._printed.partition(b"\n")
            if newline:
                self._printed = rest
                if part in (text := line.decode()):
                    return text
                continue
            left = deadline - time.monotonic()
            if left <= 0 or not select.select([output], [], [], left)[0]:
                raise Silence(f"the host has not printed '{part}' "
                              f"for {patience:g} s")
            chunk = os.read(output.fileno(), 1 << 16)
            if not chunk:
                raise Silence(f"the host has ended instead of printing '{part}'"
                              f"; its last record: {self.last_record()}")
            self._printed += chunk

    def stop(self, patience: float = 2 * PATIENCE) -> float:
        """Asks the host to stop; returns after how long it was gone."""
        start = time.monotonic()
        self.process.send_signal(signal.SIGTERM)
        try:
            self.process.wait(patience)
        except subprocess.TimeoutExpired as error:
            raise Silence(f"the host runs on for {patience:g} s after "
                          "SIGTERM") from error
        return time.monotonic() - start

    def records(self) -> str:
        """What the host has written on standard error."""
        self._records.seek(0)
        return self._records.read()

    def last_record(self) -> str:
        return self.records().strip().rpartition("\n")[2][:300] or "none"

    def memory(self) -> int:
        """Bytes of memory that the host has now (VmRSS)."""
        return self._memory("VmRSS")

    def reset_peak(self) -> None:
        """Lets peak() begin anew."""
        pathlib.Path(f"/proc/{self.process.pid}/clear_refs").write_text("5")

    def peak(self) -> int:
        """The most bytes of memory since reset_peak() (VmHWM)."""
        return self._memory("VmHWM")

    def _memory(self, name: str) -> int:
        text = pathlib.Path(f"/proc/{self.process.pid}/status").read_text()
        found = re.search(rf"^{name}:\s+(\d+) kB$", text, re.MULTILINE)
        if found is None:
            raise Silence(f"the host has ended; its last record: "
                          f"{self.last_record()}")
        return int(found[1]) << 10
