"""Seeds of the targets around the port and the lab."""
import itertools
import pathlib
import random
import struct
import subprocess
import sys
import tempfile

from daemon_seeds import as_travelled, block, local_messages
from lab.site.local_ipc import NOTIFICATION
from lab.site.messages import Local, Record

CAPTURE_MAKER = pathlib.Path(__file__).parents[2] / "lab/captures/make_builtin.py"


# --- the configuration

ACCESS_POINT = """\
[ap]
mac = "02:00:00:00:10:00"
[controller]
address = "127.0.0.1"
port = 7443
ca = "ca.pem"
certificate = "ap.pem"
key = "/etc/ap.key"
"""

OFFICE = """\
[[vap]]
ifname = "wlan0"
ssid = "office"
vlan = 10
"""

GUEST = """\
[[vap]]
ifname = "wlan1"
ssid = "guest \\u00e9"
vlan = 4094
enabled = false
guest = true
captive = "Welcome. Please sign in."
radius_index = 0x10
mac_acl_index = 4_294_967_295
radius_acl_type = 2
bssid = "020000001001"
"""


def configurations():
    return [text.encode() for text in (ACCESS_POINT, ACCESS_POINT + OFFICE, ACCESS_POINT + OFFICE + GUEST,
                                       ACCESS_POINT + OFFICE + OFFICE, OFFICE, "", "[ap", ACCESS_POINT + "[[vap]]\n",
                                       "a." * 2000 + "a = 1\n", "a = " + "[" * 200, "[" + "'a'." * 16 + "a]\n",
                                       'ap = { mac = "02:00:00:00:10:00" }\n' + ACCESS_POINT.split("\n", 2)[2])]


# --- captures

PCAP_HEADER, PACKET_HEADER = 24, 16
LINK_TYPES = {1: 105, 2: 127, 3: 192, 4: 119, 5: 163}  # as capture_reader.cpp counts them
RADIOTAP, FCS = 14, 4  # bytes around each frame of the builtin capture


def site_configurations():
    return [
        b'[controller]\nlisten = "0.0.0.0:7443"\nca = "authority.pem"\ncertificate = "controller.pem"\n'
        b'key = "controller.key"\ncontrol = "/run/kx-site/control"\n[store]\nfile = "site.db"\nkey = "store.key"\n',
        b'[output]\njson = true\nevents = false\n[http]\nlisten = "[::1]:8443"\ncertificate = "http.pem"\n'
        b'key = "http.key"\nport_file = "/run/port"\n[store]\nhistory_days = 30\nhistory_size = 256\n',
        b'[controller]\npassive = true\nacl = "acl.toml"\ncrl = "revoked.pem"\nport_file = "port"\n'
        b'[store]\nset_aside = false\n',
    ]


def builtin_capture():
    with tempfile.TemporaryDirectory() as directory:
        files = [pathlib.Path(directory, name) for name in ("capture", "vaps")]
        subprocess.run([sys.executable, CAPTURE_MAKER, *files], check=True)
        return files[0].read_bytes()


def packets_of(capture):
    at = PCAP_HEADER
    while at < len(capture):
        length, = struct.unpack_from("<I", capture, at + 8)
        at += PACKET_HEADER
        yield capture[at:at + length]
        at += length


def header_of(link, length):
    if link == 1:
        return b""
    if link == 2:
        return struct.pack("<BBHIQBx", 0, 0, 18, 3, 12345, 0x10)
    if link == 3:
        return struct.pack("<BBHIHHQHHHHBBbb", 0, 0, 32, 105, 2, 20, 12345, 1, 2, 2412, 0xA0, 0, 0, -40, -90)
    if link == 4:
        return struct.pack("<II16s", 0x44, 24, b"wlan0")
    return struct.pack(">IIQQ", 0x80211001, 24, 12345, length)


def as_input(link, packets):
    return bytes([link]) + b"".join(b"\0" + block(packet) for packet in packets)


def pcapng(link, packets):
    def ng_block(kind, body):
        body += bytes(-len(body) % 4)
        length = 12 + len(body)
        return struct.pack("<II", kind, length) + body + struct.pack("<I", length)

    return (ng_block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1)) +
            ng_block(1, struct.pack("<HHI", LINK_TYPES[link], 0, 65535)) +
            b"".join(ng_block(6, struct.pack("<IIIII", 0, 0, number, len(packet), len(packet)) + packet)
                     for number, packet in enumerate(packets)))


