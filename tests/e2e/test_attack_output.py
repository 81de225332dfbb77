"""A standard output that takes nothing costs the controller lines, and nothing else."""

import os
import struct
import subprocess

import pytest

from lab.site.controller import ADDRESS
from lab.site.processes import die_with_parent
from lab.site.waiting import wait_until
from steps import add_access_point

REQ_BULK_INFO = 16  # type of record


def start_with_output(lab, output):
    """The controller of the lab, with `output` as its standard output."""
    port_file = lab.directory / "controller.port"
    keys = lab.controller.identity
    process = subprocess.Popen(
        [lab.processes.programs / "site_controller", "--listen", f"{ADDRESS}:0", "--port-file", port_file,
         "--ca", lab.authority.certificate, "--certificate", keys.certificate, "--key", keys.key,
         "--control", lab.directory / "controller.sock", "--json", "--events"],
        stdout=output, stderr=subprocess.DEVNULL, preexec_fn=die_with_parent)
    wait_until(port_file.exists, "the controller listens")
    lab.controller.port = int(port_file.read_text())
    return process


@pytest.fixture(params=["unread pipe", "full disk", "closed pipe"])
def output(request):
    """A file descriptor that takes little or nothing."""
    if request.param == "full disk":
        descriptor = os.open("/dev/full", os.O_WRONLY)
        yield descriptor
        os.close(descriptor)
        return
    reader, writer = os.pipe()
    if request.param == "closed pipe":
        os.close(reader)
    yield writer
    os.close(writer)
    if request.param == "unread pipe":
        os.close(reader)


def verbose_message():
    """A controller message that makes the controller print thousands of lines; apd refuses it."""
    records = struct.pack(">BBH", REQ_BULK_INFO, 4, 4) * 4000
    return (struct.pack(">BBBHBH6x", 1, 14, 0, 4000, 0, 14 + len(records)) + records).hex()


def test_output_that_takes_nothing(lab, output):
    process = start_with_output(lab, output)
    access_point = add_access_point(lab)
    lab.start()
    wait_until(lambda: lab.controller.ask("send", access_point.mac, verbose_message()) == "" and
               lab.controller.stats()["output_lines_dropped"] > 0, "lines are dropped")
    process.terminate()
    assert process.wait(5) == 0
