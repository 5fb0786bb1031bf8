"""Calls a server from Python, one call after the other, and measures it.

    python_client.py BUILD_FOLDER native SOCKET PROCESS...
    python_client.py BUILD_FOLDER grpc ADDRESS PROCESS...

Each client in its fastest form: the native one within asyncio, gRPC's blocking.
Prints a line of JSON as bench/support/measurement.h says, where CPU time is that
of this process and of those that are named.
"""

from __future__ import annotations

import asyncio
import ctypes
import json
import pathlib
import sys
import time

BUILD = pathlib.Path(sys.argv[1])
sys.path[:0] = [str(BUILD / "clients/python/src"), str(BUILD / "gen/python")]

# As bench/support has them.
WARM_UP_NANOSECONDS = 100_000_000
NANOSECONDS = 400_000_000
WINDOW = 1000


def clock_of(process: int) -> int:
    clock = ctypes.c_int()
    if ctypes.CDLL(None).clock_getcpuclockid(process, ctypes.byref(clock)) != 0:
        sys.exit("python_client.py: a process to be measured has gone")
    return clock.value


class Measurement:
    """Counts operations; next() comes before the first and after each."""

    def __init__(self, processes: list[str]) -> None:
        self._clocks = [time.CLOCK_PROCESS_CPUTIME_ID]
        self._clocks += [clock_of(int(process)) for process in processes]
        self._warm = 0
        self._end = 0
        self._last = 0
        self._cpu = 0
        self._laps: list[int] = []

    def next(self) -> bool:
        now = time.monotonic_ns()
        if self._end:
            self._laps.append(now - self._last)
            self._last = now
            if now < self._end:
                return True
            self._cpu = self._cpu_time() - self._cpu
            return False
        self._warm = self._warm or now + WARM_UP_NANOSECONDS
        if now >= self._warm:
            self._cpu = self._cpu_time()
            self._last = time.monotonic_ns()
            self._end = self._last + NANOSECONDS
        return True

    def print(self) -> None:
        count, total = len(self._laps), sum(self._laps)
        self._laps.sort()
        print(json.dumps({
            "mean": total / count,
            "p50": self._laps[count // 2],
            "p99": self._laps[count * 99 // 100],
            "cpu": self._cpu / count,
            "rate": count / total * 1e9,
        }))

    def _cpu_time(self) -> int:
        return sum(map(time.clock_gettime_ns, self._clocks))


async def call_natively(socket: str, measurement: Measurement) -> None:
    import torvane  # pylint: disable=import-outside-toplevel

    async with await torvane.connect(socket) as client:
        windows = client.windows
        while measurement.next():
            if not await windows.is_visible(WINDOW):
                sys.exit("python_client.py: is_visible")


def call_by_grpc(address: str, measurement: Measurement) -> None:
    # pylint: disable=import-outside-toplevel
    import browser_id_pb2
    import grpc
    from google.protobuf import wrappers_pb2

    with grpc.insecure_channel(address) as channel:
        # What the code that gRPC's plugin generates does.
        is_visible = channel.unary_unary(
            "/rpc.BrowserWindow/IsVisible",
            request_serializer=browser_id_pb2.BrowserId.SerializeToString,
            response_deserializer=wrappers_pb2.BoolValue.FromString)
        while measurement.next():
            if not is_visible(browser_id_pb2.BrowserId(value=WINDOW)).value:
                sys.exit("python_client.py: IsVisible")


def main() -> None:
    if len(sys.argv) < 4 or sys.argv[2] not in ("native", "grpc"):
        sys.exit(__doc__)
    measurement = Measurement(sys.argv[4:])
    if sys.argv[2] == "native":
        asyncio.run(call_natively(sys.argv[3], measurement))
    else:
        call_by_grpc(sys.argv[3], measurement)
    measurement.print()


if __name__ == "__main__":
    main()
