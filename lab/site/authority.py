"""A throw-away certificate authority."""

import subprocess
from dataclasses import dataclass
from pathlib import Path

from lab.site.failure import LabFailure
from lab.site.processes import die_with_parent

NEW_KEY = ("-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes")
DAYS = 40  # the programs warn about certificates that end within 30


@dataclass(frozen=True)
class Identity:
    certificate: Path
    key: Path


class Authority:
    """Signs certificates with a key in `directory`."""

    def __init__(self, directory: Path, name: str = "authority", days: int = DAYS) -> None:
        self._directory = directory
        self._own = self._identity(name)
        self._make(self._own, name, "-days", days, "-addext", "basicConstraints=critical,CA:TRUE",
                   "-addext", "keyUsage=keyCertSign,cRLSign")

    @property
    def certificate(self) -> Path:
        return self._own.certificate

    @property
    def key(self) -> Path:
        return self._own.key

    def issue(self, name: str, address: str | None = None, mac: str | None = None, days: int = DAYS) -> Identity:
        """Issues a certificate for the common name `name`, for a host's IP address or an access point's MAC address."""
        issued = self._identity(name)
        names = [f"IP:{address}"] if address else []
        names += [f"URI:urn:mac:{mac.replace(':', '-')}"] if mac else []
        alternative = ("-addext", f"subjectAltName={','.join(names)}") if names else ()
        self._make(issued, name, "-days", days, "-CA", self._own.certificate, "-CAkey", self._own.key,
                   "-addext", "basicConstraints=CA:FALSE", *alternative)
        return issued

    def _identity(self, name: str) -> Identity:
        return Identity(self._directory / f"{name}.pem", self._directory / f"{name}.key")

    def _make(self, identity: Identity, name: str, *options: object) -> None:
        command = ["openssl", "req", *NEW_KEY, "-subj", f"/CN={name}", "-keyout", identity.key,
                   "-out", identity.certificate, *options]
        done = subprocess.run([str(word) for word in command], capture_output=True, text=True, check=False,
                              preexec_fn=die_with_parent)
        if done.returncode != 0:
            raise LabFailure(f"openssl failed to make the certificate of {name}: {done.stderr.strip()}")
