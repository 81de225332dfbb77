"""The controller's HTTP API over TLS, with real access points."""

import json
import re
import subprocess
from datetime import datetime, timedelta, timezone
from pathlib import Path

import jsonschema
import pytest

from lab.site.failure import LabFailure
from lab.site.http_api import HttpApi
from lab.site.waiting import wait_until
from steps import add_access_point, associate, bssid_of, client_mac, wait_for_association, wait_until_ready

STATION = client_mac(1)
PASSWORD = "correct horse battery"


@pytest.fixture
def api(lab):
    made = HttpApi(lab.directory, lab.authority)
    lab.controller.start(*made.options)
    return made


@pytest.fixture
def stored_api(lab):
    """With a store, which enrolments need."""
    made = HttpApi(lab.directory, lab.authority)
    lab.controller.start(*made.options, "--store", lab.directory / "site.db", "--serve-unenrolled")
    return made


@pytest.fixture
def sitectl(lab, programs):
    def run(*words, text=""):
        done = subprocess.run([programs / "sitectl", "--control", lab.controller.control, *words], input=text,
                              capture_output=True, text=True, timeout=20, check=False)
        assert done.returncode == 0, done.stderr
        return done.stdout

    return run


@pytest.fixture
def token_of(sitectl):
    """Makes an operator of a role, with a password, and returns a token of the operator."""
    def make(role, name=None):
        name = name or f"{role}-1"
        sitectl("operator-add", name, role, text=PASSWORD + "\n")
        return sitectl("token-add", name, role).strip()

    return make


def described(api):
    return api.get("/api/v1/openapi.json")


def schema_of(document, path, method, status, content="application/json"):
    answers = document["paths"][path][method]["responses"]
    answer = answers.get(str(status), answers["default"])
    if "$ref" in answer:
        answer = document["components"]["responses"]["Problem"]
        content = "application/problem+json"
    schema = answer.get("content", {}).get(content, {}).get("schema")
    return schema and {"components": document["components"], **schema}


def check(document, path, method, answer):
    """That the answer is one that the description has for the path."""
    content = (answer.fields["Content-Type"] or "").partition(";")[0]
    schema = schema_of(document, path, method, answer.status, content)
    assert (schema is None) == (answer.body == b""), (path, method, answer)
    if schema and "json" in content:
        jsonschema.Draft202012Validator(schema).validate(answer.json)


def test_answers_are_as_described(lab, api, token_of):
    access_point = add_access_point(lab)
    lab.start()
    wait_until_ready(access_point)
    associate(access_point, STATION)
    wait_for_association(lab, STATION)
    token = token_of("admin")
    document = described(api)
    assert document["openapi"] == "3.1.0"
    page = (Path(__file__).parents[2] / "docs/api.md").read_text()
    assert [path for path in document["paths"] if f"`{path}`" not in page] == []
    values = {"{mac}": STATION, "{index}": "1"}
    bodies = {"/api/v1/session": {"name": "admin-1", "password": PASSWORD}}
    seen = set()
    for path, methods in document["paths"].items():
        target = re.sub(r"\{\w+\}", lambda found: values[found[0]], path)
        # In this order, so that something is there to be deleted.
        for method in ("get", "post", "put", "delete"):
            if method not in methods or path == "/api/v1/events":
                continue
            body = bodies.get(path, {"verdict": "deny"}) if "requestBody" in methods[method] else None
            for sent in (token, None):
                answer = api.ask(method.upper(), target, sent, body)
                check(document, path, method, answer)
                seen.add(answer.status)
    assert {200, 201, 204, 401, 409} <= seen


