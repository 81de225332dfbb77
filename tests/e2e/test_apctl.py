"""apctl shows what the daemons of an access point hold and do."""

import contextlib
import itertools
import json
import os
import re
import select
import shutil
import socket
import struct
import subprocess
import tempfile
from pathlib import Path

import pytest

from key_search import Key
from lab.site.access_point import mac_bytes
from lab.site.capture_run import builtin_capture
from lab.site.messages import Local
from lab.site.settling import settle
from lab.site.waiting import wait_until
from steps import (AP_MAC, GUEST, OFFICE, add_access_point, associate, bssid_of, client_mac, lost, read_log_configuration,
                   tell, wait_until_ready)

ANNA, BEN = "02:00:00:00:0a:01", "02:00:00:00:0b:02"


@pytest.fixture
def apctl(programs):
    """Runs apctl at an access point and returns its output, of JSON if asked for."""
    def run(access_point, *words, status=0):
        done = subprocess.run([programs / "apctl", *words], env=os.environ | {"KX_ROOT": str(access_point.root)},
                              capture_output=True, text=True, timeout=20)
        assert done.returncode == status, done.stderr
        if status == 0:
            assert done.stderr == ""
        return json.loads(done.stdout) if "--json" in words else done.stdout + done.stderr

    return run


@pytest.fixture
def access_point(lab):
    lab.controller.start()
    access_point = add_access_point(lab)
    access_point.start_all()
    wait_until_ready(access_point)
    return access_point


def connect(access_point, daemon="client_mgr"):
    connection = socket.socket(socket.AF_UNIX)
    connection.connect(str(access_point.root / "view" / daemon))
    connection.settimeout(20)
    return connection


def test_shows_what_the_radio_made(lab, programs, apctl):
    lab.controller.start()
    capture = builtin_capture(programs.parent)
    access_point = lab.add_access_point(AP_MAC, capture.vaps)
    lab.start()
    access_point.play(capture.file)
    settle(lab)

    rows = {row["client"]: row for row in apctl(access_point, "clients", "--json")}
    assert set(rows) == {client.mac for client in access_point.clients()} == {ANNA, BEN}
    for client in access_point.clients():
        row = rows[client.mac]
        assert (row["bssid"], row["vlan"], row["home_bssid"], row["home_vlan"]) == (
            client.bssid, client.vlan, client.home_bssid, client.home_vlan)
        assert row["ip"] == (None if client.ip == "0.0.0.0" else client.ip)
    assert (rows[ANNA]["state"], rows[BEN]["state"]) == ("home", "guest")
    assert (rows[ANNA]["vap"], rows[ANNA]["ssid"]) == ("wlan0", "office")
    assert apctl(access_point, "client", ANNA, "--json") == [rows[ANNA]]
    assert "no client 02:00:00:00:00:01" in apctl(access_point, "client", "02:00:00:00:00:01", status=1)

    vaps = apctl(access_point, "vaps", "--json")
    assert [(row["vap"], row["bssid"], row["ssid"], row["guest"]) for row in vaps] == [
        ("wlan0", OFFICE, "office", False), ("wlan1", GUEST, "guest", True)]

    daemon, apd = apctl(access_point, "status", "--json")[:2]
    assert daemon["process"] == access_point.running["client_mgr"].pid
    assert (daemon["controller"], daemon["vaps"], daemon["log_level"]) == ("127.0.0.1", 2, 3)
    assert (apd["tunnel"], apd["connects"]) == ("up", {"failed": 0, "up": 1})
    assert apd["certificate_ends"] is not None
    sent = {each.get("name") for each in lab.controller.records()}
    assert {f"CLIENT_MGR_{name.upper()}" for name, number in apd["records"].items() if number} == sent
    assert daemon["messages"]["association"] + daemon["messages"]["foreign_association"] == 4

    text = apctl(access_point, "clients")
    assert re.search(rf"^{ANNA}  wlan0 +{OFFICE}  +10  10.0.10.21 +home$", text, re.M)
    assert "tunnel       up since" in apctl(access_point, "status")
    assert "messages.association" in apctl(access_point, "stats")


