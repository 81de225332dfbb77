"""The progress of `./run --stock`."""

from collections.abc import Callable
from dataclasses import dataclass, field
from typing import Any

from rich.console import Console, Group
from rich.progress_bar import ProgressBar
from rich.text import Text

from lab.site.laboratory import Laboratory
from lab.site.site_screen import access_point_table, describe_counters

WIDTH = 100
EVENTS = 6  # that a live screen shows


@dataclass(frozen=True)
class StockState:
    """What the controller says, and the stations themselves."""

    roams: int
    roams_in_all: int
    counters: dict[str, Any]
    access_points: dict[str, dict[str, Any]]  # by MAC address
    stations: list[str]  # "sta1 02:00:00:00:02:00 is at ap1"


@dataclass
class StockScreen:
    """Draws a live screen of that many columns, 0: prints a line for each event.

    The machine's console passes whole lines and no carriage returns, so a picture goes over the one before from its
    first line on, and ends with a newline.
    """

    lab: Laboratory
    columns: int
    write: Callable[[str], None]
    _events: list[str] = field(default_factory=list)
    _height: int = 0  # of the picture

    def say(self, event: str) -> None:
        """To be shown by the next show() of a live screen."""
        self._events.append(event)
        if not self.columns:
            self.write(f"  {event}\n")

    def show(self, state: StockState) -> None:
        if not self.columns:
            return
        lines = self._draw(state, self._events[-EVENTS:])
        lines += [""] * (self._height - len(lines))
        up = f"\x1b[{self._height}A" if self._height else ""
        self.write(up + "".join(f"\x1b[2K{line}\n" for line in lines))
        self._height = len(lines)

    def end(self, state: StockState) -> None:
        """The last picture stays."""
        if self.columns:
            self.show(state)
        else:
            self.write("\n".join(["", *self._draw(state, [])]) + "\n")

    def _draw(self, state: StockState, events: list[str]) -> list[str]:
        console = Console(width=min(self.columns or WIDTH, WIDTH), force_terminal=self.columns > 0,
                          color_system="standard" if self.columns else None, highlight=False)
        # A bar does not end its line.
        bar = [ProgressBar(total=state.roams_in_all, completed=state.roams, width=40), Text()] if self.columns else []
        done = f"{state.roams} of {state.roams_in_all} roams  "
        with console.capture() as captured:
            console.print(Group(*bar, Text(done + describe_counters(state.counters)), Text(),
                                access_point_table(self.lab, state.access_points), Text(),
                                *(Text(line) for line in [*state.stations, "", *events])))
        return captured.get().splitlines()
