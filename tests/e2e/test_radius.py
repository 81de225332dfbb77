"""The RADIUS service between eapol_test and radclient, in hostapd's place, and FreeRADIUS."""

import re
import shutil
import signal
import socket
import subprocess

import pytest

from free_radius import PASSWORD, SESSION_SECONDS, FreeRadius, find_program
from lab.site.processes import Process, environment_for
from lab.site.waiting import wait_until

STATION, DENIED = "02:00:00:00:00:0a", "02:00:00:00:00:0d"
BSSID = "02:00:00:00:10:01"
CALLED = "02-00-00-00-10-01:office"
SSID = b"office".hex()
SECRET = "between hostapd and us"
METHODS = {"PEAP": "auth=MSCHAPV2", "TTLS": "auth=PAP"}

pytestmark = pytest.mark.skipif(
    find_program() is None or not all(map(shutil.which, ("eapol_test", "radclient"))),
    reason="needs FreeRADIUS, radclient and eapol_test (Debian's freeradius, freeradius-utils and eapoltest)")


class Probe:
    """The service in a process of its own."""

    def __init__(self, program, directory, *servers):
        words = [word for port, secret in servers for word in ("127.0.0.1", port, secret)]
        self.process = Process(program, [SECRET, *words], directory, environment_for(None))
        self.port = int(wait_until(lambda: re.findall(r"port (\d+)\n", self.output()), "the service's port",
                                   log=self.process.err, check=self.process.check_runs)[0])

    def output(self):
        return self.process.out.read_text()

    def log(self):
        return self.process.err.read_text()

    def keys(self):
        return [tuple(line.split()[1:]) for line in self.output().splitlines() if line.startswith("key ")]

    def wait_for_keys(self, number):
        """The service reports a key after hostapd has its answer."""
        wait_until(lambda: len(self.keys()) >= number, "the key is reported", log=self.process.out)
        return self.keys()

    def losses(self):
        """Ends the service and returns what it dropped, except second answers: a slow server gets a request twice."""
        self.process.signal(signal.SIGTERM)
        assert self.process.wait() == 0, self.log()
        found = re.findall(r"radius_(\w+) = (\d+)\n", self.output())
        return {name: int(number) for name, number in found if number != "0" and name != "answer_unexpected"}


@pytest.fixture
def place(tmp_path):
    """Ends what a test started."""
    started = []
    yield tmp_path, started
    for each in started:
        each.process.kill()


@pytest.fixture
def server(place):
    directory, started = place
    started.append(FreeRadius(directory / "radius", "upstream secret"))
    return started[-1]


@pytest.fixture
def probe(programs, place):
    def start(*servers):
        directory, started = place
        started.append(Probe(programs / "radius_probe", directory, *servers))
        return started[-1]
    return start


@pytest.fixture
def silent_port():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as silent:
        silent.bind(("127.0.0.1", 0))
        yield silent.getsockname()[1]


