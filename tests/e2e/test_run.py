"""The lab as `run` starts it."""

import errno
import json
import os
import pty
import re
import shutil
import signal
import subprocess
import sys
import tempfile
from pathlib import Path

import pytest

from lab.site.access_point import EMPTY_CAPTURE
from lab.site.waiting import wait_until

REPOSITORY = Path(__file__).parents[2]
EXPECTED = [
    ("CLIENT_MGR_CLIENT_ASSOC", "02:00:00:00:0a:01"), ("CLIENT_MGR_CLIENT_IP", "02:00:00:00:0a:01"),
    ("CLIENT_MGR_CLIENT_ASSOC", "02:00:00:00:0b:02"), ("CLIENT_MGR_CLIENT_GUEST_ASSOC", "02:00:00:00:0b:02"),
    ("CLIENT_MGR_CLIENT_ASSOC", "02:00:00:00:0c:03"), ("CLIENT_MGR_CLIENT_IP", "02:00:00:00:0c:03"),
    ("CLIENT_MGR_CLIENT_ASSOC", "02:00:00:00:0a:01"), ("CLIENT_MGR_CLIENT_DISASSOC", "02:00:00:00:0c:03"),
]


class Lab:
    """Runs of the lab whose files are in a directory of this test."""

    def __init__(self, build):
        self.directory = Path(tempfile.mkdtemp(prefix="kx-run."))
        self._command = [sys.executable, "-B", "-m", "lab.site", "--build", build]
        self._options = {"env": os.environ | {"PYTHONPATH": str(REPOSITORY), "TMPDIR": str(self.directory)},
                         "cwd": self.directory, "text": True}

    def run(self, *arguments):
        return subprocess.run([*self._command, *arguments], **self._options, capture_output=True, timeout=60,
                              check=False)

    def start(self, *arguments, stdout=subprocess.PIPE):
        """Starts the lab in a process group of its own, as a shell does."""
        return subprocess.Popen([*self._command, *arguments], **self._options, stdout=stdout, stderr=subprocess.PIPE,
                                process_group=0)

    def processes(self):
        """The lab's processes by program, found by the TMPDIR that they inherit."""
        mark = f"TMPDIR={self.directory}\0".encode()
        found = []
        for process in Path("/proc").glob("[0-9]*"):
            try:
                if mark in (process / "environ").read_bytes() + b"\0":
                    found.append((process / "exe").readlink().name)
            except OSError:
                pass  # it has ended meanwhile
        return found


@pytest.fixture
def lab_run(programs):
    made = Lab(programs.parent)
    yield made
    shutil.rmtree(made.directory)


def wait_for_processes(lab_run, effect, what):
    wait_until(lambda: effect(lab_run.processes()), what)


def test_json(lab_run):
    done = lab_run.run("--json")
    assert (done.returncode, done.stderr) == (0, ""), done.stdout
    objects = [json.loads(line) for line in done.stdout.splitlines()]
    assert {each["ap"] for each in objects} == {"02:00:00:00:10:00"}
    assert [(each["name"], each["client"]) for each in objects if "client" in each] == EXPECTED
    first = next(each for each in objects if each["type"] == 2)
    assert first == {"ap": "02:00:00:00:10:00", "type": 2, "name": "CLIENT_MGR_CLIENT_ASSOC",
                     "client": "02:00:00:00:0a:01", "bssid": "02:00:00:00:10:01", "ip": "0.0.0.0"}
    assert list(lab_run.directory.iterdir()) == []


def test_screen(lab_run):
    done = lab_run.run("--speed", "max")
    assert (done.returncode, done.stderr) == (0, ""), done.stdout
    for text in ("4  association granted", "1  association refused", "4  CLIENT_MGR_CLIENT_ASSOC",
                 "client_mgr has 2 clients in its table", "02:00:00:00:0a:01  office   10    10.0.10.21  home client"):
        assert text in done.stdout
    files = [Path(word) for word in done.stdout.split() if word.startswith(str(lab_run.directory))]
    assert len(files) >= 5
    assert all(file.exists() for file in files)
    assert list(lab_run.directory.rglob("*.key")) == []


def test_site(lab_run):
    done = lab_run.run("--site", "--seed", "7", "--speed", "12")
    assert (done.returncode, done.stderr) == (0, ""), done.stdout
    assert "The seed of this run is 7." in done.stdout
    assert "agree on every station" in done.stdout


def test_site_on_a_terminal(lab_run):
    mine, terminal = pty.openpty()
    running = lab_run.start("--site", "--speed", "12", stdout=terminal)
    os.close(terminal)
    screen = read_terminal(mine)
    assert running.wait(20) == 0, screen
    assert "access point" in screen
    assert re.search(r"ap3 02:a0:00:00:03:00 *up", re.sub(r"\x1b\[[0-9;?]*[A-Za-z]", "", screen))
    assert "on every station" in screen


