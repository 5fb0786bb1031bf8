"""Networks of the tests' own, where a machine may have any address.

The system allows them to root, and mostly to everybody. Where it does not, the tests
run on addresses of the loopback, 127.0.0.N in place of 10.0.0.N.
"""

import ctypes
import os
import shutil
import subprocess
import unittest
from typing import List, Optional, Type

# Of sched.h: what unshare() makes anew.
NEW_USERS = 0x10000000
NEW_NETWORK = 0x40000000

OWN = "10.0.0."
LOOPBACK = "127.0.0."


class Network:
    """What this process, and those that it starts, are on: a network without anybody
    else, or the loopback. To be made before there are threads, and once."""

    def __init__(self) -> None:
        fault = enter_own_network()
        self.is_own = fault is None
        self._prefix = OWN if self.is_own else LOOPBACK
        print("networks of our own" if self.is_own else f"the loopback: {fault}", flush=True)
        if self.is_own:
            run("ip link set lo up")

    def address(self, number: int) -> str:
        """An address of this machine."""
        if self.is_own:
            run(f"ip address replace {OWN}{number}/32 dev lo")
        return f"{self._prefix}{number}"

    def adapt(self, text: str) -> str:
        """The text with the addresses that there are."""
        return text.replace(OWN, self._prefix)


class OtherMachine:
    """A second network, which a cable joins to that of this process."""

    def __init__(self, network: Network, test: Type[unittest.TestCase]) -> None:
        # The words before a command that is to run there.
        self.prefix: List[str] = []
        if not network.is_own:
            self.address = network.address(2)
            return
        # What keeps the network is a process, until its input ends.
        keeper = subprocess.Popen(
            ["unshare", "--net", "sh", "-c", "echo; exec cat"],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
        )
        test.addClassCleanup(keeper.communicate)
        assert keeper.stdout
        keeper.stdout.readline()
        self.prefix = ["nsenter", f"--net=/proc/{keeper.pid}/ns/net"]
        self.address = f"{OWN}2"
        run(f"ip link add name cable type veth peer name cable netns {keeper.pid}")
        for machine, address in ([], f"{OWN}1"), (self.prefix, self.address):
            run(f"ip address add {address}/24 dev cable", machine)
            run("ip link set cable up", machine)


def enter_own_network() -> Optional[str]:
    """Returns why that cannot be, or None."""
    if not shutil.which("ip"):
        return "there is no program ip (scripts/setup --grpc installs iproute2)"
    user, group = os.getuid(), os.getgid()
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.unshare(NEW_NETWORK if user == 0 else NEW_NETWORK | NEW_USERS) != 0:
        return f"no network of our own: {os.strerror(ctypes.get_errno())}"
    if user != 0:
        # Root there, which is this user outside.
        for file, text in ("setgroups", "deny"), ("uid_map", f"0 {user} 1"), ("gid_map", f"0 {group} 1"):
            with open(f"/proc/self/{file}", "w", encoding="ascii") as opened:
                opened.write(text)
    return None


def run(command: str, prefix: List[str] = []) -> None:
    subprocess.run([*prefix, *command.split()], check=True)