def test_says_which_daemon_does_not_run(access_point, apctl):
    access_point.end("client_mgr")
    text = apctl(access_point, "status", status=2)
    assert "client_mgr: " in text and "does not run" in text
    assert "does not run" in apctl(access_point, "clients", status=2)


def test_losses_are_those_of_the_status_file(access_point, apctl):
    tell(access_point, 9999, b"")  # an unknown id is no loss
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
        sender.sendto(b"short", str(access_point.root / "kx/ipc/client_mgr"))
    wait_until(lambda: lost(access_point, "client_mgr") == {"malformed": 1}, "the loss is published")
    daemon = apctl(access_point, "status", "--json")[0]
    assert {reason: number for reason, number in daemon["lost"].items() if number} == {"malformed": 1}
    assert daemon["messages"]["unknown"] == 1


def test_keys_stay_in_the_daemon(access_point, apctl):
    key = Key()
    client = client_mac(1)
    associate(access_point, client)
    tell(access_point, Local.CLIENT_MGR_PMK_INFO,
         struct.pack(">I", 2) + mac_bytes(bssid_of(access_point)) + bytes(6) + mac_bytes(client) + key.bytes)
    wait_until(lambda: apctl(access_point, "client", client, "--json")[0]["has_pmk"], "the daemon has the key")
    for words in (["clients"], ["client", client], ["status"], ["stats"], ["vaps"]):
        assert not key.is_in(apctl(access_point, *words).encode())
    with connect(access_point) as connection:
        connection.sendall(b"clients\n")
        received = b"".join(iter(lambda: connection.recv(65536), b""))
    assert mac_bytes(client) in received
    assert not key.is_in(received)


def test_texts_of_others_are_not_printed_raw(lab, apctl):
    lab.controller.start()
    access_point = lab.add_access_point(AP_MAC, f"""\
[[vap]]
ifname = "wlan0"
ssid = "a\\u001b[2J\\u0007\\u009bz"
vlan = 10
bssid = "{OFFICE}"
""")
    access_point.start_all()
    wait_until_ready(access_point)
    associate(access_point, client_mac(1))
    wait_until(lambda: apctl(access_point, "clients", "--json"), "the client is there")
    for words in (["vaps"], ["vaps", "--json"], ["clients", "--json"], ["client", client_mac(1)]):
        text = json.dumps(apctl(access_point, *words)) if "--json" in words else apctl(access_point, *words)
        assert re.fullmatch(r"[\n\x20-\x7e]*", text)
    assert "a\\x1b[2J\\x07" in apctl(access_point, "vaps")


@pytest.mark.parametrize("daemon", ["client_mgr", "apd"])
def test_bad_readers_harm_nobody(access_point, apctl, daemon):
    """Neither one who reads nothing, nor many, nor one who asks for nonsense keeps another from an answer."""
    associate(access_point, *map(client_mac, range(500)))
    wait_until(lambda: len(apctl(access_point, "clients", "--json")) == 500, "all clients are there")
    silent = []
    for _ in range(100):
        silent.append(connect(access_point, daemon))
        with contextlib.suppress(BrokenPipeError):  # it has made room for a newer one
            silent[-1].sendall(b"watch\n")
    for nonsense in (b"\n", b"\0" * 64, b"x" * 4096, b"clients", b"clients \n", b"CLIENTS\n", b"\xff\n"):
        with connect(access_point, daemon) as connection:
            try:
                connection.sendall(nonsense)
                connection.shutdown(socket.SHUT_WR)
                assert connection.recv(1) == b""
            except (BrokenPipeError, ConnectionResetError):
                pass
    assert len(apctl(access_point, "clients", "--json")) == 500
    assert all(row["running"] for row in apctl(access_point, "status", "--json")[:2])
    for each in silent:
        each.close()


