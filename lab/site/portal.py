"""The captive portal: approves guests that have passed it, through the controller's operator commands."""

from lab.site.failure import LabFailure
from lab.site.laboratory import Laboratory


class Portal:
    def __init__(self, lab: Laboratory) -> None:
        self._lab = lab
        self._read = [0 for _ in lab.access_points]
        self._passed: dict[str, float] = {}  # lab time, by guest
        self._joined: dict[str, float] = {}
        self.approved = 0

    def admit_guests(self) -> bool:
        """Approves the waiting guests that have passed the portal since they associated. False when there was none."""
        self._read_events()
        waiting = {each["client"] for each in self._lab.controller.ask_json("clients", "--state", "waiting")}
        passed = [guest for guest, at in self._passed.items() if guest in waiting and at > self._joined.get(guest, 0)]
        for guest in passed:
            self._approve(guest)
        return bool(passed)

    def _approve(self, guest: str) -> None:
        try:
            self._lab.controller.ask("approve", guest)
            self.approved += 1
        except LabFailure:
            return  # the guest has left
        del self._passed[guest]

    def _read_events(self) -> None:
        for number, access_point in enumerate(self._lab.access_points):
            events = access_point.radio_output.read()
            for event in events[self._read[number]:]:
                if event["event"] == "portal":
                    self._passed[event["client"]] = event["time"]
                elif event["event"] == "association":
                    self._joined[event["client"]] = max(event["time"], self._joined.get(event["client"], 0))
            self._read[number] = len(events)
