"""Directories and keys that others may write or read are refused at the start, as sshd refuses them."""

import os
import shutil
import signal

import pytest

from lab.site.controller import ADDRESS
from steps import add_access_point, wait_for_line, wait_until_ready

STRANGER = 65534
DAEMONS = {"client_mgr": 255, "apd": 71}  # the exit statuses of a start that failed


@pytest.fixture
def access_point(lab):
    lab.controller.start()
    return add_access_point(lab)


def refused(access_point, program, root=None, status=None):
    """Starts the program, which is expected to end, and returns what it says."""
    process = access_point._processes.start(program, (), access_point.root, root or access_point.root)
    access_point._processes.forget(process)
    assert process.wait() == (status or DAEMONS[program])
    return process.err.read_text()


@pytest.mark.parametrize("program", DAEMONS)
@pytest.mark.parametrize(("directory", "mode"), [(".", 0o777), (".", 0o770), (".", 0o1777), ("kx/ipc", 0o722),
                                                 ("log", 0o702)])
def test_directory_that_others_may_write_to(access_point, program, directory, mode):
    opened = access_point.root / directory
    opened.mkdir(parents=True, exist_ok=True, mode=0o700)
    opened.chmod(mode)
    told = refused(access_point, program)
    assert f"{opened}: its mode is {mode:04o}, others may write to it; chmod it to 0700\n" in told


def test_directory_that_others_may_only_read(access_point):
    access_point.root.chmod(0o755)
    for program in DAEMONS:
        access_point.start(program)
    wait_for_line(access_point.running["apd"].err, "client_mgr runs as process")


@pytest.mark.parametrize("program", DAEMONS)
@pytest.mark.skipif(os.geteuid() != 0, reason="only root can give files to others")
def test_directory_of_another_user(access_point, program):
    os.chown(access_point.root, STRANGER, STRANGER)
    assert f"{access_point.root}: it belongs to user {STRANGER}; chown it to user 0 or root" in \
        refused(access_point, program)
    os.chown(access_point.root, 0, 0)


@pytest.mark.parametrize("program", DAEMONS)
def test_way_that_others_may_change(lab, access_point, program):
    """Who may write to the parent may put another directory there. A symbolic link is followed."""
    open_directory = lab.directory / "open"
    open_directory.mkdir()
    root = open_directory / "root"
    shutil.copytree(access_point.root, root)
    root.chmod(0o700)
    open_directory.chmod(0o777)
    link = lab.directory / "link"
    link.symlink_to(root)
    for each in (root, link):
        assert f"{open_directory}: its mode is 0777, others may write to it; chmod it to 0755\n" in \
            refused(access_point, program, each)


@pytest.mark.skipif(os.geteuid() != 0, reason="only root can give files to others")
def test_link_of_another_user(lab, access_point):
    link = lab.directory / "link"
    link.symlink_to(access_point.root)
    os.lchown(link, STRANGER, STRANGER)
    assert f"{link}: it belongs to user {STRANGER}" in refused(access_point, "apd", link)


@pytest.mark.parametrize("mode", [0o666, 0o620], ids=oct)
def test_configuration_that_others_may_write_to(access_point, mode):
    """At the start it is refused. Later the one before stays in use."""
    configuration = access_point.root / "ap.toml"
    configuration.chmod(mode)
    complaint = f"{configuration}: its mode is {mode:04o}, others may write to it; chmod it to 0644"
    for program, status in {"client_mgr": 255, "apd": os.EX_CONFIG}.items():
        assert complaint in refused(access_point, program, status=status)
    configuration.chmod(0o644)
    access_point.start_all()
    wait_until_ready(access_point)
    configuration.chmod(mode)
    access_point.running["apd"].signal(signal.SIGHUP)
    wait_for_line(access_point.running["apd"].err, f"{complaint}; the configuration stays as it was")


def test_key_that_others_may_read_gives_no_tunnel(access_point):
    key = access_point.identity.key
    key.chmod(0o640 if os.geteuid() != 0 else 0o644)
    access_point.start_all()
    told = access_point.running["apd"].err
    wait_for_line(told, f"there will be no tunnel: {key}: its mode is ")
    assert "others may read or write it; chmod it to 0600\n" in told.read_text()
    key.chmod(0o600)
    wait_until_ready(access_point)


def test_controller_does_not_use_a_key_that_others_may_read(lab):
    key = lab.controller.identity.key
    key.chmod(0o604)
    process = lab.processes.start(
        "site_controller", ["--listen", f"{ADDRESS}:0", "--ca", lab.authority.certificate,
                            "--certificate", lab.controller.identity.certificate, "--key", key], lab.directory)
    lab.processes.forget(process)
    assert process.wait() == 1
    assert process.err.read_text() == \
        f"site_controller: {key}: its mode is 0604, others may read or write it; chmod it to 0600\n"
    key.chmod(0o600)
    lab.controller.start()
    key.chmod(0o604)
    lab.controller.process.signal(signal.SIGHUP)
    wait_for_line(lab.controller.process.err, f"keeping the former certificates: {key}: its mode is 0604")


def test_control_socket_where_others_may_put_another(lab):
    open_directory = lab.directory / "open"
    open_directory.mkdir()
    open_directory.chmod(0o777)
    process = lab.processes.start(
        "site_controller", ["--listen", f"{ADDRESS}:0", "--ca", lab.authority.certificate,
                            "--certificate", lab.controller.identity.certificate,
                            "--key", lab.controller.identity.key, "--control", open_directory / "control"],
        lab.directory)
    lab.processes.forget(process)
    assert process.wait() == 1
    assert f"{open_directory}: its mode is 0777" in process.err.read_text()
