"""Certificates for tests, made by openssl."""

import os
import subprocess
from typing import Any, List

import grpc

NEW_KEY = "-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2".split()


class Certificates:
    """A folder with NAME.pem and NAME.key of authorities and of those that they know."""

    def __init__(self, folder: str) -> None:
        self.folder = folder

    def path(self, file: str) -> str:
        return os.path.join(self.folder, file)

    def add_authority(self, name: str) -> None:
        self._make(name)

    def add(self, name: str, authority: str, *subjects: str) -> None:
        """A certificate for servers with these names, "IP:10.0.0.1", and for clients."""
        self._make(
            name,
            *["-CA", self.path(f"{authority}.pem"), "-CAkey", self.path(f"{authority}.key")],
            *["-addext", "basicConstraints=critical,CA:FALSE"],
            *["-addext", "subjectAltName=" + ",".join(subjects or [f"DNS:{name}"])],
        )

    def credentials(self, authority: str, name: str = "") -> Any:
        """A client that trusts the authority, and shows the certificate or none."""
        shown = [self._read(f"{name}.key"), self._read(f"{name}.pem")] if name else []
        return grpc.ssl_channel_credentials(self._read(f"{authority}.pem"), *shown)

    def gateway_flags(self, name: str, clients_authority: str) -> List[str]:
        """For a gateway with this certificate, whose clients the authority knows."""
        return [
            *["--tls-certificate", self.path(f"{name}.pem")],
            *["--tls-key", self.path(f"{name}.key")],
            *["--tls-client-ca", self.path(f"{clients_authority}.pem")],
        ]

    def _make(self, name: str, *words: str) -> None:
        files = ["-keyout", self.path(f"{name}.key"), "-out", self.path(f"{name}.pem")]
        subprocess.run(
            ["openssl", "req", "-x509", *NEW_KEY, "-subj", f"/CN={name}", *words, *files],
            check=True,
            stderr=subprocess.DEVNULL,
        )

    def _read(self, file: str) -> bytes:
        with open(self.path(file), "rb") as opened:
            return opened.read()
