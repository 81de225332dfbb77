"""The files that `cmake --install` installs."""

import os
import re
import shutil
import subprocess

import pytest


def install(programs, root, prefix):
    subprocess.run(["cmake", "--install", programs.parent, "--prefix", prefix], env=os.environ | {"DESTDIR": root},
                   stdout=subprocess.DEVNULL, check=True)
    return root


@pytest.fixture
def machine(programs, tmp_path):
    return install(programs, tmp_path, "/usr")


@pytest.mark.parametrize("prefix", ["/usr", "/opt/ap"])
def test_units_start_what_is_installed(programs, tmp_path, prefix):
    machine = install(programs, tmp_path, prefix)
    for daemon in ("apd", "client_mgr", "radiod", "site_controller"):
        unit = (machine / prefix[1:] / "lib/systemd/system" / f"{daemon}.service").read_text()
        program = re.search(r"^ExecStart=/(\S+)", unit, re.M)[1]
        done = subprocess.run([machine / program, "--version"], capture_output=True, text=True, timeout=20, check=True)
        assert done.stdout.startswith(f"{daemon} ")
        for page, section in re.findall(r"man:([\w.]+)\((\d)\)", unit):
            assert (machine / prefix[1:] / f"share/man/man{section}/{page}.{section}").is_file()


def test_commands_have_man_pages(machine):
    for name in ("apctl", "site_controller", "sitectl"):
        done = subprocess.run([machine / "usr/bin" / name, "--version"], capture_output=True, text=True, timeout=20,
                              check=True)
        assert done.stdout.startswith(f"{name} ")
        assert (machine / f"usr/share/man/man1/{name}.1").is_file()
    assert (machine / "usr/share/man/man5/site.toml.5").is_file()
    for name in ("apctl", "sitectl"):
        assert (machine / "usr/share/bash-completion/completions" / name).is_file()


def test_dissector_is_installed_whole(machine):
    parts = {file.name for file in (machine / "usr/share/client_mgr/dissector").iterdir()}
    assert parts == {"kx.lua", "kx_fields.lua", "kx_layouts.lua", "kx_local.lua", "kx_message.lua"}


def test_lab_runs_from_its_own_place(programs, tmp_path):
    machine = install(programs, tmp_path, "/opt/lab")
    subprocess.run(["cmake", "--install", programs.parent, "--prefix", "/opt/lab", "--component", "lab"],
                   env=os.environ | {"DESTDIR": machine}, stdout=subprocess.DEVNULL, check=True)
    wrapper = (machine / "opt/lab/bin/client-mgr-lab").read_text()
    module, build = re.search(r"PYTHONPATH=(\S+)", wrapper)[1], re.search(r"--build (\S+)", wrapper)[1]
    moved = tmp_path / "client-mgr-lab"
    moved.write_text(wrapper.replace(module, f"{machine}{module}").replace(build, f"{machine}{build}"))
    done = subprocess.run(["sh", moved, "--json"], capture_output=True, text=True, timeout=60, check=True)
    assert len(done.stdout.splitlines()) == 12
    wrong = subprocess.run(["sh", moved, "--stock"], capture_output=True, text=True, timeout=20, check=False)
    assert (wrong.returncode, wrong.stderr.splitlines()[-1]) == (
        64, "client-mgr-lab: unrecognized arguments: --stock; man client-mgr-lab lists the options")


def test_systemd_makes_the_daemons_user(machine):
    if not shutil.which("systemd-sysusers"):
        pytest.skip("systemd is not here")
    (machine / "etc").mkdir()
    subprocess.run(["systemd-sysusers", f"--root={machine}"], capture_output=True, text=True, check=True)
    users = (machine / "etc/passwd").read_text()
    assert re.search(r"^kx:.*:/run/kx:", users, re.M)
    assert re.search(r"^kx-radio:.*:/run/kx:", users, re.M)
    assert re.search(r"^kx-site:.*:/var/lib/kx-site:", users, re.M)
    assert re.search(r"^kx-view:", (machine / "etc/group").read_text(), re.M)
    assert re.search(r"^netdev:.*:kx-radio$", (machine / "etc/group").read_text(), re.M)
