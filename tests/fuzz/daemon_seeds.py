"""Seeds of the targets around the daemon: every message that it handles, about the clients of daemon_rig.cpp."""
import itertools
import random
import struct

from lab.site.local_ipc import NOTIFICATION, REQUEST
from lab.site.messages import Local, Pmk, Record

CLIENT_LISTS = [Record.CLIENT_BULK_INFO, Record.PMK_FETCH_SUCCESS, Record.CLIENT_INFO_FETCH_SUCCESS,
                Record.REMOVE_CLIENT_BULK_INFO, Record.CLIENT_INFO_TREAT_AS_ASSOC]
BSSIDS = [bytes.fromhex("b0b1b2b3b4b5"), bytes.fromhex("b0b1b2b3b4b6"), bytes.fromhex("d0d1d2d3d4d5")]
NOWHERE = bytes(6)
PMK = bytes(range(0x40, 0x60))

# The first byte of an input, the daemon's state: log level 4; level 3, no link; level 2, the driver fails; level 1,
# the channel is full.
STATES = [3, 2 | 4, 1 | 8, 0 | 16]


def client(number):
    return bytes([2, 0, 0, 0, 0, number])


def address(number):
    return bytes([10, 0, 0, number])


# Clients of each kind and an unknown one, on both VAPs and on an unknown BSSID.
PLACES = [(number, bssid) for number in range(1, 7) for bssid in BSSIDS]


# --- local messages: (id, flags, payload)


def association(number, bssid, message=Local.CLIENT_ASSOCIATION):
    return message, NOTIFICATION, bytes(16) + client(number) + bssid + address(number)


def disassociation(number, bssid):
    return association(number, bssid, Local.CLIENT_DISASSOCIATION)


def foreign_association(number, bssid, last, message=Local.FOREIGN_CLIENT_ASSOCIATION):
    return message, NOTIFICATION, bytes(16) + client(number) + bssid + last + address(number)


def foreign_disassociation(number, bssid):
    return foreign_association(number, bssid, BSSIDS[0], Local.FOREIGN_CLIENT_DISASSOCIATION)


def client_ip(number, ip, interface):
    return Local.CLIENT_IP, NOTIFICATION, client(number) + bytes(2) + ip + interface + b"\0"


def pmk_info(sub_type, number, bssid, last):
    return Local.CLIENT_MGR_PMK_INFO, NOTIFICATION, struct.pack(">I", sub_type) + bssid + last + client(number) + PMK


def acl_auth(number, bssid, data):
    return Local.MAC_ACL_AUTH, NOTIFICATION, client(number) + bssid + struct.pack(">I", len(data)) + data


def local_messages():
    for message in [Local.SYSMON_HB, Local.SYS_READY, Local.SYS_INIT, Local.VAP_INIT]:
        yield message, NOTIFICATION, b""
    for message in [Local.LOG_CFG_GET, Local.CLIENT_TBL_DUMP]:
        yield message, REQUEST, b""
    yield Local.LOG_CFG_SET, NOTIFICATION, bytes(range(24))
    yield Local.VAP_UPDATE, NOTIFICATION, b"ath0".ljust(12, b"\0")
    yield Local.APCOMM_MSG, NOTIFICATION, struct.pack(">III", 1, 1, 0x0A000001)
    for number, bssid in PLACES:
        yield association(number, bssid)
        yield disassociation(number, bssid)
        yield foreign_association(number, bssid, BSSIDS[2])
        yield foreign_disassociation(number, bssid)
        yield client_ip(number, address(number + 1), b"br-lan")
        yield pmk_info(Pmk.FETCH, number, bssid, NOWHERE)
        yield pmk_info(Pmk.ADD, number, bssid, BSSIDS[2])
    for number in [1, 2, 6, 17, 18, 19, 20]:
        yield acl_auth(number, BSSIDS[0], b"opaque data")
    yield client_ip(2, address(2), b"a;reboot")
    yield acl_auth(18, BSSIDS[1], bytes(200))


def as_travelled(message, flags, payload):
    return struct.pack(">II", message, flags) + payload


# --- controller records: (type, body)


