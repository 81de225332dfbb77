"""Clients that roam to another VLAN, with the port and the kernel of three access points, and cables for radios."""

import signal
import socket
import subprocess
from collections.abc import Iterator
from pathlib import Path

import pytest
from nodes.denied_traffic import DeniedTraffic
from nodes.tunnel_site import (GONE, HOME, INTERFACE, LOCAL, NO_INTERFACE, PEERS_BEGIN, PEERS_END, Client, Ear, Host,
                               Roaming, Switch, TunnelAccessPoint, batch, settle)

from lab.site.waiting import wait_until


class Site:
    def __init__(self, directory: Path) -> None:
        switch = Switch()
        self.hosts = {vlan: switch.host(vlan) for vlan in (10, 20)}
        # Access point 3 has both VLANs.
        self.aps = [TunnelAccessPoint(number, switch, directory, vaps)
                    for number, vaps in ((1, (10,)), (2, (20,)), (3, (10, 20)))]
        self.clients = [Client(number, 10, self.aps) for number in (1, 2)]

    def everybody(self) -> list[Host]:
        return [*self.hosts.values(), *self.clients, *(each for ap in self.aps for each in ap.residents)]


@pytest.fixture(scope="module")
def made_once(tmp_path_factory: pytest.TempPathFactory) -> Site:
    return Site(tmp_path_factory.mktemp("tunnels"))


@pytest.fixture
def site(made_once: Site, programs: Path) -> Iterator[Site]:
    for ap in made_once.aps:
        ap.start(programs)
    yield made_once
    for ap in made_once.aps:
        if ap.runs:
            ap.signal(signal.SIGTERM)


def kernels(site: Site) -> list[dict[str, list[str]]]:
    return [ap.kernel() for ap in site.aps]


def learn_path_mtu(sender: Host, receiver: Host) -> None:
    """The first packet that is too big for a tunnel is answered by its path's MTU."""
    sender.pings(receiver.address, "-s", 1472)


def test_client_keeps_its_address(site: Site) -> None:
    one, two, three = site.aps
    client, host = site.clients[0], site.hosts[10]
    before = kernels(site)
    roaming = Roaming(client, one, 0)
    assert host.pings(client.address)
    roaming.to(two, 0)
    assert client.pings(host.address)
    for each in (client, host):
        each.forget_neighbours()
    assert host.pings(client.address)
    learn_path_mtu(host, client)
    assert host.pings(client.address, "-s", 1472)
    assert client.pings(host.address, "-s", 1472)
    roaming.to(three, 1)
    assert host.pings(client.address)
    roaming.back(0)
    assert host.pings(client.address)
    roaming.to(two, 0)
    assert host.pings(client.address)
    roaming.away()
    assert kernels(site) == before


def segment_sizes(listener: Host, caller: Host, family: int, address: str) -> tuple[int, int]:
    """Of a new TCP connection's two ends."""
    ends = [each.namespace.socket(family, socket.SOCK_STREAM) for each in (listener, caller)]
    with ends[0] as listening, ends[1] as calling:
        listening.bind((address, 0))
        listening.listen()
        calling.settimeout(10)
        calling.connect(listening.getsockname()[:2])
        accepted, _ = listening.accept()
        with accepted:
            return tuple(each.getsockopt(socket.IPPROTO_TCP, socket.TCP_MAXSEG) for each in (accepted, calling))


def test_tcp_segments_fit_the_tunnel(site: Site) -> None:
    """Both ways, though nothing has been too big yet."""
    one, two, _ = site.aps
    client, host = site.clients[0], site.hosts[10]
    host.namespace.ip("route flush cache", f"addr replace fd00::1/64 dev {host.interface} nodad")
    roaming = Roaming(client, one, 0)
    timestamps = 12  # bytes of each segment
    assert segment_sizes(host, client, socket.AF_INET, host.address) == 2 * (1460 - timestamps,)
    roaming.to(two, 0)
    client.namespace.ip(f"addr add fd00::2/64 dev {client.interface} nodad")
    assert segment_sizes(host, client, socket.AF_INET, host.address) == 2 * (1410 - timestamps,)
    assert segment_sizes(client, host, socket.AF_INET, client.address) == 2 * (1410 - timestamps,)
    assert segment_sizes(host, client, socket.AF_INET6, "fd00::1") == 2 * (1390 - timestamps,)
    roaming.away()


