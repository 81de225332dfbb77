"""One access point of the lab: its directory, its configuration and its processes."""

import json
import os
import secrets
import signal
import struct
import tomllib
from pathlib import Path
from typing import Any

from lab.site.authority import Authority, Identity
from lab.site.client_table import Client, read_client_table
from lab.site.controller import Controller
from lab.site.json_lines import JsonLines
from lab.site.local_ipc import DAEMON, RADIO, LocalSocket
from lab.site.messages import Local, Radio
from lab.site.processes import Process, Processes
from lab.site.waiting import wait_until

EMPTY_CAPTURE = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 127)  # pcap of radiotap frames
ACL_AUTH_REQ = "CLIENT_MGR_CLIENT_ACL_AUTH_REQ"


class AccessPoint:
    """`vaps` is the [[vap]] part of the configuration, `identity` the access point's certificate and key."""

    def __init__(self, processes: Processes, directory: Path, mac: str, vaps: str, identity: Identity) -> None:
        self.name = directory.name
        self.root = directory
        self.mac = mac
        self._processes = processes
        self.identity = identity
        self.running: dict[str, Process] = {}
        self.radio_output = JsonLines(directory / "radio.out")
        self.captive_output = JsonLines(directory / "captive_app.out")
        self.log = directory / "log/client_mgr.log"
        directory.mkdir(mode=0o700)
        self.vaps_text = vaps

    @property
    def vaps(self) -> list[dict[str, Any]]:
        return tomllib.loads(self.vaps_text).get("vap", [])

    def configure(self, controller: Controller, authority: Authority) -> None:
        """Writes the configuration atomically."""
        text = f"""\
[ap]
mac = "{self.mac}"

[controller]
address = "{controller.address}"
port = {controller.port}
ca = {quote(authority.certificate)}
certificate = {quote(self.identity.certificate)}
key = {quote(self.identity.key)}

{self.vaps_text}"""
        aside = self.root / "ap.toml.new"
        aside.write_text(text)
        aside.chmod(0o644)
        aside.rename(self.root / "ap.toml")

    def start(self, program: str, *arguments: object) -> Process:
        self.running[program] = self._processes.start(program, arguments, self.root, self.root)
        return self.running[program]

    def start_radio(self, *arguments: object) -> None:
        """Waits until the radio serves its VAPs. Until then the daemon's driver requests would go to the kernel."""
        radio = self.start("radio", "--json", "--stay", *arguments)
        sockets = [self.root / "kx/driver" / vap["ifname"] for vap in self.vaps if "bssid" in vap]
        wait_until(lambda: all(each.exists() for each in sockets), f"{self.name}: the radio serves its VAPs",
                   log=radio.err, check=radio.check_runs)

    def start_all(self) -> None:
        """Starts all programs, with a radio that plays an empty capture."""
        self.start("captive_app", "--json")
        self.start("hostapd_app", "--json")
        silence = self.root / "silence.pcap"
        silence.write_bytes(EMPTY_CAPTURE)
        self.start_radio(silence)
        self.start("client_mgr")
        self.start("apd")

    def play(self, *arguments: object) -> None:
        """Restarts the radio with other options. The daemon must be ready."""
        self.end("radio")
        self.radio_output.file.unlink()
        self.radio_output = JsonLines(self.radio_output.file)
        self.start_radio("--no-wait", *arguments)

    def forget_output(self) -> None:
        """Empties what the stand-ins have printed. The daemon's log has a limit of its own, and play() starts the radio's
        output anew."""
        for program in ("captive_app", "hostapd_app"):
            os.truncate(self.running[program].out, 0)

    def end(self, program: str) -> None:
        process = self.running.pop(program)
        self._processes.forget(process)
        process.signal(signal.SIGTERM)
        process.wait()

    def kill(self, program: str) -> None:
        process = self.running.pop(program)
        self._processes.forget(process)
        process.kill()

    def clients(self) -> list[Client]:
        return read_client_table(self.root)

    def radio_state(self) -> str:
        """One of "waiting" (for the daemon), "playing" and "played"."""
        return self._ask_radio(0)["state"]

    def stations(self) -> list[dict[str, Any]]:
        """The stations that the radio serves."""
        found: list[dict[str, Any]] = []
        while True:
            page = self._ask_radio(len(found))
            found += page["stations"]
            if len(found) >= page["total"] or not page["stations"]:
                return found

    def _ask_radio(self, skip: int) -> dict[str, Any]:
        with LocalSocket(self.root) as ipc:
            return json.loads(ipc.request(RADIO, Radio.STATIONS, struct.pack(">I", skip)))

    def probe(self) -> str:
        """Sends the daemon a MAC ACL question for a MAC address that no station has. Returns the address."""
        client = make_probe_mac()
        bssid = next(vap["bssid"] for vap in self.vaps if "bssid" in vap)
        with LocalSocket(self.root) as ipc:
            ipc.notify(DAEMON, Local.MAC_ACL_AUTH, mac_bytes(client) + mac_bytes(bssid) + struct.pack(">I", 0))
        return client

    def has_answer_to(self, probe: str) -> bool:
        """True when the controller's answer to the probe has reached the daemon. The radio refuses its verdict."""
        return self.log_has(f"sending acl auth response to drv failed for {probe} ")

    def log_has(self, text: str) -> bool:
        return self.log.exists() and text in self.log.read_text(errors="replace")


PROBE_PREFIX = "0e:6b:78"  # locally administered, used by no station of the lab


def make_probe_mac() -> str:
    return PROBE_PREFIX + "".join(f":{byte:02x}" for byte in secrets.token_bytes(3))


def is_probe(record: dict[str, Any]) -> bool:
    return record.get("name") == ACL_AUTH_REQ and record["client"].startswith(PROBE_PREFIX)


def mac_bytes(text: str) -> bytes:
    return bytes.fromhex(text.replace(":", ""))


def quote(value: object) -> str:
    """`value` as a TOML string."""
    return json.dumps(str(value), ensure_ascii=False)
