"""What bash completes on a command line of sitectl, by the installed file."""

import os
import subprocess
from pathlib import Path

import pytest

COMPLETION = Path(__file__).parents[2] / "packaging/completion/sitectl"
ASK = """\
source "$1"
shift
COMP_WORDS=("$@")
COMP_CWORD=$(($# - 1))
_sitectl
printf '%s\\n' "${COMPREPLY[@]}"
"""


@pytest.fixture
def complete(programs):
    """What may stand in the place of the last word."""
    environment = os.environ | {"PATH": f"{programs}:{os.environ['PATH']}"}

    def ask(*words: str) -> list[str]:
        done = subprocess.run(["bash", "-euc", ASK, "bash", COMPLETION, "sitectl", *words], env=environment,
                              capture_output=True, text=True, timeout=20, check=True)
        assert done.stderr == ""
        return done.stdout.split()

    return ask


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


def test_bash_takes_it_for_the_program(programs):
    shown = subprocess.run(["bash", "-c", f'source "{COMPLETION}"; complete -p sitectl'], capture_output=True,
                           text=True, timeout=20, check=True)
    assert shown.stdout == "complete -F _sitectl sitectl\n"
