"""Waiting for an effect."""

import time
from collections.abc import Callable
from typing import TypeVar

from lab.site.failure import LabFailure

POLL_SECONDS = 0.01
T = TypeVar("T")


def wait_until(effect: Callable[[], T], what: str, seconds: float = 20, log: object = None,
               check: Callable[[], None] | None = None) -> T:
    """The first true result of `effect`. Meanwhile `check` may raise because there is nothing to wait for any more.

    Raises LabFailure that says `what` did not happen, and names the file `log`, when the time is up.
    """
    deadline = time.monotonic() + seconds
    while True:
        result = effect()
        if result:
            return result
        if check is not None:
            check()
        if time.monotonic() >= deadline:
            raise LabFailure(f"{what}: not within {seconds:g} s" + (f"; see {log}" if log else ""))
        time.sleep(POLL_SECONDS)
