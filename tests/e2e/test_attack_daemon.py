"""client_mgr goes on, whatever is done to its log, its console, its commands and its sockets."""

import os
import re
import signal
import socket
import struct
import subprocess
import time
from pathlib import Path

import pytest

from lab.site.access_point import mac_bytes
from lab.site.client_table import DUMP_FILE
from lab.site.dump_lock import locked_directory
from lab.site.failure import LabFailure
from lab.site.local_ipc import DAEMON, LocalSocket
from lab.site.messages import Local
from lab.site.waiting import wait_until
from steps import (GUEST, add_access_point, associate, client_mac, lost, read_log_configuration, set_log_level, tell,
                   wait_for_association, wait_for_line, wait_until_ready)

LINE = re.compile(r":\d+:\d+: .*")
UNKNOWN_MESSAGE = 9999  # the daemon logs one line about it


@pytest.fixture
def access_point(lab):
    """With a client_mgr alone."""
    lab.controller.start()
    made = add_access_point(lab)
    start_daemon(made)
    return made


def start_daemon(access_point):
    daemon = access_point.start("client_mgr")
    wait_until((access_point.root / "kx/ipc/client_mgr").exists, "the endpoint", log=access_point.log)
    return daemon


def talk(access_point, times):
    for _ in range(times):
        tell(access_point, UNKNOWN_MESSAGE, b"")
    read_log_configuration(access_point)  # answered after them


def configure_log(access_point, **changes):
    names = ("word0", "word1", "level", "console", "word4", "size")
    configuration = dict(zip(names, read_log_configuration(access_point), strict=True)) | changes
    tell(access_point, Local.LOG_CFG_SET, struct.pack(">IIiIII", *configuration.values()))
    assert read_log_configuration(access_point) == list(configuration.values())


def test_hangup_opens_the_log_anew(access_point):
    moved = access_point.log.with_suffix(".1")
    set_log_level(access_point, 4)
    talk(access_point, 1)
    access_point.log.rename(moved)
    before = moved.read_text()
    access_point.running["client_mgr"].signal(signal.SIGHUP)
    wait_until(access_point.log.exists, "the new log")
    talk(access_point, 3)
    assert moved.read_text() == before
    assert all(LINE.fullmatch(line) for line in access_point.log.read_text().splitlines())
    assert access_point.log.stat().st_mode & 0o777 == 0o600
    assert access_point.running["client_mgr"].status is None


def test_full_log_has_whole_lines_alone(access_point):
    configure_log(access_point, level=4, size=8192)
    for length in (1, 40, 200, 7):
        talk(access_point, length)
        text = access_point.log.read_text()
        assert text.endswith("\n")
        bad = [line for line in text.splitlines() if line.strip() and not LINE.fullmatch(line)]
        assert bad == []
        assert len(text) < 8192 + 1024
    assert any(line and not line.strip() for line in access_point.log.read_text().splitlines())


def test_full_disk_costs_lines_and_nothing_else(lab):
    """Below the log is a file system of 16 KiB."""
    lab.controller.start()
    access_point = add_access_point(lab)
    directory = access_point.root / "log"
    directory.mkdir(mode=0o700)
    mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=16k,mode=700", "tmpfs", directory],
                             capture_output=True, check=False)
    if mounted.returncode:
        pytest.skip("nothing can be mounted here")
    try:
        start_daemon(access_point)
        set_log_level(access_point, 4)
        talk(access_point, 500)
        wait_until(lambda: lost(access_point, "client_mgr").get("log_lines", 0) > 0, "the lines are counted")
        full = access_point.log.read_text()
        assert all(LINE.fullmatch(line) for line in full.splitlines())
        subprocess.run(["mount", "-o", "remount,size=64k", directory], check=True)
        talk(access_point, 1)
        text = access_point.log.read_text()
        assert len(text) > len(full)
        assert all(LINE.fullmatch(line) for line in text.splitlines())
    finally:
        access_point.kill("client_mgr")
        subprocess.run(["umount", directory], check=True)


def test_console_that_nobody_reads(lab):
    lab.controller.start()
    access_point = add_access_point(lab)
    fifo = access_point.root / "client_mgr.out"
    os.mkfifo(fifo)
    reader = os.open(fifo, os.O_RDONLY | os.O_NONBLOCK)
    try:
        start_daemon(access_point)
        configure_log(access_point, level=4, console=1)
        for _ in range(50):
            talk(access_point, 50)  # more than a pipe has room for
        assert len(os.read(reader, 1 << 20)) > 4096
        wait_until(lambda: lost(access_point, "client_mgr").get("console_lines", 0) > 0, "the lines are counted")
    finally:
        access_point.kill("client_mgr")
        os.close(reader)


