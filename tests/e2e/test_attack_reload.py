"""Files that are changed, or replaced in other ways, while the programs run."""

import shutil
import signal
import subprocess
import time

import pytest

from steps import add_access_point, events, wait_for_event, wait_for_line


def hang_up(lab, answer, number=1):
    lab.controller.process.signal(signal.SIGHUP)
    wait_for_line(lab.controller.process.err, answer, number)


def revoke(lab, directory, *identities):
    """A list of revoked certificates, signed by the lab's authority."""
    authority = lab.authority.certificate
    (directory / "index").write_text("")
    (directory / "crlnumber").write_text("01\n")
    configuration = directory / "ca.conf"
    configuration.write_text(f"[ca]\ndefault_ca = lab\n[lab]\ndatabase = {directory}/index\ndefault_md = sha256\n"
                             f"crlnumber = {directory}/crlnumber\ndefault_crl_days = 1\n")
    command = ["openssl", "ca", "-config", configuration, "-cert", authority, "-keyfile", authority.with_suffix(".key")]
    for each in identities:
        subprocess.run([*command, "-revoke", each.certificate], check=True, capture_output=True)
    subprocess.run([*command, "-gencrl", "-out", directory / "crl.pem"], check=True, capture_output=True)
    return directory / "crl.pem"


def test_access_lists_are_read_anew_and_kept_when_they_are_bad(lab, tmp_path):
    lists = tmp_path / "acl.toml"
    lists.write_text('default = "allow"\n')
    lab.controller.start("--acl", lists)
    lists.write_text('default = "deny"\n')
    hang_up(lab, "read the access lists anew")
    assert lab.controller.ask_json("acl")[0]["verdict"] == "deny"
    lists.write_text("default = [[[\n")
    hang_up(lab, "keeping the former access lists")
    assert lab.controller.ask_json("acl")[0]["verdict"] == "deny"


def test_certificates_are_read_anew_without_ending_tunnels(lab):
    lab.controller.start()
    access_point = add_access_point(lab)
    lab.start()
    before = lab.controller.identity.certificate.read_text()
    lab.controller.identity.certificate.write_text("nothing\n")
    hang_up(lab, "keeping the former certificates")
    lab.controller.identity.certificate.write_text(before)
    hang_up(lab, "read the certificates anew")
    assert events(lab.controller, "tunnel_down") == []
    assert lab.controller.ask_json("aps")[0]["ap"] == access_point.mac


def test_revoked_access_point_loses_its_tunnel_and_gets_no_other(lab, tmp_path):
    lists = revoke(lab, tmp_path)
    lab.controller.start("--crl", lists)
    good, revoked = add_access_point(lab, 1), add_access_point(lab, 2)
    lab.start()
    revoke(lab, tmp_path, revoked.identity)
    hang_up(lab, "read the certificates anew")
    wait_for_event(lab.controller, "tunnel_down")
    assert "revoked" in events(lab.controller, "tunnel_down")[0]["reason"]
    wait_for_line(revoked.running["apd"].err, "certificate revoked")
    wait_for_event(lab.controller, "tunnel_refused")
    assert lab.controller.connected() == {good.mac}


@pytest.fixture
def configuration(lab, tmp_path):
    """Starts apd with a configuration whose directory is two symbolic links away, as Kubernetes mounts it."""
    lab.controller.start()
    access_point = add_access_point(lab)
    mount = tmp_path / "mount"
    (mount / "first").mkdir(parents=True)
    (mount / "first/ap.toml").write_text((access_point.root / "ap.toml").read_text())
    (mount / "data").symlink_to("first")
    (mount / "ap.toml").symlink_to("data/ap.toml")
    access_point.start("apd", "--config", mount / "ap.toml")
    wait_for_line(access_point.running["apd"].err, "waiting for client_mgr")
    return access_point, mount


def with_ssid(file, ssid):
    return file.read_text().replace('"office"', f'"{ssid}"')


def test_configuration_behind_a_link_that_is_replaced(configuration):
    access_point, mount = configuration
    told = access_point.running["apd"].err
    for number in (1, 2):
        (mount / f"next{number}").mkdir()
        (mount / f"next{number}/ap.toml").write_text(with_ssid(mount / "first/ap.toml", f"new{number}"))
        (mount / "data.new").symlink_to(f"next{number}")
        (mount / "data.new").rename(mount / "data")
        wait_for_line(told, "VAP wlan0 has changed", number)
    assert told.read_text().count("VAP ") == 2


def test_configuration_directory_that_is_made_anew(configuration):
    access_point, mount = configuration
    told = access_point.running["apd"].err
    text = with_ssid(mount / "ap.toml", "new1")
    shutil.rmtree(mount)
    mount.mkdir()
    (mount / "ap.toml").write_text(text)
    wait_for_line(told, "VAP wlan0 has changed")
    # From now on the new directory is watched.
    start = time.monotonic()
    (mount / "ap.toml").write_text(text.replace('"new1"', '"new2"'))
    wait_for_line(told, "VAP wlan0 has changed", 2)
    assert time.monotonic() - start < 2
