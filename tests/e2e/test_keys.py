"""A station's key is in the memory of client_mgr as long as the station is known, and nowhere after that."""

import secrets
import signal
import socket
import struct
from contextlib import contextmanager, suppress
from pathlib import Path

import pytest

from key_search import Key, places_of
from lab.site.access_point import mac_bytes
from lab.site.local_ipc import DAEMON, LocalSocket
from lab.site.messages import Local, Pmk, Record
from lab.site.waiting import wait_until
from steps import CLIENT_MANAGER, associate, bssid_of, client_mac, start_for_inspection, tell, wait_for_line

ENTRY_PMK = 1

STATION, ELSEWHERE = client_mac(1), "02:00:00:00:20:01"
HOME_VLAN, OTHER_VLAN = 10, 77


@pytest.fixture
def access_point(lab):
    return start_for_inspection(lab)


def handled(access_point):
    """Returns when client_mgr has handled all earlier local messages."""
    with LocalSocket(access_point.root) as ipc:
        ipc.request(DAEMON, Local.LOG_CFG_GET)


def key_message(access_point, what, client=STATION, key=bytes(32), bssid=None):
    bssid = mac_bytes(bssid or bssid_of(access_point))
    tell(access_point, Local.CLIENT_MGR_PMK_INFO, struct.pack(">I", what) + bssid + bssid + mac_bytes(client) + key)


def send_record(lab, access_point, record, body):
    """Returns when client_mgr has handled the record: a record of an unknown type behind it is logged."""
    number = send_record.number = getattr(send_record, "number", 0) + 1
    records = struct.pack(">BBH", record, 4, 4 + len(body)) + body
    records += struct.pack(">BBH", 200, 4, 4 + number) + bytes(number)
    header = struct.pack(">3BHBH6s", 1, 14, 0, 2, 0, 14 + len(records), mac_bytes(access_point.mac))
    lab.controller.ask("send", access_point.mac, (header + records).hex())
    wait_for_line(access_point.log, f"Received rec_type 200 rec_hdr_len 4 rec_len {4 + number}\n")


def entry(access_point, key=bytes(32), client=STATION, vlan=HOME_VLAN):
    return struct.pack(">6s6s6sI4s32sI", mac_bytes(client), mac_bytes(ELSEWHERE), mac_bytes(bssid_of(access_point)),
                       vlan, bytes([10, 0, 10, 9]), key, ENTRY_PMK)


def entries(*each):
    return struct.pack(">I", len(each)) + b"".join(each)


def reassociate(access_point):
    bssid = mac_bytes(bssid_of(access_point))
    tell(access_point, Local.FOREIGN_CLIENT_ASSOCIATION,
         bytes(16) + mac_bytes(STATION) + bssid + mac_bytes(ELSEWHERE) + bytes(4))
    handled(access_point)


# How a key arrives. Afterwards the client is associated, at home or tunnelled.

def derived_here(lab, access_point, key):
    key_message(access_point, Pmk.ADD, key=key.bytes)
    associated_client_gets_its_key_back(access_point, key)


def associated_client_gets_its_key_back(access_point, key):
    associate(access_point, STATION)
    handled(access_point)
    key_message(access_point, Pmk.ADD, key=key.bytes)
    handled(access_point)


def fetched(lab, access_point, key):
    associate(access_point, STATION)
    key_message(access_point, Pmk.FETCH)
    handled(access_point)
    send_record(lab, access_point, Record.PMK_FETCH_SUCCESS, entries(entry(access_point, key.bytes)))


def brought_along(lab, access_point, key):
    reassociate(access_point)
    send_record(lab, access_point, Record.CLIENT_INFO_FETCH_SUCCESS, entries(entry(access_point, key.bytes)))
    key_message(access_point, Pmk.ADD, key=key.bytes)
    handled(access_point)


def brought_along_from_another_vlan(lab, access_point, key):
    reassociate(access_point)
    send_record(lab, access_point, Record.CLIENT_INFO_FETCH_SUCCESS,
                entries(entry(access_point, key.bytes, vlan=OTHER_VLAN)))


def listed(lab, access_point, key):
    send_record(lab, access_point, Record.CLIENT_BULK_INFO, entries(entry(access_point, key.bytes)))
    reassociate(access_point)


# How a client goes.

def disassociated(lab, access_point):
    tell(access_point, Local.CLIENT_DISASSOCIATION,
         bytes(16) + mac_bytes(STATION) + mac_bytes(bssid_of(access_point)) + bytes(4))
    tell(access_point, Local.FOREIGN_CLIENT_DISASSOCIATION,
         bytes(16) + mac_bytes(STATION) + mac_bytes(bssid_of(access_point)) + bytes(10))
    handled(access_point)


def removed(lab, access_point):
    send_record(lab, access_point, Record.REMOVE_CLIENT_BULK_INFO, entries(entry(access_point)))


def moved_away(lab, access_point):
    send_record(lab, access_point, Record.CLIENT_MOVE_NOTIFY, b"\1" + mac_bytes(STATION) + bytes(13))


