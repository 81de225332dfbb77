"""Attacks on apd: messages that hold the daemon, idle connections, and no descriptors."""

import os
import resource
import socket
import struct
import time
from pathlib import Path

import pytest

from lab.site.access_point import mac_bytes
from lab.site.messages import Local
from lab.site.waiting import wait_until
from steps import (add_access_point, associate, bssid_of, client_mac, read_log_configuration, set_log_level, tell,
                   wait_for_association, wait_for_line, wait_until_ready)

REGISTER_SECONDS = 10
ANSWER_SECONDS = 1


@pytest.fixture
def access_point(lab):
    lab.controller.start()
    made = add_access_point(lab)
    made.start_all()
    wait_until_ready(made)
    associate(made, client_mac(1))
    wait_for_association(lab, client_mac(1))
    return made


def connect_to(access_point):
    connection = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    connection.settimeout(REGISTER_SECONDS + 10)
    connection.connect(str(access_point.root / "kx/ipc/apcomm"))
    return connection


def table_of(access_point):
    return {client.mac for client in access_point.clients()}


def cpu_seconds(process):
    fields = Path(f"/proc/{process.pid}/stat").read_text().rpartition(")")[2].split()
    return sum(map(int, fields[11:13])) / os.sysconf("SC_CLK_TCK")


@pytest.mark.parametrize(("records", "body"), [(0xFFFF, b"\x0a\x00\x00\x00"), (0xFFFF, b"\x0a\x04\x00\x04")],
                         ids=["length 0", "zeros behind the end"])
def test_message_of_18_bytes_does_not_hold_the_daemon(lab, access_point, records, body):
    message = struct.pack(">BBBHBH6s", 1, 14, 0, records, 0, 18, bytes(6)) + body
    for _ in range(3):
        lab.controller.ask("send", access_point.mac, message.hex())
    wait_for_line(access_point.running["apd"].err, "3 malformed messages from the controller refused")
    before = time.monotonic()
    read_log_configuration(access_point)
    assert time.monotonic() - before < ANSWER_SECONDS
    assert access_point.running["apd"].err.read_text().count("refused a message from the controller: ") == 1


def record(kind, body):
    return struct.pack(">BBH", kind, 4, 4 + len(body)) + body


def longest_message(guests, clients):
    """As many guests as pass, a request for bulk information, and as many clients that move away as there is room for."""
    records = [*(record(24, mac_bytes(guest)) for guest in guests), record(16, b""),
               *(record(9, b"\1" + mac_bytes(client)) for client in clients)]
    body = b"".join(records)
    return struct.pack(">BBBHBH6x", 1, 14, 0, len(records), 0, 14 + len(body)) + body


def test_longest_message_that_passes_holds_the_daemon_less_than_a_second(lab, access_point):
    set_log_level(access_point, 3)
    clients = [client_mac(number) for number in range(1470)]
    guests = [client_mac(number) for number in range(2000, 2016)]
    for first in range(0, len(clients), 50):
        associate(access_point, *clients[first:first + 50])
        read_log_configuration(access_point)  # its socket has room again
    associate(access_point, *guests, bssid=bssid_of(access_point, 1))
    for number, guest in enumerate(guests):
        tell(access_point, Local.CLIENT_IP, mac_bytes(guest) + bytes((0, 0, 192, 168, 5, number + 1)) + b"wlan1\0")
    wait_until(lambda: table_of(access_point) >= {*clients, *guests}, "the clients are there")
    lab.controller.ask("send", access_point.mac, longest_message(guests, clients).hex())
    wait_for_line(access_point.log, "Client authenticated, removing arp and route")
    before = time.monotonic()
    read_log_configuration(access_point)
    assert time.monotonic() - before < ANSWER_SECONDS
    assert not table_of(access_point) & set(clients)


def test_idle_local_connections_end(lab, access_point):
    before = time.monotonic()
    idle = [connect_to(access_point) for _ in range(7)]
    assert [each.recv(1) for each in idle] == [b""] * 7
    assert REGISTER_SECONDS - 1 < time.monotonic() - before < REGISTER_SECONDS + 5
    associate(access_point, client_mac(2))
    wait_for_association(lab, client_mac(2))


def test_without_descriptors_apd_waits(lab, access_point):
    apd = access_point.running["apd"]
    number = max(map(int, os.listdir(f"/proc/{apd.pid}/fd"))) + 1
    limits = resource.prlimit(apd.pid, resource.RLIMIT_NOFILE)
    resource.prlimit(apd.pid, resource.RLIMIT_NOFILE, (number, limits[1]))
    waiting = [connect_to(access_point) for _ in range(5)]
    wait_for_line(apd.err, "cannot accept a local connection: Too many open files")
    size, used = apd.err.stat().st_size, cpu_seconds(apd)
    time.sleep(2)
    assert cpu_seconds(apd) - used < 0.5
    assert apd.err.stat().st_size - size < 1000
    associate(access_point, client_mac(2))
    wait_for_association(lab, client_mac(2))
    resource.prlimit(apd.pid, resource.RLIMIT_NOFILE, limits)
    wait_for_line(apd.err, "accepts local connections again")
    for each in waiting:
        each.close()
    system_log = 1  # its socket is opened with the first line
    wait_until(lambda: len(os.listdir(f"/proc/{apd.pid}/fd")) <= number + system_log, "the connections end")