def entry(number, home, now, flags=0, pmk=PMK):
    return client(number) + home + now + struct.pack(">I", 100) + address(number) + pmk + struct.pack(">I", flags)


def client_list(kind, *entries):
    return kind, struct.pack(">I", len(entries)) + b"".join(entries)


def move(kind, number, old, new, vlan):
    return Record.CLIENT_MOVE_NOTIFY, bytes([kind]) + client(number) + old + new + bytes([vlan])


def acl_verdict(number, bssid, verdict, data=b""):
    numbers = struct.pack(">IIIII", 0, 1, 2, 3, len(data))
    front = struct.pack(">I", verdict) + client(number) + bssid + bytes(6)
    return Record.CLIENT_ACL_AUTH_RESP, front + numbers + data


def controller_records():
    yield Record.REQ_BULK_INFO, b""
    for number, bssid in PLACES:
        yield move(1, number, bssid, BSSIDS[2], 100)
        yield move(2, number, BSSIDS[0], bssid, 200)
        yield Record.CLIENT_GUEST_AUTH, client(number)
        for kind in CLIENT_LISTS:
            yield client_list(kind, entry(number, BSSIDS[2], bssid, flags=number & 3))
        yield acl_verdict(number + 15, bssid, number & 1, b"data")
    yield client_list(Record.CLIENT_BULK_INFO, *(entry(number, bssid, bssid) for number, bssid in PLACES))


def records(*all_records):
    return b"\1" + b"".join(struct.pack(">BH", kind, len(body)) + body for kind, body in all_records)


def whole_message(*all_records):
    text = b"".join(struct.pack(">BBH", kind, 4, 4 + len(body)) + body for kind, body in all_records)
    return struct.pack(">BBBHBH", 1, 14, 0, len(all_records), 0, 14 + len(text)) + bytes(6) + text


# --- station lists, as a fuzzer's input


def stations(*numbers):
    return b"\1" + b"".join(bytes([number % 3]) + client(number) + struct.pack(">H", number) for number in numbers)


def block(content):
    return struct.pack(">H", len(content)) + content


# --- sequences

LOCAL, CONTROLLER, LINK, WAIT, CLOCK, FAIL, MEND, SURROUNDINGS, LOG_LEVEL = range(9)


def event(kind, content=b""):
    return bytes([kind]) + block(content)


def local_event(message):
    number, flags, payload = message
    return event(LOCAL, bytes([number, flags]) + payload)


def told(*all_records):
    return event(CONTROLLER, records(*all_records))


def wait(seconds):
    return event(WAIT, struct.pack(">H", seconds))


def vap(kind, vlan, last_byte, station_list):
    return struct.pack(">BHB", kind, vlan, last_byte) + block(station_list)


START = (event(LOG_LEVEL, b"\4\0") +
         event(SURROUNDINGS, vap(0, 100, 0xB5, stations(1, 2)) + vap(1, 200, 0xB6, stations(3))) +
         b"".join(local_event((message, NOTIFICATION, b"")) for message in (Local.SYS_INIT, Local.SYS_READY)) +
         event(LINK, b"\1\x0a\x0b\x0c\x0d") + local_event((Local.VAP_INIT, NOTIFICATION, b"")))


