"""What goes wrong in a lab, in words for the one who started it."""


class LabFailure(Exception):
    """One line that says what failed and which file tells more."""
