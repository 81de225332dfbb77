"""The numbers of local messages and of controller records.

The same as in wire/local_messages.h and wire/ctrlr_messages.h: tests/e2e/message_numbers_test.py compares them.
"""

from enum import IntEnum


class Local(IntEnum):
    """Ids of the local messages that the daemon receives: KX_MSG_ID_*."""

    SYSMON_HB = 13
    SYS_READY = 16
    SYS_INIT = 17
    LOG_CFG_GET = 28
    LOG_CFG_SET = 29
    CLIENT_TBL_DUMP = 59
    VAP_INIT = 60
    VAP_UPDATE = 61
    CLIENT_ASSOCIATION = 63
    FOREIGN_CLIENT_ASSOCIATION = 64
    CLIENT_DISASSOCIATION = 65
    FOREIGN_CLIENT_DISASSOCIATION = 66
    APCOMM_MSG = 123
    CLIENT_MGR_PMK_INFO = 150
    CLIENT_IP = 161
    MAC_ACL_AUTH = 195


class Captive(IntEnum):
    """Ids of the local messages that the captive-portal application receives: CAPTIVE_MSG_*."""

    GUEST_AUTHENTICATED = 67
    ASSOCIATION = 166
    FOREIGN_ASSOCIATION = 167
    DISASSOCIATION = 168
    FOREIGN_DISASSOCIATION = 169


class Pmk(IntEnum):
    """Sub-types of Local.CLIENT_MGR_PMK_INFO: HOSTAPD_PMK_*."""

    FETCH = 1
    ADD = 2
    FETCH_RESP = 129


class Radio(IntEnum):
    """Ids of the local messages that the radio receives: RADIO_MSG_* of lab/radio/radio_control.h."""

    STATIONS = 1001
    INSTALL_PMK = 1002


class Record(IntEnum):
    """Types of the records in a controller message: CLIENT_MGR_* and ROAMING_MGR_*."""

    BULK_INFO = 0
    BULK_VAP_CONFIG = 1
    CLIENT_ASSOC = 2
    CLIENT_DISASSOC = 3
    CLIENT_IP = 4
    FOREIGN_CLIENT_ASSOC = 5
    FOREIGN_CLIENT_DISASSOC = 6
    CLIENT_MOVE_NOTIFY = 9
    CLIENT_BULK_INFO = 10
    PMK_ADD = 11
    PMK_FETCH = 12
    CLIENT_INFO_FETCH = 13
    PMK_FETCH_SUCCESS = 14
    CLIENT_INFO_FETCH_SUCCESS = 15
    REQ_BULK_INFO = 16
    REMOVE_CLIENT_BULK_INFO = 17
    CLIENT_GUEST_AUTH = 24
    CLIENT_GUEST_ASSOC = 25
    CLIENT_INFO_TREAT_AS_ASSOC = 26
    CLIENT_ACL_AUTH_REQ = 27
    CLIENT_ACL_AUTH_RESP = 28
