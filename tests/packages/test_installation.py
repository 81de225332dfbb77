"""The packages in a Debian of their own: installed, started, upgraded, removed and purged."""

import json
from pathlib import Path

from lab.site.waiting import wait_until
from tests.packages.machine import Machine

PACKAGES = ("client-mgr", "site-controller", "client-mgr-lab")
SERVICES = ("site_controller", "client_mgr", "apd")
AP_MAC = "02:00:00:00:10:00"

# What dpkg, apt, systemd and the system's databases write, and the users, whom Debian's packages leave.
NOT_OURS = ("etc/.pwd.lock", "etc/group", "etc/gshadow", "etc/ld.so.cache", "etc/machine-id", "etc/passwd", "etc/shadow",
            "etc/sub", "run/", "tmp/", "var/cache/", "var/lib/dpkg/", "var/lib/systemd/", "var/log/")


def sitectl(machine: Machine, *words: object) -> str:
    return machine.must("sitectl", "--config", "/etc/kx/site.toml", *words)


def configure(machine: Machine, lab: str) -> None:
    """As the packages' README.Debian has it, with the VAPs of the lab's radio."""
    machine.must("sitectl", "init", "/etc/kx", "--address", "127.0.0.1")
    machine.must("systemctl", "enable", "--now", "site_controller")
    sitectl(machine, "ap", "add", "hall", "--mac", AP_MAC, "--output", "/tmp/hall.tar")
    machine.must("tar", "-C", "/etc/kx", "-xpf", "/tmp/hall.tar")
    sample = machine.must("cat", "/etc/kx/ap.toml")
    vaps = machine.must("cat", f"{lab}/lab/captures/builtin-vaps.toml")
    machine.must("sh", "-c", 'printf %s "$1" >/etc/kx/ap.toml', "sh", sample[:sample.index("# One table")] + vaps)


def start_radio(machine: Machine, lab: str) -> None:
    """The lab's radio in place of radiod: it plays the built-in capture once the client manager is up. It runs as root,
    since it makes sockets in the directories of both users."""
    machine.must("systemd-run", "--unit=radio", "--setenv=KX_ROOT=/run/kx",
                 "--setenv=KX_CONFIG=/etc/kx/ap.toml", f"{lab}/bin/radio", "--stay", "--speed", "max",
                 f"{lab}/lab/captures/builtin.pcap")


def associated(machine: Machine) -> list[str]:
    rows = json.loads(sitectl(machine, "clients", "--json"))
    return sorted(each["client"] for each in rows if each["bssid"])


def processes(machine: Machine) -> list[str]:
    return [machine.show(each, "MainPID") for each in SERVICES]


def are_active(machine: Machine) -> bool:
    return all(machine.show(each, "ActiveState") == "active" for each in SERVICES)


def left_in(upper: Path) -> list[str]:
    """Files beyond Debian's. What was deleted is a character device in an overlay."""
    names = (each.relative_to(upper).as_posix() for each in upper.rglob("*") if not each.is_dir()
             and not each.is_char_device())
    return sorted(name for name in names if not name.startswith(NOT_OURS))


def test_life_of_an_installation(machine: Machine) -> None:
    machine.must("sh", "-c", "dpkg -i /srv/old/*.deb")
    lab = machine.must("sh", "-c", "echo /usr/lib/*/client_mgr-lab").strip()
    for service in (*SERVICES, "radiod"):
        assert machine.show(service, "ActiveState") == "inactive"
        assert machine.systemctl("is-enabled", service) == "disabled"

    configure(machine, lab)
    start_radio(machine, lab)
    machine.must("systemctl", "enable", "--now", "client_mgr", "apd")
    wait_until(lambda: associated(machine), "the controller has the clients", 60)
    clients = associated(machine)
    assert machine.must("apctl", "clients").count("02:") >= len(clients)

    former, configuration = processes(machine), machine.must("cat", "/etc/kx/ap.toml", "/etc/kx/site.toml")
    machine.must("sh", "-c", "dpkg -i /srv/new/*.deb")
    wait_until(lambda: are_active(machine), "the services run again", 60)
    assert not set(former) & set(processes(machine))
    assert machine.must("cat", "/etc/kx/ap.toml", "/etc/kx/site.toml") == configuration
    wait_until(lambda: associated(machine) == clients, "the controller has the clients again", 60)

    machine.must("systemctl", "stop", "radio")
    machine.must("dpkg", "--remove", *PACKAGES)
    assert [machine.show(each, "ActiveState") for each in SERVICES] == ["inactive"] * len(SERVICES)
    assert machine.must("cat", "/etc/kx/ap.toml", "/etc/kx/site.toml") == configuration
    assert "site.db" in left_in(machine.upper / "var/lib/kx-site")
    machine.must("dpkg", "--purge", *PACKAGES)
    assert left_in(machine.upper) == []
    assert not (machine.upper / "etc/kx").is_dir()
