"""Wherever a client runs, an update judges the new one and leaves one client for each user."""

from collections import namedtuple

import pytest

from lab import log_lines as log
from lab.client_log import client_starts, wait_for_clients
from lab.desktops import (end_all, start_as_kiosk, start_by_autostart, start_in_scope,
                          start_in_service, start_in_supervised_service)
from lab.update_steps import accept, relaunched_client_requests_apply, request_apply, said, stage

pytestmark = pytest.mark.usefixtures("quiet")

UNIT, PID = log.GONE + " (inactive)", log.GONE  # how the end of a new client is noticed
Place = namedtuple("Place", "user start")
SERVICE = Place("alice", start_in_service)
SCOPE = Place("alice", start_in_scope)
AUTOSTART = Place("bob", start_by_autostart)
SUPERVISED = Place("carol", start_in_supervised_service)
KIOSK = Place("kiosk", start_as_kiosk)
BAD_NIGHTS = [  # where clients run, who asks, what the service logs
    ([SERVICE], relaunched_client_requests_apply, UNIT),
    ([SCOPE], request_apply, UNIT),
    ([AUTOSTART], relaunched_client_requests_apply, UNIT),
    ([SUPERVISED, KIOSK], request_apply, PID),
]


def start_clients(machine, places):
    for place in places:
        place.start(machine, place.user)
    wait_for_clients(machine, len(places))


def assert_each_has_one_client(machine, places):
    """Each client that runs is of version 1.1, with the argument and DISPLAY that it began with."""
    pids = wait_for_clients(machine, len(places))
    starts = {str(start.pid): start for start in client_starts(machine, "1.1")}
    clients = [(starts[pid].arguments, "DISPLAY=:0" in starts[pid].environment) for pid in pids]
    assert sorted(clients) == sorted(([place.user], True) for place in places)


@pytest.mark.long
def test_a_bad_release_is_rolled_back_wherever_its_client_runs(machine):
    accept(machine, "1.1")
    stage(machine, "1.2", "--behaviour", "die-after 1")
    for places, ask, seen in BAD_NIGHTS:
        start_clients(machine, places)
        story = said(machine, ask(machine), log.NOT_STAYED)
        assert seen in story
        assert story[-1] == log.RESTORED
        assert_each_has_one_client(machine, places)
        end_all(machine)


def test_a_good_release_reaches_all_clients_and_each_user_has_one(machine):
    stage(machine, "1.1")
    places = [SCOPE, AUTOSTART, SUPERVISED, KIOSK]
    start_clients(machine, places)
    assert said(machine, request_apply(machine), log.ENDED[-1])[-3:] == [log.RELAUNCHED, *log.ENDED]
    assert_each_has_one_client(machine, places)
