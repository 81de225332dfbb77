"""The files that `cmake --install` installs."""

import os
import re
import shutil
import subprocess

import pytest

UNITS = "usr/lib/systemd/system"


@pytest.fixture
def machine(programs, tmp_path):
    subprocess.run(["cmake", "--install", programs.parent, "--prefix", "/usr"], env=os.environ | {"DESTDIR": tmp_path},
                   stdout=subprocess.DEVNULL, check=True)
    return tmp_path


def test_units_start_what_is_installed(machine):
    for daemon in ("apd", "client_mgr"):
        unit = (machine / UNITS / f"{daemon}.service").read_text()
        program = re.search(r"^ExecStart=/(\S+)$", unit, re.M)[1]
        done = subprocess.run([machine / program, "--version"], capture_output=True, text=True, timeout=20, check=True)
        assert done.stdout.startswith(f"{daemon} ")
        for page, section in re.findall(r"man:([\w.]+)\((\d)\)", unit):
            assert (machine / f"usr/share/man/man{section}/{page}.{section}").is_file()


def test_controller_programs_have_man_pages(machine):
    for name in ("site_controller", "sitectl"):
        done = subprocess.run([machine / "usr/bin" / name, "--version"], capture_output=True, text=True, timeout=20,
                              check=True)
        assert done.stdout.startswith(f"{name} ")
        assert (machine / f"usr/share/man/man1/{name}.1").is_file()


def test_systemd_makes_the_daemons_user(machine):
    if not shutil.which("systemd-sysusers"):
        pytest.skip("systemd is not here")
    (machine / "etc").mkdir()
    subprocess.run(["systemd-sysusers", f"--root={machine}"], capture_output=True, text=True, check=True)
    assert re.search(r"^kx:.*:/run/kx:", (machine / "etc/passwd").read_text(), re.M)
