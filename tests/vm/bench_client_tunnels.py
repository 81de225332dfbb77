"""The cost of carrying clients to their home VLAN, with cables for radios. No test: it prints a table.

    tests/vm/run --bin DIRECTORY bench_client_tunnels.py -s
"""

import json
import signal
import statistics
import subprocess
from pathlib import Path

from nodes.tunnel_site import FOREIGN, HOME, INTERFACE, Client, Host, Roaming, Switch, TunnelAccessPoint

CLIENTS = (1, 10, 100)
SECONDS = 4
UDP_RATE, UDP_BYTES = "8M", 1372  # in frames of 1,414 bytes, which fit the tunnel


class OtherClient:
    """Has an interface of its own at an access point, and sends nothing."""

    def __init__(self, number: int) -> None:
        self.number = number
        self.mac = f"02:00:00:04:00:{number:02x}"


def processor_time() -> tuple[int, int]:
    """Ticks in use and in all, of the machine's one processor."""
    ticks = [int(word) for word in Path("/proc/stat").read_text().splitlines()[0].split()[1:]]
    return sum(ticks) - ticks[3] - ticks[4], sum(ticks)


def iperf(server: Host, client: Host, *options: object) -> tuple[dict, float]:
    """Its report, and the part of the processor's time that was in use."""
    with subprocess.Popen(["ip", "netns", "exec", server.namespace.name, "iperf3", "-s", "-1", "--forceflush"],
                          stdout=subprocess.PIPE, text=True) as listening:
        for line in listening.stdout:
            if "listening" in line:
                break
        busy, total = processor_time()
        report = json.loads(client.namespace.run("iperf3", "-J", "-c", server.address, "-t", SECONDS, *options))
        busy, total = (after - before for after, before in zip(processor_time(), (busy, total)))
        listening.stdout.read()
    return report, busy / total


def throughput(server: Host, client: Host, *options: str) -> str:
    """Of TCP in Mbit/s, and the processor's seconds for a gigabyte, iperf3's own included."""
    report, busy = iperf(server, client, *options)
    received = report["end"]["sum_received"]
    seconds = received["seconds"] * busy
    return f"{received['bits_per_second'] / 1e6:6.0f} Mbit/s {seconds / received['bytes'] * 1e9:6.1f} s/GB"


def frame_cost(server: Host, client: Host, *options: str) -> str:
    """The processor's microseconds for a frame, iperf3's own included. The kernel joins no frames of UDP."""
    report, busy = iperf(server, client, "-u", "-b", UDP_RATE, "-l", UDP_BYTES, *options)
    received = report["end"]["sum"]
    return f"{busy * report['end']['sum']['seconds'] / received['packets'] * 1e6:5.0f} us"


def traffic(name: str, server: Host, client: Host) -> None:
    assert client.pings(server.address)
    print(f"{name:24} from the client {throughput(server, client)} {frame_cost(server, client)}"
          f"   to it {throughput(server, client, '-R')} {frame_cost(server, client, '-R')}", flush=True)


def install(home: TunnelAccessPoint, foreign: TunnelAccessPoint, others: list[OtherClient]) -> None:
    """Statements come first, so that the calls, which are timed, install the paths."""
    indices = {each["ifname"]: each["ifindex"] for each in json.loads(foreign.namespace.run("ip", "-j", "link"))}
    for each in others:
        foreign.state(INTERFACE, each, ifindex=indices[foreign.interface_of(each)])
        foreign.state(FOREIGN, each, 10, home)
        home.state(HOME, each, 10, foreign)
    times = [foreign.tell("add", each.mac, "wlan0", 10, 1) for each in others]
    assert not [result for result, _ in times if result != 0]
    print_times(f"install {len(others)}, foreign", times)


def remove(foreign: TunnelAccessPoint, others: list[OtherClient]) -> None:
    print_times(f"remove {len(others)}, foreign", [foreign.tell("del", each.mac) for each in others])


def home_calls(home: TunnelAccessPoint, others: list[OtherClient]) -> None:
    """A call for the VAP ends the path to another access point, the next one makes it again."""
    removed = [home.tell("add", each.mac, "wlan0", 10, 0) for each in others]
    made = [home.tell("add", each.mac, "tun0", 10, 0) for each in others]
    print_times(f"install {len(others)}, home", made)
    print_times(f"remove {len(others)}, home", removed)


def print_times(name: str, times: list[tuple[int, int]]) -> None:
    durations = sorted(duration for _, duration in times)
    print(f"{name:24} median {statistics.median(durations) / 1000:.2f} ms, longest {durations[-1] / 1000:.2f} ms")


def test_cost(programs: Path, tmp_path: Path) -> None:
    switch = Switch()
    host = switch.host(10)
    one, two = aps = [TunnelAccessPoint(number, switch, tmp_path, (vlan,)) for number, vlan in ((1, 10), (2, 20))]
    client = Client(1, 10, aps)
    others = [OtherClient(number) for number in range(2, max(CLIENTS) + 1)]
    two.namespace.ip(*(f"link add {two.interface_of(each)} type dummy" for each in others),
                     *(f"link set {two.interface_of(each)} master br0 up" for each in others))
    for ap in aps:
        ap.start(programs)
    print()
    roaming = Roaming(client, one, 0)
    traffic("bridged", host, client)
    roaming.to(two, 0)
    here = 0
    for number in CLIENTS:
        new = others[here:number - 1]
        here = number - 1
        if new:
            install(one, two, new)
        traffic(f"tunnelled, {number} client(s)", host, client)
    home_calls(one, others)
    remove(two, others)
    for ap in aps:
        ap.signal(signal.SIGTERM)
