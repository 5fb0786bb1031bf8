"""nginx, with the configuration that docs/fleet.md shows, in front of three gateways in
front of three hosts."""

import unittest
from typing import Callable

import grpc
from fleet import HOSTS, Fleet, skip_without_programs
from grpc import StatusCode
from networks import Network
from support import Deadline, make_stubs, new_folder
from watching import Client, Watcher


class FleetTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls) -> None:
        skip_without_programs()
        network = Network()
        make_stubs(cls)
        cls.fleet = Fleet(network, new_folder(cls))
        cls.addClassCleanup(cls.fleet.stop)

    def connect(self, certificate: str = "client") -> grpc.Channel:
        channel = self.fleet.connect(certificate)
        self.addCleanup(channel.close)
        return channel

    def watch(self, client: Client) -> Watcher:
        watcher = Watcher(client)
        self.addCleanup(watcher.close)
        return watcher

    def watch_when_it_can_be_reached(self, client: Client) -> Watcher:
        """Each connection of nginx, and of the gateway, finds out by itself that there is
        somebody again."""
        deadline = Deadline()
        while True:
            try:
                return self.watch(client)
            except grpc.RpcError as error:
                self.assertEqual(error.code(), StatusCode.UNAVAILABLE)
            deadline.check()

    def expect_failure(self, client: Client, code: StatusCode, text: str) -> None:
        with self.assertRaises(grpc.RpcError) as raised:
            client.title()
        self.assertEqual(raised.exception.code(), code)
        self.assertTrue(raised.exception.details().startswith(text), raised.exception.details())

    def test_the_header_names_the_host(self) -> None:
        channel = self.connect()
        clients = {name: self.fleet.client(channel, name) for name in HOSTS}
        for name, client in clients.items():
            client.set_title(f"of {name}")
        for name, client in clients.items():
            self.assertEqual(client.title(), f"of {name}")

    def test_a_header_that_names_none_is_not_found(self) -> None:
        channel = self.connect()
        for client in self.fleet.client(channel, "delta"), Client(channel):
            self.expect_failure(
                client, StatusCode.NOT_FOUND, "window-host names no host of this fleet"
            )

    def test_who_has_no_certificate_of_the_clients_is_refused(self) -> None:
        for certificate in "", "gateway":
            client = self.fleet.client(self.connect(certificate), "alpha")
            self.expect_failure(
                client, StatusCode.UNAUTHENTICATED, "a certificate of this fleet is needed"
            )

    def test_nobody_gets_past_nginx(self) -> None:
        address = self.fleet.members["alpha"].gateway.address
        options = [("grpc.ssl_target_name_override", "gateway.fleet")]
        for certificate, fails in ("nginx", False), ("client", True):
            credentials = self.fleet.certificates.credentials("gateways_ca", certificate)
            with grpc.secure_channel(address, credentials, options) as channel:
                if fails:
                    self.expect_failure(Client(channel), StatusCode.UNAVAILABLE, "")
                else:
                    Client(channel).title()

    def test_a_host_goes_and_comes_back_and_the_others_notice_nothing(self) -> None:
        beta = self.fleet.members["beta"]
        self.beta_goes_and_comes_back(
            go=beta.host.kill,
            streams_end_with="the other side closed the connection",
            calls_fail_with="the host cannot be reached: ",
            come_back=beta.start_host,
        )

    def test_a_machine_goes_and_comes_back_and_the_others_notice_nothing(self) -> None:
        beta = self.fleet.members["beta"]
        self.beta_goes_and_comes_back(
            go=beta.stop,
            streams_end_with="the server is stopping",
            calls_fail_with="the gateway of beta cannot be reached",
            come_back=beta.start,
        )

    def beta_goes_and_comes_back(
        self,
        go: Callable[[], None],
        streams_end_with: str,
        calls_fail_with: str,
        come_back: Callable[[], None],
    ) -> None:
        channel = self.connect()
        clients = {name: self.fleet.client(channel, name) for name in HOSTS}
        watchers = {
            name: self.watch_when_it_can_be_reached(client) for name, client in clients.items()
        }

        def use(*names: str) -> None:
            for name in names:
                watchers[name].hear_of_a_closed_window()
                watchers[name].answer_a_question(self.fleet.members[name].host)

        use("alpha", "beta", "gamma")
        go()
        for end in watchers["beta"].ends():
            self.assertEqual((end.code(), end.details()), (StatusCode.UNAVAILABLE, streams_end_with))
        self.expect_failure(clients["beta"], StatusCode.UNAVAILABLE, calls_fail_with)
        use("alpha", "gamma")
        come_back()
        watchers["beta"] = self.watch_when_it_can_be_reached(clients["beta"])
        use("alpha", "beta", "gamma")

    def test_a_gateway_that_is_killed_resets_its_streams(self) -> None:
        channel = self.connect()
        client = self.fleet.client(channel, "gamma")
        watcher = self.watch(client)
        gamma = self.fleet.members["gamma"]
        gamma.gateway.kill()
        for end in watcher.ends():
            self.assertEqual(end.code(), StatusCode.INTERNAL)
        gamma.start_gateway()
        self.watch_when_it_can_be_reached(client).hear_of_a_closed_window()