def runs(pid):
    try:
        return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] != "Z"
    except OSError:
        return False


def test_command_that_hangs(lab, tmp_path, monkeypatch):
    """Of the commands for a guest, arp never ends."""
    arp = tmp_path / "arp"
    arp.write_text(f"#!/bin/sh\necho $$ > {tmp_path}/pid\nsleep 1000 &\nwait\n")
    for other in ("ifconfig", "route"):
        (tmp_path / other).write_text("#!/bin/sh\nexit 0\n")
    for stub in ("arp", "ifconfig", "route"):
        (tmp_path / stub).chmod(0o755)
    monkeypatch.setenv("PATH", f"{tmp_path}:{os.environ['PATH']}")
    lab.controller.start()
    access_point = add_access_point(lab)
    access_point.start_all()
    wait_until_ready(access_point)
    associate(access_point, client_mac(1), bssid=GUEST)
    wait_for_association(lab, client_mac(1))
    tell(access_point, Local.CLIENT_IP,
         mac_bytes(client_mac(1)) + bytes(2) + socket.inet_aton("192.168.5.23") + b"wlan1\0")
    wait_until((tmp_path / "pid").exists, "the command runs", log=access_point.log)
    associate(access_point, client_mac(2))
    wait_for_association(lab, client_mac(2))
    assert not runs((tmp_path / "pid").read_text().strip())


def test_socket_that_is_removed(access_point):
    endpoint = access_point.root / "kx/ipc/client_mgr"
    endpoint.unlink()
    # A second one must not take its place.
    second = access_point._processes.start("client_mgr", (), access_point.root, access_point.root)
    access_point._processes.forget(second)
    assert second.wait() == 255
    assert f"process {access_point.running['client_mgr'].pid}" in second.err.read_text()
    wait_until(endpoint.exists, "the socket is made again")
    wait_until(lambda: read_log_configuration(access_point), "it answers")


def test_directory_in_the_place_of_the_table_dump(lab, access_point, tmp_path, monkeypatch):
    with locked_directory(DUMP_FILE.parent), LocalSocket(access_point.root) as ipc:
        DUMP_FILE.unlink(missing_ok=True)
        DUMP_FILE.mkdir()
        try:
            ipc.request(DAEMON, Local.CLIENT_TBL_DUMP)
            assert list(DUMP_FILE.iterdir()) == []
        finally:
            DUMP_FILE.rmdir()
    wait_for_line(access_point.log, f"Unable to open {DUMP_FILE}")
    assert access_point.clients() == []
    monkeypatch.setattr("lab.site.client_table.DUMP_FILE", tmp_path)
    with pytest.raises(LabFailure, match=f"^{tmp_path}: Is a directory; expected the daemon's client table$"):
        access_point.clients()
    assert tmp_path.is_dir()


def test_sockets_of_the_platform_daemon_that_are_removed(access_point):
    access_point.start("apd")
    sockets = [access_point.root / "kx/ipc" / name for name in ("sysmon", "apcomm")]
    told = access_point.running["apd"].err
    wait_for_line(told, "client_mgr runs as process")
    for each in sockets:
        each.unlink()
    wait_until(lambda: all(each.exists() for each in sockets), "the sockets are made again", log=told)
    access_point.kill("client_mgr")
    daemon = access_point.start("client_mgr")
    wait_for_line(told, f"client_mgr runs as process {daemon.pid}")


@pytest.fixture
def service_manager(tmp_path, monkeypatch):
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as notified:
        notified.bind(str(tmp_path / "notify"))
        notified.settimeout(5)
        monkeypatch.setenv("NOTIFY_SOCKET", str(tmp_path / "notify"))
        monkeypatch.setenv("WATCHDOG_USEC", "1000000")
        yield notified


def test_service_manager_hears_of_a_daemon_that_hangs(access_point, service_manager):
    access_point.kill("client_mgr")
    access_point.start("client_mgr")
    assert service_manager.recv(512).startswith(b"READY=1\nSTATUS=")
    for _ in range(3):
        assert service_manager.recv(512) == b"WATCHDOG=1"
    daemon = access_point.running["client_mgr"]
    daemon.signal(signal.SIGSTOP)
    time.sleep(0.2)
    service_manager.setblocking(False)
    while True:
        try:
            service_manager.recv(512)
        except BlockingIOError:
            break
    service_manager.settimeout(1.5)
    with pytest.raises(TimeoutError):
        service_manager.recv(512)
    daemon.signal(signal.SIGCONT)
    assert service_manager.recv(512) == b"WATCHDOG=1"
