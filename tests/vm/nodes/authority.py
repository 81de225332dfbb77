"""The authority of all sites of a worker: the emulated processor makes each certificate once."""

from functools import cache

from nodes.worker import SITE

from lab.site.authority import Authority, Identity


class WorkerAuthority(Authority):
    @cache
    def issue(self, *names: object, **more: object) -> Identity:
        return super().issue(*names, **more)


@cache
def worker_authority() -> WorkerAuthority:
    keys = SITE / "keys"
    keys.mkdir(mode=0o700, parents=True)
    return WorkerAuthority(keys)
