"""A new client must stay for twenty seconds, or the previous package is installed again.

A supervisor, not the service, starts the new client of a kiosk: the service ends the old one.
"""

import pytest

from lab import log_lines as log
from lab.client_log import client_starts, started, told_to_end, wait_for_client
from lab.kiosk import START_EARLY, kiosk_clients, start_kiosk
from lab.machine import SERVICE
from lab.service_view import CLIENT_BEHAVIOUR, COPY, records
from lab.stubs import stub
from lab.update_steps import (accept, client_requests_apply, request_apply, said, stage,
                              start_client)

pytestmark = pytest.mark.usefixtures("quiet")


def test_a_client_that_dies_after_19_s_is_rolled_back_for_the_user_who_asked(machine):
    accept(machine, "1.1")
    stage(machine, "1.2", "--behaviour", "die-after 19")
    before = records(machine)
    start_client(machine, "bob", "bob's", seat=None)
    lines = client_requests_apply(machine, start_client(machine, "alice", "alice's"))
    assert said(machine, lines, log.NOT_STAYED) == [
        log.GONE + " (inactive)", log.ROLLBACK, log.RESTORED]
    assert machine.version_of("vantrell-harbor") == "1.1"
    assert records(machine) == before
    # What follows the version may be the outcome of the service's own pass.
    assert machine.send("STATUS").startswith("READY 1.2 ")
    assert started(machine, "1.2") == [["alice's"], ["bob's"]]
    assert started(machine, "1.1") == [["bob's"], ["alice's"], ["alice's"]]
    pid, uid, *_ = client_starts(machine, "1.1")[-1]
    assert uid == 1001
    assert machine.exists(f"/proc/{pid}")


def test_a_client_that_dies_after_21_s_is_accepted_and_a_stop_waits_for_that(machine):
    stage(machine, "1.1", "--behaviour", "die-after 21")
    lines = client_requests_apply(machine, start_client(machine, "alice"))
    wait_for_client(machine, r"^\[1.1 .* start")
    machine.run(["systemctl", "stop", SERVICE])
    assert said(machine, lines, "ended with status") == [
        log.NO_COPY, log.INSTALL_DELAYS_STOP, log.RELAUNCHED, *log.ENDED]
    assert machine.run(["systemctl", "is-active", SERVICE], check=False) == "inactive\n"
    wait_for_client(machine, r"^\[1.1 .* end 0")


def test_a_failed_query_means_gone_and_without_a_copy_the_package_stays(machine):
    stage(machine, "1.1")
    machine.run(stub("systemctl", "echo no answer; exit 1"))
    lines = client_requests_apply(machine, start_client(machine, "alice"))
    assert said(machine, lines, log.NOT_STAYED) == [
        log.NO_COPY, log.GONE + " (no answer)", log.NOTHING_RESTORED]
    assert machine.version_of("vantrell-harbor") == "1.1"
    assert not machine.exists(COPY)
    assert machine.send("STATUS").startswith("READY 1.1 ")


def test_a_rollback_that_fails_starts_no_client_and_still_says_restored(machine):
    accept(machine, "1.1")
    stage(machine, "1.2", "--behaviour", "die-after 0")
    machine.write(COPY, "no package")
    before = records(machine)
    lines = client_requests_apply(machine, start_client(machine, "alice"))
    *story, last_words, failure, end = said(machine, lines, log.NOT_STAYED)
    assert story[:2] == [log.GONE + " (inactive)", log.ROLLBACK]
    assert last_words.startswith("E: ")
    assert failure == f"[UpdateSvc] rollback failed: apt-get exited 100: {last_words}"
    assert end == log.RESTORED
    assert records(machine) == before
    assert machine.version_of("vantrell-harbor") == "1.2"
    assert machine.send("STATUS").startswith("READY 1.2 ")
    assert started(machine, "1.1") == started(machine, "1.2") == [[]]


def test_all_clients_of_a_kiosk_restart_and_one_of_its_supervisor_is_judged(machine):
    stage(machine, "1.1", "--postinst", START_EARLY)
    old = start_kiosk(machine, names="12")
    # Alice's client must still run while the kiosk's clients are ended, which must not signal it.
    machine.write(CLIENT_BEHAVIOUR, "ignore-term")
    alice = start_client(machine, "alice")
    story = said(machine, request_apply(machine), "ended with status")
    judged = int(story[2].split()[-1])
    assert story == [log.NO_COPY, log.KIOSK_ASKED.format(1), log.KIOSK_STARTED.format(judged),
                     log.RELAUNCHED, *log.ENDED]
    kiosks = kiosk_clients(machine, "1.1")
    assert sorted(kiosks.values()) == [["1"], ["2"], ["early"]]
    assert kiosks[judged] != ["early"]
    assert [start.uid for start in client_starts(machine, "1.1")].count(1001) == 1
    assert told_to_end(machine, "1.0") == sorted([*old, alice.pid_inside])


def test_a_slow_supervisor_gets_a_second_attempt_and_its_client_is_judged_by_pid(machine):
    stage(machine, "1.1", "--behaviour", "die-after 3")
    old = start_kiosk(machine, seconds=20)
    lines = request_apply(machine)
    machine.wait_for_log(log.KIOSK_ASKED.format(1), after=lines)
    start_client(machine, "bob")  # a new client, but of another user
    assert said(machine, lines, "refused") == [
        log.NO_COPY, log.KIOSK_ASKED.format(1), log.KIOSK_STARTED_NONE, log.KIOSK_ASKED.format(2),
        log.KIOSK_STARTED.format(*kiosk_clients(machine, "1.1")), log.GONE, log.NOTHING_RESTORED]
    assert told_to_end(machine, "1.0") == old


def test_after_two_attempts_without_a_new_client_the_release_is_accepted_unjudged(machine):
    stage(machine, "1.1")
    start_kiosk(machine, restart="no")
    assert said(machine, request_apply(machine), "ended with status") == [
        log.NO_COPY, log.KIOSK_ASKED.format(1), log.KIOSK_STARTED_NONE, log.KIOSK_ASKED.format(2),
        log.KIOSK_STARTED_NONE, log.KIOSK_UNJUDGED, log.UNJUDGED, *log.ENDED]
    assert machine.version_of("vantrell-harbor") == "1.1"
    assert started(machine, "1.1") == []