@pytest.fixture
def following(programs):
    """Starts apctl and reads its lines as they come."""
    started = []

    def start(access_point, *words):
        process = subprocess.Popen([programs / "apctl", *words], env=os.environ | {"KX_ROOT": str(access_point.root)},
                                   stdout=subprocess.PIPE, text=True)
        started.append(process)
        return process

    yield start
    for process in started:
        process.kill()
        process.communicate()


def line_with(process, text):
    """Waits for it."""
    return next(line for line in process.stdout if text in line)


def test_watch_prints_changes_as_they_come(access_point, apctl, following):
    watch = following(access_point, "watch")
    # A client that comes before the first answer is no change.
    for number in itertools.count(2):
        associate(access_point, client_mac(number))
        if select.select([watch.stdout], [], [], 0.3)[0]:
            break
    associate(access_point, client_mac(1))
    assert "joined" in line_with(watch, client_mac(1))
    tell(access_point, Local.CLIENT_IP, mac_bytes(client_mac(1)) + bytes(2) + bytes([10, 0, 10, 7]) + b"wlan0\0")
    assert "10.0.10.7" in line_with(watch, "address")
    associate(access_point, client_mac(1), bssid=bssid_of(access_point, 1))
    assert "wlan1" in line_with(watch, "moved")
    access_point.end("client_mgr")
    line_with(watch, "client_mgr does not run")
    access_point.start("client_mgr")
    line_with(watch, "client_mgr runs")
    array = following(access_point, "watch", "--json")
    access_point.end("apd")
    line_with(array, "apd does not run")
    array.terminate()
    rest = array.communicate(timeout=20)[0]
    assert array.returncode == 0 and rest.endswith("]\n")


def test_log_hides_keys_and_finds_a_client(access_point, apctl):
    key = Key()
    client, other = client_mac(1), client_mac(2)
    associate(access_point, client, other)
    tell(access_point, Local.CLIENT_MGR_PMK_INFO,
         struct.pack(">I", 2) + mac_bytes(bssid_of(access_point)) + bytes(6) + mac_bytes(client) + key.bytes)
    wait_until(lambda: "(hidden)" in apctl(access_point, "log"), "the key is in the log")
    assert key.is_in(access_point.log.read_bytes())
    rows = apctl(access_point, "log", "--json")
    assert not key.is_in(apctl(access_point, "log").encode() + json.dumps(rows).encode())
    times = [row["time"] for row in rows]
    assert times == sorted(times) and re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z", times[0])
    about = apctl(access_point, "log", client, "--json")
    assert about and all(client in row["text"].lower() for row in about)
    assert not any(other in row["text"].lower() for row in about)


def test_log_is_followed_past_its_end(access_point, apctl, following):
    assert apctl(access_point, "level", "--json") == [{"level": 3}]
    configuration = read_log_configuration(access_point)
    configuration[5] = 32768
    tell(access_point, Local.LOG_CFG_SET, struct.pack(">IIiIII", *configuration))
    follow = following(access_point, "log", "-f", "--level", "4")
    wait_until(lambda: apctl(access_point, "level") == "4\n", "the level is set")
    for number in range(1, 41):  # some 2 KiB each: the file is written from its start again
        client = client_mac(number)
        associate(access_point, client)
        line_with(follow, client)
    assert access_point.log.stat().st_size < 2 * 32768
    rows = apctl(access_point, "log", "--json")
    assert [row["time"] for row in rows] == sorted(row["time"] for row in rows)
    follow.terminate()
    follow.communicate(timeout=20)
    assert follow.returncode == 0
    assert apctl(access_point, "level") == "3\n"
    assert apctl(access_point, "level", "1") == "1\n"
    assert read_log_configuration(access_point)[2] == 1


