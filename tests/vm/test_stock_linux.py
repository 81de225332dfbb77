"""docs/stock-linux.md: its files make an access point."""

import re
import subprocess
from pathlib import Path

import pytest
from nodes import network_kinds
from nodes.managed_site import ManagedSite
from nodes.network_kinds import NetworkKind
from nodes.radius_server import SECRET, start_hostapd_server
from nodes.wire import ADDRESS

from lab.site.processes import Processes
from lab.site.waiting import wait_until

PAGE = Path(__file__).parents[2] / "docs/stock-linux.md"
BLOCKS = re.findall(r"^```(ini|toml)\n(.*?)^```", PAGE.read_text(), re.MULTILINE | re.DOTALL)
PAGE_MAC = "02:00:00:00:00:00"
OFFICES = {"office, 802.1X": network_kinds.EAP, "office, passphrase": network_kinds.PSK,
           "office, fast transition": network_kinds.FT_PSK}


def hostapd_block(name: str) -> str:
    return next(text for kind, text in BLOCKS if kind == "ini" and text.startswith(f"# {name}\n"))


def hostapd_conf(office: str) -> str:
    """The radio with this office network and the guests' one."""
    common = hostapd_block("every BSS").replace("SECRET", SECRET)
    return hostapd_block(office) + common + hostapd_block("guests") + common


def ap_toml(site: ManagedSite, mac: str) -> str:
    text = next(text for kind, text in BLOCKS if kind == "toml")
    assert f'address = "{ADDRESS}"\nport = 7443\n' in text
    assert PAGE_MAC in text
    return text.replace(PAGE_MAC, mac).replace("port = 7443", f"port = {site.controller.port}")


@pytest.fixture
def configured(site: ManagedSite, access_points, tmp_path: Path) -> Path:
    """$KX_ROOT with the configuration and what it names."""
    root = tmp_path / "kx"
    root.mkdir(mode=0o700)
    identity = site.authority.issue("stock", mac=access_points[0].bssid())
    for name, source in (("ca.pem", site.authority.certificate), ("ap.pem", identity.certificate),
                         ("ap.key", identity.key)):
        (root / name).write_bytes(Path(source).read_bytes())
    for name in ("hostapd.secret", "server.secret"):
        (root / name).write_text(SECRET)
    for name in ("ap.key", "hostapd.secret", "server.secret"):
        (root / name).chmod(0o600)
    (root / "ap.toml").write_text(ap_toml(site, access_points[0].bssid()))
    (root / "ap.toml").chmod(0o644)
    return root


@pytest.mark.parametrize(("office", "kind"), OFFICES.items(), ids=OFFICES)
def test_files_of_the_page_make_an_access_point(office: str, kind: NetworkKind, configured: Path, site: ManagedSite,
                                                access_points, stations, radius, tmp_path: Path) -> None:
    node = access_points[0]
    if kind.has_8021x:
        radius(start_hostapd_server)
    subprocess.run(["groupadd", "-f", "netdev"], check=True)
    (tmp_path / "hostapd.conf").write_text(hostapd_conf(office))
    hostapd = node.processes.start("hostapd", ["-t", tmp_path / "hostapd.conf"], tmp_path)
    wait_until(lambda: "AP-ENABLED" in hostapd.out.read_text(), "hostapd is up", log=hostapd.out,
               check=hostapd.check_runs)

    daemons = Processes(site.processes.programs, node.namespace.launcher)
    try:
        check = node.namespace.run(daemons.programs / "radiod", "--check", "--config", configured / "ap.toml")
        assert check == "no fault was found\n"
        for program in ("radiod", "client_mgr", "apd"):
            daemons.start(program, [], configured, configured)
        for station, ssid, its_kind in ((stations[0], "office", kind), (stations[1], "guest", network_kinds.OPEN)):
            station.start(ssid, its_kind)
            station.wait_until_connected()
            wait_until(lambda: site.client(station), f"the controller has {station.name}",
                       log=site.controller.output.file)
    finally:
        daemons.end()
