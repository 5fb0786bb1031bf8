"""What a fleet costs: descriptors, which are counted, and memory, which is printed.

FLEET_STREAMS says how many streams there are, 20 by default and at most 500, which is
what the host takes. Memory is what a process has for itself, from /proc/PID/smaps_rollup.
"""

import os
import unittest
from typing import Any, Dict, NamedTuple

from fleet import Fleet, skip_without_programs
from networks import Network
from processes import Host
from support import make_stubs, new_folder

STREAMS = int(os.environ.get("FLEET_STREAMS", "20"))
# As many as a host has at most.
WINDOWS = 1000
# Of all windows: an EventSubscription to the empty BrowserId.
EVERY_WINDOW = b"\x0a\x00"


class Cost(NamedTuple):
    """Of one process."""

    descriptors: int
    private_kib: int


def cost_of(pid: int) -> Cost:
    with open(f"/proc/{pid}/smaps_rollup", encoding="ascii") as file:
        sizes = [line.split() for line in file if line.startswith("Private_")]
    return Cost(len(os.listdir(f"/proc/{pid}/fd")), sum(int(size[1]) for size in sizes))


class Figures(unittest.TestCase):
    @classmethod
    def setUpClass(cls) -> None:
        skip_without_programs()
        cls.network = Network()
        make_stubs(cls)

    def setUp(self) -> None:
        # All streams of a test go to one host.
        self.fleet = Fleet(self.network, new_folder(type(self)), ["alpha"])
        self.addCleanup(self.fleet.stop)
        self.channels = [self.connect()]
        self.client = self.fleet.client(self.channels[0], "alpha")
        self.client.title()
        self.before = self.costs()
        for process, cost in self.before.items():
            print(f"{process}: {cost.private_kib} KiB, {cost.descriptors} descriptors", flush=True)

    def connect(self) -> Any:
        channel = self.fleet.connect()
        self.addCleanup(channel.close)
        return channel

    def costs(self) -> Dict[str, Cost]:
        alpha = self.fleet.members["alpha"]
        pids = {"nginx": self.fleet.worker, "gateway": alpha.gateway.pid, "host": alpha.host.pid}
        return {process: cost_of(pid) for process, pid in pids.items()}

    def open_stream(self, channel: Any) -> None:
        events = channel.unary_stream("/rpc.BrowserWindow/WhenBrowserWindowClosed")
        stream = events(EVERY_WINDOW, metadata=[("window-host", "alpha")])
        self.addCleanup(stream.cancel)

    def expect_descriptors(self, **wanted: int) -> None:
        """For each stream, when the host has them all."""
        while self.client.subscriptions() != STREAMS:
            pass
        found = {}
        for process, cost in self.costs().items():
            more = cost.descriptors - self.before[process].descriptors
            kib = cost.private_kib - self.before[process].private_kib
            print(f"{process}: {kib / STREAMS:.1f} KiB, {more} descriptors for {STREAMS}", flush=True)
            # Some connections were there before, or are kept for later.
            found[process] = round(more / STREAMS)
        self.assertEqual(found, wanted)

    def test_a_stream_of_a_connection_that_is_there(self) -> None:
        for number in range(STREAMS):
            # nginx takes 128 of one connection.
            if number % 100 == 99:
                self.channels.append(self.connect())
            self.open_stream(self.channels[-1])
        self.expect_descriptors(nginx=1, gateway=2, host=1)

    def test_a_client_with_one_stream(self) -> None:
        for _ in range(STREAMS):
            self.open_stream(self.connect())
        self.expect_descriptors(nginx=2, gateway=2, host=1)

    def test_a_window(self) -> None:
        costs = []
        for windows in 0, WINDOWS:
            host = Host(os.path.join(new_folder(type(self)), "host"), "--windows", str(windows))
            self.addCleanup(host.stop)
            costs.append(cost_of(host.pid))
        kib = (costs[1].private_kib - costs[0].private_kib) / WINDOWS
        print(f"host: {kib:.2f} KiB for each of {WINDOWS} windows", flush=True)
        self.assertEqual(costs[0].descriptors, costs[1].descriptors)
