"""Enrolment: a site from nothing, and access points that are enrolled, renewed, revoked and removed while they run."""

import json
import os
import signal
import stat
import subprocess
import tarfile
import threading

import pytest

from lab.site.access_point import AccessPoint
from lab.site.authority import Authority
from lab.site.controller import ADDRESS
from lab.site.enrolment import Enrolment, sitectl, unpack
from lab.site.failure import LabFailure
from lab.site.waiting import wait_until
from steps import AP_MAC, VAPS

OTHER_MAC = "02:00:00:00:20:00"
STATE_FILES = {"authority.pem", "authority.key", "controller.pem", "controller.key", "http.pem", "http.key", "store.key",
               "site.toml"}


class Site:
    """A controller that runs by the file that `sitectl init` made, and its access points."""

    def __init__(self, lab):
        self.lab = lab
        self.programs = lab.processes.programs
        self.directory = lab.directory / "site"
        self.enrolment = Enrolment(self.programs, self.directory, ADDRESS)
        self.port = 0
        self.controller = None
        self.start()

    def start(self, *options):
        port_file = self.directory / "port"
        port_file.unlink(missing_ok=True)
        self.controller = self.lab.processes.start(
            "site_controller", ["--config", self.enrolment.configuration, "--listen", f"{ADDRESS}:{self.port}", "--http",
                                f"{ADDRESS}:0", "--port-file", port_file, "--json", "--events", *options],
            self.directory)
        wait_until(port_file.exists, "the controller listens", log=self.controller.err, check=self.controller.check_runs)
        self.port = int(port_file.read_text())

    def kill(self):
        self.lab.processes.forget(self.controller)
        self.controller.kill()

    def access_point(self, name, mac):
        """One with its bundle unpacked, and with the lab's VAPs."""
        made = AccessPoint(self.lab.processes, self.lab.directory / name, mac, VAPS, None)
        made.identity = self.enrolment.add(name, mac, made.root)
        self.configure(made)
        self.lab.access_points.append(made)
        return made

    def configure(self, access_point):
        text = (access_point.root / "ap.toml").read_text()
        text = text[:text.index("# One table")].replace("port = 7443", f"port = {self.port}") + VAPS
        (access_point.root / "ap.toml").write_text(text)

    def ctl(self, *words):
        return self.enrolment.run(*words)

    def rows(self, *words):
        return json.loads(self.ctl("--json", *words))

    def row(self, name):
        return next(each for each in self.rows("ap", "list") if each["name"] == name)

    def is_up(self, name):
        return self.row(name)["link"] == "up"

    def wait_until_up(self, name):
        wait_until(lambda: self.is_up(name), f"{name} is up", log=self.controller.err)

    def events(self, kind):
        lines = (self.directory / "site_controller.out").read_text().splitlines()
        return [each for each in map(json.loads, lines) if each.get("event") == kind]

    def wait_for_refusal(self, reason):
        wait_until(lambda: any(each["reason"] == reason for each in self.events("tunnel_refused")),
                   f"a refusal: {reason}", log=self.controller.out)


@pytest.fixture
def site(lab):
    return Site(lab)


def start(access_point):
    access_point.start_all()
    return access_point


def apd_says(access_point, text):
    return text in (access_point.root / "apd.err").read_text()


def test_init_makes_a_site_once(programs, tmp_path):
    directory = tmp_path / "site"
    made = sitectl(programs, "init", directory, "--address", "192.0.2.1", "--address", "ctrl.example").split()
    assert {os.path.basename(each) for each in made} == STATE_FILES == {each.name for each in directory.iterdir()}
    for each in directory.iterdir():
        assert stat.S_IMODE(each.stat().st_mode) == (0o600 if each.suffix == ".key" else 0o644), each
    before = {each: each.read_bytes() for each in directory.iterdir()}
    with pytest.raises(LabFailure, match="exists already"):
        sitectl(programs, "init", directory, "--address", "192.0.2.1")
    assert before == {each: each.read_bytes() for each in directory.iterdir()}
    names = subprocess.run(["openssl", "x509", "-in", directory / "controller.pem", "-noout", "-ext", "subjectAltName"],
                           capture_output=True, text=True, check=True).stdout
    assert "IP Address:192.0.2.1, DNS:ctrl.example" in names
    subprocess.run(["openssl", "verify", "-x509_strict", "-CAfile", directory / "authority.pem", directory / "http.pem"],
                   capture_output=True, check=True)


def test_init_leaves_nothing_of_a_site_that_cannot_be_made(programs, tmp_path):
    (tmp_path / "store.key").write_text("mine")
    with pytest.raises(LabFailure, match=r"store\.key exists already"):
        sitectl(programs, "init", tmp_path, "--address", "192.0.2.1")
    assert [each.name for each in tmp_path.iterdir()] == ["store.key"]
    with pytest.raises(LabFailure, match="neither an address nor a host's name"):
        sitectl(programs, "init", tmp_path / "other", "--address", "a,DNS:b")
    assert not (tmp_path / "other").exists()


