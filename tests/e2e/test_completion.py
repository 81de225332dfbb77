"""What bash completes on a command line of sitectl or apctl, by the installed files."""

import os
import subprocess
from pathlib import Path

import pytest

from lab.site.waiting import wait_until
from steps import add_access_point, associate, client_mac, wait_until_ready

COMPLETIONS = Path(__file__).parents[2] / "packaging/completion"
ASK = """\
source "$1"
command=$2
shift 2
COMP_WORDS=("$@")
COMP_CWORD=$(($# - 1))
COMP_LINE=$*
"_$command"
printf '%s\\n' "${COMPREPLY[@]}"
"""


def completer(programs, command, **settings):
    environment = os.environ | {"PATH": f"{programs}:{os.environ['PATH']}"} | settings

    def ask(*words: str) -> list[str]:
        done = subprocess.run(["bash", "-euc", ASK, "bash", COMPLETIONS / command, command, command, *words],
                              env=environment, capture_output=True, text=True, timeout=20, check=True)
        assert done.stderr == ""
        return done.stdout.split()

    return ask


@pytest.fixture
def complete(programs):
    """What may stand in the place of the last word."""
    return completer(programs, "sitectl")


def test_commands(complete):
    assert complete("cl") == ["clients"]
    assert complete("--control", "/run/x", "acl") == ["acl", "acl-set", "acl-remove", "acl-default"]
    assert set(complete("ap")) == {"ap", "aps", "approve"}
    assert complete("ap", "re") == ["renew", "revoke", "remove"]
    assert {"aps", "stats", "move-list", "help"} <= set(complete(""))


def test_options(complete):
    assert complete("clients", "--s") == ["--ssid", "--state"]
    assert complete("--j") == ["--json"]
    assert complete("ap", "add", "hall", "--m") == ["--mac"]
    assert complete("ap", "list", "--st") == ["--state"]
    assert "--index" in complete("acl", "--")
    assert "--ssid" not in complete("acl", "--")
    assert complete("--control", "/run/x", "clients", "--wa") == ["--watch"]


def test_values(complete, tmp_path):
    (tmp_path / "controller.sock").touch()
    assert complete("--control", f"{tmp_path}/con") == [f"{tmp_path}/controller.sock"]
    assert complete("clients", "--state", "wa") == ["waiting"]
    assert complete("ap", "list", "--state", "rev") == ["revoked"]
    assert complete("acl-default", "1", "d") == ["deny"]
    assert complete("clients", "--mac", "") == []
    assert complete("token-add", "ada", "v") == ["viewer"]


@pytest.mark.parametrize("command", ["apctl", "sitectl"])
def test_bash_takes_it_for_the_program(command):
    shown = subprocess.run(["bash", "-c", f'source "{COMPLETIONS / command}"; complete -p {command}'],
                           capture_output=True, text=True, timeout=20, check=True)
    assert shown.stdout == f"complete -F _{command} {command}\n"


def test_of_an_access_point(lab, programs):
    lab.controller.start()
    access_point = add_access_point(lab)
    access_point.start_all()
    wait_until_ready(access_point)
    associate(access_point, client_mac(1), client_mac(2))
    complete = completer(programs, "apctl", KX_ROOT=str(access_point.root))
    assert complete("cl") == ["clients", "client"]
    assert complete("clients", "--j") == ["--json"]
    wait_until(lambda: complete("client", "02:aa:") == ["00:00:00:01", "00:00:00:02"], "the clients are completed")
    assert complete("vaps", "") == []