def handed_over(lab, access_point):
    """The client is at home elsewhere now, with another key."""
    send_record(lab, access_point, Record.CLIENT_BULK_INFO, entries(entry(access_point, secrets.token_bytes(32))))


def rekeyed(lab, access_point):
    key_message(access_point, Pmk.ADD, key=secrets.token_bytes(32))
    handled(access_point)


def use(lab, access_point):
    """All events that copy a client's record without changing its key."""
    tell(access_point, Local.CLIENT_IP, mac_bytes(STATION) + bytes(2) + bytes([10, 0, 10, 7]) + b"wlan0\0")
    key_message(access_point, Pmk.FETCH)
    send_record(lab, access_point, Record.CLIENT_GUEST_AUTH, mac_bytes(STATION))
    send_record(lab, access_point, Record.CLIENT_MOVE_NOTIFY,
                b"\2" + mac_bytes(STATION) + 2 * mac_bytes(bssid_of(access_point)) + b"\x63")
    reassociate(access_point)
    assert STATION in [client.mac for client in access_point.clients()]


def expect_nowhere(access_point, key):
    for program in ("client_mgr", "apd"):
        process = access_point.running[program]
        wait_until(lambda: not places_of(key, process), f"{program} has forgotten the key", 5)


@pytest.mark.parametrize(("arrive", "ways_to_go"), [
    (derived_here, [disassociated, removed, moved_away, handed_over, rekeyed]),
    (fetched, [disassociated, rekeyed]),
    (brought_along, [disassociated, removed]),
    (brought_along_from_another_vlan, [disassociated, moved_away]),
    (listed, [disassociated, handed_over]),
])
def test_key_goes_with_its_client(lab, access_point, arrive, ways_to_go):
    for go in ways_to_go:
        key = Key()
        arrive(lab, access_point, key)
        assert places_of(key, access_point.running["client_mgr"])
        wait_until(lambda: not places_of(key, access_point.running["apd"]), "apd has forgotten the key", 5)
        use(lab, access_point)
        assert places_of(key, access_point.running["client_mgr"]), go
        go(lab, access_point)
        expect_nowhere(access_point, key)


# The key of a client on an unknown BSSID is forwarded and not stored.

# More messages than the local socket of a stopped process holds, so that its peer has to keep some.
MORE_THAN_A_SOCKET_TAKES = 500


@contextmanager
def stopped(access_point, program):
    process = access_point.running[program]
    process.signal(signal.SIGSTOP)
    yield
    process.signal(signal.SIGCONT)


def test_key_that_waited_in_client_mgr_is_gone(lab, access_point):
    key = Key()
    with stopped(access_point, "apd"):
        for _ in range(MORE_THAN_A_SOCKET_TAKES):
            key_message(access_point, Pmk.ADD, key=key.bytes, bssid=ELSEWHERE)
        handled(access_point)
        assert places_of(key, access_point.running["client_mgr"])
    expect_nowhere(access_point, key)


def test_key_that_waited_in_apd_is_gone(lab, access_point):
    key = Key()
    answer = entries(*[entry(access_point, key.bytes)] * 5)
    number = struct.pack(">3BHBH6s", 1, 14, 0, 1, 0, 18 + len(answer), mac_bytes(access_point.mac))
    message = (number + struct.pack(">BBH", Record.PMK_FETCH_SUCCESS, 4, 4 + len(answer)) + answer).hex()
    with stopped(access_point, "client_mgr"):
        for _ in range(100):
            lab.controller.ask("send", access_point.mac, message)
        wait_until(lambda: places_of(key, access_point.running["apd"]), "the key waits in apd", 5)
    expect_nowhere(access_point, key)


def test_key_that_waited_for_the_controller_is_gone(lab, access_point):
    """apd queues the key for a controller that does not read, until the controller goes."""
    key = Key()
    message = struct.pack(">I", CLIENT_MANAGER) + key.bytes * 500
    assert lab.controller.process
    lab.controller.process.signal(signal.SIGSTOP)
    with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as daemon:
        daemon.connect(str(access_point.root / "kx/ipc/apcomm"))
        daemon.settimeout(1)
        with suppress(TimeoutError):
            while True:
                daemon.send(message)
    assert places_of(key, access_point.running["apd"])
    lab.controller.kill()
    wait_for_line(access_point.log, "Rcvd tunl status down")
    expect_nowhere(access_point, key)


def test_key_is_in_no_file_and_no_command_line(lab, access_point):
    """Searches the log without the one line that shows keys."""
    key = Key()
    derived_here(lab, access_point, key)
    use(lab, access_point)
    shown = [line for line in access_point.log.read_text().splitlines() if key.is_in(line.encode())]
    assert len(shown) % 2 == 0 and all(each.startswith(" " * 24) or "Cur PMK " in each for each in shown)
    others = [file for file in lab.directory.rglob("*") if file.is_file() and file != access_point.log]
    assert access_point.root / "apd.err" in others
    assert [file for file in others if key.is_in(file.read_bytes())] == []
    for process in lab.processes.all:
        assert not key.is_in(Path(f"/proc/{process.pid}/cmdline").read_bytes())
        assert not key.is_in(Path(f"/proc/{process.pid}/environ").read_bytes())
