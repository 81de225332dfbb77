"""Traffic over one TCP connection: numbers that a station sends and a wired host returns."""

import socket
import struct
import threading
import time

from nodes.namespace import Namespace

from lab.site.waiting import wait_until

NUMBER = struct.Struct(">I")
INTERVAL_SECONDS = 0.05


class EchoServer:
    """On the wired host, at every address."""

    def __init__(self) -> None:
        self._listener = socket.create_server(("0.0.0.0", 0))
        self.port = self._listener.getsockname()[1]
        threading.Thread(target=self._accept, daemon=True).start()

    def _accept(self) -> None:
        while True:
            connection, _ = self._listener.accept()
            threading.Thread(target=self._return, args=(connection,), daemon=True).start()

    @staticmethod
    def _return(connection: socket.socket) -> None:
        with connection:
            try:
                while received := connection.recv(4096):
                    connection.sendall(received)
            except OSError:
                return


class Traffic:
    """Inside the context a station sends a number every 50 ms, over a connection that must not break."""

    def __init__(self, namespace: Namespace, address: str, port: int) -> None:
        self._connection = namespace.socket(socket.AF_INET, socket.SOCK_STREAM)
        self._connection.settimeout(20)
        self._connection.connect((address, port))
        self._ended = threading.Event()
        self._sent = 0
        self.returned: list[float] = []  # when each number came back
        self.failure: OSError | None = None
        self._threads = [threading.Thread(target=self._run, args=(work,)) for work in (self._send, self._receive)]

    def __enter__(self) -> "Traffic":
        for thread in self._threads:
            thread.start()
        self.wait_for_more()
        return self

    def __exit__(self, *_: object) -> None:
        self._ended.set()
        self._threads[0].join()
        self._connection.shutdown(socket.SHUT_WR)  # the server returns the rest and closes
        self._threads[1].join()
        self._connection.close()

    def wait_for_more(self, numbers: int = 3) -> None:
        """Returns when this many more numbers than now have come back."""
        before = len(self.returned)
        wait_until(lambda: self.failure or len(self.returned) >= before + numbers, "traffic flows")
        assert self.failure is None, self.failure

    @property
    def is_complete(self) -> bool:
        return self.failure is None and len(self.returned) == self._sent

    @property
    def longest_gap(self) -> float:
        return max(later - earlier for earlier, later in zip(self.returned, self.returned[1:]))

    def _run(self, work) -> None:
        try:
            work()
        except OSError as error:
            self.failure = error

    def _send(self) -> None:
        while not self._ended.wait(INTERVAL_SECONDS):
            self._connection.sendall(NUMBER.pack(self._sent))
            self._sent += 1

    def _receive(self) -> None:
        waiting = b""
        while received := self._connection.recv(4096):
            waiting += received
            while len(waiting) >= NUMBER.size:
                assert NUMBER.unpack_from(waiting) == (len(self.returned),)
                waiting = waiting[NUMBER.size:]
                self.returned.append(time.monotonic())
