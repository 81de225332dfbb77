#!/usr/bin/env python3
"""Writes the capture that the lab plays when it is given none.

Two networks of one access point, heard by a radio that adds radiotap headers and leaves the FCS in place. Three
stations: anna associates with the office network, her grant is sent twice, she gets an address and comes back later;
ben is refused by the office and goes to the guest network; carl associates, gets an address and leaves.
"""
import argparse
import struct
import zlib

AP = "02:00:00:00:10:00"
OFFICE = "02:00:00:00:10:01"
GUEST = "02:00:00:00:10:02"
ANNA = "02:00:00:00:0a:01"
BEN = "02:00:00:00:0b:02"
CARL = "02:00:00:00:0c:03"
BROADCAST = "ff:ff:ff:ff:ff:ff"
SSIDS = {OFFICE: b"office", GUEST: b"guest"}

# Subtypes of management frames, IEEE 802.11-2020, table 9-1.
ASSOC_REQUEST, ASSOC_RESPONSE, BEACON, DISASSOC, AUTH = 0, 1, 8, 10, 11
GRANTED, TOO_MANY_STATIONS = 0, 17
RETRY = 0x08

VAPS = f"""\
[[vap]]
ifname = "wlan0"
ssid = "office"
vlan = 10
bssid = "{OFFICE}"

[[vap]]
ifname = "wlan1"
ssid = "guest"
vlan = 20
guest = true
captive = "Welcome. Please sign in."
bssid = "{GUEST}"
"""


def mac(text):
    return bytes.fromhex(text.replace(":", ""))


def element(number, contents):
    return bytes([number, len(contents)]) + contents


RATES = element(1, bytes([0x82, 0x84, 0x8B, 0x96]))


class Air:
    """The channel: what is sent on it goes into the capture."""

    def __init__(self):
        self.time_us = 1_600_000_000_000_000
        self.packets = []
        self.sequence = {}

    def wait(self, seconds):
        self.time_us += round(seconds * 1_000_000)

    def next_sequence(self, sender):
        number = self.sequence.get(sender, 0)
        self.sequence[sender] = (number + 1) % 4096
        return number << 4

    def send(self, control, receiver, sender, third, body, repeats=0):
        sequence = self.next_sequence(sender)
        for attempt in range(repeats + 1):
            flags = control >> 8 | (RETRY if attempt else 0)
            header = struct.pack("<BBH", control & 0xFF, flags, 0) + mac(receiver) + mac(sender) + mac(third)
            frame = header + struct.pack("<H", sequence) + body
            # radiotap: flags (the FCS follows), channel 1, 2412 MHz
            radiotap = struct.pack("<BBHIBxHH", 0, 0, 14, 0x0A, 0x10, 2412, 0x00A0)
            self.packets.append((self.time_us, radiotap + frame + struct.pack("<I", zlib.crc32(frame))))
            self.wait(0.000_4)

    def manage(self, subtype, receiver, sender, bssid, body, repeats=0):
        self.send(subtype << 4, receiver, sender, bssid, body, repeats)

    def beacon(self, bssid):
        body = struct.pack("<QHH", self.time_us, 100, 0x0001) + element(0, SSIDS[bssid]) + RATES
        self.manage(BEACON, BROADCAST, bssid, bssid, body)

    def associate(self, station, bssid, status=GRANTED, repeats=0):
        self.manage(AUTH, bssid, station, bssid, struct.pack("<HHH", 0, 1, 0))
        self.manage(AUTH, station, bssid, bssid, struct.pack("<HHH", 0, 2, 0))
        self.manage(ASSOC_REQUEST, bssid, station, bssid,
                    struct.pack("<HH", 0x0001, 10) + element(0, SSIDS[bssid]) + RATES)
        self.manage(ASSOC_RESPONSE, station, bssid, bssid,
                    struct.pack("<HHH", 0x0001, status, 0xC001 if status == GRANTED else 0) + RATES, repeats)

    def leave(self, station, bssid):
        self.manage(DISASSOC, bssid, station, bssid, struct.pack("<H", 8))

    def dhcp_ack(self, station, bssid, address, server):
        options = bytes([53, 1, 5, 54, 4]) + server + bytes([51, 4]) + struct.pack(">I", 3600) + b"\xff"
        bootp = (struct.pack(">BBBBIHH4x", 2, 1, 6, 0, 0x12345678, 0, 0) + address + server + bytes(4) +
                 mac(station) + bytes(10 + 64 + 128) + bytes.fromhex("63825363") + options)
        udp = struct.pack(">HHHH", 67, 68, 8 + len(bootp), 0) + bootp
        ip = struct.pack(">BBHHHBBH", 0x45, 0, 20 + len(udp), 1, 0, 64, 17, 0) + server + address
        ip = ip[:10] + struct.pack(">H", checksum(ip)) + ip[12:]
        snap = bytes.fromhex("aaaa03000000") + b"\x08\x00"
        self.send(0x0208, station, bssid, bssid, snap + ip + udp)

    def announce(self, station, bssid, address):
        arp = struct.pack(">HHBBH", 1, 0x0800, 6, 4, 1) + mac(station) + address + bytes(6) + address
        self.send(0x0108, bssid, station, BROADCAST, bytes.fromhex("aaaa03000000") + b"\x08\x06" + arp)


def checksum(header):
    total = sum(struct.unpack(">10H", header))
    while total > 0xFFFF:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def play(air):
    for bssid in (OFFICE, GUEST):
        air.beacon(bssid)
    air.wait(0.2)
    air.associate(ANNA, OFFICE, repeats=1)
    air.wait(0.3)
    air.dhcp_ack(ANNA, OFFICE, bytes([10, 0, 10, 21]), bytes([10, 0, 10, 1]))
    air.wait(0.5)
    air.associate(BEN, OFFICE, status=TOO_MANY_STATIONS)
    air.wait(0.8)
    air.associate(BEN, GUEST)
    air.wait(0.4)
    air.associate(CARL, OFFICE)
    air.wait(0.2)
    air.announce(CARL, OFFICE, bytes([10, 0, 10, 23]))
    air.wait(1.0)
    air.associate(ANNA, OFFICE)
    air.wait(0.6)
    air.leave(CARL, OFFICE)
    air.beacon(OFFICE)


def write_pcap(file, packets):
    linktype_radiotap = 127
    file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, linktype_radiotap))
    for time_us, data in packets:
        file.write(struct.pack("<IIII", *divmod(time_us, 1_000_000), len(data), len(data)) + data)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("capture", help="pcap file to write")
    parser.add_argument("vaps", help="TOML file to write: the access point's [[vap]] tables")
    files = parser.parse_args()
    air = Air()
    play(air)
    with open(files.capture, "wb") as capture:
        write_pcap(capture, air.packets)
    with open(files.vaps, "w", encoding="utf-8") as vaps:
        vaps.write(VAPS)


if __name__ == "__main__":
    main()