def test_bundle_is_a_tar_archive_for_apd(site, tmp_path):
    site.ctl("ap", "add", "hall", "--mac", AP_MAC, "--site", "north", "--days", "90", "--output", tmp_path / "hall.tar")
    assert stat.S_IMODE((tmp_path / "hall.tar").stat().st_mode) == 0o600
    with tarfile.open(tmp_path / "hall.tar") as archive:
        assert {each.name: (each.mode, each.uname, each.gname) for each in archive.getmembers()} == {
            "ca.pem": (0o644, "root", "kx"), "ap.key": (0o640, "root", "kx"), "ap.pem": (0o644, "root", "kx"),
            "ap.toml": (0o644, "root", "kx")}
    unpack(tmp_path / "hall.tar", tmp_path)
    text = subprocess.run(["openssl", "x509", "-in", tmp_path / "ap.pem", "-noout", "-serial", "-subject", "-ext",
                           "subjectAltName"], capture_output=True, text=True, check=True).stdout
    row = site.row("hall")
    assert f"serial={row['serial']}\n" in text
    assert "URI:urn:mac:02-00-00-00-10-00" in text
    assert (row["ap"], row["site"], row["state"], row["link"]) == (AP_MAC, "north", "enrolled", "down")
    assert site.rows("aps")[0]["name"] == "hall"


def test_only_enrolled_access_points_are_served(site):
    enrolled = start(site.access_point("hall", AP_MAC))
    site.wait_until_up("hall")

    stranger = site.access_point("attic", OTHER_MAC)
    site.ctl("ap", "remove", "attic")
    start(stranger)
    site.wait_for_refusal("the access point is not enrolled")
    wait_until(lambda: apd_says(stranger, "the access point is not enrolled"), "the access point logs the reason")
    assert site.is_up("hall") and enrolled.mac in {each["ap"] for each in site.rows("aps", "--state", "up")}
    assert site.rows("stats")[0]["tunnels_refused"] >= 1


def test_revoked_access_point_is_closed_at_once_and_stays_out(site):
    access_point = start(site.access_point("hall", AP_MAC))
    site.wait_until_up("hall")
    site.ctl("ap", "revoke", "hall")
    assert not site.is_up("hall")
    assert site.events("tunnel_down")[-1]["reason"] == "the access point's enrolment is revoked"
    wait_until(lambda: apd_says(access_point, "the access point's enrolment is revoked"), "apd logs the reason")
    site.wait_for_refusal("the access point's enrolment is revoked")

    site.kill()
    (site.directory / "site_controller.out").unlink()
    site.start()
    assert site.row("hall")["state"] == "revoked"
    site.wait_for_refusal("the access point's enrolment is revoked")
    assert not site.is_up("hall")
    site.ctl("ap", "revoke", AP_MAC)
    with pytest.raises(LabFailure, match="is revoked; remove it"):
        site.ctl("ap", "renew", "hall", "--output", site.directory / "no.tar")
    assert not (site.directory / "no.tar").exists()


def test_revocation_outlives_a_restored_backup(site):
    start(site.access_point("hall", AP_MAC))
    site.wait_until_up("hall")
    site.ctl("backup", site.directory / "copy")
    site.ctl("ap", "revoke", "hall")
    site.ctl("restore", site.directory / "copy")
    assert site.row("hall")["state"] == "revoked"
    site.kill()
    (site.directory / "site_controller.out").unlink()
    site.start()
    site.wait_for_refusal("the access point's enrolment is revoked")


def test_removed_access_point_leaves_the_listings(site):
    start(site.access_point("hall", AP_MAC))
    site.wait_until_up("hall")
    site.ctl("ap", "revoke", "hall")
    assert [(each["name"], each["enrolment"]) for each in site.rows("aps")] == [("hall", "revoked")]
    site.ctl("ap", "remove", "hall")
    assert site.rows("aps") == site.rows("vaps") == []


def test_former_certificate_is_out_after_the_access_point_has_come_with_the_new_one(site):
    access_point = start(site.access_point("hall", AP_MAC))
    site.wait_until_up("hall")
    former = {name: (access_point.root / name).read_bytes() for name in ("ap.pem", "ap.key")}
    first = site.row("hall")["serial"]
    bundle = site.directory / "hall.tar"
    bundle.unlink()
    site.ctl("ap", "renew", "hall", "--output", bundle)
    renewed = site.row("hall")
    assert renewed["state"] == "renewed" and renewed["serial"] != first
    assert site.is_up("hall")

    unpack(bundle, access_point.root)
    access_point.running["apd"].signal(signal.SIGHUP)  # it would notice by itself within 5 s
    wait_until(lambda: site.row("hall")["state"] == "enrolled", "apd has come with its new certificate",
               log=access_point.root / "apd.err")
    for name, content in former.items():
        (access_point.root / name).write_bytes(content)
    access_point.running["apd"].signal(signal.SIGHUP)
    site.wait_for_refusal("the certificate is not the one that the access point is enrolled with")
    assert site.row("hall")["serial"] == renewed["serial"]