def read_terminal(terminal):
    """Reads everything until the last writer closes."""
    text = b""
    with open(terminal, "rb", buffering=0) as screen:
        try:
            while chunk := screen.read(65536):
                text += chunk
        except OSError as error:
            assert error.errno == errno.EIO  # what Linux says when the last writer has gone
    return text.decode()


def test_own_capture(lab_run, programs):
    shutil.copy(programs.parent / "lab/captures/builtin.pcap", lab_run.directory / "own capture.pcap")
    done = lab_run.run("own capture.pcap")
    assert (done.returncode, done.stderr) == (0, ""), done.stdout
    assert "client_mgr has 2 clients in its table" in done.stdout


@pytest.mark.parametrize(("name", "content", "complaint"), [
    ("missing", None, "No such file or directory"),
    ("text", b"not a capture\n", "not a readable capture"),
    ("empty", b"", "not a readable capture"),
    ("ethernet.pcap", bytes.fromhex("d4c3b2a1020004000000000000000000ffff000001000000"), "802.11"),
])
def test_file_that_is_no_capture(lab_run, name, content, complaint):
    if content is not None:
        (lab_run.directory / name).write_bytes(content)
    done = lab_run.run("--json", name)
    assert done.returncode == 1
    assert done.stdout == ""
    assert done.stderr.startswith(f"run: {name}: ")
    assert complaint in done.stderr
    assert done.stderr.count("\n") == 1


def test_capture_without_associations(lab_run):
    (lab_run.directory / "silence.pcap").write_bytes(EMPTY_CAPTURE)
    done = lab_run.run("--json", "silence.pcap")
    assert (done.returncode, done.stdout) == (0, "")
    assert done.stderr == "run: silence.pcap: no station associates with an access point in this capture\n"


def test_damaged_capture(lab_run, programs):
    whole = (programs.parent / "lab/captures/builtin.pcap").read_bytes()
    (lab_run.directory / "cut.pcap").write_bytes(whole[:-20])
    done = lab_run.run("--json", "cut.pcap")
    assert done.returncode == 0
    assert done.stderr.startswith("run: cut.pcap: ")
    assert done.stdout.count("CLIENT_MGR_CLIENT_ASSOC") == 4


@pytest.mark.parametrize("arguments", [["--speed", "0"], ["--speed", "fast"], ["--nonsense"], ["one", "two"]])
def test_wrong_arguments(lab_run, arguments):
    done = lab_run.run(*arguments)
    assert (done.returncode, done.stdout) == (os.EX_USAGE, "")
    assert done.stderr.startswith("usage: run ")
    assert "./run --help" in done.stderr


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_signal_ends_everything(lab_run, number):
    running = lab_run.start("--speed", "0.1")
    wait_for_processes(lab_run, lambda found: "apd" in found, "the lab runs")
    os.killpg(running.pid, number)
    assert running.wait(20) == 128 + number
    assert f"Interrupted. The output so far is in {lab_run.directory}" in running.stdout.read()
    wait_for_processes(lab_run, lambda found: not found, "the lab's processes end with it")


def test_interrupt_while_it_starts(lab_run):
    running = lab_run.start()
    wait_for_processes(lab_run, lambda found: "site_controller" in found, "the first process runs")
    os.killpg(running.pid, signal.SIGINT)
    assert running.wait(20) == 128 + signal.SIGINT
    assert lab_run.processes() == []


def test_nothing_survives_the_lab(lab_run):
    running = lab_run.start("--speed", "0.1")
    wait_for_processes(lab_run, lambda found: "apd" in found, "the lab runs")
    running.kill()
    running.wait()
    wait_for_processes(lab_run, lambda found: not found, "the processes end")


def test_reader_that_goes_away(lab_run):
    running = lab_run.start("--json", "--speed", "1")
    assert json.loads(running.stdout.readline())
    running.stdout.close()
    assert running.wait(30) == 128 + signal.SIGPIPE
    assert running.stderr.read() == ""
    assert lab_run.processes() == []


@pytest.fixture
def command(tmp_path):
    """The script `run`, for options that need no build."""
    return lambda *arguments: subprocess.run([REPOSITORY / "run", *arguments], cwd=tmp_path, text=True,
                                             env={"PATH": os.environ["PATH"]}, capture_output=True, timeout=20,
                                             check=False)


def test_help_needs_nothing(command):
    done = command("--help")
    assert (done.returncode, done.stderr) == (0, ""), done.stdout
    assert "./run FILE" in done.stdout


@pytest.mark.parametrize(("arguments", "status", "complaint"), [
    (["--nonsense"], os.EX_USAGE, "--nonsense"), (["--seed", "1"], os.EX_USAGE, "--seed requires --site"),
    (["missing.pcap"], 1, "run: missing.pcap: No such file or directory"),
])
def test_what_is_wrong_is_said_before_anything_is_built(command, arguments, status, complaint):
    done = command(*arguments)
    assert (done.returncode, done.stdout) == (status, "")
    assert complaint in done.stderr
    assert "Building" not in done.stderr