def test_check_names_faults_and_remedies(access_point, apctl):
    wait_until(lambda: apctl(access_point, "status", "--json")[1]["tunnel"] == "up", "the tunnel is up")
    assert not [row for row in apctl(access_point, "check", "--json") if row["fault"]]
    key = access_point.identity.key
    key.chmod(0o644)
    configuration = access_point.root / "ap.toml"
    before = configuration.read_text()
    configuration.write_text(before.replace(AP_MAC, "02:00:00:00:99:00"))
    (access_point.root / "log").chmod(0o777)
    access_point.end("client_mgr")
    text = apctl(access_point, "check", status=1)
    assert "chmod it to 0600" in text and "chmod it to 0700" in text
    assert "systemctl status client_mgr" in text
    key.chmod(0o600)
    assert "it is not for 02:00:00:00:99:00" in apctl(access_point, "check", status=1)
    configuration.write_text(before + "nonsense = 1\n")
    assert "unknown key" in apctl(access_point, "check", status=1)


def test_the_socket_is_private_and_made_again(access_point, apctl):
    file = access_point.root / "view/client_mgr"
    assert file.stat().st_mode & 0o777 == 0o600
    file.unlink()
    wait_until(file.exists, "the socket is made again")
    apctl(access_point, "clients")


DAEMON_ID, READER_ID, VIEW_GROUP = 64101, 64102, 64103  # no user or group of the machine


@pytest.fixture
def service(programs):
    """client_mgr as a user of its own, in directories as an installation has them."""
    if os.geteuid() != 0 or not shutil.which("setpriv"):
        pytest.skip("only root can be several users")
    with tempfile.TemporaryDirectory(prefix="kx-apctl.") as name:
        place = Path(name)
        place.chmod(0o755)
        for program in ("client_mgr", "apctl"):
            shutil.copy(programs / program, place)
        for directory, mode, group in (("root", 0o711, DAEMON_ID), ("root/view", 0o2710, VIEW_GROUP)):
            (place / directory).mkdir()
            os.chown(place / directory, DAEMON_ID, group)
            (place / directory).chmod(mode)
        (place / "ap.toml").write_text(f"""\
[ap]
mac = "{AP_MAC}"
[controller]
address = "127.0.0.1"
port = 1
ca = "none"
certificate = "none"
key = "none"
""")

        def command(user, groups, *words):
            return ["setpriv", f"--reuid={user}", f"--regid={user}", *groups, place / words[0], *words[1:]]

        environment = os.environ | {"KX_ROOT": f"{place}/root", "KX_CONFIG": f"{place}/ap.toml"}
        with (place / "client_mgr.err").open("w") as errors:
            process = subprocess.Popen(command(DAEMON_ID, ["--clear-groups"], "client_mgr"), env=environment,
                                       stdout=errors, stderr=errors)
        try:
            wait_until((place / "root/view/client_mgr").exists, "the socket is there", log=place / "client_mgr.err")
            yield lambda *words: subprocess.run(command(*words), env=environment, capture_output=True, text=True,
                                                timeout=20, check=False)
        finally:
            process.kill()
            process.wait()


def test_only_the_group_may_ask(service):
    member = service(READER_ID, [f"--groups={VIEW_GROUP}"], "apctl", "vaps", "--json")
    assert (member.returncode, member.stdout, member.stderr) == (0, "[]\n", "")
    stranger = service(READER_ID, ["--clear-groups"], "apctl", "vaps")
    assert stranger.returncode == 2 and "permission denied" in stranger.stderr
    for words in (["log"], ["level", "1"]):
        refused = service(READER_ID, [f"--groups={VIEW_GROUP}"], "apctl", *words)
        assert refused.returncode in (1, 2) and "ermission denied" in refused.stderr


def test_wrong_words(programs):
    for words, status in ((["--help"], 0), (["--version"], 0), ([], 64), (["clients", "x"], 64), (["client"], 64),
                          (["client", "nobody"], 64), (["nonsense"], 64)):
        done = subprocess.run([programs / "apctl", *words], capture_output=True, text=True, timeout=20)
        assert done.returncode == status, words