def test_access_point_is_enrolled_and_revoked(lab, stored_api, token_of):
    api = stored_api
    access_point = add_access_point(lab)
    lab.start()
    admin, target = token_of("admin"), f"/api/v1/enrolments/{access_point.mac}"
    certificate = access_point.identity.certificate.read_text()
    assert api.ask("PUT", target, token_of("operator"), {"name": "hall", "certificate": certificate}).status == 403
    assert api.ask("PUT", target, admin, {"name": "hall", "certificate": "none"}).status == 409
    assert api.ask("PUT", target, admin, {"name": "hall", "certificate": certificate}).status == 204
    row, = api.get("/api/v1/enrolments", admin)["items"]
    assert (row["ap"], row["name"], row["state"], row["link"]) == (access_point.mac, "hall", "enrolled", "up")
    check(described(api), "/api/v1/enrolments", "get", api.ask("GET", "/api/v1/enrolments", admin))
    assert api.get("/api/v1/access-points", admin)["items"][0]["name"] == "hall"
    assert api.ask("PUT", f"{target}/revocation", admin).status == 204
    assert api.get("/api/v1/enrolments?state=revoked", admin)["items"][0]["link"] == "down"
    assert api.ask("DELETE", target, admin).status == 204
    assert api.get("/api/v1/enrolments", admin)["items"] == []
    assert [each["what"] for each in api.get("/api/v1/audit", admin)["items"][:3]] == ["ap-remove", "ap-revoke", "ap-add"]


def test_operators_are_those_of_a_restored_backup(lab, stored_api, sitectl, token_of):
    def status(token):
        return stored_api.ask("GET", "/api/v1/stats", token).status

    before = token_of("viewer")
    sitectl("backup", lab.directory / "copy")
    later = token_of("admin")
    sitectl("token-remove", before.partition(".")[0])
    assert (status(before), status(later)) == (401, 200)
    sitectl("restore", lab.directory / "copy")
    assert (status(before), status(later)) == (200, 401)


def test_token_ends(lab, api, sitectl, token_of):
    token_of("viewer")
    brief = sitectl("token-add", "viewer-1", "viewer", "--days", "2").strip()
    assert api.ask("GET", "/api/v1/stats", brief).status == 200
    ends = {each["id"]: each["expires"] for each in json.loads(sitectl("--json", "tokens"))}
    in_two_days = (datetime.now(timezone.utc) + timedelta(days=2)).strftime("%Y-%m-%dT%H")
    assert ends.pop(brief.partition(".")[0]).startswith(in_two_days)
    assert list(ends.values()) == [None]
    for days in ("0", "3651", "x"):
        with pytest.raises(LabFailure, match="days"):
            lab.controller.ask("token-add", "viewer-1", "viewer", "id", "hash", days)


def test_other_paths_are_not_found(api, token_of):
    token = token_of("viewer")
    for path in ("/api/v1/nothing", "/api/v1", "/nothing", "/api/v1/clients/", "/api/v1/clients/x/y"):
        assert api.ask("GET", path, token).status == 404, path


def test_listings_have_pages_and_filters(lab, api, token_of):
    access_point = add_access_point(lab)
    lab.start()
    wait_until_ready(access_point)
    stations = sorted(client_mac(number) for number in range(1, 8))
    for number, station in enumerate(stations):
        associate(access_point, station, bssid=bssid_of(access_point, number % 2))
    wait_until(lambda: lab.controller.stats()["clients"] == len(stations), "all clients are there")
    token = token_of("viewer")
    found, cursor = [], ""
    while cursor is not None:
        page = api.get(f"/api/v1/clients?limit=3{cursor and '&cursor=' + cursor}", token)
        assert len(page["items"]) <= 3
        found += [row["client"] for row in page["items"]]
        cursor = page["next"]
    assert found == stations
    office = api.get("/api/v1/clients?ssid=office", token)["items"]
    assert [row["client"] for row in office] == stations[::2]
    assert api.get(f"/api/v1/clients/{stations[0]}", token) == office[0]
    assert api.get(f"/api/v1/clients?mac={stations[3]}", token)["items"][0]["ssid"] == "guest"
    assert [row["ap"] for row in api.get("/api/v1/access-points?state=up", token)["items"]] == [access_point.mac]
    assert {row["ssid"] for row in api.get("/api/v1/vaps", token)["items"]} == {"office", "guest"}
    assert api.ask("GET", "/api/v1/clients?limit=100000", token).status == 400


