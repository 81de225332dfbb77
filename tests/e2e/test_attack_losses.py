"""Whatever is dropped in a flood is counted by reason, and the flood does not reach the logs."""

import signal
import socket
import ssl
import struct
import time

import pytest

from lab.site.controller import ADDRESS
from lab.site.messages import Local
from lab.site.waiting import wait_until
from steps import (add_access_point, associate, client_mac, lost, read_log_configuration, status, tell,
                   wait_for_association, wait_for_line, wait_until_ready)

FLOOD = 300
ENDLESS = struct.pack(">BBBHBH6s", 1, 14, 0, 0xFFFF, 0, 18, bytes(6)) + b"\x0a\x00\x00\x00"


@pytest.fixture
def access_point(lab):
    lab.controller.start()
    made = add_access_point(lab)
    made.start_all()
    wait_until_ready(made)
    return made


def send_garbage(access_point, endpoint):
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
        for _ in range(FLOOD):
            sender.sendto(b"garbage", str(access_point.root / "kx/ipc" / endpoint))


def test_state_of_the_daemons_is_in_files(access_point):
    apd, client_mgr = status(access_point, "apd"), status(access_point, "client_mgr")
    assert apd["process"] == access_point.running["apd"].pid
    assert apd["tunnel"] == f"tunnel to {ADDRESS} up"
    assert client_mgr["process"] == access_point.running["client_mgr"].pid
    assert client_mgr["controller"] == f"controller {ADDRESS}"
    assert (access_point.root / "kx/apd.status").stat().st_mode & 0o777 == 0o600


def test_flood_of_local_garbage_is_counted(lab, access_point):
    start = time.monotonic()
    for endpoint in ("client_mgr", "sysmon"):
        send_garbage(access_point, endpoint)
    for program, reason in (("client_mgr", "malformed"), ("apd", "local_malformed")):
        wait_until(lambda: lost(access_point, program) == {reason: FLOOD}, f"{program} has counted the flood")
    said = access_point.running["apd"].err.read_text().count("malformed local messages dropped")
    assert 1 <= said <= time.monotonic() - start + 1
    associate(access_point, client_mac(1))
    wait_for_association(lab, client_mac(1))


def test_flood_of_bad_log_configurations_is_counted(access_point):
    """Each is a sound local message; level 99 is not."""
    before = read_log_configuration(access_point)
    for _ in range(FLOOD):
        tell(access_point, Local.LOG_CFG_SET, struct.pack(">IIiIII", 0, 0, 99, 0, 0, 4096))
    wait_until(lambda: lost(access_point, "client_mgr") == {"malformed": FLOOD}, "client_mgr has counted the flood")
    assert read_log_configuration(access_point) == before


def test_signal_has_apd_write_all_losses(lab, access_point):
    apd = access_point.running["apd"]
    apd.signal(signal.SIGUSR1)
    wait_for_line(apd.err, "no losses since the start")
    for _ in range(3):
        lab.controller.ask("send", access_point.mac, ENDLESS.hex())
    wait_until(lambda: lost(access_point, "apd") == {"malformed": 3}, "apd has counted the messages", log=apd.err)
    apd.signal(signal.SIGUSR1)
    wait_for_line(apd.err, "since the start: 3 malformed messages from the controller refused")


def test_signal_does_not_end_the_client_manager(access_point):
    daemon = access_point.running["client_mgr"]
    daemon.signal(signal.SIGUSR1)
    read_log_configuration(access_point)
    assert daemon.status is None


def test_flood_of_refused_handshakes_is_counted(lab):
    lab.controller.start()
    start = time.monotonic()
    context = ssl.create_default_context(cafile=lab.authority.certificate)
    for _ in range(FLOOD):
        with socket.create_connection((ADDRESS, lab.controller.port)) as connection:
            connection.sendall(b"GET / HTTP/1.0\r\n\r\n")
    with context.wrap_socket(socket.create_connection((ADDRESS, lab.controller.port)), server_hostname=ADDRESS):
        pass
    wait_until(lambda: sum(counted(lab)) == FLOOD + 1, "all are counted")
    number, _ = counted(lab)
    wait_until(lambda: sum(each.get("times", 1) for each in refused(lab)) == number, "all are written")
    reasons = {each["reason"] for each in refused(lab)}
    assert len(refused(lab)) <= len(reasons) * (time.monotonic() - start + 2)
    lab.controller.process.signal(signal.SIGUSR1)
    wait_for_line(lab.controller.process.err, f"since the start: tunnels_refused {number}")


def counted(lab):
    """Some connections make room for newer ones before the controller has read anything."""
    stats = lab.controller.stats()
    return stats["tunnels_refused"], stats["connections_displaced"]


def refused(lab):
    return [each for each in lab.controller.objects() if each.get("event") == "tunnel_refused"]
