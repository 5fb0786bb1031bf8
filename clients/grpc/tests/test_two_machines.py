"""A host and its gateway on one machine, clients with certificates on another."""

import shutil
import unittest

import grpc
from certificates import Certificates
from networks import Network, OtherMachine
from processes import Host
from support import Gateway, make_stubs, new_folder
from watching import Client, Watcher


class TwoMachines(unittest.TestCase):
    @classmethod
    def setUpClass(cls) -> None:
        if not shutil.which("openssl"):
            raise unittest.SkipTest("openssl is missing, which makes the certificates")
        machine = OtherMachine(Network(), cls)
        make_stubs(cls)
        folder = new_folder(cls)
        cls.certificates = Certificates(folder)
        cls.certificates.add_authority("ca")
        cls.certificates.add_authority("other_ca")
        cls.certificates.add("gateway", "ca", f"IP:{machine.address}")
        cls.certificates.add("client", "ca")
        cls.certificates.add("stranger", "other_ca")
        cls.host = Host(f"{folder}/socket", prefix=machine.prefix)
        cls.addClassCleanup(cls.host.stop)
        gateway = Gateway(
            f"{folder}/socket",
            f"{machine.address}:0",
            *cls.certificates.gateway_flags("gateway", "ca"),
            prefix=machine.prefix,
        )
        cls.addClassCleanup(gateway.stop)
        cls.address = gateway.address

    def connect(self, name: str) -> Client:
        """A client that shows this certificate, or none."""
        credentials = self.certificates.credentials("ca", name)
        channel = grpc.secure_channel(self.address, credentials)
        self.addCleanup(channel.close)
        return Client(channel)

    def expect_refused(self, client: Client) -> None:
        with self.assertRaises(grpc.RpcError) as raised:
            client.title()
        self.assertEqual(raised.exception.code(), grpc.StatusCode.UNAVAILABLE)

    def test_a_client_calls_hears_events_and_answers(self) -> None:
        client = self.connect("client")
        self.assertEqual(client.title(), "Window 1")
        watcher = Watcher(client)
        self.addCleanup(watcher.close)
        watcher.hear_of_a_closed_window()
        watcher.answer_a_question(self.host)

    def test_who_has_no_certificate_of_the_authority_is_refused(self) -> None:
        self.expect_refused(self.connect(""))
        self.expect_refused(self.connect("stranger"))
        with grpc.insecure_channel(self.address) as channel:
            self.expect_refused(Client(channel))
        # It was not that nobody listens.
        self.assertEqual(self.connect("client").title(), "Window 1")
