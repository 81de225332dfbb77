"""Interrupting a lab: SIGINT, SIGTERM and SIGHUP raise an exception, so that the lab ends its processes."""

import signal

SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)


class Ended(BaseException):
    """The process got one of SIGNALS."""

    def __init__(self, number: int) -> None:
        super().__init__(number)
        self.status = 128 + number


def end_on_signals() -> None:
    def end(number: int, _: object) -> None:
        for each in SIGNALS:
            signal.signal(each, signal.SIG_IGN)  # the remaining work takes a bounded time
        raise Ended(number)

    for each in SIGNALS:
        signal.signal(each, end)
