"""A site that stays, as `run --site --stay` starts it: the page and the API are in the network of whoever started it."""

import json
import os
import re
import signal
import ssl
import subprocess
import sys
import urllib.request
from pathlib import Path

import pytest

from lab.site.waiting import wait_until

REPOSITORY = Path(__file__).parents[2]
PATIENCE_SECONDS = 60


class StayingSite:
    def __init__(self, build, directory, *options):
        environment = os.environ | {"PYTHONPATH": str(REPOSITORY), "TMPDIR": str(directory), "COLUMNS": "200"}
        environment.pop("LAB_OWN_NETWORK", None)
        self.process = subprocess.Popen([sys.executable, "-B", "-m", "lab.site", "--build", build, "--site", "--stay",
                                         *options], env=environment, stdout=subprocess.PIPE, text=True)
        self._said = ""
        for line in self.process.stdout:
            self._said += line
            if "sitectl " in line:
                break
        self.address, self._token = self.fact("page"), self.fact("token")
        self._trust = ssl.create_default_context(cafile=self.fact("authority"))

    def fact(self, name):
        return re.search(rf"^  {name} +(\S+)", self._said, re.MULTILINE)[1]

    def get(self, path):
        asked = urllib.request.Request(self.address + path, headers={"Authorization": f"Bearer {self._token}"})
        with urllib.request.urlopen(asked, context=self._trust, timeout=20) as answer:
            return answer.read().decode()

    def rows(self, path):
        return json.loads(self.get(path))["items"]

    def end(self):
        self.process.send_signal(signal.SIGINT)
        assert self.process.wait(30) == 128 + signal.SIGINT


@pytest.fixture
def start(programs, tmp_path):
    started = []

    def make(*options):
        started.append(StayingSite(programs.parent, tmp_path, *options))
        return started[-1]

    yield make
    for each in started:
        each.process.kill()


def test_small_site_has_real_access_points_that_are_enrolled(start, tmp_path):
    site = start("--aps", "2", "--stations", "10", "--seed", "1", "--speed", "60")
    assert "<html" in site.get("")
    wait_until(lambda: len(site.rows("api/v1/access-points?state=up")) == 2, "both access points are up",
               PATIENCE_SECONDS)
    wait_until(lambda: site.rows("api/v1/clients"), "stations come", PATIENCE_SECONDS)
    assert json.loads(site.get("api/v1/stats"))["records"] > 0
    assert not list(tmp_path.glob("*/site_controller.out")), "the records fill the disk"
    assert [(each["name"], each["state"]) for each in site.rows("api/v1/enrolments")] == [
        ("ap1", "enrolled"), ("ap2", "enrolled")]
    site.end()


def test_large_site_is_played_by_the_fleet(start):
    site = start("--aps", "20", "--stations", "500", "--seed", "1")
    wait_until(lambda: len(site.rows("api/v1/access-points?state=up")) == 20, "all access points are up",
               PATIENCE_SECONDS)
    wait_until(lambda: len(site.rows("api/v1/clients")) > 10, "stations come", PATIENCE_SECONDS)
    site.end()
