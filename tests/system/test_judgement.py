"""A new client must stay for twenty seconds, or the previous package is installed again."""

import pytest

from lab.client_log import client_starts, started, wait_for_client
from lab.log_lines import (ENDED, GONE, INSTALL_DELAYS_STOP, NO_COPY, NOT_STAYED, NOTHING_RESTORED,
                           RELAUNCHED, RESTORED, ROLLBACK)
from lab.machine import SERVICE
from lab.service_view import COPY, records
from lab.stubs import stub
from lab.update_steps import accept, client_requests_apply, said, stage, start_client

pytestmark = pytest.mark.usefixtures("quiet")


@pytest.mark.slow
def test_a_client_that_dies_after_19_s_is_rolled_back_for_the_user_who_asked(machine):
    accept(machine, "1.1")
    stage(machine, "1.2", "--behaviour", "die-after 19")
    before = records(machine)
    start_client(machine, "bob", "bob's", seat=None)
    lines = client_requests_apply(machine, start_client(machine, "alice", "alice's"))
    assert said(machine, lines, NOT_STAYED) == [GONE + " (inactive)", ROLLBACK, RESTORED]
    assert machine.version_of("vantrell-harbor") == "1.1"
    assert records(machine) == before
    # What follows the version may be the outcome of the service's own pass.
    assert machine.send("STATUS").startswith("READY 1.2 ")
    assert started(machine, "1.2") == [["alice's"], ["bob's"]]
    assert started(machine, "1.1") == [["bob's"], ["alice's"], ["alice's"]]
    pid, uid, *_ = client_starts(machine, "1.1")[-1]
    assert uid == 1001
    assert machine.exists(f"/proc/{pid}")


@pytest.mark.slow
def test_a_client_that_dies_after_21_s_is_accepted_and_a_stop_waits_for_that(machine):
    stage(machine, "1.1", "--behaviour", "die-after 21")
    lines = client_requests_apply(machine, start_client(machine, "alice"))
    wait_for_client(machine, r"^\[1.1 .* start")
    machine.run(["systemctl", "stop", SERVICE])
    assert said(machine, lines, "ended with status") == [
        NO_COPY, INSTALL_DELAYS_STOP, RELAUNCHED, *ENDED]
    assert machine.run(["systemctl", "is-active", SERVICE], check=False) == "inactive\n"
    wait_for_client(machine, r"^\[1.1 .* end 0")


def test_a_failed_query_means_gone_and_without_a_copy_the_package_stays(machine):
    stage(machine, "1.1")
    machine.run(stub("systemctl", "echo no answer; exit 1"))
    lines = client_requests_apply(machine, start_client(machine, "alice"))
    assert said(machine, lines, NOT_STAYED) == [NO_COPY, GONE + " (no answer)", NOTHING_RESTORED]
    assert machine.version_of("vantrell-harbor") == "1.1"
    assert not machine.exists(COPY)
    assert machine.send("STATUS").startswith("READY 1.1 ")


def test_a_rollback_that_fails_starts_no_client_and_still_says_restored(machine):
    accept(machine, "1.1")
    stage(machine, "1.2", "--behaviour", "die-after 0")
    machine.write(COPY, "no package")
    before = records(machine)
    lines = client_requests_apply(machine, start_client(machine, "alice"))
    *story, last_words, failure, end = said(machine, lines, NOT_STAYED)
    assert story[:2] == [GONE + " (inactive)", ROLLBACK]
    assert last_words.startswith("E: ")
    assert failure == f"[UpdateSvc] rollback failed: apt-get exited 100: {last_words}"
    assert end == RESTORED
    assert records(machine) == before
    assert machine.version_of("vantrell-harbor") == "1.2"
    assert machine.send("STATUS").startswith("READY 1.2 ")
    assert started(machine, "1.1") == started(machine, "1.2") == [[]]
