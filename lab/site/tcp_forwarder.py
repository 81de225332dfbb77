"""A way to a port that can be cut."""

import socket
import threading
from contextlib import suppress

LOOPBACK = "127.0.0.1"


class TcpForwarder:
    """Passes connections on to `target`, a port of the loopback interface, until it is cut."""

    def __init__(self, target: int, listener: socket.socket | None = None) -> None:
        """`listener` may be a socket of another network than that of this process; by default it is a new one."""
        self.target = target
        self._open: list[socket.socket] = []
        self._lock = threading.Lock()
        self._listener = listener or socket.create_server((LOOPBACK, 0))
        self.port: int = self._listener.getsockname()[1]
        threading.Thread(target=self._accept, args=[self._listener], daemon=True).start()

    def cut(self) -> None:
        """Ends all connections, and refuses others."""
        with suppress(OSError):
            self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()
        with self._lock:
            for each in self._open:
                with suppress(OSError):
                    each.shutdown(socket.SHUT_RDWR)
                each.close()
            self._open.clear()

    def mend(self) -> None:
        self._listener = socket.create_server((LOOPBACK, self.port))
        threading.Thread(target=self._accept, args=[self._listener], daemon=True).start()

    def _accept(self, listener: socket.socket) -> None:
        with suppress(OSError):
            while True:
                near, _ = listener.accept()
                self._connect(near)

    def _connect(self, near: socket.socket) -> None:
        try:
            far = socket.create_connection((LOOPBACK, self.target))
        except OSError:
            near.close()
            return
        with self._lock:
            self._open += [near, far]
        threading.Thread(target=self._pass_on, args=(near, far), daemon=True).start()

    def _pass_on(self, near: socket.socket, far: socket.socket) -> None:
        back = threading.Thread(target=pass_on, args=(far, near), daemon=True)
        back.start()
        pass_on(near, far)
        back.join()
        with self._lock:
            for each in (near, far):
                if each in self._open:
                    self._open.remove(each)
                    each.close()


def pass_on(source: socket.socket, sink: socket.socket) -> None:
    with suppress(OSError):
        while content := source.recv(65536):
            sink.sendall(content)
    with suppress(OSError):
        sink.shutdown(socket.SHUT_WR)
