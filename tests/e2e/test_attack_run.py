"""Attacks on `run`: hostile text in a capture, missing rights, other users, killed runs and broken outputs."""

import io
import json
import os
import subprocess
import sys
from contextlib import redirect_stdout
from types import SimpleNamespace

import pytest

from lab.captures import make_builtin
from lab.site.capture_run import print_table
from lab.site.command_line import make_console
from lab.site.dump_lock import locked_directory
from lab.site.failure import LabFailure
from lab.site.json_lines import JsonLines
from lab.site.narration import JsonNarrator, Narrator
from lab.site.plain_text import plain
from test_run import REPOSITORY, lab_run, wait_for_processes  # noqa: F401

DISC = "1c:cd:e5:57:56:2a"
NOBODY = 65534


def is_plain(text):
    return all(line.isprintable() for line in text.split("\n"))


def printed(function):
    text = io.StringIO()
    with redirect_stdout(text):
        function()
    return text.getvalue()


def records_printed(tmp_path, narrator, records):
    """What the narrator prints about records that the controller received."""
    file = tmp_path / "records"
    file.write_text("".join(json.dumps(each) + "\n" for each in records))
    controller = SimpleNamespace(objects=JsonLines(file).read)
    access_point = SimpleNamespace(radio_output=JsonLines(tmp_path / "none"))
    made = JsonNarrator(controller) if narrator is JsonNarrator else Narrator(make_console(), access_point, controller)
    return printed(made.print_news)


def test_every_mac_address_is_printed_as_it_is(tmp_path):
    macs = [":".join(f"{byte if place == number else 0x1c:02x}" for place in range(6))
            for byte in range(256) for number in range(6)]
    macs += [f"{first:02x}:{second:02x}:e5:57:56:2a" for first in (0x1c, 0x02) for second in range(256)]
    text = records_printed(tmp_path, Narrator, [{"name": "X", "client": mac} for mac in macs])
    assert [line.partition("client=")[2] for line in text.splitlines()] == macs
    table = printed(lambda: print_table(make_console(), ("client",), [(mac,) for mac in macs]))
    assert [line.strip() for line in table.splitlines()] == ["client", *macs]


@pytest.mark.parametrize("narrator", [Narrator, JsonNarrator])
def test_every_character_is_printed_plain(tmp_path, narrator):
    characters = [chr(code) for code in (*range(0x500), 0x200B, 0x202E, 0x2028, 0x2066, 0xD800, 0xFEFF, 0x1F4BF)]
    ssids = [*characters, "[bold]", "[/]", "\\[red]", ":cd:", "\x1b]0;title\x07", "x\\"]
    records = [{"name": "X", "ssid": ssid} for ssid in ssids]
    text = records_printed(tmp_path, narrator, records)
    lines = text.split("\n")[:-1]
    assert is_plain(text)
    assert len(lines) == len(ssids)
    if narrator is JsonNarrator:
        assert text.isascii()
        assert [json.loads(line) for line in lines] == records
    else:
        assert [line.partition("ssid=")[2] for line in lines] == [plain(ssid) for ssid in ssids]
    table = printed(lambda: print_table(make_console(), ("ssid",), [(ssid,) for ssid in ssids]))
    assert is_plain(table)
    assert table.count("\n") == len(ssids) + 1


@pytest.fixture
def hostile_capture(lab_run, monkeypatch):  # noqa: F811
    """The builtin capture with SSIDs that address the terminal, and a station whose address has an emoji's code."""
    monkeypatch.setattr(make_builtin, "SSIDS", {make_builtin.OFFICE: b"\x1b]0;t\x07\x1b[2J\r\n\xc2\x9b31m\x9b:cd:[red]",
                                                make_builtin.GUEST: "\u202e\u2028é\\[/]\n  2  faked".encode()})
    monkeypatch.setattr(make_builtin, "ANNA", DISC)
    air = make_builtin.Air()
    make_builtin.play(air)
    with open(lab_run.directory / "hostile.pcap", "wb") as file:
        make_builtin.write_pcap(file, air.packets)
    return "hostile.pcap"


