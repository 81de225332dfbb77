"""The channel between an access point and its controller comes, goes and comes back."""

import socket
import ssl
import struct
from contextlib import suppress
from pathlib import Path

from lab.site.access_point import mac_bytes
from lab.site.authority import Authority
from lab.site.controller import ADDRESS
from lab.site.local_ipc import DAEMON, LocalSocket
from lab.site.messages import Local
from steps import (CLIENT_MANAGER, add_access_point, associate, associations, bssid_of, client_mac, events,
                   set_log_level, wait_for_association, wait_for_event, wait_for_line,
                   wait_until_ready)

REFUSED = "Error sending mac acl auth to ctrlr"
UP, DOWN = "Rcvd tunl status up", "Rcvd tunl status down"


def free_port():
    with socket.socket() as probe:
        probe.bind((ADDRESS, 0))
        return probe.getsockname()[1]


def test_controller_absent_then_present(lab):
    lab.controller.port = free_port()
    access_point = add_access_point(lab)
    access_point.start_all()
    wait_for_line(access_point.running["apd"].err, "no tunnel:")
    associate(access_point, client_mac(1))
    assert access_point.clients() == []
    lab.controller.start()
    wait_until_ready(access_point)
    associate(access_point, client_mac(2))
    wait_for_association(lab, client_mac(2))
    assert associations(lab.controller) == [(client_mac(2), bssid_of(access_point))]


def test_controller_killed_and_restarted(lab):
    lab.controller.start()
    access_point = add_access_point(lab)
    lab.start()
    associate(access_point, client_mac(1))
    wait_for_association(lab, client_mac(1))
    lab.controller.kill()
    wait_for_line(access_point.log, DOWN)
    associate(access_point, client_mac(2))
    lab.controller.start()
    wait_for_line(access_point.log, UP, number=2)
    wait_for_event(lab.controller, "tunnel_up", number=2)
    associate(access_point, client_mac(3))
    wait_for_association(lab, client_mac(3))
    assert [client.mac for client in access_point.clients()] == [client_mac(1), client_mac(3)]


def test_access_point_of_another_authority_is_refused(lab, tmp_path):
    lab.controller.start()
    access_point = add_access_point(lab)
    right = access_point.identity
    access_point.identity = Authority(tmp_path, "others").issue("ap1", mac=access_point.mac)
    access_point.configure(lab.controller, lab.authority)
    access_point.start_all()
    wait_for_event(lab.controller, "tunnel_refused")
    wait_for_line(access_point.running["apd"].err, "no tunnel:")
    assert not access_point.log_has(UP)
    access_point.identity = right
    access_point.configure(lab.controller, lab.authority)
    wait_for_event(lab.controller, "tunnel_up")
    wait_until_ready(access_point)


def test_controller_of_another_authority_is_refused(lab, tmp_path):
    lab.controller.start()
    access_point = add_access_point(lab)
    access_point.configure(lab.controller, Authority(tmp_path, "others"))
    access_point.start_all()
    wait_for_line(access_point.running["apd"].err, "certificate is not accepted", number=2)
    assert not access_point.log_has(UP)
    assert events(lab.controller, "tunnel_up") == []


def test_controller_of_another_host_is_refused(lab):
    lab.controller.identity = lab.authority.issue("elsewhere", "192.0.2.1")
    lab.controller.start()
    access_point = add_access_point(lab)
    access_point.start_all()
    wait_for_line(access_point.running["apd"].err, "certificate is not accepted", number=2)
    assert not access_point.log_has(UP)


class SilentController:
    """The controller's end of the tunnel, written from the description of its frames. It reads only on request."""

    HEADER = struct.Struct(">II")  # destination, length

    def __init__(self, lab):
        identity = lab.authority.issue("controller", ADDRESS)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.minimum_version = ssl.TLSVersion.TLSv1_3
        context.load_cert_chain(identity.certificate, identity.key)
        context.load_verify_locations(lab.authority.certificate)
        context.verify_mode = ssl.CERT_REQUIRED
        self._context = context
        self._listener = socket.socket()
        self._listener.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)  # full soon
        self._listener.bind((ADDRESS, 0))
        self._listener.listen()
        self._listener.settimeout(20)
        self.port = self._listener.getsockname()[1]
        self._tunnel = None

    def accept(self):
        connection, _ = self._listener.accept()
        connection.settimeout(20)
        self._tunnel = self._context.wrap_socket(connection, server_side=True)
        self.keep_alive()

    def keep_alive(self):
        self._tunnel.sendall(self.HEADER.pack(0, 1) + b"\x01")

    def read_messages(self):
        """The client manager's messages, one after the other."""
        while True:
            destination, length = self.HEADER.unpack(self._read(self.HEADER.size))
            message = self._read(length)
            if destination == CLIENT_MANAGER:
                yield message

    def _read(self, size):
        received = b""
        while len(received) < size:
            chunk = self._tunnel.recv(size - len(received))
            assert chunk, "the tunnel was ended"
            received += chunk
        return received

    def close(self):
        if self._tunnel:
            self._tunnel.close()
        self._listener.close()


def ask_for_verdicts(access_point, clients):
    """The largest records that one local message makes: 188 bytes each."""
    with LocalSocket(access_point.root) as ipc:
        for client in clients:
            ipc.notify(DAEMON, Local.MAC_ACL_AUTH, client + mac_bytes(bssid_of(access_point)) + bytes(4))


def test_controller_that_does_not_read(lab, own_network):
    """Messages that do not fit are refused, and the daemon logs it. The others arrive in order."""
    if own_network:
        with suppress(OSError):  # where /proc may not be written, the kernel just takes more before it is full
            Path("/proc/sys/net/ipv4/tcp_wmem").write_text("4096 4096 4096")
    controller = SilentController(lab)
    lab.controller.port = controller.port
    access_point = add_access_point(lab)
    access_point.start_all()
    controller.accept()
    wait_until_ready(access_point)
    set_log_level(access_point, 1)

    clients = []
    while not access_point.log_has(REFUSED):
        more = [mac_bytes(client_mac(len(clients) + number)) for number in range(500)]
        ask_for_verdicts(access_point, more)
        clients += more
        controller.keep_alive()
        access_point.clients()  # the daemon has handled them all, and still answers
    refused = access_point.log.read_text().count(REFUSED)
    assert 0 < refused < len(clients)

    messages = controller.read_messages()
    assert [next(messages)[22:28] for _ in clients[refused:]] == clients[:len(clients) - refused]
    controller.close()
