"""nginx in front of gateways in front of hosts, each as processes. What is said to nginx
stands in ../fleet/fleet.conf; only what Debian's own nginx.conf says stands here."""

import os
import re
import shutil
import signal
import subprocess
import unittest
from typing import Any, Iterable, List

import grpc
from certificates import Certificates
from networks import Network
from processes import Host, Lines
from support import Gateway
from watching import Client

# The names that fleet.conf has, and the last numbers of the addresses there.
HOSTS = {"alpha": 11, "beta": 12, "gamma": 13}
NGINX = 10
# Debian has it there, which is not in everybody's PATH.
NGINX_PATH = f"{os.environ['PATH']}:/usr/sbin"

NGINX_CONF = """\
user root;
pid nginx.pid;
worker_processes 1;
events { worker_connections 10000; }
http {
    access_log off;
    client_body_temp_path body;
    proxy_temp_path proxy;
    fastcgi_temp_path fastcgi;
    uwsgi_temp_path uwsgi;
    scgi_temp_path scgi;
    include conf.d/*.conf;
}
"""


class Member:
    """One host of the fleet, and its gateway."""

    def __init__(self, socket: str, address: str, flags: List[str]) -> None:
        self._socket = socket
        self._address = address
        self._flags = flags
        self.start()

    def start(self) -> None:
        self.start_host()
        self.start_gateway()

    def start_host(self) -> None:
        self.host = Host(self._socket)

    def start_gateway(self) -> None:
        self.gateway = Gateway(self._socket, f"{self._address}:50051", *self._flags)

    def stop(self) -> None:
        self.gateway.stop()
        self.host.stop()


class Fleet:
    """All of them, each ready."""

    def __init__(
        self, network: Network, folder: str, names: Iterable[str] = HOSTS.keys()
    ) -> None:
        self._folder = folder
        self.certificates = certificates = Certificates(os.path.join(folder, "fleet"))
        os.mkdir(certificates.folder)
        addresses = {name: network.address(HOSTS[name]) for name in names}
        nginx = network.address(NGINX)
        certificates.add_authority("clients_ca")
        certificates.add_authority("gateways_ca")
        certificates.add("client", "clients_ca")
        certificates.add("nginx", "gateways_ca", f"IP:{nginx}")
        certificates.add("gateway", "gateways_ca", "DNS:gateway.fleet")
        self._target = f"{nginx}:8443"
        flags = certificates.gateway_flags("gateway", "gateways_ca")
        self.members = {
            name: Member(os.path.join(folder, name), address, flags)
            for name, address in addresses.items()
        }
        self._start_nginx(network)

    def connect(self, certificate: str = "client") -> grpc.Channel:
        """A connection of its own for a client with this certificate, or none."""
        credentials = self.certificates.credentials("gateways_ca", certificate)
        alone = [("grpc.use_local_subchannel_pool", 1)]
        return grpc.secure_channel(self._target, credentials, alone)

    @staticmethod
    def client(channel: grpc.Channel, host: str) -> Client:
        return Client(channel, [("window-host", host)])

    def stop(self) -> None:
        # At once: it would wait for its clients.
        self.nginx.send_signal(signal.SIGTERM)
        self.nginx.wait()
        for member in self.members.values():
            member.stop()

    def _start_nginx(self, network: Network) -> None:
        sites = os.path.join(self._folder, "conf.d")
        os.mkdir(sites)
        with open(os.environ["FLEET_CONF"], encoding="utf-8") as shown:
            write(os.path.join(sites, "fleet.conf"), network.adapt(shown.read()))
        path = os.path.join(self._folder, "nginx.conf")
        write(path, NGINX_CONF)
        program = shutil.which("nginx", path=NGINX_PATH)
        assert program
        # It says on its records when it serves.
        self.nginx: Any = subprocess.Popen(
            [program, "-p", self._folder, "-c", path, "-e", "stderr"]
            + ["-g", "daemon off; error_log stderr notice;"],
            stderr=subprocess.PIPE,
            text=True,
        )
        self._records = Lines(self.nginx.stderr)
        started = None
        while not started:
            started = re.search(r"start worker process (\d+)", self._records.next())
        self.worker = int(started[1])


def skip_without_programs() -> None:
    for program in "nginx", "openssl":
        if not shutil.which(program, path=NGINX_PATH):
            raise unittest.SkipTest(f"{program} is missing: scripts/setup --grpc installs it")


def write(path: str, text: str) -> None:
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
