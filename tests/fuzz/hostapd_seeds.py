"""Seeds of the target around hostapd's reports."""
import itertools
import random
import struct

from daemon_seeds import block

BSSID = bytes([2, 0, 0, 0, 0x10, 1])
ELSEWHERE = bytes([2, 0, 0, 0, 0x20, 1])
LINE, FRAME, STATION, KERNEL, GONE, TIME, LOST, BACK = range(8)
CONNECTED, DISCONNECTED, HANDSHAKE, DISABLED, TERMINATING = range(5)
AUTH, ASSOC, REASSOC, DISASSOC, DEAUTH = 0xB0, 0x00, 0x20, 0xA0, 0xC0


def station(number):
    return bytes([2, 0, 0, 0, 0x0A, number])


def rsn(akm, *pmkids):
    contents = struct.pack("<H4sH4sH4sHH", 1, b"\x00\x0f\xac\x04", 1, b"\x00\x0f\xac\x04", 1,
                           b"\x00\x0f\xac" + bytes([akm]), 0x80, len(pmkids)) + b"".join(pmkids)
    return bytes([48, len(contents)]) + contents


MOBILITY_DOMAIN = bytes([54, 3, 0x11, 0x22, 0])
SSID = b"\x00\x06office"


def frame(kind, number, body):
    return struct.pack("<BBH", kind, 0, 0) + BSSID + station(number) + BSSID + bytes(2) + body


def request(number, current=None, elements=SSID):
    fields = struct.pack("<HH", 0x411, 10)
    return frame(ASSOC, number, fields + elements) if current is None else \
        frame(REASSOC, number, fields + current + elements)


def event(kind, contents=b""):
    return bytes([kind]) + block(contents)


def of_station(which, number):
    return event(STATION, bytes([which, number]))


def lives():
    came = event(FRAME, request(1)) + of_station(CONNECTED, 1)
    roamed = event(FRAME, request(1, ELSEWHERE)) + of_station(CONNECTED, 1)
    left = of_station(DISCONNECTED, 1)
    renewed = event(GONE, b"\1") + event(KERNEL, b"\0\1")
    yield came + left + roamed + left
    yield came + event(FRAME, request(1, ELSEWHERE)) + event(TIME, b"\1") + renewed + of_station(HANDSHAKE, 1) + left
    yield came + event(FRAME, request(1, ELSEWHERE)) + renewed + event(KERNEL, b"\1\1") + left
    yield event(FRAME, request(1, ELSEWHERE)) + event(TIME, b"\2") + came + left
    yield came + event(GONE, b"\1") + event(TIME, b"\3")
    yield roamed + event(LOST) + event(TIME, b"\3") + event(BACK, b"\1\2") + event(LOST) + event(TIME, b"\6")
    yield event(BACK, b"\1\2\3") + of_station(DISABLED, 0) + came + of_station(TERMINATING, 0)


def frames():
    for akm in (1, 2, 3, 4, 5, 6, 8, 9, 18):
        yield request(1, ELSEWHERE, SSID + rsn(akm, bytes(range(16))) + MOBILITY_DOMAIN)
    yield request(1, BSSID, SSID + rsn(2, bytes(16), bytes(16)))
    yield request(1, None, SSID + b"\xdd\x08\x00\x50\xf2\x01\x01\x00\x00\x50")
    yield frame(AUTH, 1, struct.pack("<HHH", 2, 1, 0) + rsn(4, bytes(16)) + MOBILITY_DOMAIN)
    yield frame(AUTH, 1, struct.pack("<HHH", 3, 1, 0) + bytes(98))
    yield frame(DISASSOC, 1, b"\x08\x00")
    yield frame(DEAUTH, 1, b"\x03\x00")


def text_lines():
    names = ["AP-STA-CONNECTED", "AP-STA-DISCONNECTED", "EAPOL-4WAY-HS-COMPLETED"]
    yield from (f"<3>{name} 02:00:00:00:0a:01" for name in names)
    yield "<3>AP-STA-CONNECTED 02:00:00:00:0a:01 auth_alg=sae keyid=guests"
    yield from (f"<3>{name} " for name in ("AP-ENABLED", "AP-DISABLED", "INTERFACE-DISABLED", "CTRL-EVENT-TERMINATING"))
    yield from (f"<3>AP-MGMT-FRAME-RECEIVED buf={each.hex()}" for each in frames())


def random_events(dice):
    def number():
        return dice.randrange(1, 5)

    def any_request():
        return event(FRAME, request(number(), dice.choice([None, BSSID, ELSEWHERE, bytes(6)])))

    while True:
        yield dice.choice([
            any_request,
            lambda: of_station(dice.choices(range(5), [9, 6, 6, 1, 1])[0], number()),
            lambda: event(KERNEL, bytes([dice.randrange(2), number()])),
            lambda: event(GONE, bytes([number()])),
            lambda: event(TIME, bytes([dice.choice([1, 3, 6, 11, 61])])),
            lambda: dice.choice([event(LOST), event(BACK, bytes(number() for _ in range(dice.randrange(4))))]),
        ])()


def all_seeds():
    seeds = [*lives()]
    seeds += [event(FRAME, each) + of_station(CONNECTED, 1) for each in frames()]
    seeds += [event(LINE, each.encode()) for each in text_lines()]
    seeds += [b"".join(itertools.islice(random_events(random.Random(seed)), 40)) for seed in range(20)]
    return {"hostapd_events": seeds}
