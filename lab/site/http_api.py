"""The controller's HTTP API: the options that open it, and a client."""

import http.client
import json
import ssl
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from lab.site.authority import DAYS, Authority

ADDRESS = "127.0.0.1"
ANSWER_SECONDS = 10


@dataclass(frozen=True)
class Answer:
    status: int
    fields: http.client.HTTPMessage
    body: bytes

    @property
    def json(self) -> Any:
        return json.loads(self.body)


class HttpApi:
    """Its files are in `directory`."""

    def __init__(self, directory: Path, authority: Authority, days: int = DAYS) -> None:
        self._port_file = directory / "http.port"
        self._authority = authority
        self._identity = authority.issue("http", ADDRESS, days=days)

    @property
    def options(self) -> tuple[object, ...]:
        """What starts the controller with the API on any free port."""
        return ("--http", f"{ADDRESS}:0", "--http-port-file", self._port_file,
                "--http-certificate", self._identity.certificate, "--http-key", self._identity.key)

    @property
    def port(self) -> int:
        return int(self._port_file.read_text())

    def connect(self) -> http.client.HTTPSConnection:
        trust = ssl.create_default_context(cafile=str(self._authority.certificate))
        return http.client.HTTPSConnection(ADDRESS, self.port, timeout=ANSWER_SECONDS, context=trust)

    def ask(self, method: str, path: str, token: str | None = None, body: object = None,
            fields: dict[str, str] | None = None) -> Answer:
        """Sends one request; `body` is sent as JSON, and bytes as they are."""
        sent = dict(fields or {})
        if token:
            sent["Authorization"] = f"Bearer {token}"
        content = body if isinstance(body, bytes) or body is None else json.dumps(body).encode()
        if content is not None:
            sent.setdefault("Content-Type", "application/json")
        connection = self.connect()
        try:
            connection.request(method, path, content, sent)
            answer = connection.getresponse()
            return Answer(answer.status, answer.headers, answer.read())
        finally:
            connection.close()

    def get(self, path: str, token: str | None = None) -> Any:
        answer = self.ask("GET", path, token)
        assert answer.status == 200, (path, answer.status, answer.body)
        return answer.json

    def events(self, token: str, last: str | None = None) -> "EventStream":
        return EventStream(self, token, last)


@dataclass(frozen=True)
class Event:
    id: str
    kind: str
    data: dict[str, Any]


class EventStream:
    """The server-sent events after the one whose id is `last`."""

    def __init__(self, api: HttpApi, token: str, last: str | None) -> None:
        self._connection = api.connect()
        fields = {"Authorization": f"Bearer {token}", **({"Last-Event-ID": last} if last else {})}
        self._connection.request("GET", "/api/v1/events", headers=fields)
        self._answer = self._connection.getresponse()
        assert self._answer.status == 200, self._answer.read()

    def __iter__(self) -> Iterator[Event]:
        fields: dict[str, str] = {}
        for line in iter(self._answer.readline, b""):
            name, _, value = line.decode().rstrip("\n").partition(": ")
            if name and value:
                fields[name] = value
            elif fields:
                yield Event(fields["id"], fields["event"], json.loads(fields["data"]))
                fields = {}

    def close(self) -> None:
        self._connection.close()