def test_what_cannot_be_enrolled_leaves_no_bundle(site):
    site.ctl("ap", "add", "hall", "--mac", AP_MAC, "--output", site.directory / "hall.tar")
    for words, reason in [(("hall", "--mac", OTHER_MAC), "another access point has this name"),
                          (("attic", "--mac", AP_MAC), "is enrolled already"),
                          (("../attic", "--mac", OTHER_MAC), "a name has 1 to 32"),
                          (("020000001000", "--mac", OTHER_MAC), "a name has 1 to 32"),
                          (("attic", "--mac", OTHER_MAC, "--watch", "1"), "this one is carried out once"),
                          (("attic", "--mac", "02"), "expected a MAC address")]:
        with pytest.raises(LabFailure, match=reason):
            site.ctl("ap", "add", *words, "--output", site.directory / "attic.tar")
        assert not (site.directory / "attic.tar").exists()
    with pytest.raises(LabFailure, match="File exists"):
        site.ctl("ap", "add", "attic", "--mac", OTHER_MAC, "--output", site.directory / "hall.tar")
    assert [each["name"] for each in site.rows("ap", "list")] == ["hall"]
    (site.directory / "authority.key").chmod(0o644)
    with pytest.raises(LabFailure, match="others may read or write it"):
        site.ctl("ap", "add", "attic", "--mac", OTHER_MAC, "--output", site.directory / "attic.tar")


def test_bundle_is_a_row_of_json(site):
    bundle = str(site.directory / "hall.tar")
    assert site.rows("ap", "add", "hall", "--mac", AP_MAC, "--output", bundle) == [{"bundle": bundle}]


def test_bundle_is_kept_when_the_controller_does_not_answer(site):
    bundle = site.directory / "hall.tar"
    site.controller.signal(signal.SIGSTOP)
    threading.Timer(1, site.kill).start()
    with pytest.raises(LabFailure, match="hall.tar is kept"):
        site.ctl("ap", "add", "hall", "--mac", AP_MAC, "--output", bundle)
    assert bundle.exists()
    bundle.unlink()
    with pytest.raises(LabFailure, match="No such file|Connection refused"):
        site.ctl("ap", "add", "hall", "--mac", AP_MAC, "--output", bundle)
    assert not bundle.exists()


def test_nobody_is_enrolled_or_revoked_without_a_store(lab, programs):
    lab.controller.start()
    for words in (("add", "hall", "--mac", AP_MAC, "--certificate", lab.authority.issue("hall", mac=AP_MAC).certificate),
                  ("renew", "hall", "--certificate", lab.authority.certificate), ("revoke", "hall"), ("remove", "hall")):
        with pytest.raises(LabFailure, match="runs without a store|no access point with this name"):
            sitectl(programs, "--control", lab.controller.control, "ap", *words)
    assert lab.controller.ask_json("ap-list") == []


def test_certificate_of_another_authority_is_not_enrolled(lab, site):
    foreign = Authority(lab.directory, "foreign").issue("hall", mac=AP_MAC).certificate
    with pytest.raises(LabFailure, match="not one that the controller accepts"):
        site.ctl("ap", "add", "hall", "--mac", AP_MAC, "--certificate", foreign)
    site.ctl("ap", "add", "hall", "--mac", AP_MAC, "--output", site.directory / "hall.tar")
    with pytest.raises(LabFailure, match="not one that the controller accepts"):
        site.ctl("ap", "renew", "hall", "--certificate", foreign)
    assert site.row("hall")["state"] == "enrolled"


def test_listing_is_filtered(site):
    for number in range(1, 4):
        site.ctl("ap", "add", f"room-{number}", "--mac", f"02:00:00:00:{number}0:00", "--output",
                 site.directory / f"{number}.tar")
    site.ctl("ap", "revoke", "room-2")
    assert [each["name"] for each in site.rows("ap", "list", "--state", "revoked")] == ["room-2"]
    assert [each["name"] for each in site.rows("ap", "list", "--mac", "02:00:00:00:3")] == ["room-3"]
    assert len(site.rows("ap", "list", "--name", "room", "--limit", "2")) == 2
    assert "room-1  enrolled  down  certificate" in site.ctl("ap", "list")


def test_controller_reads_no_authority_key(lab, site):
    """It starts, serves and enrols with the key out of its reach."""
    site.kill()
    (site.directory / "authority.key").rename(lab.directory / "away.key")
    site.start()
    access_point = AccessPoint(lab.processes, lab.directory / "hall", AP_MAC, VAPS, None)
    (lab.directory / "away.key").rename(site.directory / "authority.key")
    site.enrolment.add("hall", AP_MAC, access_point.root)
    site.configure(access_point)
    start(access_point)
    site.wait_until_up("hall")
