"""A whole lab: a private directory, an authority, one controller and any number of access points."""

import shutil
from pathlib import Path

from lab.site.access_point import AccessPoint
from lab.site.authority import Authority
from lab.site.controller import ADDRESS, Controller
from lab.site.lab_directory import LabDirectory
from lab.site.processes import Processes
from lab.site.waiting import wait_until


class Laboratory:
    """On leaving the context, ends all processes and removes its keys. `authority` is one of its own by default."""

    def __init__(self, programs: Path, address: str = ADDRESS, authority: Authority | None = None) -> None:
        self._place = LabDirectory()
        self.directory = self._place.path
        self.processes = Processes(programs)
        self.access_points: list[AccessPoint] = []
        self._keys = self.directory / "keys"
        self._keys.mkdir(mode=0o700)
        try:
            self.authority = authority or Authority(self._keys)
            self.controller = Controller(self.processes, self.directory, self.authority, address=address)
        except BaseException:
            self.discard()
            raise

    def __enter__(self) -> "Laboratory":
        return self

    def __exit__(self, *_: object) -> None:
        self.processes.end()
        for key in self._keys.glob("*.key"):
            key.unlink()
        self._place.release()

    def discard(self) -> None:
        """Removes the directory with all output."""
        self._place.release()
        shutil.rmtree(self.directory)

    def add_access_point(self, mac: str, vaps: str) -> AccessPoint:
        """Adds an access point that connects to the controller, which must have been started."""
        name = f"ap{len(self.access_points) + 1}"
        added = AccessPoint(self.processes, self.directory / name, mac, vaps, self.authority.issue(name, mac=mac))
        added.configure(self.controller, self.authority)
        self.controller.enrol(name, mac, added.identity)
        self.access_points.append(added)
        return added

    def start(self) -> None:
        """Starts the access points. Returns when the controller has the first report of each."""
        for access_point in self.access_points:
            access_point.start_all()
        wait_until(self._has_all_reports, "the controller has the access points' reports",
                   log=self.controller.output.file, check=self.processes.check)

    def _has_all_reports(self) -> bool:
        wanted = {each.mac for each in self.access_points}
        return self.controller.connected() >= wanted and self.controller.stats()["unsettled"] == 0
