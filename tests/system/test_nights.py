"""Night after night: each new client is judged, one runs, and each morning the machine is right."""

from collections import namedtuple

import pytest

from lab import nights
from lab import log_lines as log
from lab.client_log import only_client, running_clients, wait_for_client
from lab.installed_client import changes
from lab.machine import SERVICE, Machine
from lab.service_view import end_unexpectedly
from lab.update_steps import (disable_window, relaunched_client_requests_apply, request_apply, said,
                              shut_window, stage, start_client)


def disable_window_beside_a_second_client(machine):
    start_client(machine, "alice")
    return disable_window(machine)


def kill_the_service_in_the_judgement(machine):
    lines = relaunched_client_requests_apply(machine)
    wait_for_client(machine, r"^\[1.4 .* start")
    end_unexpectedly(machine, "KILL")
    return lines


Night = namedtuple("Night", "version asked installed behaviour before",
                   defaults=["stay", []])
# The bad release dies so early that a scan of the processes may miss it.
NIGHTS = [
    Night("1.1", request_apply, "1.1", before=[log.NO_COPY]),
    Night("1.2", relaunched_client_requests_apply, "1.1", "die-after 0"),
    Night("1.2", request_apply, "1.1", "die-after 0"),
    Night("1.3", relaunched_client_requests_apply, "1.3"),
    Night("1.4", kill_the_service_in_the_judgement, "1.4"),  # nothing judges it later
    Night("1.5", disable_window_beside_a_second_client, "1.5"),
]
BAD = [log.GONE + " (inactive)", log.ROLLBACK, log.RESTORED]
ENDS = {"1.2": BAD, "1.4": ["ended with status KILL"]}
USERS = ["alice", "bob"]
UNITS = "systemctl --user --machine={}@.host list-units --all --no-legend 'vantrell-harbor*'"


@pytest.mark.long
@pytest.mark.usefixtures("quiet")
def test_every_night_without_a_logout_judges_the_new_client_and_leaves_one(machine):
    start_client(machine, "alice", "alice's")
    clients = [only_client(machine)]
    for night in NIGHTS:
        stage(machine, night.version, "--behaviour", night.behaviour)
        good = [log.RELAUNCHED.replace("1.1", night.version), *log.ENDED]
        expected = ENDS.get(night.version, good)
        assert said(machine, night.asked(machine), expected[-1]) == [*night.before, *expected]
        assert machine.version_of("vantrell-harbor") == night.installed
        clients.append(only_client(machine))
        shut_window(machine)
    assert len(set(clients)) == len(clients)


@pytest.mark.usefixtures("quiet")
def test_a_relaunched_client_that_is_closed_or_crashes_stays_closed_and_leaves_no_unit(machine):
    stage(machine, "1.1")
    for user in USERS:
        start_client(machine, user)
    said(machine, request_apply(machine), "listening on")
    # Without the pause that follows a failure.
    assert machine.run(f"systemctl show --value --property NRestarts {SERVICE}") == "0\n"
    for pid, signal in zip(running_clients(machine), ("TERM", "SEGV"), strict=True):
        machine.run(["kill", "-s", signal, pid])
    for user in USERS:
        machine.run(f'while [ -n "$({UNITS.format(user)})" ]; do sleep 0.1; done')
    assert running_clients(machine) == []


@pytest.mark.long
@pytest.mark.usefixtures("power_cut")
def test_a_machine_is_right_in_each_morning_of_a_week():
    with Machine(changes(), durable=True) as machine:
        nights.live(machine, ["good", "bad client", "broken service", "pause", "power cut"])
