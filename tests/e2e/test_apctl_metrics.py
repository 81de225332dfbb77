"""Metrics of an access point: their names and units, the file, HTTP, the alerts and the dashboard."""

import json
import os
import re
import shutil
import socket
import subprocess
import urllib.error
import urllib.request
from pathlib import Path

import pytest

from lab.site.waiting import wait_until
from steps import add_access_point, associate, bssid_of, client_mac, wait_until_ready

PACKAGING = Path(__file__).parents[2] / "packaging"
SAMPLE = re.compile(r"^(\w+)(?:\{(.*)\})? (\S+)$", re.M)

needs_promtool = pytest.mark.skipif(not shutil.which("promtool"), reason="promtool is not here")


@pytest.fixture
def access_point(lab):
    lab.controller.start()
    access_point = add_access_point(lab)
    access_point.start_all()
    wait_until_ready(access_point)
    return access_point


@pytest.fixture
def apctl(programs, access_point):
    def run(*words, status=0):
        done = subprocess.run([programs / "apctl", *words], env=os.environ | {"KX_ROOT": str(access_point.root)},
                              capture_output=True, text=True, timeout=20)
        assert done.returncode == status, done.stderr
        return done.stdout + done.stderr

    return run


def samples(text):
    """The values by metric and labels."""
    return {(name, frozenset(re.findall(r'(\w+)="([^"]*)"', labels))): float(value)
            for name, labels, value in SAMPLE.findall(text)}


def value(text, name, **labels):
    return samples(text)[name, frozenset(labels.items())]


def test_values_are_those_of_the_daemons(access_point, apctl):
    associate(access_point, client_mac(1), client_mac(2))
    associate(access_point, client_mac(3), bssid=bssid_of(access_point, 1))
    wait_until(lambda: value(apctl("metrics"), "ap_clients", vap="wlan1", state="guest") == 1, "all are there")
    text = apctl("metrics")
    assert value(text, "ap_clients", vap="wlan0", state="home") == 2
    assert value(text, "ap_clients", vap="wlan0", state="guest") == 0
    assert value(text, "ap_tunnel_up") == 1
    assert value(text, "ap_tunnel_connects_total", result="up") == 1
    assert value(text, "ap_records_sent_total", type="client_assoc") == 3
    assert value(text, "ap_local_messages_total", kind="association") == 3
    assert value(text, "ap_lost_total", daemon="apd", reason="no_tunnel") == 0
    assert value(text, "ap_daemon_up", daemon="client_mgr") == 1
    ends = json.loads(apctl("status", "--json"))[1]["certificate_ends"]
    seconds = subprocess.run(["date", "-d", ends, "+%s"], capture_output=True, text=True, check=True).stdout
    assert value(text, "ap_certificate_expiry_timestamp_seconds") == int(seconds)
    assert not re.search(r"([0-9a-f]{2}:){5}", text)

    access_point.end("client_mgr")
    text = apctl("metrics")
    assert value(text, "ap_daemon_up", daemon="client_mgr") == 0
    assert "ap_clients{" not in text


@needs_promtool
def test_names_and_units_follow_the_rules(apctl):
    done = subprocess.run(["promtool", "check", "metrics"], input=apctl("metrics"), capture_output=True, text=True,
                          check=False)
    assert (done.returncode, done.stdout + done.stderr) == (0, "")


def test_file_is_written_whole(access_point, apctl, tmp_path):
    file = tmp_path / "access_point.prom"
    for _ in range(2):
        apctl("metrics", "--textfile", str(file))
        assert value(file.read_text(), "ap_tunnel_up") == 1
    assert file.stat().st_mode & 0o777 == 0o644
    assert os.listdir(tmp_path) == [file.name]
    assert "No such file" in apctl("metrics", "--textfile", f"{tmp_path}/missing/x.prom", status=1)


def test_http_answers_only_a_question_for_metrics(access_point, apctl, programs):
    assert "expected [metrics]" in apctl("metrics", "--serve", status=78)
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        port = free.getsockname()[1]
    with (access_point.root / "ap.toml").open("a") as configuration:
        configuration.write(f'\n[metrics]\naddress = "127.0.0.1"\nport = {port}\n')
    server = subprocess.Popen([programs / "apctl", "metrics", "--serve"],
                              env=os.environ | {"KX_ROOT": str(access_point.root)})
    try:
        def ask(path="/metrics", **how):
            with urllib.request.urlopen(urllib.request.Request(f"http://127.0.0.1:{port}{path}", **how),
                                        timeout=20) as answer:
                return answer.headers["Content-Type"], answer.read().decode()

        def listens():
            with socket.socket() as probe:
                return probe.connect_ex(("127.0.0.1", port)) == 0

        wait_until(listens, "it listens")
        kind, text = ask()
        assert kind.startswith("text/plain; version=0.0.4")
        assert value(text, "ap_tunnel_up") == 1
        for path, how, status in (("/", {}, 404), ("/metrics", {"method": "DELETE"}, 501)):
            with pytest.raises(urllib.error.HTTPError) as refused:
                ask(path, **how)
            refused.value.close()
            assert refused.value.code == status
        silent = [socket.create_connection(("127.0.0.1", port)) for _ in range(30)]
        with socket.create_connection(("127.0.0.1", port)) as noisy:
            noisy.sendall(b"GET /metrics HTTP/1.1\r\n" + b"x: " + b"y" * 100_000)
            noisy.settimeout(20)
            assert b"200 OK" not in noisy.recv(4096)
        assert value(ask()[1], "ap_tunnel_up") == 1
        for each in silent:
            each.close()
    finally:
        server.terminate()
        assert server.wait(timeout=20) == 0


@needs_promtool
def test_alerts():
    for words in (["check", "rules", "access_point_alerts.yml"], ["test", "rules", "access_point_alerts_test.yml"]):
        done = subprocess.run(["promtool", *words], cwd=PACKAGING / "prometheus", capture_output=True, text=True,
                              check=False)
        assert done.returncode == 0, done.stdout + done.stderr


def test_alerts_and_dashboard_use_metrics_that_exist(apctl, tmp_path):
    board = json.loads((PACKAGING / "grafana/access_points.json").read_text())
    shown = [target["expr"] for panel in board["panels"] for target in panel["targets"]]
    rules = re.findall(r"^ +expr: (.*)$", (PACKAGING / "prometheus/access_point_alerts.yml").read_text(), re.M)
    there = {name for name, _ in samples(apctl("metrics"))}
    for expression in shown + rules:
        used = set(re.findall(r"\bap_\w+", expression))
        assert used and used <= there, expression
    assert len({panel["id"] for panel in board["panels"]}) == len(board["panels"])
    if not shutil.which("promtool"):
        return
    plain = [each.replace("$__rate_interval", "5m").replace("$instance", ".*") for each in shown]
    file = tmp_path / "shown.yml"
    file.write_text(json.dumps({"groups": [{"name": "shown", "rules": [
        {"record": f"shown:{number}", "expr": each} for number, each in enumerate(plain)]}]}))
    done = subprocess.run(["promtool", "check", "rules", file], capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stdout + done.stderr
