"""Whoever has a certificate is the access point that the certificate names, and no other."""

import socket
import ssl
import struct
import time

from lab.site.controller import ADDRESS
from lab.site.waiting import wait_until
from steps import CLIENT_MANAGER, add_access_point, events, wait_for_event, wait_for_line

KEEP_ALIVE = struct.pack(">IIB", 0, 1, 1)
CLIENT_ASSOC = 2  # type of record
FIRST, SECOND = "02:00:00:00:10:00", "02:00:00:00:20:00"


def connect(lab, identity):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    context.load_verify_locations(lab.authority.certificate)
    context.load_cert_chain(identity.certificate, identity.key)
    return context.wrap_socket(socket.create_connection((ADDRESS, lab.controller.port), 20), server_hostname=ADDRESS)


def record_of(mac):
    """A frame with a controller message of the access point `mac`: a station has associated."""
    body = bytes.fromhex("02aa00000001" "020000001001") + bytes(10)
    record = struct.pack(">BBH", CLIENT_ASSOC, 4, 4 + len(body)) + body
    address = bytes.fromhex(mac.replace(":", ""))
    message = struct.pack(">BBBHBH", 1, 14, 0, 1, 0, 14 + len(record)) + address + record
    return struct.pack(">II", CLIENT_MANAGER, len(message)) + message


def read_all(tunnel):
    received = b""
    try:
        while chunk := tunnel.recv(65536):
            received += chunk
    except OSError:
        pass
    return received


def known(lab):
    return lab.controller.connected()


def test_access_point_may_not_claim_the_address_of_another(lab):
    lab.controller.start()
    with connect(lab, lab.authority.issue("ap2", mac=SECOND)) as tunnel:
        tunnel.sendall(record_of(FIRST))
        assert b"it sent a message of " + FIRST.encode() in read_all(tunnel)
    wait_for_event(lab.controller, "tunnel_down")
    assert "not the one in the tunnel's certificate" in events(lab.controller, "tunnel_down")[0]["reason"]
    assert FIRST not in known(lab)
    access_point = add_access_point(lab)
    lab.start()
    assert access_point.mac in known(lab)


def test_one_certificate_is_one_access_point(lab):
    lab.controller.start()
    identity = lab.authority.issue("ap2", mac=SECOND)
    for number in range(20):
        with connect(lab, identity) as tunnel:
            tunnel.sendall(record_of(f"02:00:00:00:77:{number:02x}"))
            read_all(tunnel)
    assert known(lab) == set()


def test_certificate_without_an_address_is_refused_and_both_ends_say_so(lab):
    lab.controller.start()
    access_point = add_access_point(lab)
    access_point.identity = lab.authority.issue("nobody")
    access_point.configure(lab.controller, lab.authority)
    access_point.start_all()
    wait_for_line(access_point.running["apd"].err, "the certificate has no MAC address")
    wait_for_event(lab.controller, "tunnel_refused")
    assert "no MAC address" in events(lab.controller, "tunnel_refused")[0]["reason"]


def test_copied_certificate_does_not_end_the_tunnel_of_its_owner(lab):
    lab.controller.start()
    access_point = add_access_point(lab)
    lab.start()
    with connect(lab, access_point.identity) as tunnel:
        assert b"another tunnel, which is alive" in read_all(tunnel)
    assert events(lab.controller, "tunnel_down") == []


def test_silent_tunnel_is_replaced(lab):
    lab.controller.start()
    access_point = add_access_point(lab)
    with connect(lab, access_point.identity) as silent:
        wait_for_event(lab.controller, "tunnel_up")
        start = time.monotonic()
        access_point.start_all()
        assert b"this one was silent" in read_all(silent)
        assert time.monotonic() - start < 12
        wait_until(lambda: access_point.mac in known(lab), "the access point has a tunnel")
