"""The site controller by its configuration file, and as a service."""

import shutil
import signal
import socket
import subprocess
from pathlib import Path

import pytest

from lab.site.processes import environment_for
from lab.site.waiting import wait_until
from small_systemd import SmallSystemd, is_possible
from steps import client_mac

STATION = client_mac(1)


def write_acl(directory, name, verdict):
    (directory / name).write_text(f'default = "{verdict}"\n')
    return name


def configuration(lab, **changes):
    """The text of a file for the lab's controller."""
    values = {"listen": "127.0.0.1:0", "acl": write_acl(lab.directory, "acl.toml", "deny")} | changes
    return f"""\
[controller]
listen = "{values['listen']}"
port_file = "port"
ca = "{lab.authority.certificate}"
certificate = "{lab.controller.identity.certificate}"
key = "{lab.controller.identity.key}"
control = "controller.sock"
acl = "{values['acl']}"
[output]
json = true
[store]
file = "site.db"
"""


class Controller:
    """Started with --config alone."""

    def __init__(self, lab, text, environment=None):
        self.lab = lab
        self.file = lab.directory / "site.toml"
        self.file.write_text(text)
        self.port_file = lab.directory / "port"
        program = lab.processes.programs / "site_controller"
        self.process = subprocess.Popen([program, "--config", self.file], stderr=subprocess.PIPE, text=True,
                                        stdout=subprocess.DEVNULL, env=environment_for(None) | (environment or {}))
        wait_until(lambda: self.port_file.exists() or self.process.poll() is not None, "the controller listens")

    def acl(self):
        return self.lab.controller.ask_json("acl")[0]["verdict"]

    def notes_until(self, text):
        """What it says up to the line that contains `text`."""
        notes = []
        for line in self.process.stderr:
            notes.append(line.rstrip("\n"))
            if text in line:
                break
        return notes

    def reload(self):
        self.process.send_signal(signal.SIGHUP)

    def end(self):
        self.process.send_signal(signal.SIGTERM)
        assert self.process.wait(10) == 0


def test_starts_by_its_file_alone(lab):
    controller = Controller(lab, configuration(lab))
    assert (lab.directory / "site.db").exists()
    assert controller.acl() == "deny"
    controller.end()


def test_command_line_has_precedence(programs, lab):
    (lab.directory / "site.toml").write_text(configuration(lab, listen="nonsense:1"))
    refused = subprocess.run([programs / "site_controller", "--config", lab.directory / "site.toml", "--listen",
                              "127.0.0.1:0", "--key", "/no/key"], capture_output=True, text=True, check=False)
    assert "/no/key" in refused.stderr


@pytest.mark.parametrize(("text", "complaint"), [
    ("[controller]\n\nlistem = 1\n", ":3: controller.listem: unknown key"),
    ("[store]\nhistory_days = 0\n", ":2: store.history_days: expected an integer from 1 to 3650"),
    ("[http\n", ":1: not TOML"),
])
def test_file_with_an_error_does_not_start(programs, tmp_path, text, complaint):
    file = tmp_path / "site.toml"
    file.write_text(text)
    refused = subprocess.run([programs / "site_controller", "--config", file], capture_output=True, text=True,
                             check=False)
    assert refused.returncode == 1
    assert refused.stderr.startswith(f"site_controller: {file}{complaint}")


def test_hangup_reads_the_file_anew(lab):
    controller = Controller(lab, configuration(lab))
    write_acl(lab.directory, "other.toml", "allow")
    controller.file.write_text(configuration(lab, acl="other.toml", listen="127.0.0.1:1"))
    controller.reload()
    notes = controller.notes_until("read the access lists anew")
    assert "site_controller: the new value of listen takes effect at the next start" in notes
    assert not any("new value of store" in note for note in notes)
    assert controller.acl() == "allow"

    controller.file.write_text("[controller]\nlistem = 1\n")
    controller.reload()
    notes = controller.notes_until("read the access lists anew")
    assert any("keeping the former configuration" in note and ":2: controller.listem" in note for note in notes)
    assert controller.acl() == "allow"
    controller.end()


def test_service_manager_hears_of_it(lab):
    path = lab.directory / "notify"
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
        manager.settimeout(10)
        manager.bind(str(path))
        controller = Controller(lab, configuration(lab), {"NOTIFY_SOCKET": str(path), "WATCHDOG_USEC": "100000"})
        assert [manager.recv(100) for _ in range(3)] == [b"READY=1", b"WATCHDOG=1", b"WATCHDOG=1"]
        controller.end()
        said = b""
        while said != b"STOPPING=1":
            said = manager.recv(100)
            assert said in (b"WATCHDOG=1", b"STOPPING=1")


@pytest.fixture
def service(programs, lab, tmp_path):
    """The installed unit under a systemd of its own, with its sandbox, as root instead of as a user of the machine."""
    if not is_possible():
        pytest.skip("no systemd can be started here")
    subprocess.run(["cmake", "--install", programs.parent, "--prefix", tmp_path / "usr"], stdout=subprocess.DEVNULL,
                   check=True)
    units = tmp_path / "units"
    settings = units / "site_controller.service.d"
    settings.mkdir(parents=True)
    shutil.copy(tmp_path / "usr/lib/systemd/system/site_controller.service", units)
    (units / "test.target").write_text("[Unit]\nWants=site_controller.service\n")
    (settings / "test.conf").write_text(f"""\
[Unit]
DefaultDependencies=no
[Service]
ExecStart=
ExecStart={tmp_path}/usr/bin/site_controller --config {lab.directory}/site.toml --json
User=root
Group=root
PrivateTmp=no
ReadWritePaths={lab.directory}
StandardError=append:{lab.directory}/service.err
""")
    (lab.directory / "site.toml").write_text(configuration(lab))
    with SmallSystemd(units) as systemd:
        yield systemd


def test_unit_runs_in_its_sandbox_and_comes_back(lab, service):
    port = lab.directory / "port"

    def is_active():
        return service.show("site_controller", "ActiveState") == "active" and port.exists()

    wait_until(is_active, "the service is up", log=lab.directory / "service.err")
    assert lab.controller.ask_json("acl")[0]["verdict"] == "deny"
    write_acl(lab.directory, "acl.toml", "allow")
    service.systemctl("reload", "site_controller")
    wait_until(lambda: lab.controller.ask_json("acl")[0]["verdict"] == "allow", "the service has read its files anew")
    port.unlink()
    service.systemctl("kill", "--signal=KILL", "site_controller")
    wait_until(is_active, "the service is back", log=lab.directory / "service.err")
    assert "Operation not permitted" not in Path(lab.directory / "service.err").read_text()