@pytest.fixture
def supplicant(tmp_path):
    """Starts eapol_test, which is both station and hostapd."""
    def start(port, method="PEAP", password=PASSWORD, secret=SECRET, seconds=15):
        network = tmp_path / f"{method}.conf"
        network.write_text(f'network={{\nssid="office"\nkey_mgmt=WPA-EAP\neap={method}\nidentity="user"\n'
                           f'password="{password}"\nphase2="{METHODS[method]}"\n}}\n', encoding="utf-8")
        return subprocess.Popen(["eapol_test", "-c", network, "-a127.0.0.1", f"-p{port}", f"-s{secret}",
                                 f"-M{STATION}", f"-N30:s:{CALLED}", f"-t{seconds}"],
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    return start


def finish(running):
    """Whether eapol_test succeeded, and the PMK that it printed."""
    output = running.communicate(timeout=40)[0]
    found = re.findall(r"PMK from EAPOL - hexdump\(len=32\): ([0-9a-f ]+)\n", output)
    succeeded = running.returncode == 0 and output.endswith("SUCCESS\n")
    assert not succeeded or "MPPE keys OK: 1  mismatch: 0" in output
    return succeeded, found[-1].replace(" ", "") if found else None


def ask_about(port, station, *attributes, secret=SECRET, expected="Access-Accept"):
    """radclient's MAC question; returns its output. It verifies the answer."""
    question = ", ".join([f'User-Name = "{station.replace(":", "")}"', f'User-Password = "{station}"',
                          f'Called-Station-Id = "{CALLED}"', f'Calling-Station-Id = "{station.replace(":", "-")}"',
                          *attributes])
    done = subprocess.run(["radclient", "-x", "-r1", "-t1", f"127.0.0.1:{port}", "auth", secret], input=question,
                          capture_output=True, text=True, timeout=20, check=False)
    assert (expected is None) == ("Received" not in done.stdout), done.stdout
    assert expected is None or f"Received {expected}" in done.stdout
    return done.stdout


@pytest.mark.parametrize("method", METHODS)
def test_pmk_is_the_stations(probe, server, supplicant, method):
    service = probe((server.port, server.secret))
    succeeded, pmk = finish(supplicant(service.port, method))
    assert succeeded
    assert service.wait_for_keys(1) == [(STATION, BSSID, pmk, str(SESSION_SECONDS))]
    assert service.losses() == {}


def test_rejected_station_has_no_key(probe, server, supplicant):
    service = probe((server.port, server.secret))
    assert not finish(supplicant(service.port, password="wrong"))[0]
    assert service.keys() == []
    assert service.losses() == {}


def test_wrong_secret_of_hostapd(probe, server, supplicant):
    service = probe((server.port, server.secret))
    assert not finish(supplicant(service.port, secret="another", seconds=1))[0]
    assert "hostapd's shared secret differs" in service.log()
    losses = service.losses()
    assert losses.pop("request_wrong_secret") >= 1
    assert losses == {}


def test_wrong_secret_of_the_first_server(probe, server, supplicant):
    """FreeRADIUS drops requests that are signed with another secret."""
    service = probe((server.port, "another"), (server.port, server.secret))
    succeeded, pmk = finish(supplicant(service.port))
    assert succeeded
    assert [key[2] for key in service.wait_for_keys(1)] == [pmk]
    assert service.losses() == {"server_silent": 1}
    assert "shared secret is incorrect" in server.log().lower()


def test_first_server_is_silent(probe, server, supplicant, silent_port):
    service = probe((silent_port, "any"), (server.port, server.secret))
    assert finish(supplicant(service.port))[0]
    assert f"server 127.0.0.1:{silent_port}: 1 times a RADIUS server did not answer" in service.log()
    second, pmk = finish(supplicant(service.port, seconds=2))  # the silent one is not asked first again
    assert second
    assert service.wait_for_keys(2)[-1][2] == pmk
    assert service.losses() == {"server_silent": 1}


def test_only_server_is_silent_for_a_while(probe, server, supplicant):
    service = probe((server.port, server.secret))
    server.process.signal(signal.SIGSTOP)
    running = supplicant(service.port)
    wait_until(lambda: "did not answer" in service.log(), "the server is found silent", log=service.process.err)
    server.process.signal(signal.SIGCONT)
    succeeded, pmk = finish(running)
    assert succeeded
    assert service.wait_for_keys(1)[-1][2] == pmk
    assert service.losses() == {"server_silent": 1}


def test_mac_questions(probe):
    service = probe()
    signed = "Message-Authenticator = 0x00"
    answer = ask_about(service.port, STATION, signed)
    assert "Message-Authenticator" in answer[answer.index("Received"):]
    ask_about(service.port, DENIED, signed, expected="Access-Reject")
    assert [line for line in service.output().splitlines() if line.startswith("question")] == [
        f"question {station} {BSSID} {SSID}" for station in (STATION, DENIED)]
    assert service.losses() == {}


def test_mac_questions_that_are_not_answered(probe):
    service = probe()
    ask_about(service.port, STATION, expected=None)
    ask_about(service.port, STATION, "Message-Authenticator = 0x00", secret="another", expected=None)
    assert "question" not in service.output()
    assert service.losses() == {"request_unsigned": 1, "request_wrong_secret": 1}
