"""Processes are killed in the middle and started again."""

from lab.site.waiting import wait_until
from steps import (DISASSOC, add_access_point, associate, associations, bssid_of, client_mac, events, updates,
                   wait_for_association, wait_for_event, wait_for_line)

LOADED = "Got 2 vap configuration"


def test_daemon_is_taken_up_again(lab):
    lab.controller.start()
    access_point = add_access_point(lab)
    lab.start()
    associate(access_point, client_mac(1))
    wait_for_association(lab, client_mac(1))
    loads = access_point.log.read_text().count(LOADED)
    access_point.kill("client_mgr")
    daemon = access_point.start("client_mgr")
    wait_for_line(access_point.running["apd"].err, f"client_mgr runs as process {daemon.pid}")
    wait_for_line(access_point.log, LOADED, number=loads + 1)
    associate(access_point, client_mac(2))
    wait_for_association(lab, client_mac(2))
    # The controller sees the access point come back.
    assert len(events(lab.controller, "tunnel_up")) == 2
    assert len(events(lab.controller, "tunnel_down")) == 1


def test_daemon_that_lost_its_table_gets_it_back(lab, programs):
    lab.controller.start()
    access_point = add_access_point(lab)
    access_point.start_radio(programs.parent / "lab/captures/builtin.pcap")
    access_point.start("client_mgr")
    access_point.start("apd")
    wait_until(lambda: any(each["name"] == DISASSOC for each in updates(lab.controller)), "the capture's last event",
               log=lab.controller.output.file, check=lab.processes.check)
    stations = {client.mac for client in access_point.clients()}
    assert len(stations) == 2
    access_point.kill("client_mgr")
    daemon = access_point.start("client_mgr")
    wait_for_line(access_point.running["apd"].err, f"client_mgr runs as process {daemon.pid}")
    wait_until(lambda: {client.mac for client in access_point.clients()} == stations, "the stations in its table",
               log=access_point.log, check=lab.processes.check)


def test_radio_waits_for_a_daemon_that_is_restarted(lab, programs):
    """The radio holds its events back until the new daemon is ready."""
    lab.controller.start("--passive")
    access_point = add_access_point(lab)
    access_point.start_radio(programs.parent / "lab/captures/builtin.pcap")
    access_point.start("client_mgr")
    access_point.kill("client_mgr")
    access_point.start("client_mgr")
    access_point.start("apd")
    wait_until(lambda: any(each["name"] == DISASSOC for each in updates(lab.controller)), "the capture's last event",
               log=lab.controller.output.file, check=lab.processes.check)
    assert len(associations(lab.controller)) == 4


def test_platform_daemon_brings_the_channel_back(lab):
    lab.controller.start()
    access_point = add_access_point(lab)
    lab.start()
    associate(access_point, client_mac(1))
    wait_for_association(lab, client_mac(1))
    loads = access_point.log.read_text().count(LOADED)
    access_point.kill("apd")
    wait_for_event(lab.controller, "tunnel_down")
    wait_for_line(access_point.log, "Rcvd tunl status down")
    access_point.start("apd")
    wait_for_event(lab.controller, "tunnel_up", number=2)
    wait_for_line(access_point.log, LOADED, number=loads + 1)
    associate(access_point, client_mac(2))
    wait_for_association(lab, client_mac(2))
    assert associations(lab.controller) == [(client_mac(1), bssid_of(access_point)),
                                            (client_mac(2), bssid_of(access_point))]
    assert [client.mac for client in access_point.clients()] == [client_mac(1), client_mac(2)]
