"""The processes survive whatever arrives at a socket, and lose nothing."""

import random
import socket
import ssl
import struct

import pytest

from lab.site.controller import ADDRESS
from lab.site.failure import LabFailure
from lab.site.messages import Captive, Local, Radio
from steps import CLIENT_MANAGER, add_access_point, associate, client_mac, wait_for_association

SEED = 20240229
DATAGRAM_ENDPOINTS = ("ipc/client_mgr", "ipc/captive_app", "radio/hostapd", "ipc/sysmon", "ipc/radio")
LOCAL_MESSAGES = (*Local, Captive.GUEST_AUTHENTICATED, Captive.ASSOCIATION, *Radio)
LARGEST = 16384


def connect(file, kind):
    """A connection whose sends wait up to 20 s for room."""
    connection = socket.socket(socket.AF_UNIX, kind)
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_SNDTIMEO, struct.pack("ll", 20, 0))
    connection.connect(str(file))
    return connection


@pytest.fixture
def access_point(lab):
    """An access point that must still serve a client after everything that a test sends."""
    lab.controller.start()
    made = add_access_point(lab)
    lab.start()
    yield made
    lab.processes.check()
    associate(made, client_mac(77))
    wait_for_association(lab, client_mac(77))
    assert client_mac(77) in [client.mac for client in made.clients()]


def garbage():
    dice = random.Random(SEED)
    for size in (0, 1, 3, 8, 11, 12, 13, 24, 40, 200, LARGEST - 1, LARGEST, LARGEST + 1, 60000):
        yield dice.randbytes(size)
        yield bytes(size)
        yield b"\xff" * size


def malformed_local_messages():
    yield from garbage()
    dice = random.Random(SEED)
    for message in (*LOCAL_MESSAGES, 0, 0xFFFFFFFF):
        for size in (0, 1, 12, 31, 54, 400):
            for flags in (1, 2, 0xFFFFFFFF):
                payload = dice.randbytes(size)
                yield struct.pack(">III", message, size, flags) + payload
                yield struct.pack(">III", message, size + 1, flags) + payload
                yield struct.pack(">III", message, 0xFFFFFFFF, flags) + payload


@pytest.mark.parametrize("endpoint", DATAGRAM_ENDPOINTS)
def test_local_endpoint(access_point, endpoint):
    with connect(access_point.root / "kx" / endpoint, socket.SOCK_DGRAM) as sender:
        for message in malformed_local_messages():
            sender.send(message)


@pytest.mark.parametrize("listener", ["kx/ipc/apcomm", "kx/driver/wlan0"])
def test_local_listener(access_point, listener):
    for packet in garbage():
        with connect(access_point.root / listener, socket.SOCK_SEQPACKET) as sender:
            sender.send(packet)


def test_platform_daemon_hands_on_what_is_no_controller_message(access_point, lab):
    malformed = lab.controller.stats()["malformed"]
    with connect(access_point.root / "kx/ipc/apcomm", socket.SOCK_SEQPACKET) as sender:
        for message in garbage():
            if len(message) <= LARGEST:
                sender.send(struct.pack(">I", CLIENT_MANAGER) + message)
        associate(access_point, client_mac(1))
        wait_for_association(lab, client_mac(1))
    assert lab.controller.stats()["malformed"] > malformed


def test_controller_port_without_tls(access_point, lab):
    for data in garbage():
        with socket.create_connection((ADDRESS, lab.controller.port), 20) as connection:
            connection.sendall(data)


def tls_context(lab, identity=None):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    context.load_verify_locations(lab.authority.certificate)
    if identity:
        context.load_cert_chain(identity.certificate, identity.key)
    return context


def test_controller_refuses_who_has_no_certificate(access_point, lab):
    with socket.create_connection((ADDRESS, lab.controller.port), 20) as connection:
        with pytest.raises((ssl.SSLError, ConnectionError)):
            with tls_context(lab).wrap_socket(connection, server_hostname=ADDRESS) as tunnel:
                while tunnel.recv(100):  # the refusal comes after the client's part of the handshake is done
                    pass
                raise ConnectionError("ended by the controller")


def test_controller_survives_an_access_point_gone_wild(access_point, lab):
    context = tls_context(lab, lab.authority.issue("wild", mac="02:00:00:00:99:00"))
    for data in garbage():
        frames = [struct.pack(">II", destination, len(data)) + data for destination in (CLIENT_MANAGER, 0, 7)]
        for frame in (data, *frames, struct.pack(">II", CLIENT_MANAGER, 0xFFFFFFFF) + data):
            with socket.create_connection((ADDRESS, lab.controller.port), 20) as connection:
                with context.wrap_socket(connection, server_hostname=ADDRESS) as tunnel:
                    try:
                        tunnel.sendall(frame)
                    except (ConnectionError, ssl.SSLError):
                        pass  # it had seen enough


def test_daemon_survives_a_controller_gone_wild(access_point, lab):
    for message in garbage():
        if 0 < len(message) <= LARGEST:
            lab.controller.ask("send", access_point.mac, message.hex())
    for record in range(30):  # each with a body that promises more than there is
        message = struct.pack(">BBBHBH6x", 1, 14, 0, 3, 0, 20) + struct.pack(">BBH", record, 4, 8) + b"\xff" * 4
        lab.controller.ask("send", access_point.mac, message.hex())


@pytest.mark.parametrize("line", [
    pytest.param(line, id=name) for name, line in {
        "nothing": b"", "empty": b"\n", "no text": b"\xff\xfe\n", "no arguments": b"send\n", "no MAC": b"send 1 2\n",
        "unknown": b"no such command\n", "long": b"a" * 100000 + b"\n", "endless": b"send " + b"f" * 200000,
    }.items()
])
def test_operator_types_nonsense(access_point, lab, line):
    with connect(lab.directory / "controller.sock", socket.SOCK_STREAM) as operator:
        operator.settimeout(20)
        try:
            operator.sendall(line)
            operator.shutdown(socket.SHUT_WR)
            answer = operator.recv(65536)
        except ConnectionError:
            answer = b""  # it had read enough
    assert not answer or answer.startswith(b"error ")
    with pytest.raises(LabFailure, match="unknown command"):
        lab.controller.ask("nonsense")
