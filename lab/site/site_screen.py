"""The progress of a site's run."""

from typing import Any

from rich.console import Console, Group
from rich.live import Live
from rich.progress_bar import ProgressBar
from rich.table import Table
from rich.text import Text

from lab.site.laboratory import Laboratory
from lab.site.site_run import Site

LINES_EVERY_LAB_SECONDS = 10  # without a terminal


class SiteScreen:
    """Shows a live screen on a terminal, otherwise a line from time to time."""

    def __init__(self, console: Console, site: Site) -> None:
        self._console = console
        self._site = site
        self._live = Live(console=console, auto_refresh=False, transient=True) if console.is_terminal else None
        self._next_line = 0.0

    def __enter__(self) -> "SiteScreen":
        if self._live:
            self._live.start()
        return self

    def __exit__(self, *_: object) -> None:
        if self._live:
            self._live.stop()

    def update(self) -> None:
        counters, access_points = self._site.state()
        if self._live:
            self._live.update(draw(self._site, counters, access_points), refresh=True)
        elif self._site.lab_time() >= self._next_line:
            self._next_line += LINES_EVERY_LAB_SECONDS
            self._console.print(f"  {describe_progress(self._site, counters)}", soft_wrap=True)


def draw(site: Site, counters: dict[str, Any], access_points: dict[str, dict[str, Any]]) -> Group:
    return Group(ProgressBar(total=site.plan.seconds, completed=site.lab_time(), width=60),
                 Text(describe_progress(site, counters)), Text(),
                 access_point_table(site.lab, access_points))


def describe_progress(site: Site, counters: dict[str, Any]) -> str:
    return (f"{site.lab_time():3.0f} of {site.plan.seconds} s  {describe_counters(counters)} "
            f"({counters['records_per_second']}/s)")


def describe_counters(counters: dict[str, Any]) -> str:
    return (f"{counters['clients']} clients, {counters['roams']} roams, guests: {counters['guests_waiting']} waiting, "
            f"{counters['guests_approved']} approved, {counters['records']} records")


def access_point_table(lab: Laboratory, access_points: dict[str, dict[str, Any]]) -> Table:
    table = Table(box=None, pad_edge=False)
    for heading in ("access point", "tunnel", "stations", "", "records"):
        table.add_column(heading, justify="right" if heading == "records" else "left", no_wrap=True)
    for access_point in lab.access_points:
        known = access_points.get(access_point.mac, {"state": "down"})
        stations = known.get("stations", 0)
        table.add_row(f"{access_point.name} {access_point.mac}", known["state"], f"{stations:8}",
                      Text("#" * stations, style="green"), str(known.get("records") or ""))
    return table