def captures():
    capture = builtin_capture()
    packets = list(packets_of(capture))
    frames = [packet[RADIOTAP:] for packet in packets]
    interesting = [i for i, frame in enumerate(frames) if frame[0] != 0x80][:24] + [0]
    yield b"\0" + capture[:3000]
    yield b"\0" + pcapng(2, [packets[i] for i in interesting])
    yield as_input(2, [packets[i] for i in interesting])
    for link in LINK_TYPES:
        with_headers = [header_of(link, len(frames[i])) + frames[i] for i in interesting]
        yield as_input(link, with_headers)
        yield from (as_input(link, [packet]) for packet in with_headers[:8])
        yield as_input(link, [packet[:-FCS] for packet in with_headers])


# --- datagrams and frames


def datagrams():
    messages = [struct.pack(">III", number, len(payload), flags) + payload
                for number, flags, payload in local_messages()]
    channel = [as_travelled(Local.APCOMM_MSG, NOTIFICATION, struct.pack(">III", 1, status, 0x0A000001))
               for status in (0, 1, 2)]
    channel += [as_travelled(Local.APCOMM_MSG, NOTIFICATION, struct.pack(">IIII", 2, total, offset, 4) + b"part")
                for total, offset in ((4, 0), (8, 0), (8, 4), (8, 8), (20000, 0))]
    travelled = [message[:4] + struct.pack(">I", len(message) - 8) + message[4:] for message in channel]
    yield b"".join(b"\0" + block(message) for message in messages[:9])
    yield b"".join(b"\1" + block(message) for message in messages[9:18])
    yield b"".join(b"\2" + block(message) for message in travelled)
    yield b"\0" + block(b"short") + b"\1" + block(messages[0] + b"x") + b"\2" + block(bytes(16384)) + \
        b"\0" + block(messages[10])
    yield b"\2" + block(bytes(16385)) + b"\3" + block(bytes(8) + struct.pack(">I", 2))


def frame(destination, message):
    return struct.pack(">II", destination, len(message)) + message


def streams():
    keep_alive = frame(0, b"\1")
    good = keep_alive + frame(106, b"message") + frame(106, b"") + keep_alive + frame(7, bytes(300))
    yield from (bytes([piece]) + good for piece in (0, 1, 7, 255))
    yield b"\x10" + good + frame(0, b"\2") + good
    yield b"\x10" + good + frame(0, b"") + good
    yield b"\xff" + frame(106, bytes(16384)) + keep_alive
    yield b"\xff" + keep_alive + struct.pack(">II", 106, 16385) + bytes(20)
    yield b"\x05" + good[:-1]
    client, bssid = b"\6\0\0\0\0\1", b"\2\0\0\0\x0b\x14"
    yield b"\x08" + frame(0, b"\3" + bytes(4)) + frame(0, b"\5" + client + bssid)
    yield b"\x08" + frame(0, b"\6" + client + bssid + bssid + b"\0\x0a") + frame(0, b"\6" + bytes(20))
    for role in range(8):
        yield b"\x08" + frame(0, b"\4" + bytes([role]) + client + b"\0\x0a" + b"\x0a\0\0\1") + keep_alive


# --- what access points send

APS = [bytes([2, 0, 0, 0, n, 0]) for n in (0xA, 0xB, 0xC)]
OURS, THEIRS = bytes([2, 0, 0, 0, 0xA, 10]), bytes([2, 0, 0, 0, 0xB, 10])


def event(kind, content):
    return bytes([kind]) + block(content)


def from_ap(number, *records):
    return event(1, bytes([number]) + b"".join(struct.pack(">BH", kind, len(body)) + body for kind, body in records))


def station(number):
    return bytes([6, 0, 0, 0, 0, number])


def update(kind, number, bssid, last=bytes(6)):
    return kind, station(number) + bssid + last + bytes([10, 0, 0, number])


def key(kind, number, bssid, pmk=bytes(32)):
    return kind, station(number) + bssid + bytes(6) + pmk


def vap(bssid, vlan):
    return bssid + b"office".ljust(32, b"\0") + struct.pack(">I", vlan)


def bulk(bssid, vlan, numbers):
    stations = b"".join(bytes(6) + station(number) + bytes([10, 0, 0, number]) for number in numbers)
    return Record.BULK_INFO, vap(bssid, vlan) + struct.pack(">H", len(numbers)) + bytes(6) + stations


def acl_request(number, bssid):
    numbers = struct.pack(">IIIII", 0, 1, 2, 3, 5)
    front = struct.pack(">I", 0xFFFFFFFF) + station(number) + bssid + APS[0]
    return Record.CLIENT_ACL_AUTH_REQ, front + numbers + b"data!".ljust(128, b"\0")


