"""The simulated radios (mac80211_hwsim), which hear each other across network namespaces."""

from pathlib import Path

from nodes import worker
from nodes.namespace import OF_MACHINE, Namespace, run

DEBUG = Path("/sys/kernel/debug/ieee80211")
RADIOS = 24  # of each worker
# Radios with a common bit hear each other.
HEARD_BY_OWN, HEARD_BY_NONE = 1 << worker.NUMBER, 1 << 31


class RadioHardware:
    """Radio `number` of this worker, moved to a namespace, where its interface gets the name wlan0."""

    def __init__(self, number: int, namespace: Namespace) -> None:
        number += worker.NUMBER * RADIOS
        self.mac = f"02:00:00:00:{number:02x}:00"
        self._group = DEBUG / f"phy{number}/hwsim/group"
        # New radios are in the network namespace of the machine's first process.
        run("nsenter", f"--net={OF_MACHINE}", "iw", "phy", f"phy{number}", "set", "netns", "name", namespace.name)
        namespace.ip(f"link set wlan{number} name wlan0")
        self.come_into_range()

    def go_out_of_range(self) -> None:
        """Frames in flight are lost, and nobody is told."""
        self._group.write_text(str(HEARD_BY_NONE))

    def come_into_range(self) -> None:
        self._group.write_text(str(HEARD_BY_OWN))
