"""Waiting for an effect."""

import time
from collections.abc import Callable
from typing import TypeVar

from lab.site.failure import LabFailure

POLL_SECONDS = 0.01
T = TypeVar("T")


def wait_until(effect: Callable[[], T], what: str, seconds: float = 20, log: object = None,
               check: Callable[[], None] | None = None) -> T:
    """Returns the first true result of `effect`. Calls `check` while it waits, which may raise to end the wait.

    Raises LabFailure, with `what` and the file `log`, when the time is up.
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


def try_for(effect: Callable[[], bool], seconds: float) -> bool:
    """Whether `effect` is true within that time."""
    try:
        return wait_until(effect, "the effect", seconds)
    except LabFailure:
        return False
