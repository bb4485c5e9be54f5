"""A supervisor, not the service, starts a kiosk's new client: the service ends the old one."""

import pytest

from lab.client_log import client_starts, started
from lab.client_signals import told_to_end
from lab.kiosk import START_EARLY, kiosk_clients, start_kiosk
from lab.log_lines import (ENDED, GONE, KIOSK_ASKED, KIOSK_STARTED, KIOSK_STARTED_NONE,
                           KIOSK_UNJUDGED, NO_COPY, NOTHING_RESTORED, RELAUNCHED, UNJUDGED)
from lab.update_steps import request_apply, said, stage, start_client

pytestmark = [pytest.mark.slow, pytest.mark.usefixtures("quiet")]


def test_all_clients_of_a_kiosk_restart_and_one_of_its_supervisor_is_judged(machine):
    stage(machine, "1.1", "--postinst", START_EARLY)
    old = start_kiosk(machine, clients=2)
    # Alice's client must still run while the kiosk's clients are ended, which must not signal it.
    machine.write("/usr/share/vantrell-harbor/behaviour", "ignore-term")
    alice = start_client(machine, "alice")
    story = said(machine, request_apply(machine), "ended with status")
    judged = int(story[2].split()[-1])
    assert story == [NO_COPY, KIOSK_ASKED.format(1), KIOSK_STARTED.format(judged), RELAUNCHED,
                     *ENDED]
    kiosks = kiosk_clients(machine, "1.1")
    assert sorted(kiosks.values()) == [["1"], ["2"], ["early"]]
    assert kiosks[judged] != ["early"]
    assert [start.uid for start in client_starts(machine, "1.1")].count(1001) == 1
    assert told_to_end(machine, "1.0") == sorted([*old, alice.pid_inside])


def test_a_slow_supervisor_gets_a_second_attempt_and_its_client_is_judged_by_pid(machine):
    stage(machine, "1.1", "--behaviour", "die-after 3")
    old = start_kiosk(machine, seconds=20)
    lines = request_apply(machine)
    machine.wait_for_log(KIOSK_ASKED.format(1), after=lines)
    start_client(machine, "bob")  # a new client, but of another user
    assert said(machine, lines, "refused") == [
        NO_COPY, KIOSK_ASKED.format(1), KIOSK_STARTED_NONE, KIOSK_ASKED.format(2),
        KIOSK_STARTED.format(*kiosk_clients(machine, "1.1")), GONE, NOTHING_RESTORED]
    assert told_to_end(machine, "1.0") == old


def test_after_two_attempts_without_a_new_client_the_release_is_accepted_unjudged(machine):
    stage(machine, "1.1")
    start_kiosk(machine, restart="no")
    assert said(machine, request_apply(machine), "ended with status") == [
        NO_COPY, KIOSK_ASKED.format(1), KIOSK_STARTED_NONE, KIOSK_ASKED.format(2),
        KIOSK_STARTED_NONE, KIOSK_UNJUDGED, UNJUDGED, *ENDED]
    assert machine.version_of("vantrell-harbor") == "1.1"
    assert started(machine, "1.1") == []