def test_unit_that_may_not_send_has_tunnels(site: Site, programs: Path, tmp_path: Path) -> None:
    """The tunnel's packets are the kernel's: IPAddressDeny of client_mgr's unit does not concern them."""
    one, two, _ = site.aps
    client, host = site.clients[0], site.hosts[10]
    denied = DeniedTraffic(tmp_path)
    ping = ["ip", "netns", "exec", one.namespace.name, *denied.launcher(), "busybox", "ping", "-c", "1", two.address]
    assert subprocess.run(ping, check=False).returncode != 0
    for ap in (one, two):
        ap.signal(signal.SIGTERM)
        ap.start(programs, *denied.launcher())
    roaming = Roaming(client, one, 0)
    roaming.to(two, 0)
    assert host.pings(client.address)
    assert client.pings(host.address)
    roaming.away()


def test_vlans_stay_apart(site: Site) -> None:
    one, two, three = site.aps
    client, other = site.clients
    before = kernels(site)
    for each in (client, other):
        Roaming(each, one, 0).to(two, 0)
    in_10 = [site.hosts[10], *one.residents, three.residents[0], client, other]
    in_20 = [site.hosts[20], *two.residents, three.residents[1]]
    ears = {each: Ear(each) for each in in_10 + in_20}
    for ear in ears.values():
        ear.__enter__()
    for number, each in enumerate(in_10):
        each.send(f"ten {number}")
    for number, each in enumerate(in_20):
        each.send(f"twenty {number}")
        each.send(f"to the client {number}", to=client.mac)
        each.send(f"to the other {number}", to=other.mac)
    client.send("hop", vlan=20)
    client.send("forged", source=site.hosts[20].mac)
    client.send("unicast", to=other.mac)
    site.hosts[10].send("last")
    for each in in_10[1:]:
        ears[each].wait_for("last")
    settle()
    for ear in ears.values():
        ear.__exit__()
    for number, each in enumerate(in_10):
        heard = [tag for tag in ears[each].heard if tag != "last"]
        wanted = [f"ten {other}" for other in range(len(in_10)) if other != number]
        assert sorted(heard) == sorted(wanted + (["unicast"] if each is other else [])), each.namespace.name
    for number, each in enumerate(in_20):
        heard = [tag for tag in ears[each].heard if not tag.startswith("to the")]
        assert sorted(heard) == [f"twenty {other}" for other in range(len(in_20)) if other != number]
    for each in (client, other):
        two.tell("del", each.mac)
        one.tell("del", each.mac)
        for ap in (one, two):
            ap.state(PEERS_BEGIN)
            ap.state(PEERS_END)
            ap.state(NO_INTERFACE, each)
        each.leave()
    assert kernels(site) == before


def test_home_and_foreign_at_once(site: Site) -> None:
    """Access point 1 is home of a client at 3, which is home of a client at 1; and both are on VLAN 10."""
    one, _, three = site.aps
    first, second = site.clients
    before = kernels(site)
    there, here = Roaming(first, one, 0), Roaming(second, three, 0)
    there.to(three, 1)
    here.to(one, 0)
    assert first.pings(second.address)
    assert site.hosts[10].pings(first.address)
    assert site.hosts[10].pings(second.address)
    hearers = [site.hosts[10], first, second, one.residents[0], three.residents[0]]
    with Ear(hearers[0]) as wired, Ear(first) as at_three, Ear(second) as at_one, Ear(hearers[3]) as resident:
        first.send("from first")
        second.send("from second")
        site.hosts[10].send("from host")
        for ear in (at_three, at_one, resident):
            ear.wait_for("from host")
        settle()
    assert sorted(wired.heard) == ["from first", "from second"]
    assert sorted(at_three.heard) == ["from host", "from second"]
    assert sorted(at_one.heard) == ["from first", "from host"]
    assert sorted(resident.heard) == ["from first", "from host", "from second"]
    there.away()
    here.away()
    assert kernels(site) == before


