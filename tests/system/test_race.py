"""The service while everything that it serves happens at once, and after very many requests."""

import pytest

from lab import log_lines as log
from lab.crowd import alternate_offers, changes, crowd, stubborn_client
from lab.invariants import observe, settle
from lab.releases import FLAVOUR, release
from lab.service_view import ask, field, process_folder
from lab.update_steps import client_requests_apply, shut_window, stage, start_client

pytestmark = pytest.mark.race

# The thread sanitizer slows the service down and never gives memory back.
REQUESTS = 100_000 if FLAVOUR == "release" else 10_000
# Idle services differ by up to 60 KiB, and the smallest leak of each request is 3 MiB.
MORE_KIB = 512


def test_passes_requests_sessions_and_settings_do_not_disturb_each_other_or_an_install(quiet):
    machine = quiet
    machine.publish(release("1.2"))
    stage(machine, "1.1")
    with crowd(machine) as seen, changes(machine, stubborn_client(machine)):
        alternate_offers(machine, ["1.1", "1.2"], 10)
    assert seen.wrong == []
    settle(machine)

    shut_window(machine)  # and the ring is the first one again
    stage(machine, "1.1")
    working, asking = stubborn_client(machine), start_client(machine, "alice")
    lines = client_requests_apply(machine, asking)
    machine.run("until pidof apt-get; do sleep 0.01; done")  # a session now comes too late
    with crowd(machine) as seen, changes(machine, working):
        assert machine.wait_for_log("applied ", 300, lines) == log.RELAUNCHED
        machine.wait_for_log("listening on", 300, lines)
    assert seen.wrong == []
    assert settle(machine).startswith("IDLE - ")


def look(machine):
    """Descriptors, threads and KiB of memory after a pass, which gives free memory back."""
    settle(machine)
    ask(machine, "CHECK")
    settle(machine)
    process = process_folder(machine)
    return observe(machine).descriptors, field(process, "Threads"), int(field(process, "RssAnon"))


def test_requests_by_the_hundred_thousand_leave_nothing_behind(machine):
    look(machine)  # with what the first pass makes for good
    with crowd(machine, 3000):
        pass
    *others, memory = look(machine)
    with crowd(machine, REQUESTS) as seen:
        pass
    assert seen.wrong == []
    assert sum(seen.replies.values()) == REQUESTS
    assert seen.replies["none"] < REQUESTS / 2
    *others_after, memory_after = look(machine)
    assert others_after == others
    assert FLAVOUR != "release" or memory_after < memory + MORE_KIB
