"""The site controller's process and its output."""

import json
import socket
from pathlib import Path
from typing import Any

from lab.site.authority import Authority, Identity
from lab.site.enrolment import sitectl
from lab.site.failure import LabFailure
from lab.site.json_lines import JsonLines
from lab.site.processes import Process, Processes
from lab.site.waiting import wait_until

ADDRESS = "127.0.0.1"
ANSWER_SECONDS = 10


class Controller:
    """Listens on `port` of `address`, of the loopback interface by default; 0 is any free port."""

    def __init__(self, processes: Processes, directory: Path, authority: Authority, port: int = 0,
                 address: str = ADDRESS) -> None:
        self._processes = processes
        self._directory = directory
        self._authority = authority
        self.identity = authority.issue("controller", address)
        self.control = directory / "controller.sock"
        self.address = address
        self.port = port
        self.process: Process | None = None
        self._serves_only_enrolled = False
        self.output = JsonLines(directory / "site_controller.out")

    def start(self, *options: object, keeps_records: bool = True) -> None:
        """Without `keeps_records` its output is lost, and its file does not grow."""
        self._serves_only_enrolled = "--store" in options and "--serve-unenrolled" not in options
        port_file = self._directory / "controller.port"
        port_file.unlink(missing_ok=True)
        self.process = self._processes.start(
            "site_controller",
            ["--listen", f"{self.address}:{self.port}", "--port-file", port_file, "--ca", self._authority.certificate,
             "--certificate", self.identity.certificate, "--key", self.identity.key, "--control", self.control,
             "--json", "--events", *options],
            self._directory, keeps_output=keeps_records)
        wait_until(port_file.exists, "the controller listens", log=self.process.err, check=self.process.check_runs)
        self.port = int(port_file.read_text())

    def enrol(self, name: str, mac: str, identity: Identity) -> None:
        """Enrols an access point with its certificate where only enrolled ones are served."""
        if self._serves_only_enrolled:
            sitectl(self._processes.programs, "--control", self.control, "ap", "add", name, "--mac", mac,
                    "--certificate", identity.certificate)

    def kill(self) -> None:
        assert self.process is not None
        self._processes.forget(self.process)
        self.process.kill()

    def objects(self) -> list[dict[str, Any]]:
        """All objects that it has printed so far."""
        return self.output.read()

    def records(self) -> list[dict[str, Any]]:
        """The records that it has received so far, in order. Malformed ones have an "error"."""
        return [each for each in self.objects() if is_record(each)]

    def ask(self, *words: object) -> str:
        """Sends an operator's command and returns the output, of a listing all pages. Raises LabFailure when the
        command is refused."""
        line = " ".join(str(word) for word in words)
        text, cursor = "", ""
        while True:
            verdict, _, more = self._exchange(f"{line}{cursor}").partition("\n")
            if verdict != "ok" and not verdict.startswith("more "):
                raise LabFailure(f"the controller's answer to \"{line[:80]}\": {verdict or 'nothing'}")
            text += more
            if verdict == "ok":
                return text
            cursor = f" --cursor {verdict.removeprefix('more ')}"

    def _exchange(self, line: str) -> str:
        with socket.socket(socket.AF_UNIX) as connection:
            connection.settimeout(ANSWER_SECONDS)
            try:
                connection.connect(str(self.control))
                connection.sendall(line.encode() + b"\n")
                return b"".join(iter(lambda: connection.recv(65536), b"")).decode()
            except OSError as error:
                raise LabFailure(f"the controller's control socket {self.control}: {error}") from None

    def ask_json(self, *words: object) -> list[dict[str, Any]]:
        """The objects of the answer: rows, or counters."""
        return [json.loads(line) for line in self.ask(*words, "--json").splitlines()]

    def stats(self) -> dict[str, Any]:
        """The counters."""
        return self.ask_json("stats")[0]

    def connected(self) -> set[str]:
        """MAC addresses of the access points that have sent a message through their tunnels."""
        return {each["ap"] for each in self.ask_json("aps", "--state", "up")}


def is_record(printed: dict[str, Any]) -> bool:
    return "event" not in printed
