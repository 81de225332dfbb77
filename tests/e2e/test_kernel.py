"""The kernel's interfaces, bridge, neighbour table and routes, in a network namespace of the test's own."""

import json
import struct
import subprocess

import pytest

from lab.site.access_point import mac_bytes
from lab.site.messages import Local
from lab.site.network import enter_own_network
from lab.site.waiting import wait_until
from steps import AP_MAC, associate, client_mac, tell, updates, wait_for_association

VAPS = """\
[[vap]]
ifname = "wlan0"
ssid = "office"
vlan = 10

[[vap]]
ifname = "wlan1"
ssid = "guest"
vlan = 20
guest = true
captive = "sign in"
"""
GUEST_IP, OTHER_IP, NETWORK = "192.168.5.23", "192.168.7.8", "192.168.5.0"


def ip(*words):
    subprocess.run(["ip", *words], check=True)


def ask(*words):
    """The output of `ip` or `bridge`, from JSON."""
    done = subprocess.run([words[0], "-j", *words[1:]], check=True, capture_output=True, text=True)
    return json.loads(done.stdout or "[]")


@pytest.fixture
def interfaces():
    """wlan0 is a port of a bridge, wlan1 is not. Each is one end of a virtual cable."""
    if not enter_own_network():
        pytest.skip("network namespaces are not permitted here")
    ip("link", "add", "br0", "type", "bridge")
    for vap in ("wlan0", "wlan1"):
        ip("link", "add", vap, "type", "veth", "peer", "name", f"air-{vap}")
        ip("link", "set", f"air-{vap}", "up")
        ip("link", "set", vap, "up")
    ip("link", "set", "wlan0", "master", "br0")
    ip("link", "set", "br0", "up")


@pytest.fixture
def access_point(interfaces, lab):
    lab.controller.start()
    made = lab.add_access_point(AP_MAC, VAPS)
    lab.start()
    return made


def hardware_address(interface):
    return ask("ip", "link", "show", interface)[0]["address"]


def forwarding_entries(client):
    return [(each["ifname"], each.get("vlan"), each["state"]) for each in ask("bridge", "fdb", "show", "br", "br0")
            if each["mac"] == client]


def permanent_neighbours():
    return [(each["dst"], each["lladdr"]) for each in ask("ip", "neigh", "show", "dev", "wlan1", "nud", "permanent")]


def host_routes():
    return [each["dst"] for each in ask("ip", "route", "show", "dev", "wlan1") if "/" not in each["dst"]]


def addresses():
    return [each["local"] for link in ask("ip", "-4", "addr", "show", "dev", "wlan1")
            for each in link.get("addr_info", [])]


def report_address(access_point, client, address):
    number = struct.pack("4B", *(int(part) for part in address.split(".")))
    tell(access_point, Local.CLIENT_IP, mac_bytes(client) + bytes(2) + number + b"wlan1\0")


def wait_for_kernel(what, effect):
    wait_until(effect, f"the kernel {what}")


def admit_guest(access_point, lab):
    """A guest has associated and has an address, but has not passed the portal."""
    guest = client_mac(1)
    associate(access_point, guest, bssid=hardware_address("wlan1"))
    wait_for_association(lab, guest)
    report_address(access_point, guest, GUEST_IP)
    wait_for_kernel("has a route to the guest", lambda: host_routes() == [GUEST_IP])
    return guest


def test_bssid_is_the_interface_address(access_point, lab):
    reported = {each["bssid"] for each in lab.controller.records() if each["name"] == "CLIENT_MGR_BULK_VAP_CONFIG"}
    assert reported == {hardware_address("wlan0"), hardware_address("wlan1")}


def check_forwarding_entry(access_point, vlan):
    client, bssid = client_mac(1), hardware_address("wlan0")
    associate(access_point, client, bssid=bssid)
    wait_for_kernel("has the forwarding entry", lambda: forwarding_entries(client))
    assert forwarding_entries(client) == [("wlan0", vlan, "static")]
    tell(access_point, Local.CLIENT_DISASSOCIATION, bytes(16) + mac_bytes(client) + mac_bytes(bssid) + bytes(4))
    wait_for_kernel("drops the forwarding entry", lambda: not forwarding_entries(client))


def test_bridge_holds_the_client_while_it_is_here(access_point):
    check_forwarding_entry(access_point, None)


def test_bridge_holds_the_client_on_its_vlan(access_point):
    if subprocess.run(["ip", "link", "set", "br0", "type", "bridge", "vlan_filtering", "1"], check=False).returncode:
        pytest.skip("this kernel's bridges do not filter VLANs")
    subprocess.run(["bridge", "vlan", "add", "dev", "wlan0", "vid", "10"], check=True)
    check_forwarding_entry(access_point, 10)


def test_guest_is_reachable_until_it_is_let_in(access_point, lab):
    guest = admit_guest(access_point, lab)
    assert permanent_neighbours() == [(GUEST_IP, guest)]
    assert addresses() == [NETWORK]
    lab.controller.ask("approve", guest)
    wait_for_kernel("has the guest network's address no more", lambda: not addresses())
    assert host_routes() == []
    assert permanent_neighbours() == []


def test_guest_that_leaves_takes_its_entries_along(access_point, lab):
    guest = admit_guest(access_point, lab)
    tell(access_point, Local.CLIENT_DISASSOCIATION,
         bytes(16) + mac_bytes(guest) + mac_bytes(hardware_address("wlan1")) + bytes(4))
    wait_for_kernel("has the guest network's address no more", lambda: not addresses())
    assert host_routes() == []
    assert permanent_neighbours() == []


def test_guest_that_changes_its_address(access_point, lab):
    guest = admit_guest(access_point, lab)
    report_address(access_point, guest, OTHER_IP)
    wait_for_kernel("has the new route", lambda: host_routes() == [OTHER_IP])
    assert permanent_neighbours() == [(OTHER_IP, guest)]
    assert addresses() == ["192.168.7.0"]
    assert [each["ip"] for each in updates(lab.controller) if each["name"] == "CLIENT_MGR_CLIENT_IP"] == [
        GUEST_IP, OTHER_IP]


def test_interface_stays_as_long_as_there_is_a_guest(access_point, lab):
    first, second = admit_guest(access_point, lab), client_mac(2)
    associate(access_point, second, bssid=hardware_address("wlan1"))
    wait_for_association(lab, second)
    report_address(access_point, second, "192.168.5.24")
    wait_for_kernel("has both routes", lambda: sorted(host_routes()) == [GUEST_IP, "192.168.5.24"])
    lab.controller.ask("approve", first)
    wait_for_kernel("drops the first guest's route", lambda: host_routes() == ["192.168.5.24"])
    assert permanent_neighbours() == [("192.168.5.24", second)]
    assert addresses() == [NETWORK]
