"""Measures what a gRPC client gets through the gateway, and what Python costs.

    gateway.py MODE BUILD_FOLDER

MODE is one of:

    unary-grpc              gRPC's client in C++ calls a bare gRPC server
    unary-relay             the same client calls the least that a gateway must do
    unary-thread, unary-process, unary-answer
                            the same with less still, to see what its parts cost
    unary-gateway           the same client calls a host through the gateway
    events-grpc             a bare gRPC server sends an event to 100 streams
    events-gateway          a host does, through the gateway
    python-native           the Python client calls a host
    python-grpc             gRPC's client in Python calls a bare gRPC server
    python-gateway          the same client calls a host through the gateway

Prints one line of JSON, as the other programs do: nanoseconds for an operation.
All processes run on one core, and CPU time is that of all of them.
"""

from __future__ import annotations

import contextlib
import os
import pathlib
import subprocess
import sys
import tempfile
from typing import Iterator

HERE = pathlib.Path(__file__).parent
BUILD = pathlib.Path(sys.argv[-1])

PYTHON = "/usr/bin/python3"
READY = "ready"
READY_AT = "ready at "


@contextlib.contextmanager
def running(*command: object) -> Iterator[tuple[str, str]]:
    """Runs a server; its process and the end of the line by which it is ready."""
    with subprocess.Popen([str(part) for part in command],
                          stdout=subprocess.PIPE, text=True) as process:
        try:
            line = process.stdout.readline()
            if READY not in line:
                sys.exit(f"gateway.py: {command[0]} has failed")
            yield str(process.pid), line.rpartition(READY_AT)[2].strip()
        finally:
            process.kill()


@contextlib.contextmanager
def host() -> Iterator[list[str]]:
    """A host, and what a client of it is told: its socket and its process."""
    with tempfile.TemporaryDirectory() as folder:
        socket = f"{folder}/socket"
        with running(BUILD / "bench/bench_host", socket) as (process, _):
            yield [socket, process]


@contextlib.contextmanager
def bare_server() -> Iterator[list[str]]:
    with running(BUILD / "bench/grpc_server") as (process, address):
        yield [address, process]


@contextlib.contextmanager
def relay(*parts: str) -> Iterator[list[str]]:
    with running(BUILD / "bench/grpc_relay", *parts) as (process, ready):
        address, second_process = ready.split()
        yield [address, process, second_process]


@contextlib.contextmanager
def gateway() -> Iterator[list[str]]:
    with host() as (socket, host_process):
        with running(BUILD / "tools/rpc_gateway/rpc_gateway", "--socket", socket,
                     "--listen", "127.0.0.1:0") as (process, address):
            yield [address, process, host_process]


CPP = [BUILD / "bench/grpc_client"]
PYTHON_CLIENT = [PYTHON, "-B", HERE / "python_client.py", BUILD]
MODES = {
    "unary-grpc": (bare_server, CPP + ["unary"]),
    "unary-relay": (relay, CPP + ["unary"]),
    "unary-thread": (lambda: relay("thread"), CPP + ["unary"]),
    "unary-process": (lambda: relay("process"), CPP + ["unary"]),
    "unary-answer": (lambda: relay("answer"), CPP + ["unary"]),
    "unary-gateway": (gateway, CPP + ["unary"]),
    "events-grpc": (bare_server, CPP + ["events"]),
    "events-gateway": (gateway, CPP + ["events"]),
    "python-native": (host, PYTHON_CLIENT + ["native"]),
    "python-grpc": (bare_server, PYTHON_CLIENT + ["grpc"]),
    "python-gateway": (gateway, PYTHON_CLIENT + ["grpc"]),
}


def main() -> None:
    if len(sys.argv) != 3 or sys.argv[1] not in MODES:
        sys.exit(__doc__)
    # The last one, as the other programs do.
    os.sched_setaffinity(0, {max(os.sched_getaffinity(0))})
    server, client = MODES[sys.argv[1]]
    with server() as arguments:
        subprocess.run(client + arguments, check=True)


if __name__ == "__main__":
    main()
