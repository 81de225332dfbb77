"""The daemon's start, and its messages when it cannot run."""

import re
import subprocess
from pathlib import Path

from lab.site.processes import environment_for
from lab.site.waiting import wait_until
from steps import add_access_point

START_FAILED = 255
USAGE = 64


def start(programs: Path, root: Path | None, *arguments: str, **environment: str) -> subprocess.CompletedProcess[str]:
    """Starts the daemon where it cannot run, and returns the finished process."""
    return subprocess.run([programs / "client_mgr", *arguments], env=environment_for(root) | environment,
                          stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=20, check=False)


def log_texts(root: Path) -> list[str]:
    """The lines of the log, without their times."""
    lines = (root / "log/client_mgr.log").read_text().splitlines()
    assert all(re.match(r":\d+:\d+: ", line) for line in lines)
    return [line.split(": ", 1)[1] for line in lines]


def test_help_and_version(programs):
    told = start(programs, None, "--help")
    assert (told.returncode, told.stderr) == (0, "")
    assert told.stdout.startswith("Usage: client_mgr\n")
    told = start(programs, None, "--version")
    assert (told.returncode, told.stderr) == (0, "")
    assert re.fullmatch(r"client_mgr \d+\.\d+\.\d+\n", told.stdout)


def test_it_takes_no_arguments(programs):
    for arguments in (["--helpme"], ["3"], ["--help", "--version"]):
        refused = start(programs, None, *arguments)
        assert (refused.returncode, refused.stdout) == (USAGE, "")
        assert f"unexpected argument '{arguments[0]}'" in refused.stderr


def test_without_a_log(programs, tmp_path):
    (tmp_path / "log").touch()
    failed = start(programs, tmp_path)
    assert (failed.returncode, failed.stdout) == (START_FAILED, "client_mgr_main: Error opening log.\n")
    assert failed.stderr == f"client_mgr: {tmp_path}/log: Not a directory\n"


def test_without_a_configuration(programs, tmp_path):
    failed = start(programs, tmp_path)
    assert (failed.returncode, failed.stdout) == (START_FAILED, "")
    assert failed.stderr.startswith(f"client_mgr: {tmp_path}/ap.toml: No such file or directory")
    assert log_texts(tmp_path) == ["Error retrieving the AP mac address"]


def test_beside_another_one(lab, programs):
    lab.controller.start()
    access_point = add_access_point(lab)
    first = access_point.start("client_mgr")
    wait_until((access_point.root / "kx/ipc/client_mgr").exists, "the endpoint", log=access_point.log)
    failed = start(programs, access_point.root)
    assert (failed.returncode, failed.stdout) == (START_FAILED, "")
    assert f"client_mgr runs already, as process {first.pid}" in failed.stderr
    assert log_texts(access_point.root) == ["Unable to open ipc"]
    # Below level 1 the log stays silent.
    failed = start(programs, access_point.root, KX_LOG_LEVEL="0")
    assert (failed.returncode, failed.stdout) == (START_FAILED, "")
    assert log_texts(access_point.root) == ["Unable to open ipc"]


def test_the_platform_daemon_names_a_certificate_it_cannot_use(lab):
    lab.controller.start()
    access_point = add_access_point(lab)
    config = access_point.root / "ap.toml"
    config.write_text(config.read_text().replace(str(access_point.identity.certificate), str(config)))
    told = access_point.start("apd").err
    wait_until(lambda: "apd: waiting for client_mgr\n" in told.read_text(), "the platform daemon's start", log=told)
    assert f"apd: there will be no tunnel: {config}: " in told.read_text()
