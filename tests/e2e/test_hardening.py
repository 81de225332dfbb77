"""The daemons drop privileges before they handle keys, and work with those that remain."""

import os
import resource
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

import pytest

from steps import add_access_point, wait_until_ready

REPOSITORY = Path(__file__).parents[2]
EXPOSURE_MAX = 2.0
# An unused user id. Only root may read processes that handle keys, and a user without a name has no rights by
# accident.
OTHER_USER = 64_123


def units_of(programs):
    return programs.parent / "packaging/systemd"


def status_of(process):
    lines = Path(f"/proc/{process.pid}/status").read_text().splitlines()
    return dict(line.split(":\t", 1) for line in lines)


@pytest.fixture
def access_point(lab):
    lab.controller.start()
    made = add_access_point(lab)
    made.start_all()
    wait_until_ready(made)
    return made


@pytest.mark.parametrize("program", ["client_mgr", "apd"])
def test_process_gives_up_what_it_does_not_need(access_point, program):
    process = access_point.running[program]
    assert status_of(process)["NoNewPrivs"] == "1"
    assert resource.prlimit(process.pid, resource.RLIMIT_CORE) == (0, 0)
    # A process that dumps no core belongs to root, whoever runs it: see PR_SET_DUMPABLE in prctl(2).
    assert os.stat(f"/proc/{process.pid}/mem").st_uid == 0


@pytest.mark.parametrize("program", ["client_mgr", "apd"])
def test_memory_is_locked(access_point, program):
    process = access_point.running[program]
    if b"__asan_init" in Path(f"/proc/{process.pid}/exe").read_bytes():
        pytest.skip("AddressSanitizer locks nothing, its shadow would not fit")
    assert int(status_of(process)["VmLck"].split()[0]) > 0


@pytest.mark.parametrize("unit", ["client_mgr", "apd", "radiod"])
def test_unit_is_closed(programs, unit):
    if not shutil.which("systemd-analyze"):
        pytest.skip("systemd-analyze is not here")
    done = subprocess.run(["systemd-analyze", "security", "--offline=true", "--no-pager",
                           f"--threshold={int(EXPOSURE_MAX * 10)}", units_of(programs) / f"{unit}.service"],
                          capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stdout + done.stderr


@pytest.fixture(scope="module")
def filtered_programs(programs):
    """The programs, with the daemons under the system call filters of their units."""
    if not shutil.which("systemd-analyze"):
        pytest.skip("systemd-analyze is not here")
    with tempfile.TemporaryDirectory() as name:
        place = Path(name)
        place.chmod(0o755)
        (place / "bin").mkdir()
        (place / "lab").symlink_to(programs.parent / "lab")
        for program in programs.iterdir():
            (place / "bin" / program.name).symlink_to(program)
        for daemon in ("client_mgr", "apd"):
            script = place / "bin" / daemon
            script.unlink()
            script.write_text(f"#!/bin/sh\nexec {sys.executable} -B {Path(__file__).parent}/system_call_filter.py "
                              f"{units_of(programs)}/{daemon}.service {programs}/{daemon} \"$@\"\n")
            script.chmod(0o755)
        yield place / "bin"


@pytest.fixture
def their_directory():
    """A directory below /tmp, because other users may not read the tests' own directory."""
    with tempfile.TemporaryDirectory() as name:
        yield Path(name)


def run_tests_inside(limits, programs, selection, place):
    """Runs the tests as another user in a network namespace of its own. `limits`: arguments of setpriv."""
    if os.geteuid() != 0:
        pytest.skip("only root may become another user")
    setpriv = ["setpriv", f"--reuid={OTHER_USER}", f"--regid={OTHER_USER}", "--clear-groups", "--no-new-privs", *limits]
    if subprocess.run([*setpriv, "test", "-x", programs / "client_mgr", "-a", "-r", REPOSITORY / "lab/site"],
                      check=False).returncode:
        pytest.skip("another user cannot reach this directory")
    os.chown(place, OTHER_USER, OTHER_USER)
    command = ["unshare", "--net", "sh", "-c", 'ip link set lo up && exec "$@"', "sh", *setpriv, sys.executable, "-B",
               "-m", "pytest", "-q", "-p", "no:cacheprovider", f"--basetemp={place / 'tmp'}", "--bin", programs,
               *selection]
    # The leak check stops the process with ptrace, which the filter does not allow.
    settings = {"LAB_OWN_NETWORK": "1", "HOME": str(place), "ASAN_OPTIONS": "detect_leaks=0"}
    done = subprocess.run([str(word) for word in command], cwd=Path(__file__).parent, capture_output=True, text=True,
                          env=os.environ | settings, check=False)
    assert done.returncode == 0, done.stdout + done.stderr
    assert "skipped" not in done.stdout, done.stdout


SELECTION = ["test_flow.py", "test_operator.py", "test_two_access_points.py::test_each_reports_its_own_clients"]
# All tests but those that read the daemons' memory and those that need a privilege.
EVERYTHING = ["test_captures.py", "test_configuration.py", "test_controller_link.py", "test_flow.py", "test_garbage.py",
              "test_operator.py", "test_restart.py", "test_site.py", "test_start.py", "test_two_access_points.py"]


def test_stations_come_roam_and_leave_without_any_privilege(filtered_programs, their_directory, request):
    run_tests_inside(["--bounding-set=-all", "--inh-caps=-all", "--ambient-caps=-all"], filtered_programs,
                     EVERYTHING if request.config.getoption("--thorough") else SELECTION, their_directory)


@pytest.mark.parametrize("test", ["test_bridge_holds_the_client_while_it_is_here",
                                  "test_guest_is_reachable_until_it_is_let_in",
                                  "test_guest_that_leaves_takes_its_entries_along",
                                  "test_guest_that_changes_its_address",
                                  "test_interface_stays_as_long_as_there_is_a_guest"])
def test_kernel_is_changed_with_one_privilege(filtered_programs, their_directory, test):
    run_tests_inside(["--bounding-set=-all,+net_admin", "--inh-caps=-all,+net_admin", "--ambient-caps=-all,+net_admin"],
                     filtered_programs, [f"test_kernel.py::{test}"], their_directory)
