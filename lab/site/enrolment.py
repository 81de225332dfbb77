"""Enrols access points with a controller, by sitectl."""

import subprocess
import tarfile
from collections.abc import Sequence
from pathlib import Path

from lab.site.authority import Identity
from lab.site.failure import LabFailure
from lab.site.processes import die_with_parent, environment_for


def sitectl(programs: Path, *words: object, text: str = "") -> str:
    """Its output for the standard input `text`. Raises LabFailure when it fails."""
    done = subprocess.run([str(word) for word in (programs / "sitectl", *words)], input=text, capture_output=True,
                          text=True, check=False, preexec_fn=die_with_parent, env=environment_for(None))
    if done.returncode != 0:
        raise LabFailure(done.stderr.strip())
    return done.stdout


class Enrolment:
    """`directory` gets the site's keys and configuration, and the access points' files."""

    def __init__(self, programs: Path, directory: Path, address: str) -> None:
        self._programs = programs
        self.directory = directory
        self.configuration = directory / "site.toml"
        sitectl(programs, "init", directory, "--address", address, "--state", directory, "--run", directory)

    def run(self, *words: object) -> str:
        """A command for the controller that runs with the configuration."""
        return sitectl(self._programs, "--config", self.configuration, *words)

    def add(self, name: str, mac: str, into: Path, options: Sequence[object] = ()) -> Identity:
        """Enrols an access point and unpacks its bundle into the directory `into`."""
        bundle = self.directory / f"{name}.tar"
        self.run("ap", "add", name, "--mac", mac, "--output", bundle, *options)
        return unpack(bundle, into)

    def renew(self, name: str, into: Path) -> Identity:
        bundle = self.directory / f"{name}.tar"
        bundle.unlink(missing_ok=True)
        self.run("ap", "renew", name, "--output", bundle)
        return unpack(bundle, into)


def unpack(bundle: Path, into: Path) -> Identity:
    with tarfile.open(bundle) as archive:
        for each in archive.getmembers():
            content = archive.extractfile(each)
            assert content is not None
            aside = into / f"{each.name}.new"
            aside.touch(mode=0o600)
            aside.write_bytes(content.read())
            aside.chmod(each.mode & 0o744)
            aside.rename(into / each.name)
    return Identity(into / "ap.pem", into / "ap.key")
