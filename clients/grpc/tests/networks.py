"""Networks of the tests' own, where a machine may have any address.

The system allows them to root, and mostly to everybody. Where it does not, the tests
run on addresses of the loopback, 127.0.0.N in place of 10.0.0.N.
"""

import ctypes
import os
import subprocess
import unittest
from typing import List, Optional, Type

# Of sched.h: what unshare() makes anew.
NEW_USERS = 0x10000000
NEW_NETWORK = 0x40000000

# What the tests do with a network of their own.
TRIAL = "ip link set lo up && ip link add name one type veth peer name other"

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
    user, group = os.getuid(), os.getgid()
    as_root = [] if user == 0 else ["--map-root-user"]
    # In a process of its own, since what has been entered cannot be left.
    tried = subprocess.run(
        ["unshare", *as_root, "--net", "sh", "-c", TRIAL], stderr=subprocess.PIPE, text=True
    )
    if tried.returncode != 0:
        return tried.stderr.strip()
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.unshare(NEW_NETWORK if user == 0 else NEW_NETWORK | NEW_USERS) != 0:
        raise OSError(ctypes.get_errno(), "unshare")
    if user != 0:
        # Root there, which is this user outside.
        write("/proc/self/setgroups", "deny")
        write("/proc/self/uid_map", f"0 {user} 1")
        write("/proc/self/gid_map", f"0 {group} 1")
    return None


def write(path: str, text: str) -> None:
    with open(path, "w", encoding="ascii") as file:
        file.write(text)


def run(command: str, prefix: List[str] = []) -> None:
    subprocess.run([*prefix, *command.split()], check=True)
