"""Errors of a lab, with messages for its user."""


class LabFailure(Exception):
    """The message is one line with the error and the file that has the details."""
