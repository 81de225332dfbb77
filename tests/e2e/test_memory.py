"""apd frees the memory of messages that it queued for a peer when the peer reads them."""

import os
import signal
import socket
import struct
from collections import Counter
from contextlib import contextmanager, suppress

import pytest

from lab.site.access_point import mac_bytes
from lab.site.failure import LabFailure
from lab.site.soak import holdings_of
from lab.site.waiting import wait_until
from steps import CLIENT_MANAGER, introduce, start_for_inspection, wait_for_line

LONGEST = 16384
QUEUE_PAGES = (1 << 20) // os.sysconf("SC_PAGESIZE")  # queue_max of tunnel/tunnel.h


@pytest.fixture
def access_point(lab, programs):
    if b"__asan_init" in (programs / "apd").read_bytes():
        pytest.skip("a sanitizer keeps freed memory back")
    return start_for_inspection(lab)


@contextmanager
def stopped(process):
    process.signal(signal.SIGSTOP)
    yield
    process.signal(signal.SIGCONT)


def pages(access_point):
    """The private pages of apd, by mapping."""
    return holdings_of(access_point.running["apd"]).pages


def send_to_controller(access_point, count):
    """A connection like client_mgr's. A message that apd does not take within a second is not sent."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as daemon, suppress(TimeoutError):
        daemon.connect(str(access_point.root / "kx/ipc/apcomm"))
        daemon.settimeout(1)
        for _ in range(count):
            daemon.send(struct.pack(">I", CLIENT_MANAGER) + bytes(LONGEST))


def send_to_client_mgr(lab, access_point, count):
    message = struct.pack(">3BHBH6s", 1, 14, 0, 0, 0, 14, mac_bytes(access_point.mac)) + bytes(LONGEST - 14)
    for _ in range(count):
        lab.controller.ask("send", access_point.mac, message.hex())


def replace_controller(lab, access_point):
    """Starts a controller at another port. apd connects there at once, however often it failed to reach the old one."""
    tunnels = access_point.log.read_text().count("Rcvd tunl status up")
    lab.controller.kill()
    lab.controller.port = 0
    lab.controller.start("--passive")
    access_point.configure(lab.controller, lab.authority)
    wait_for_line(access_point.log, "Rcvd tunl status up", number=tunnels + 1)
    introduce(lab, access_point)


def keep_waiting(lab, access_point, to_client_mgr, to_controller):
    """Queues messages in both directions, for a peer that reads them later and a controller that never does. Returns the
    most pages that apd held."""
    with stopped(access_point.running["client_mgr"]):
        send_to_client_mgr(lab, access_point, to_client_mgr)
    with stopped(lab.controller.process):
        send_to_controller(access_point, to_controller)
        most = pages(access_point).total()
    replace_controller(lab, access_point)
    lab.controller.process.signal(signal.SIGSTOP)
    send_to_controller(access_point, to_controller)
    most = max(most, pages(access_point).total())
    replace_controller(lab, access_point)
    return most


def test_full_queues_leave_nothing_behind(lab, access_point):
    keep_waiting(lab, access_point, 1, 1)  # whatever is used for the first time is used
    before = pages(access_point)
    for _ in range(2):
        assert keep_waiting(lab, access_point, 100, 1000) > before.total() + QUEUE_PAGES // 2
        with suppress(LabFailure):
            wait_until(lambda: pages(access_point) <= before, "apd has given everything back")
        assert pages(access_point) - before == Counter()
