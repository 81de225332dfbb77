"""A minute of what scripts/soak does for as long as asked."""

from lab.site.soak import Soak, SoakPlan
from lab.site.stepped_clock import SteppedClock

SEED = 20240229


def test_busy_site_stays_in_order(lab, programs):
    sanitized = b"__asan_init" in (programs / "client_mgr").read_bytes()
    # A sanitizer insists on being loaded first, before the library that a stepped clock is, and keeps freed memory.
    clock = None if sanitized else SteppedClock(programs, lab.directory)
    # A driver's list has room for 105 stations of a VAP. With more, a controller that asks for a report because it is in
    # doubt does not learn of all, so this machine would have to be fast enough for it never to be.
    plan = SoakPlan(seconds=60, clients=300, seed=SEED, speed=0.8, warm_up_rounds=1)
    soak = Soak(lab, plan, clock, measure_memory=not sanitized)
    soak.run(lambda _: None)
    assert soak.tally.rounds > plan.warm_up_rounds
    assert soak.tally.clients > plan.clients
    assert soak.tally.roams > plan.clients
    assert soak.tally.clock_steps == (0 if sanitized else 2 * soak.tally.rounds)
