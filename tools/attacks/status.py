"""What a host says of itself, by its service rpc.status.ServerStatus."""

from __future__ import annotations

import time

from rpc.status import server_status_pb2
from wire import PATIENCE, Connection, Silence

GET_STATUS = "rpc.status.ServerStatus.GetStatus"

Report = server_status_pb2.StatusReport


def ask(path: str) -> Report:
    """Asks on a connection of its own, which the report tells of, too."""
    with Connection(path, "auditor") as client:
        reply = client.call(GET_STATUS, server_status_pb2.StatusRequest())
    return Report.FromString(reply.response)


def refusals(path: str, limit: str) -> int:
    """How often a limit has taken effect."""
    return sum(row.count for row in ask(path).refusals if row.limit == limit)


def await_gone(path: str, name: str) -> None:
    """Returns when the host is done with all clients of this name."""
    deadline = time.monotonic() + PATIENCE
    while any(client.name == name for client in ask(path).connections):
        if time.monotonic() > deadline:
            raise Silence(f"{name} is still connected after {PATIENCE:g} s")
