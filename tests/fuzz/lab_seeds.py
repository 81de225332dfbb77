"""Seeds of the targets around the port and the lab."""


def all_seeds():
    return {}
