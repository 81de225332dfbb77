"""How a lab is ended early: SIGINT, SIGTERM and SIGHUP unwind it, so that it ends its processes."""

import signal

SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)


class Ended(BaseException):
    """The process was asked to end."""

    def __init__(self, number: int) -> None:
        super().__init__(number)
        self.status = 128 + number


def end_on_signals() -> None:
    def end(number: int, _: object) -> None:
        for each in SIGNALS:
            signal.signal(each, signal.SIG_IGN)  # once is enough: what is left to do is bounded
        raise Ended(number)

    for each in SIGNALS:
        signal.signal(each, end)
