"""Connections that only cost descriptors: the controller serves its access points and its operator all the same."""

import contextlib
import os
import resource
import socket
import time
from pathlib import Path

from lab.site.controller import ADDRESS
from steps import add_access_point, associate, client_mac, wait_for_association, wait_for_line, wait_until_ready

NO_DESCRIPTORS = "cannot accept a tunnel: Too many open files"


def limit_descriptors(lab, number):
    resource.prlimit(lab.controller.process.pid, resource.RLIMIT_NOFILE, (number, 4096))


def descriptors_of(lab):
    return len(os.listdir(f"/proc/{lab.controller.process.pid}/fd"))


def cpu_seconds(lab):
    fields = Path(f"/proc/{lab.controller.process.pid}/stat").read_text().rpartition(")")[2].split()
    return sum(map(int, fields[11:13])) / os.sysconf("SC_CLK_TCK")


def printed_bytes(lab):
    return lab.controller.process.err.stat().st_size + lab.controller.process.out.stat().st_size


def connect_silently(held, lab, number):
    """Connections that send nothing, from one address after the other."""
    for index in range(number):
        connection = held.enter_context(socket.socket())
        connection.settimeout(5)
        connection.bind((f"127.0.1.{index % 50 + 1}", 0))
        connection.connect((ADDRESS, lab.controller.port))


def test_silent_connections_leave_room_for_access_points(lab):
    lab.controller.start()
    access_point = add_access_point(lab)
    before = printed_bytes(lab)
    with contextlib.ExitStack() as held:
        connect_silently(held, lab, 900)
        access_point.start_all()
        wait_until_ready(access_point)
        associate(access_point, client_mac(1))
        wait_for_association(lab, client_mac(1))
        assert descriptors_of(lab) < 400
        assert lab.controller.stats()["connections_displaced"] > 500
        assert printed_bytes(lab) - before < 20_000


def test_controller_without_descriptors_waits_and_answers_its_operator(lab):
    lab.controller.start()
    access_point = add_access_point(lab)
    limit_descriptors(lab, descriptors_of(lab) + 4)
    with contextlib.ExitStack() as held:
        connect_silently(held, lab, 20)
        wait_for_line(lab.controller.process.err, NO_DESCRIPTORS)
        used = cpu_seconds(lab)
        start = time.monotonic()
        while time.monotonic() < start + 3:
            assert lab.controller.stats()["accept_errors"] > 0
            time.sleep(0.1)
        assert cpu_seconds(lab) - used < 1
        assert lab.controller.process.err.read_text().count(NO_DESCRIPTORS) == 1
    limit_descriptors(lab, 1024)
    access_point.start_all()
    wait_until_ready(access_point)


def test_idle_operators_do_not_shut_the_operator_out(lab):
    lab.controller.start()
    with contextlib.ExitStack() as held:
        for _ in range(80):
            idle = held.enter_context(socket.socket(socket.AF_UNIX))
            idle.connect(str(lab.directory / "controller.sock"))
        assert "tunnels" in lab.controller.stats()