def test_both_ends_at_one_access_point(site: Site) -> None:
    three, client = site.aps[2], site.clients[0]
    before = kernels(site)
    client.go_to(three)
    three.state(INTERFACE, client)
    three.state(LOCAL, client, 10)
    assert three.tell("add", client.mac, "wlan1", 10, 1)[0] == 0
    wait_until(lambda: site.hosts[10].pings(client.address), "the bridge has noticed the carrier of the client's cable")
    with Ear(client) as ear, Ear(three.residents[1]) as resident:
        site.hosts[20].send("twenty", to=client.mac)
        site.hosts[20].send("twenty")
        site.hosts[10].send("ten")
        ear.wait_for("ten")
        resident.wait_for("twenty")
        settle()
    assert ear.heard == ["ten"]
    three.tell("del", client.mac)
    three.state(GONE, client)
    three.state(NO_INTERFACE, client)
    client.leave()
    assert kernels(site) == before


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGKILL])
def test_nothing_is_left_of_an_ended_process(site: Site, programs: Path, number: int) -> None:
    one, two, _ = site.aps
    before = kernels(site)
    for each in site.clients:
        Roaming(each, one, 0).to(two, 0)
    one.tell("add", "02:00:00:09:00:01", "wlan0", 10, 0)
    for ap in (one, two):
        ap.signal(number)
        if number == signal.SIGTERM:
            assert ap.kernel() == before[ap.number - 1]
        ap.start(programs)
    for each in site.clients:
        each.leave()
    assert kernels(site) == before


def test_tunnels_come_back_after_tun0_was_deleted(site: Site) -> None:
    one, two, _ = site.aps
    client, host = site.clients[0], site.hosts[10]
    before = kernels(site)
    roaming = Roaming(client, one, 0)
    roaming.to(two, 0)
    with_paths = kernels(site)
    for ap in (one, two):
        ap.namespace.ip("link del tun0")
        wait_until(lambda: ap.kernel() == with_paths[ap.number - 1], "tun0 is there again with its entries")
        assert host.pings(client.address)
    roaming.away()
    assert kernels(site) == before


def test_vap_leaves_the_bridge_and_comes_back(site: Site) -> None:
    """As when hostapd is restarted. Clients that moved away from here keep their paths."""
    one, two, _ = site.aps
    client, host = site.clients[0], site.hosts[10]
    before = kernels(site)
    roaming = Roaming(client, one, 0)
    roaming.to(two, 0)
    with_paths = one.kernel()
    one.namespace.ip("link set wlan0 nomaster")
    one.state(HOME, client, 10, two)
    assert host.pings(client.address)
    one.namespace.ip("link set wlan0 master br0")
    batch("bridge", one.namespace, "vlan add dev wlan0 vid 10 pvid untagged")
    wait_until(lambda: one.kernel() == with_paths, "all is as before")
    roaming.away()
    assert kernels(site) == before


def test_client_without_a_path_is_refused(site: Site, programs: Path) -> None:
    """Says once what is missing, and leaves no client cut off."""
    two, client = site.aps[1], site.clients[0]
    # On the VAP's own interface.
    assert two.tell("add", client.mac, "wlan0", 10, 0)[0] < 0
    assert two.tell("add", client.mac, "wlan0", 20, 0)[0] == 0
    two.signal(signal.SIGTERM)
    two.start(programs, "setpriv", "--bounding-set", "-net_admin")
    assert two.tell("add", client.mac, "wlan0", 10, 1)[0] < 0
    two.signal(signal.SIGTERM)
    two.start(programs)