UPDATES = [Record.CLIENT_ASSOC, Record.CLIENT_DISASSOC, Record.CLIENT_IP, Record.FOREIGN_CLIENT_ASSOC,
           Record.FOREIGN_CLIENT_DISASSOC, Record.CLIENT_GUEST_ASSOC]
KEYS = [Record.PMK_ADD, Record.PMK_FETCH, Record.CLIENT_INFO_FETCH]

TICK = event(8, b"\0")
SITE = (from_ap(0, (Record.BULK_VAP_CONFIG, vap(OURS, 10)), bulk(OURS, 10, [1])) +
        from_ap(1, (Record.BULK_VAP_CONFIG, vap(THEIRS, 20)), bulk(THEIRS, 20, [])))


def site_life():
    yield SITE + from_ap(0, update(Record.CLIENT_ASSOC, 1, OURS), update(Record.CLIENT_IP, 1, OURS),
                         key(Record.PMK_ADD, 1, OURS, bytes(range(32)))) + \
        from_ap(1, update(Record.FOREIGN_CLIENT_ASSOC, 1, THEIRS, OURS), key(Record.PMK_FETCH, 1, THEIRS),
                key(Record.CLIENT_INFO_FETCH, 1, THEIRS)) + TICK * 3
    yield SITE + from_ap(0, update(Record.CLIENT_GUEST_ASSOC, 2, OURS)) + event(5, b"\0\2") + \
        from_ap(0, update(Record.CLIENT_DISASSOC, 2, OURS)) + TICK
    yield SITE + from_ap(0, acl_request(3, OURS)) + event(6, b"\0") + event(7, b"\0\1") + TICK
    yield SITE + from_ap(1, update(Record.FOREIGN_CLIENT_ASSOC, 1, THEIRS, OURS),
                         update(Record.FOREIGN_CLIENT_DISASSOC, 1, THEIRS)) + \
        event(4, b"\1\0") + TICK + \
        event(4, b"\0\0") + from_ap(0, bulk(OURS, 10, [])) + TICK * 8
    yield SITE + from_ap(0, bulk(OURS, 10, list(range(256)))) + from_ap(1, bulk(THEIRS, 20, list(range(256)))) + \
        TICK * 8 + from_ap(0, bulk(OURS, 10, [])) * 2 + from_ap(1, bulk(THEIRS, 20, [])) * 2
    yield from (from_ap(0, record) for record in (
        update(Record.CLIENT_ASSOC, 1, OURS), update(Record.CLIENT_DISASSOC, 1, OURS),
        update(Record.FOREIGN_CLIENT_ASSOC, 1, OURS, THEIRS), key(Record.PMK_ADD, 1, OURS), acl_request(1, OURS)))
    yield event(0, b"\0" + struct.pack(">BBBHBH", 1, 14, 0, 1, 0, 40) + APS[0] +
                struct.pack(">BBH", Record.CLIENT_ASSOC, 4, 26) + update(Record.CLIENT_ASSOC, 1, OURS)[1])


def random_events(dice):
    """Events of every kind in random order, from three access points and seven stations."""
    def bssid():
        return dice.choice([OURS, THEIRS, bytes([2, 0, 0, 0, 0xC, 10]), bytes(6)])

    def record():
        number = dice.randrange(7)
        return dice.choice([
            lambda: update(dice.choice(UPDATES), number, bssid(), bssid()),
            lambda: key(dice.choice(KEYS), number, bssid(), dice.choice([bytes(32), bytes(range(32))])),
            lambda: acl_request(number, bssid()),
            lambda: bulk(bssid(), 10 * dice.randrange(1, 4), dice.sample(range(7), dice.randrange(7))),
            lambda: (Record.BULK_VAP_CONFIG, vap(bssid(), 10 * dice.randrange(1, 4))),
        ])()

    def from_anyone():
        return from_ap(dice.randrange(3), *(record() for _ in range(dice.randrange(1, 5))))

    def operator():
        return event(dice.choice([4, 5, 6, 7]), bytes([dice.randrange(4), dice.randrange(7)]))

    while True:
        yield dice.choices([from_anyone, operator, lambda: TICK], [6, 2, 1])[0]()


def random_lives():
    for seed in range(50):
        yield b"".join(itertools.islice(random_events(random.Random(seed)), 25))


def all_seeds():
    return {
        "ap_config": configurations(),
        "site_config": site_configurations(),
        "capture_reader": list(captures()),
        "controller_decoder": [*site_life(), *random_lives()],
        "port_receive": list(datagrams()),
        "tunnel_framing": list(streams()),
    }
