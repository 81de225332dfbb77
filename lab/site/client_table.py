"""The daemon's client table, read from its dump."""

import os
import re
from dataclasses import dataclass
from pathlib import Path

from lab.site.dump_lock import locked_directory
from lab.site.failure import LabFailure
from lab.site.local_ipc import DAEMON, LocalSocket
from lab.site.messages import Local

DUMP_FILE = Path("/tmp/clientmgr_cli")

# Client.flags: CLIENT_FLAG_* of client_mgr/tables/client_tbl.h.
LOCAL = 0x01
FOREIGN = 0x02
TUNNEL = 0x08
PMK = 0x10
GUEST = 0x20


@dataclass(frozen=True)
class Client:
    """One entry without its key."""

    mac: str
    home_bssid: str
    bssid: str
    home_vlan: int
    vlan: int
    ip: str
    vap_index: int
    flags: int

    def describe_flags(self) -> str:
        names = {LOCAL: "home client", FOREIGN: "from the controller", TUNNEL: "tunnelled", PMK: "key known",
                 GUEST: "guest, not approved yet"}
        return ", ".join(name for bit, name in names.items() if self.flags & bit)


def read_client_table(root: Path) -> list[Client]:
    """Returns the table of the daemon with the root directory `root`."""
    return parse_dump(take_dump(root))


def take_dump(root: Path) -> str:
    """Returns the dump, which contains keys, and removes it."""
    with locked_directory(DUMP_FILE.parent), LocalSocket(root) as ipc:
        try:
            DUMP_FILE.unlink(missing_ok=True)
            ipc.request(DAEMON, Local.CLIENT_TBL_DUMP)
            return DUMP_FILE.read_text()
        except OSError as error:
            raise LabFailure(f"{DUMP_FILE}: {error.strerror}; expected the daemon's client table") from None
        finally:
            if DUMP_FILE.is_file() and DUMP_FILE.stat().st_uid == os.geteuid():
                DUMP_FILE.unlink()


def parse_dump(text: str) -> list[Client]:
    return [_parse_entry(entry) for entry in re.split(r"^Entry \d+ @ .*\n", text, flags=re.MULTILINE)[1:]]


def _parse_entry(text: str) -> Client:
    fields = {label.strip(): value.strip() for label, value in re.findall(r"^(\w[\w ]*?) *: (.*)$", text, re.MULTILINE)}
    return Client(mac=fields["Client MAC"].split()[0], home_bssid=fields["Home Bssid"], bssid=fields["Assoc Bssid"],
                  home_vlan=int(fields["Home VLAN"]), vlan=int(fields["Assoc VLAN"]), ip=fields["Client IP"],
                  vap_index=int(fields["Bssid Idx"]), flags=int(fields["Flag"], 16))
