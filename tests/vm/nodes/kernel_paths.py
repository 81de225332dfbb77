"""What the paths of clients to and from another VLAN consist of in an access point's kernel."""

import subprocess
from collections.abc import Sequence

from nodes.namespace import Namespace

OWN = "master br0 permanent"  # the addresses of the ports themselves
PASSING = ("01:00:5e", "33:33")  # groups of IPv4 and IPv6 come and go in their own time


def snapshot(namespace: Namespace, interfaces: Sequence[str]) -> dict[str, list[str]]:
    """Without tun0 itself and what drops all that comes in by it. `interfaces`: of VAPs and of clients."""
    filters = [f"filter show dev {each} {direction}" for each in interfaces for direction in ("ingress", "egress")]
    return {
        "fdb": [line for line in show(namespace, "bridge", "fdb")
                if ("static" in line or "tun0" in line) and not line.startswith(PASSING) and OWN not in line],
        "vlan": show(namespace, "bridge", "vlan"),
        "ports": [line.split()[0] for line in show(namespace, "ip", "-br link show master br0")],
        "qdisc": show(namespace, "tc", "qdisc"),
        "tun0": show(namespace, "tc", "filter show dev tun0 ingress"),
        "filters": show(namespace, "tc", *filters),
    }


def show(namespace: Namespace, program: str, *commands: str) -> list[str]:
    """Lines, without the numbers that the kernel gives to actions."""
    options = ["-br"] if commands[0].startswith("-br") else []
    text = "\n".join(command.removeprefix("-br ") for command in commands)
    done = subprocess.run([program, *options, "-n", namespace.name, "-batch", "-"], input=text,
                          capture_output=True, text=True, check=False)
    lines = (line.strip() for line in done.stdout.splitlines())
    return sorted(line for line in lines if line and not line.startswith("index"))