def test_text_from_the_air_is_printed_plain(lab_run, hostile_capture):  # noqa: F811
    done = lab_run.run(hostile_capture)
    assert (done.returncode, done.stderr) == (0, "")
    assert is_plain(done.stdout)
    assert f"{DISC} on" in done.stdout
    assert f"  {DISC}  \\x1b]0;t\\x07" in done.stdout
    assert "\\u202e\\u2028é" in done.stdout
    done = lab_run.run("--json", hostile_capture)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.isascii()
    assert is_plain(done.stdout)


def test_output_that_takes_only_ascii(lab_run, hostile_capture, monkeypatch):  # noqa: F811
    monkeypatch.setitem(lab_run._options["env"], "PYTHONIOENCODING", "ascii")
    done = lab_run.run(hostile_capture)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.isascii()
    assert "\\u202e\\u2028\\xe9" in done.stdout


@pytest.mark.parametrize("arguments", [["--json"], ["--speed", "max"]])
def test_output_that_is_full(lab_run, arguments):  # noqa: F811
    with open("/dev/full", "wb") as full:
        running = lab_run.start(*arguments, stdout=full)
    _, errors = running.communicate(timeout=60)
    assert (running.returncode, errors) == (1, "run: No space left on device\n")
    assert lab_run.processes() == []


def test_directory_in_the_place_of_a_capture(lab_run):  # noqa: F811
    done = lab_run.run("--json", ".")
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr.startswith("run: .: Is a directory")
    assert done.stderr.count("\n") == 1


def test_keys_of_a_killed_run_are_removed_by_the_next(lab_run):  # noqa: F811
    kept = lab_run.directory / "kx-lab.of-a-run-that-ended"
    kept.mkdir()
    running = lab_run.start("--speed", "0.1")
    wait_for_processes(lab_run, lambda found: "apd" in found, "the lab runs")
    assert list(lab_run.directory.rglob("*.key"))
    alive = lab_run.run("--json")
    assert alive.returncode == 0
    assert list(lab_run.directory.rglob("*.key")), "the keys of a run that goes on were removed"
    running.kill()
    running.wait()
    wait_for_processes(lab_run, lambda found: not found, "the processes end")
    assert lab_run.run("--json").returncode == 0
    assert list(lab_run.directory.iterdir()) == [kept]


@pytest.mark.skipif(os.geteuid() != 0, reason="only root can become another user")
def test_lock_of_another_user_is_named(tmp_path, monkeypatch):
    monkeypatch.setattr("lab.site.dump_lock.PATIENCE_SECONDS", 0.1)
    lock = "import fcntl, time; fcntl.flock(9, fcntl.LOCK_EX); print(flush=True); time.sleep(60)"
    script = f'exec 9<"$0" && exec setpriv --reuid={NOBODY} --clear-groups /usr/bin/python3 -c "{lock}"'
    holder = subprocess.Popen(["sh", "-c", script, tmp_path], stdout=subprocess.PIPE)
    holder.stdout.readline()
    try:
        with pytest.raises(LabFailure, match=f"^{tmp_path}: process {holder.pid} of user nobody holds the lock$"):
            with locked_directory(tmp_path):
                pass  # not reached
    finally:
        holder.kill()
        holder.wait()
    with locked_directory(tmp_path):
        pass


@pytest.mark.skipif(os.geteuid() != 0, reason="the attack needs root's capabilities")
def test_network_is_safe_without_the_right_to_enter_another(lab_run, own_network):  # noqa: F811
    assert own_network, "the attack must not reach the machine's network"
    limited = ["setpriv", "--bounding-set=-sys_admin", "--inh-caps=-sys_admin"]
    probe = ("import subprocess; from lab.site.network import enter_own_network; print(enter_own_network(), flush=True); "
             "subprocess.run(['ip', 'address', 'add', '192.0.2.77/32', 'dev', 'lo'])")
    environment = {name: value for name, value in os.environ.items() if name != "LAB_OWN_NETWORK"}
    done = subprocess.run([*limited, sys.executable, "-c", probe], capture_output=True, text=True, check=False,
                          env=environment | {"PYTHONPATH": str(REPOSITORY)}, timeout=20)
    assert done.stdout == "False\n", done.stderr
    assert "Operation not permitted" in done.stderr
    addresses = subprocess.run(["ip", "address"], capture_output=True, text=True, check=True).stdout
    assert "192.0.2.77" not in addresses
