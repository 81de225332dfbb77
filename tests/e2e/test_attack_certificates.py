"""Certificates that end or are replaced while the programs run."""

import re
import signal

from lab.site.access_point import AccessPoint
from lab.site.authority import Authority
from lab.site.controller import Controller
from lab.site.http_api import HttpApi
from lab.site.waiting import wait_until
from steps import (add_access_point, associate, client_mac, events, lost, status, wait_for_association, wait_for_line,
                   wait_until_ready)

UTC = re.compile(r"20\d\d-\d\d-\d\dT\d\d:\d\d:\d\dZ")


def expiry_at_controller(lab) -> str:
    return lab.controller.ask_json("aps")[0]["certificate_expires"]


def replace(lab, access_point: AccessPoint, days: int) -> None:
    """A new certificate and key in the place of the old ones."""
    issued = lab.authority.issue("renewed", mac=access_point.mac, days=days)
    issued.key.rename(access_point.identity.key)
    issued.certificate.rename(access_point.identity.certificate)


def test_new_certificate_is_used_at_once_and_without_losses(lab):
    lab.controller.start()
    access_point = add_access_point(lab)
    lab.start()
    before = expiry_at_controller(lab)
    for round, days in enumerate((50, 60)):
        replace(lab, access_point, days)
        if round == 1:
            access_point.running["apd"].signal(signal.SIGHUP)
        for number in range(10 * round, 10 * round + 10):
            associate(access_point, client_mac(number))
        wait_until(lambda: len(events(lab.controller, "tunnel_up")) == round + 2, "there is a new tunnel")
        wait_until(lambda: expiry_at_controller(lab) > before, "the controller has the new certificate")
        before = expiry_at_controller(lab)
        wait_until(lambda: f"{status(access_point, 'apd')['certificate_expires']:%FT%TZ}" == before, "apd shows its end")
    for number in range(20):
        wait_for_association(lab, client_mac(number))
    for program in ("apd", "client_mgr"):
        assert lost(access_point, program) == {}, program
    assert all("was not sent" not in each["reason"] for each in events(lab.controller, "tunnel_down"))


def test_certificate_that_ends_soon_is_told(lab):
    lab.controller.identity = lab.authority.issue("controller", "127.0.0.1", days=6)
    lab.controller.start()
    wait_for_line(lab.controller.process.err, f"{lab.controller.identity.certificate}: the certificate ends at ")
    assert "within 7 days" in lab.controller.process.err.read_text()
    assert UTC.fullmatch(lab.controller.stats()["certificate_expires"])
    access_point = add_access_point(lab)
    replace(lab, access_point, 20)
    lab.start()
    told = access_point.running["apd"].err
    wait_for_line(told, "within 30 days")
    replace(lab, access_point, 1)
    wait_for_line(told, "within 1 day")
    assert told.read_text().count("the certificate ends at ") == 2


def test_http_certificate_that_ends_soon_is_told(lab):
    api = HttpApi(lab.directory, lab.authority, days=6)
    lab.controller.start(*api.options)
    certificate = lab.controller.identity.key.parent / "http.pem"
    told = lab.controller.process.err
    wait_for_line(told, f"{certificate}: the certificate ends at ")
    assert told.read_text().count("the certificate ends at ") == 1
    certificate.write_text("none")
    lab.controller.process.signal(signal.SIGHUP)
    wait_for_line(told, "keeping the former HTTP certificate: ")
    assert "read the certificates anew" in told.read_text()


def test_authority_whose_certificate_ends_soon_is_told(lab):
    lab.authority = Authority(lab.controller.identity.key.parent, "brief", days=6)
    lab.controller = Controller(lab.processes, lab.directory, lab.authority)
    lab.controller.start()
    access_point = add_access_point(lab)
    access_point.start_all()
    wait_until_ready(access_point)
    expected = f"{lab.authority.certificate}: the certificate ends at "
    for told in (lab.controller.process.err, access_point.running["apd"].err):
        wait_for_line(told, expected)
        assert told.read_text().count("the certificate ends at ") == 1
        assert "within 7 days" in told.read_text()
