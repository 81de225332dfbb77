"""What `site_controller --capture` writes, and recorded traffic of the tunnels, seen through the dissector."""

import shutil
import socket
import struct
import sys
from pathlib import Path

import pytest

from lab.site.json_lines import JsonLines
from lab.site.laboratory import Laboratory
from lab.site.waiting import wait_until
from test_fleet import ACL, KEY, SCENARIO, fleet, operate, wait_for_summary, wait_until_at_rest

sys.path.insert(0, str(Path(__file__).parents[1] / "dissector"))

from dissection import dissect, fingerprint, malformations, records, tshark  # noqa: E402
from protocol_tables import load  # noqa: E402

REQUESTS_WITHOUT_EVENT = "00:00:00:00:00:00"  # to access points that have not sent anything yet
ETHERTYPE_ALL = 3
SO_RCVBUFFORCE = 33  # asm-generic/socket.h
BUFFER_SIZE = 1 << 24


@pytest.fixture(scope="module", autouse=True)
def with_tshark() -> None:
    if shutil.which("tshark") is None:
        pytest.skip("there is no tshark")


def play(lab: Laboratory, tmp_path: Path, *options: object) -> None:
    """A controller whose access points send and receive every record; both have ended."""
    acl, scenario = tmp_path / "acl.toml", tmp_path / "scenario.toml"
    acl.write_text(ACL)
    scenario.write_text(SCENARIO)
    lab.controller.start("--acl", acl, *options)
    with fleet(lab, "--scenario", scenario, "--speed", 2) as output:
        wait_for_summary(lab, output, 20)
        operate(lab)
        wait_until_at_rest(lab)
    lab.processes.end()


def printed(lab: Laboratory) -> list[tuple[bool, dict]]:
    """Whether a record went to the controller, and the record, as the controller printed it."""
    return [("event" not in each, {key: value for key, value in each.items() if key not in ("event", "type")})
            for each in JsonLines(lab.controller.output.file).read() if each.get("event", "sent") == "sent"]


def captured(file: Path, protocol: dict, *options: str) -> list[tuple[bool, dict]]:
    found = []
    for tree in dissect(file, "-Y", "kx.type", *options):
        assert not list(malformations(tree))
        found += [(dict(tree)["kx.to_controller"] == "1", {key: value for key, value in each.items() if key != "type"})
                  for each in records(tree, protocol) if each["ap"] != REQUESTS_WITHOUT_EVENT]
    return found


def test_a_capture_has_what_passed_without_keys(lab, programs, tmp_path):
    file = tmp_path / "site.pcapng"
    play(lab, tmp_path, "--capture", file)
    found = captured(file, load(programs))
    assert found == printed(lab)
    assert len({each["name"] for _, each in found}) == 21
    assert fingerprint(KEY) in [each.get("pmk") for _, each in found]
    content = file.read_bytes()
    assert bytes.fromhex(KEY) not in content
    assert b"\xa1" * 8 not in content
    assert file.stat().st_mode & 0o777 == 0o600
    named = tshark(file, "-Y", "kx.ap == 02:a0:00:00:01:00", "-T", "fields", "-e", "frame.interface_name")
    assert set(named.split()) == {"ap1"}
    ways = tshark(file, "-T", "fields", "-e", "kx.to_controller", "-e", "frame.packet_flags_direction")
    assert set(ways.splitlines()) == {"1\t0x00000001", "0\t0x00000002"}  # inbound, outbound


class Recorder:
    """Records the frames of the loopback interface."""

    def __init__(self) -> None:
        self._socket = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETHERTYPE_ALL))
        self._socket.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, BUFFER_SIZE)
        self._socket.bind(("lo", 0))
        self._socket.setblocking(False)

    def write(self, file: Path) -> None:
        """What was sent since the start, as pcap. The loopback interface shows each frame twice."""
        with file.open("wb") as to:
            to.write(struct.pack("<IHHiIII", 0xa1b2c3d4, 2, 4, 0, 0, 262144, 1))
            number = 0
            while True:
                try:
                    frame, address = self._socket.recvfrom(262144)
                except BlockingIOError:
                    return
                if address[2] == socket.PACKET_OUTGOING:
                    continue
                number += 1
                to.write(struct.pack("<IIII", number // 1000000, number % 1000000, len(frame), len(frame)) + frame)


def test_recorded_traffic_is_decrypted_with_the_secrets_and_a_capture_has_keys_on_request(lab, programs, own_network,
                                                                                          tmp_path):
    if not own_network:
        pytest.skip("only root may record the network")
    secrets, traffic, file = tmp_path / "secrets", tmp_path / "lo.pcap", tmp_path / "site.pcapng"
    recorder = Recorder()
    play(lab, tmp_path, "--tls-key-log", secrets, "--capture", file, "--capture-pmks")
    recorder.write(traffic)
    assert captured(file, load(programs), "-o", "kx.show_pmks:TRUE") == printed(lab)
    keys = ("-Y", "kx.pmk", "-T", "fields", "-e", "kx.pmk")
    assert KEY in tshark(file, "-o", "kx.show_pmks:TRUE", *keys)
    assert secrets.stat().st_mode & 0o777 == 0o600
    options = ("-o", f"tls.keylog_file:{secrets}", "-o", f"kx.port:{lab.controller.port}", "-o", "kx.show_pmks:TRUE")
    names = tshark(traffic, *options, "-Y", "kx.record", "-T", "fields", "-e", "kx.type")
    found = sorted(int(each) for line in names.split() for each in line.split(","))
    numbers = {each["name"]: each["type"] for each in load(programs)["records"]}
    expected = sorted(numbers[each["name"]] for _, each in printed(lab))
    requests = numbers["CLIENT_MGR_REQ_BULK_INFO"]  # some are not printed
    assert [each for each in found if each != requests] == [each for each in expected if each != requests]
    assert tshark(traffic, *options, "-Y", "kx.malformed", "-T", "fields", "-e", "frame.number") == ""
    assert KEY in tshark(traffic, *options, *keys)
    assert "kx_" not in tshark(traffic, "-T", "fields", "-e", "frame.protocols")


@pytest.mark.parametrize("option", ["--capture", "--tls-key-log"])
def test_a_file_that_is_in_use_otherwise_is_refused(lab, tmp_path, option):
    file = tmp_path / "file"
    file.write_text("mine")
    file.chmod(0o644)
    process = lab.processes.start("site_controller", [
        "--listen", "127.0.0.1:0", "--ca", lab.authority.certificate, "--certificate",
        lab.controller.identity.certificate, "--key", lab.controller.identity.key, option, file], lab.directory)
    lab.processes.forget(process)
    wait_until(lambda: process.status is not None, "the controller ends")
    assert process.status == 1
    assert str(file) in process.err.read_text()
    assert file.read_text() == "mine"
