"""Every structure and every number of the headers is in the protocol's tables."""

import re
from pathlib import Path

ROOT = Path(__file__).parents[2]
HEADERS = [ROOT / "wire" / name for name in (
    "apcomm_channel.h", "client_tunnels.h", "driver_records.h", "driver_service.h", "home_questions.h",
    "hostapd_endpoint.h", "local_ipc.h", "local_messages.h", "sysmon_messages.h")] + [ROOT / "tunnel/roaming_frames.h"]
# Types of fields, what the controller has a table of its own for, and what only apctl asks for.
OTHER_HEADERS = {"big_endian.h", "ctrlr_messages.h", "hex.h", "mac_address.h", "view.h"}
NUMBERS = (r"\b(KX_MSG_ID_\w+|CAPTIVE_MSG_\w+|HOSTAPD_PMK_\w+|client_tunnel_[a-z_]+) = \d+,",
           r"\b(\w+_message_id|sysmon_id_\w+|apcomm_(?:kind|status)_\w+|ipc_flag_\w+) = \d+;",
           r"\b(DRIVER_(?:STATION_REQUEST|STATION_LIST|ACL_VERDICT|OP_\w+)) = ")


def names_in(of: object) -> set[str]:
    """All texts in it."""
    if isinstance(of, dict):
        return set(of) | {name for each in of.values() for name in names_in(each)}
    if isinstance(of, list):
        return {name for each in of for name in names_in(each)}
    return {of} if isinstance(of, str) else set()


def test_every_header_is_covered():
    assert {file.name for file in (ROOT / "wire").glob("*.h")} == OTHER_HEADERS | {
        file.name for file in HEADERS if file.parent.name == "wire"}


def test_every_structure_is_in_the_tables(protocol):
    declared = {name for file in HEADERS for name in re.findall(r"^struct (\w+) \{", file.read_text(), re.M)}
    assert len(declared) > 20
    assert declared <= set(protocol["structures"])


def test_every_number_has_its_name_in_the_tables(protocol):
    declared = {name for file in HEADERS for pattern in NUMBERS for name in re.findall(pattern, file.read_text())}
    assert len(declared) > 45
    assert declared <= names_in(protocol)
