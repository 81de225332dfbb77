"""The operators' page in a browser, with real access points."""

import re
import subprocess

import pytest

from conftest import checked_lab
from lab.site.browser import Browser, why_missing
from lab.site.client_table import GUEST
from lab.site.http_api import HttpApi
from lab.site.waiting import wait_until
from steps import add_access_point, associate, bssid_of, client_mac, wait_until_ready
from tcp_forwarder import TcpForwarder

pytestmark = pytest.mark.skipif(why_missing() is not None, reason=why_missing() or "")
PASSWORD = "correct horse battery"
EXPECTED_PROBLEMS = re.compile(r"/api/v1/\S+ - Failed to load resource: (the server responded with a status of 40|net::)")
VIEWS = {"Site": "#/", "Clients": "#/clients", "Guests": "#/guests", "Access lists": "#/acl", "Events": "#/events",
         "Roams": "#/roams"}


@pytest.fixture(scope="module")
def browser(own_network, tmp_path_factory):
    made = Browser(tmp_path_factory.mktemp("profile"))
    yield made
    made.close()


class Site:
    """A controller with two access points, its API behind a way that can be cut, and an operator."""

    def __init__(self, lab, programs):
        self.lab = lab
        self.api = HttpApi(lab.directory, lab.authority)
        self._sitectl = programs / "sitectl"
        lab.controller.start(*self.api.options, "--store", lab.directory / "site.db")
        self.way = TcpForwarder(self.api.port)
        self.access_points = [add_access_point(lab, number) for number in (1, 2)]
        lab.start()
        for each in self.access_points:
            wait_until_ready(each)
        self.sitectl("operator-add", "ola", "operator", text=PASSWORD + "\n")
        self.sitectl("operator-add", "vic", "viewer", text=PASSWORD + "\n")

    def sitectl(self, *words, text=""):
        done = subprocess.run([self._sitectl, "--control", self.lab.controller.control, *words], input=text,
                              capture_output=True, text=True, timeout=20, check=False)
        assert done.returncode == 0, done.stderr
        return done.stdout.strip()

    @property
    def address(self):
        return f"https://127.0.0.1:{self.way.port}/"


@pytest.fixture(scope="module")
def site(programs, request):
    failed = request.session.testsfailed
    with checked_lab(programs, lambda: request.session.testsfailed > failed) as lab:
        yield Site(lab, programs)


def sign_in(browser, name="ola", password=PASSWORD):
    browser.fill("Name", name)
    browser.fill("Password", password)
    browser.button("Sign in").click()
    browser.wait_for_text(name, "#who")


@pytest.fixture
def page(browser, site):
    """The page, with an operator signed in. The browser must not have complained about it at the end."""
    browser.problems()
    browser.driver.get(site.address)
    if browser.wait(lambda: browser.text("h1"), "a view") == "Sign in":
        sign_in(browser)
    yield browser
    assert [each for each in browser.problems() if not EXPECTED_PROBLEMS.search(each)] == []


def test_wrong_password_is_refused_and_token_is_taken(page, site):
    page.button("Sign out").click()
    page.wait_for_text("You are signed out.")
    page.fill("Name", "ola")
    page.fill("Password", "wrong")
    page.button("Sign in").click()
    page.wait_for_text("Not signed in: the name or the password is wrong.")
    token = site.sitectl("token-add", "vic", "viewer")
    page.driver.get("about:blank")
    page.driver.get(f"{site.address}#token={token}")
    page.wait_for_text("vic (viewer)", "#who")
    assert token not in page.driver.current_url
    page.driver.refresh()
    page.wait_for_text("vic (viewer)", "#who")
    page.button("Sign out").click()
    page.wait_for_text("You are signed out.")
    page.driver.refresh()
    page.wait_for_text("Sign in", "h1")


def test_page_asks_nobody_else(page, site):
    for view in VIEWS:
        page.go(view)
    loaded = page.run("return performance.getEntriesByType('resource').map((entry) => entry.name)")
    assert len(loaded) > 20
    assert {each for each in loaded if not each.startswith(site.address)} == set()


def test_text_from_outside_is_no_markup(page, site):
    script = "<img src=x onerror=alert(1)>"
    site.sitectl("name", client_mac(70), script)
    associate(site.access_points[0], client_mac(70))
    page.go("Clients")
    page.fill("MAC begins with", client_mac(70))
    page.wait_for_text(script, "tbody")
    assert page.run("return document.querySelectorAll('main img').length") == 0
    with pytest.raises(Exception, match="TrustedHTML"):
        page.run("document.body.innerHTML = '<b>x</b>'")
    page.problems()


def test_approved_guest_passes(page, site):
    first = site.access_points[0]
    guest = client_mac(20)
    page.go("Guests")
    page.wait_for_text("No guest is waiting.")
    associate(first, guest, bssid=bssid_of(first, 1))
    page.button(f"Approve {guest}").click()
    page.wait_for_text(f"{guest} is approved.", "#said")
    wait_until(lambda: [client.flags & GUEST for client in first.clients() if client.mac == guest] == [0],
               "the guest passes", log=first.log)
    page.wait_for_text("No guest is waiting.")


def test_roam_is_followed_live(page, site):
    first, second = site.access_points
    station = client_mac(30)
    associate(first, station)
    page.driver.get(f"{site.address}#/clients/{station}")
    page.wait_for_text("ap1, office", ".facts")
    associate(second, station)
    page.wait_for_text("ap2, office", ".facts")
    assert [row.split("\t")[1:3] for row in page.text("tbody").splitlines()] == [["roamed", "ap2"], ["associated", "ap1"]]
    picture = page.find(".picture svg")
    assert picture.get_attribute("aria-label").startswith("Where the client was: 2 stays at 2 access points, 1 roam")
    page.go("Events")
    page.wait_for_text(f"{station} roamed to ap2", ".events")
    other = client_mac(31)
    associate(second, other)
    page.wait_for_text(f"{other} associated with ap2", ".events")
    associate(first, other)
    page.wait_for_text(f"{other} roamed to ap1", ".events")


def test_connection_is_lost_and_comes_back(page, site):
    page.go("Events")
    site.way.cut()
    page.wait_for_text("No connection to the controller since", "#connection")
    associate(site.access_points[0], client_mac(40))
    site.way.mend()
    page.wait_for_text("The connection is back.", "#said")
    page.wait_for_text(f"{client_mac(40)} associated with ap1", ".events")
    assert page.text("#connection") == ""
