"""Runs commands of a page as a reader would: one after the other in one shell, in a
folder that looks like the source root, with the programs of the build.

A command in the background is waited for until it prints that it is ready, and gets
SIGTERM at the end of the page. One whose note says Ctrl-C is interrupted when it has
printed something. Every one of them must end with success, or by that signal.
"""

import os
import re
import signal
import subprocess
import tempfile
from typing import Dict, List

from processes import Lines

STATUS = re.compile(r"^<status (\d+)>$")


class Shell:
    def __init__(self, source: str, build: str, programs: Dict[str, str]) -> None:
        self._folder = tempfile.TemporaryDirectory(prefix="torvane-page-")
        root = self._make_root(source, build, programs)
        environment = {
            **os.environ,
            "PATH": f"{self._folder.name}/bin:{os.environ['PATH']}",
            "HOME": f"{self._folder.name}/home",
            "XDG_RUNTIME_DIR": f"{self._folder.name}/run",
            "PYTHONPATH": f"{build}/clients/python/src",
            "PYTHONDONTWRITEBYTECODE": "1",
        }
        self._process = subprocess.Popen(
            ["bash"],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            cwd=root,
            env=environment,
            start_new_session=True,
        )
        self._lines = Lines(self._process.stdout)
        self._background: List[Lines] = []
        # Of these, how many are to run until the end of the page.
        self._left = 0

    def _make_root(self, source: str, build: str, programs: Dict[str, str]) -> str:
        folder = self._folder.name
        root = os.path.join(folder, "root")
        for name in ("bin", "home", "root/build", "run"):
            os.makedirs(os.path.join(folder, name), mode=0o700)
        for name in os.listdir(source):
            if name not in (".git", "build"):
                os.symlink(os.path.join(source, name), os.path.join(root, name))
        os.symlink(build, os.path.join(root, "build", "release"))
        for name, path in programs.items():
            os.symlink(path, os.path.join(folder, "bin", name))
        return root

    def run(self, command: str) -> List[str]:
        """Runs a command to its end; returns what it prints. Fails if it does."""
        lines, status = self._execute(f"{{\n{command}\n}} </dev/null")
        if status != 0:
            raise AssertionError(f"ends with {status}: {command}\n" + "\n".join(lines))
        return lines

    def start(self, command: str) -> None:
        """Starts a command in the background; returns when it is ready."""
        output = self._start(command)
        while "ready" not in output.next():
            pass
        self._left += 1

    def run_until_interrupted(self, command: str) -> List[str]:
        output = self._start(command)
        lines = [output.next()]
        while output.waiting():
            lines.append(output.next())
        self.run("kill -INT $! && wait $!")
        return lines

    def _start(self, command: str) -> Lines:
        fifo = os.path.join(self._folder.name, f"output{len(self._background)}")
        os.mkfifo(fifo)
        self._send(f"{command} </dev/null >{fifo} 2>&1 &")
        output = Lines(open(fifo, encoding="utf-8"))
        self._background.append(output)
        return output

    def _execute(self, command: str) -> "tuple[List[str], int]":
        self._send(command + "\nprintf '\\n<status %d>\\n' $?")
        lines: List[str] = []
        while True:
            line = self._lines.next()
            if status := STATUS.match(line):
                # The line before it is empty, or the end of one that had none.
                return (lines[:-1] if lines and not lines[-1] else lines), int(status[1])
            lines.append(line)

    def _send(self, text: str) -> None:
        assert self._process.stdin
        self._process.stdin.write(text + "\n")
        self._process.stdin.flush()

    def close(self) -> None:
        """Ends what runs in the background. Fails if it has ended, or ends badly."""
        try:
            self.run(
                "left=0\n"
                "for job in $(jobs -pr); do\n"
                "  kill $job; wait $job; status=$?\n"
                "  if [ $status = 0 ] || [ $status = 143 ]; then left=$((left + 1)); fi\n"
                f"done\ntest $left -ge {self._left}"
            )
        finally:
            # The group is the shell and what it has started.
            os.killpg(self._process.pid, signal.SIGKILL)
            self._process.wait()
            assert self._process.stdin
            self._process.stdin.close()
            self._folder.cleanup()
