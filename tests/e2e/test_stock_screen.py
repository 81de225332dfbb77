"""What `./run --stock` prints, from states that such a run had."""

import re
from types import SimpleNamespace

import pytest

from lab.site.stock_screen import EVENTS, StockScreen, StockState

LAB = SimpleNamespace(access_points=[SimpleNamespace(name="ap1", mac="02:00:00:00:00:00"),
                                     SimpleNamespace(name="ap2", mac="02:00:00:00:01:00")])
STATION = "02:00:00:00:02:00"
ROAM = f"sta1 {STATION} roams to ap2 in 0.41 s, without EAP"


def state(roams: int, first: int, second: int) -> StockState:
    counters = {"clients": first + second, "roams": roams, "guests_waiting": 0, "guests_approved": 0, "records": 9}
    rows = {each.mac: {"ap": each.mac, "state": "up", "stations": count, "records": 5}
            for each, count in zip(LAB.access_points, (first, second))}
    return StockState(roams, 6, counters, rows, [f"sta1 {STATION} is at ap{1 if first else 2}, 10.0.10.50"])


class Terminal:
    """Shows the last lines of what it is sent, as far as this screen uses a terminal."""

    def __init__(self) -> None:
        self.lines: list[str] = []
        self._row = 0
        self.sent = ""

    def write(self, text: str) -> None:
        self.sent += text
        for part in text.splitlines():
            if up := re.match(r"\x1b\[(\d+)A", part):
                self._row -= int(up[1])
            assert 0 <= self._row <= len(self.lines)
            self.lines[self._row:self._row + 1] = [re.sub(r"\x1b\[[0-9;]*[A-Za-z]", "", part).rstrip()]
            self._row += 1


@pytest.fixture
def terminal() -> Terminal:
    return Terminal()


def test_live_screen_is_drawn_over_itself(terminal: Terminal) -> None:
    screen = StockScreen(LAB, 100, terminal.write)
    screen.show(state(0, 1, 0))
    before = list(terminal.lines)
    assert before[1].startswith("0 of 6 roams  1 clients")
    assert re.search(r"^ap1 02:00:00:00:00:00 +up +1 +#", "\n".join(before), re.MULTILINE)
    screen.say(ROAM)
    screen.show(state(1, 0, 1))
    assert "1 of 6 roams" in terminal.lines[1]
    assert f"sta1 {STATION} is at ap2, 10.0.10.50" in terminal.lines
    assert terminal.lines[-1] == ROAM
    assert "\n".join(terminal.lines).count("ap1 02:") == 1
    assert terminal.sent.endswith("\n") and "\r" not in terminal.sent


def test_live_screen_keeps_its_height(terminal: Terminal) -> None:
    screen = StockScreen(LAB, 100, terminal.write)
    for number in range(3 * EVENTS):
        screen.say(f"event {number}")
        screen.show(state(0, 1, 0))
    height = len(terminal.lines)
    screen.show(state(0, 1, 0))
    assert len(terminal.lines) == height
    assert [each for each in terminal.lines if each.startswith("event")] == \
        [f"event {number}" for number in range(2 * EVENTS, 3 * EVENTS)]


def test_no_line_is_longer_than_the_terminal(terminal: Terminal) -> None:
    screen = StockScreen(LAB, 40, terminal.write)
    screen.say(ROAM)
    screen.show(state(1, 0, 1))
    screen.show(state(2, 1, 0))
    assert max(map(len, terminal.lines)) <= 40
    assert len([each for each in terminal.lines if each.startswith("2 of 6")]) == 1


def test_without_a_terminal_each_event_is_a_line(terminal: Terminal) -> None:
    screen = StockScreen(LAB, 0, terminal.write)
    screen.show(state(0, 1, 0))
    screen.say(ROAM)
    assert terminal.sent == f"  {ROAM}\n"
    screen.end(state(1, 0, 1))
    assert "\x1b" not in terminal.sent
    assert re.search(r"^ap2 02:00:00:00:01:00 +up +1 +# +5$", terminal.sent, re.MULTILINE)
    assert ROAM not in terminal.sent.split("1 of 6 roams")[1]
