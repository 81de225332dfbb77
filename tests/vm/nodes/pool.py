"""The machine's access points and stations, made when they are first needed."""

from collections.abc import Iterator, Sequence
from concurrent.futures import ThreadPoolExecutor
from contextlib import contextmanager
from pathlib import Path

from nodes.access_point_node import AccessPointNode
from nodes.station_node import StationNode
from nodes.wire import Wire

ACCESS_POINTS_MAX = 4  # the first radios are theirs


class Pool:
    """Lends the first so many of each. Their programs end when they are given back."""

    def __init__(self, wire: Wire, directory: Path) -> None:
        self._wire = wire
        self._directory = directory
        self._access_points: list[AccessPointNode] = []
        self._stations: list[StationNode] = []

    @contextmanager
    def access_points(self, count: int) -> Iterator[list[AccessPointNode]]:
        assert count <= ACCESS_POINTS_MAX
        for number in range(len(self._access_points) + 1, count + 1):
            self._access_points.append(AccessPointNode(number, self._wire, self._directory))
        yield self._access_points[:count]
        stop_all(self._access_points[:count])

    @contextmanager
    def stations(self, count: int) -> Iterator[list[StationNode]]:
        for number in range(len(self._stations) + 1, count + 1):
            self._stations.append(StationNode(number, ACCESS_POINTS_MAX + number - 1, self._directory))
        yield self._stations[:count]
        stop_all(self._stations[:count])


def stop_all(nodes: Sequence[AccessPointNode | StationNode]) -> None:
    with ThreadPoolExecutor() as threads:
        for each in [threads.submit(node.stop) for node in nodes]:
            each.result()