def test_operator_signs_in_and_changes_a_list(lab, api, token_of):
    token_of("operator", "ola")
    wrong = api.ask("POST", "/api/v1/session", body={"name": "ola", "password": "x"})
    assert wrong.status == 401
    opened = api.ask("POST", "/api/v1/session", body={"name": "ola", "password": PASSWORD})
    cookie = opened.fields["Set-Cookie"]
    assert all(part in cookie for part in ("__Host-session=", "Secure", "HttpOnly", "SameSite=Strict", "Path=/"))
    session = {"Cookie": cookie.partition(";")[0]}
    change = {"method": "PUT", "path": f"/api/v1/acl/1/clients/{STATION}", "body": {"verdict": "deny"}}
    assert api.ask(**change, fields=session).status == 403
    session["X-CSRF-Token"] = opened.json["csrf_token"]
    assert api.ask(**change, fields=session).status == 204
    assert {"mac_acl_index": 1, "client": STATION, "verdict": "deny"} in lab.controller.ask_json("acl")
    assert api.ask("DELETE", "/api/v1/session", fields=session).status == 204
    assert api.ask(**change, fields=session).status == 401


def test_revoked_token_and_removed_operator(lab, api, token_of, sitectl):
    token = token_of("viewer")
    assert api.ask("GET", "/api/v1/stats", token).status == 200
    sitectl("token-remove", token.partition(".")[0])
    assert api.ask("GET", "/api/v1/stats", token).status == 401
    other = sitectl("token-add", "viewer-1", "viewer").strip()
    assert api.ask("GET", "/api/v1/stats", other).status == 200
    sitectl("operator-remove", "viewer-1")
    assert api.ask("GET", "/api/v1/stats", other).status == 401


def test_events_come_and_are_resumed(lab, api, token_of):
    token = token_of("viewer")
    stream = api.events(token)
    events = iter(stream)
    start = next(events)
    assert start.kind == "start"
    access_point = add_access_point(lab)
    lab.start()
    up = next(event for event in events if event.kind == "access-point-up")
    assert up.data["ap"] == access_point.mac
    stream.close()
    wait_until_ready(access_point)
    associate(access_point, STATION)
    wait_for_association(lab, STATION)
    resumed = api.events(token, up.id)
    association = next(iter(resumed))
    assert (association.kind, association.data["client"]) == ("associated", STATION)
    assert association.data["bssid"] == bssid_of(access_point)
    resumed.close()
    lost = api.events(token, "another-1")
    assert next(iter(lost)).kind == "reset"
    lost.close()


def test_guest_is_approved_and_revoked(lab, api, token_of):
    access_point = add_access_point(lab)
    lab.start()
    wait_until_ready(access_point)
    associate(access_point, STATION, bssid=bssid_of(access_point, 1))
    token = token_of("operator")
    wait_until(lambda: [row["client"] for row in api.get("/api/v1/guests", token)["items"]] == [STATION],
               "the guest waits")
    approval = f"/api/v1/guests/{STATION}/approval"
    assert api.ask("PUT", approval, token).status == 204
    assert api.get(f"/api/v1/clients/{STATION}", token)["guest"] == "approved"
    assert api.ask("PUT", approval, token).status == 409
    assert api.ask("DELETE", approval, token).status == 204
    wait_until(lambda: access_point.clients() == [], "the guest is gone", log=access_point.log)
    kinds = [entry["event"] for entry in api.get(f"/api/v1/clients/{STATION}/history", token)["items"]]
    assert kinds[0] == "left"
    assert {"associated", "waiting", "approved"} <= set(kinds)


def test_metrics_pass_the_linter(lab, api, token_of):
    access_point = add_access_point(lab)
    lab.start()
    wait_until_ready(access_point)
    associate(access_point, STATION)
    wait_for_association(lab, STATION)
    text = api.ask("GET", "/metrics", token_of("viewer")).body
    assert b"\ncontroller_clients 1\n" in text
    assert not re.search(rb"([0-9a-f]{2}[:-]){5}[0-9a-f]{2}", text)
    done = subprocess.run(["promtool", "check", "metrics"], input=text, capture_output=True, check=False)
    assert (done.returncode, done.stdout, done.stderr) == (0, b"", b"")


def test_certificate_is_read_anew(lab, api):
    before = api.connect()
    before.connect()
    first = before.sock.getpeercert(True)
    before.close()
    lab.authority.issue("http", "127.0.0.1")
    lab.controller.process.signal(1)

    def presented():
        after = api.connect()
        after.connect()
        try:
            return after.sock.getpeercert(True)
        finally:
            after.close()

    wait_until(lambda: presented() != first, "the new certificate")
    assert json.loads(api.ask("GET", "/api/v1/nothing").body)["status"] == 404