def stories():
    home, portal, away = BSSIDS
    yield START + local_event(association(1, home)) + local_event(client_ip(1, address(1), b"eth0")) + \
        local_event(pmk_info(Pmk.ADD, 1, home, NOWHERE)) + local_event(disassociation(1, home))
    yield START + local_event(association(2, portal)) + local_event(client_ip(2, address(2), b"br-lan")) + \
        told((Record.CLIENT_GUEST_AUTH, client(2))) + local_event(disassociation(2, portal))
    yield START + told(client_list(Record.CLIENT_BULK_INFO, entry(3, away, away, 1))) + \
        local_event(foreign_association(3, home, away)) + told(move(2, 3, home, portal, 200)) + \
        local_event(association(3, home, Local.FOREIGN_CLIENT_DISASSOCIATION))
    yield START + local_event(foreign_association(4, portal, away)) + \
        told(client_list(Record.CLIENT_INFO_FETCH_SUCCESS, entry(4, away, portal, 2)),
             client_list(Record.PMK_FETCH_SUCCESS, entry(4, away, portal, 1))) + \
        told(client_list(Record.REMOVE_CLIENT_BULK_INFO, entry(4, away, portal)))
    yield START + local_event(acl_auth(17, home, b"one")) + wait(5) + local_event(acl_auth(17, home, b"two")) + \
        wait(12) + local_event(acl_auth(17, home, b"three")) + told(acl_verdict(17, home, 1, b"data")) + \
        local_event(acl_auth(17, home, b"four")) + wait(61)
    yield START + event(FAIL, b"\0\1\1") + local_event(association(5, home)) + event(MEND) + \
        told((Record.REQ_BULK_INFO, b"")) + event(LINK, bytes(5)) + \
        local_event(disassociation(5, home)) + event(CLOCK, struct.pack(">I", 1000))
    yield START + wait(40) + told(client_list(Record.CLIENT_INFO_TREAT_AS_ASSOC, entry(6, home, home)))


def random_events(dice):
    """Events of every kind in random order."""
    messages, received = list(local_messages()), list(controller_records())

    def station_list():
        return stations(*dice.sample(range(1, 30), dice.randrange(6)))

    def surroundings():
        return b"".join(vap(dice.choice([0, 0, 1, 1, 2, 4]), dice.choice([100, 200]), 0xB5 + number, station_list())
                        for number in range(dice.randrange(4)))

    kinds = {
        lambda: local_event(dice.choice(messages)): 10,
        lambda: told(*dice.choices(received, k=dice.randrange(1, 4))): 8,
        lambda: wait(dice.choice([1, 5, 12, 29, 30, 61])): 2,
        lambda: event(LINK, dice.choice([b"\1\x0a\x0b\x0c\x0d", b"\1\x0a\x0b\x0c\x0e", bytes(5)])): 1,
        lambda: event(CLOCK, struct.pack(">I", dice.randrange(1 << 31))): 1,
        lambda: event(FAIL, bytes([dice.randrange(3), dice.randrange(2), dice.randrange(17)])): 2,
        lambda: event(MEND): 1,
        lambda: event(SURROUNDINGS, surroundings()): 1,
        lambda: event(LOG_LEVEL, bytes([dice.randrange(5), 0])): 1,
    }
    while True:
        yield dice.choices(list(kinds), list(kinds.values()))[0]()


def random_stories():
    for seed in range(100):
        dice = random.Random(seed)
        yield dice.choice([b"\0" + START, *(bytes([state]) for state in STATES)]) + \
            b"".join(itertools.islice(random_events(dice), 25))


def all_seeds():
    messages = list(local_messages())
    received = list(controller_records())
    lists = [stations(), stations(1), stations(1, 2, 3, 4, 5, 6), stations(*range(100))]
    raw = b"\0" + struct.pack("=H", 156) + bytes(14) + client(1) + bytes(134)
    return {
        "local_message": [bytes([STATES[0]]) + as_travelled(*message) for message in messages] +
                         [bytes([state]) + as_travelled(*message) for state in STATES[1:] for message in messages[::5]],
        "controller_message": [bytes([STATES[0]]) + records(record) for record in received] +
                              [bytes([STATES[0]]) + records(*received[i:i + 7]) for i in range(0, len(received), 7)] +
                              [bytes([state]) + b"\0" + whole_message(record)
                               for state in STATES for record in received[::11]],
        "apd_message": [whole_message(record) for record in received] +
                       [whole_message(*received[i:i + 7]) for i in range(0, len(received), 7)] +
                       [whole_message(*[record] * 20) for record in received[:12]],
        "sequence": [b"\0" + story for story in stories()] + [bytes([state]) + story[len(START):]
                                                              for state in STATES + [32] for story in stories()] +
                    list(random_stories()),
        "driver_stations": [bytes([state]) + block(first) + second
                            for state in STATES for first, second in zip(lists, lists[::-1] + [raw])] +
                           [bytes([STATES[0]]) + block(raw) + lists[1]],
    }
