"""One minute of scripts/soak."""

from lab.site.soak import Soak, SoakPlan
from lab.site.stepped_clock import SteppedClock

SEED = 20240229


def test_busy_site_stays_in_order(lab, programs):
    sanitized = b"__asan_init" in (programs / "client_mgr").read_bytes()
    # A sanitizer must be loaded before the stepped clock's library, and keeps freed memory.
    clock = None if sanitized else SteppedClock(programs, lab.directory)
    # A driver's list has room for 105 stations of a VAP. With more, a controller in doubt that asks for a report does
    # not get all of them, so this machine would have to be fast enough to leave no doubt.
    plan = SoakPlan(seconds=60, clients=300, seed=SEED, speed=0.8, warm_up_rounds=1)
    soak = Soak(lab, plan, clock, measure_memory=not sanitized)
    soak.run(lambda _: None)
    assert soak.tally.rounds > plan.warm_up_rounds
    assert soak.tally.clients > plan.clients
    assert soak.tally.roams > plan.clients
    assert soak.tally.clock_steps == (0 if sanitized else 2 * soak.tally.rounds)
