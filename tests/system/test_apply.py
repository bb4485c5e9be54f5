"""Who may install and when, and what an install or its failure leaves on the machine."""

import re
import time
from collections import namedtuple

import pytest

from lab import log_lines as log
from lab.client_log import client_starts, running, started, told_to_end, wait_for_client
from lab.damage import (INSTALLER_KILLED, INSTALLER_MISSING, NO_ROOM_FOR_PACKAGE,
                        PACKAGE_READER_MISSING, PACKAGE_UNREADABLE, STAGED_FILE_CHANGED)
from lab.footprint import footprint
from lab.held_install import package_lock
from lab.invariants import observe, violations
from lab.machine import SERVICE
from lab.outside_world import CHECK_PATH, UPDATES
from lab.peers import FAR_AWAY, clients_of_everybody
from lab.releases import DEB, FOREIGN_FIELDS, NEXT_STAMP, README, package
from lab.service_view import (CLIENT, CLIENT_BEHAVIOUR, CONFIG, COPY, INSTALL, RECORD, STAGING,
                              STATE, begin_stop, digest_of, end_listening, environment_of, kept,
                              main_pid)
from lab.stubs import Call, calls, record, stub
from lab.update_steps import (client_requests_apply, hold_session, refusal, request_apply, said,
                              shut_window, stage, stage_by_hand, start_client)

pytestmark = pytest.mark.usefixtures("quiet")


def test_inside_the_window_an_offer_installs_itself_and_replaces_all_records(machine):
    machine.write(CONFIG, "WindowEnabled=0\n")
    stage(machine, "1.1", files=[README], stamp=NEXT_STAMP)
    machine.write(RECORD, "the record of an earlier release\n")
    machine.write(f"{STATE}/client-rollback/stray", "")
    deb, readme = [digest_of(machine, f"{STAGING}/1.1/{name}") for name in (DEB, "notes/readme")]
    assert said(machine, len(machine.log()), f"updated {NEXT_STAMP} listening on")[:-1] == [
        log.NO_COPY, log.UNJUDGED, *log.ENDED]
    assert machine.send("STATUS") == "IDLE - "
    assert machine.read(RECORD) == f"{DEB} {deb}\nnotes/readme {readme}\n"
    assert digest_of(machine, COPY) == deb
    assert kept(machine) == [
        "client-rollback 700", "client-rollback/previous.deb 644", "client-staging 755",
        "install-id 644", "installed.sha256 644", "machine-id 644"]


def test_outside_the_window_nothing_installs_itself_and_a_stop_waits_for_the_pass(machine):
    window = shut_window(machine)
    stage(machine, "1.1")
    assert machine.misbehave(UPDATES, CHECK_PATH, "hang").wait(120)
    lines = begin_stop(machine)
    machine.behave()
    machine.wait_for_log("ended with status", after=lines)
    outcome, *story = machine.log()[lines:]
    assert outcome.startswith("[UpdateSvc] curl error ")
    assert story == [log.NO_WINDOW.format(window), log.STOP, "ended with status 0"]


def test_a_session_refuses_everybody_and_a_shut_window_refuses_remote_users(machine):
    machine.write(CLIENT_BEHAVIOUR, "linger-after-apply")
    asking, working = [running(machine, machine.popen([CLIENT], user="carol")) for _ in range(2)]
    remote = machine.login("bob", seat=None, **FAR_AWAY)
    stage(machine, "1.1")
    lines = client_requests_apply(machine, asking)
    wait_for_client(machine, 'APPLY "OK applying"')
    hold_session(machine, working)
    asking.terminate()  # the service waits for its end before it applies
    assert refusal(machine, lines) == "a session is live"
    assert machine.send("APPLY") == "ERR a session is live"
    working.terminate()
    machine.wait_for_log(log.RELEASED.format(0))

    window = machine.send("WINDOW").removeprefix("SHUT ")
    assert refusal(machine, request_apply(machine, remote)) == \
        f"outside the maintenance window ({window})"


def test_each_user_gets_one_start_and_the_first_that_succeeds_is_judged(machine):
    stage(machine, "1.1")
    *others, carols = clients_of_everybody(machine)
    record(machine, "systemctl", "echo activating")
    first, failure, *story = said(machine, client_requests_apply(machine, carols),
                                  "ended with status")
    assert failure.startswith(log.NO_START.format("carol") + "Failed to ")
    assert [first, *story] == [log.NO_COPY, log.RELAUNCHED, *log.ENDED]
    assert {call.arguments[1] for call in calls(machine, "systemctl")} == {"--machine=alice@.host"}
    assert started(machine, "1.1") == [["alice's first"], ["bob's"], ["sessionless"]]
    assert told_to_end(machine, "1.0") == sorted(client.pid_inside for client in others)


def test_clients_that_stay_are_waited_for_and_left_running(machine):
    stage(machine, "1.1")
    machine.write(CLIENT_BEHAVIOUR, "ignore-term\nlinger-after-apply")
    stubborn, asking = [start_client(machine, user) for user in ("bob", "alice")]
    machine.run(f"mv /usr/bin/systemd-run /root; {stub('cp', 'exit 1')}")
    asked, lines = time.monotonic(), client_requests_apply(machine, asking)
    failures = [log.NO_START.format(user) + "cannot run systemd-run" for user in ("alice", "bob")]
    assert said(machine, lines, "ended with status") == [
        log.NO_COPY, *failures, log.UNJUDGED, *log.ENDED]
    written = log.times(machine)
    assert 30 <= written[log.NO_COPY] - asked < 50  # for the client that asked
    assert 10 <= written[failures[1]] - written[failures[0]] < 50  # for bob's old client
    assert [client.poll() for client in (asking, stubborn)] == [None, None]
    assert told_to_end(machine, "1.0") == [stubborn.pid_inside]
    said(machine, lines, "listening on")  # the copy failed, and this start has made it again
    assert f"{DEB} {digest_of(machine, COPY)}\n" in machine.read(RECORD)


def test_a_waiting_install_ignores_a_second_request_a_newer_release_and_a_sigterm(machine):
    stage(machine, "1.1", stamp=NEXT_STAMP)
    with package_lock(machine):
        request_apply(machine)
        machine.run("until pidof apt-get; do sleep 0.05; done")
        for _ in range(2):  # the first refusal must not end the claim of the install
            assert refusal(machine, request_apply(machine)) == "an install is already running"
        stage(machine, "1.2", fresh=False)
        lines = len(machine.log())
        end_listening(machine)
        assert machine.run(["systemctl", "is-active", SERVICE]) == "active\n"
    assert said(machine, lines, NEXT_STAMP)[:-1] == [log.UNJUDGED, *log.ENDED]
    assert machine.read(RECORD).startswith(DEB)


SWAP_FAILED = "swap failed; the previous version was left in place"
Refusal = namedtuple("Refusal", "error damage repair")
REFUSALS = [
    Refusal("notes/readme: sha256 no longer matches the manifest", *STAGED_FILE_CHANGED),
    Refusal("the staged package is unreadable: two", *PACKAGE_UNREADABLE),
    Refusal("the staged package is unreadable: cannot run dpkg-deb", *PACKAGE_READER_MISSING),
    Refusal(f"{SWAP_FAILED} (apt-get exited -1: cannot run apt-get)", *INSTALLER_MISSING),
    Refusal(f"{SWAP_FAILED} (apt-get exited -1: begun)", *INSTALLER_KILLED),
    Refusal(f"{SWAP_FAILED} (apt-get exited 100: "
            "E: Sub-process /usr/bin/dpkg returned an error code (1))", *NO_ROOM_FOR_PACKAGE),
]
FOREIGN = "the staged package is not vantrell-harbor 1.1 amd64"


def expect_refusal(machine, error):
    """Checks that an install is refused with this error and changes nothing on the machine."""
    before = footprint(machine)
    assert refusal(machine, request_apply(machine)) == error
    assert footprint(machine) == before


@pytest.mark.long
def test_a_refused_install_gives_its_reason_and_changes_nothing(machine):
    assert machine.send("APPLY") == "ERR nothing is staged"
    start_client(machine, "alice")
    stage(machine, "1.1", "--ballast", "1", files=[README])
    before = observe(machine)
    for refused in REFUSALS:
        machine.run(refused.damage)
        expect_refusal(machine, refused.error)
        machine.run(refused.repair)
        assert violations(machine, before) == [], refused

    own = package("1.1").read_bytes()
    for error, files in [
            *((FOREIGN, [(DEB, package("1.1", "--field", field).read_bytes())])
              for field in FOREIGN_FIELDS),
            ("the manifest lists more than one package", [("a.deb", own), ("c/.deb", own)]),
            ("the manifest lists no package", [("client.DEB", own)])]:
        stage_by_hand(machine, files)
        expect_refusal(machine, error)


ARGUMENTS = ["--room", "two words", "", 'a "quoted" one', "it's", "two\nlines", "--", "-x"]
KEPT = ["DISPLAY", "WAYLAND_DISPLAY", "XAUTHORITY", "XDG_RUNTIME_DIR", "XDG_SESSION_TYPE",
        "XDG_CURRENT_DESKTOP", "DBUS_SESSION_BUS_ADDRESS", "LANG", "LC_ALL"]
DROPPED = {"LANGUAGE": "de", "SECRET": "DISPLAY=:1", "MY_DISPLAY": ":2"}
INSTALL_ENVIRONMENT = ["DEBIAN_FRONTEND=noninteractive", "VANTRELL_UPDATE_APPLY=1",
                       "NEEDRESTART_SUSPEND=1"]


def test_the_client_that_asks_returns_as_the_new_version(machine):
    stage(machine, "1.1", stamp=NEXT_STAMP)
    client = running(machine, machine.login("alice").start([CLIENT, *ARGUMENTS], env={
        "LC_ALL": "C.UTF-8", "WAYLAND_DISPLAY": 'with "quotes" and\na line feed', **DROPPED}))
    handed_on = [entry for entry in environment_of(machine, client.pid_inside)
                 if entry.split("=")[0] in KEPT]
    assert len(handed_on) == len(KEPT)
    own = environment_of(machine, main_pid(machine))
    for tool in ("apt-get", "systemd-run", "systemctl", "cp"):
        record(machine, tool)
    story = said(machine, client_requests_apply(machine, client), f"updated {NEXT_STAMP} listening")
    assert story[:-1] == [log.NO_COPY, log.RELAUNCHED, *log.ENDED]

    deb = f"{STAGING}/1.1/{DEB}"
    assert calls(machine, "apt-get") == [Call([*INSTALL, deb], own + INSTALL_ENVIRONMENT)]
    [start] = [call for call in calls(machine, "systemd-run") if "--user" in call.arguments]
    unit = re.fullmatch(r"--unit=(vantrell-harbor-relaunch-\d{10})", start.arguments[2])[1]
    manager = ["--user", "--machine=alice@.host"]
    assert start == Call(
        [*manager, f"--unit={unit}", "--collect", "--quiet",
         *("--setenv=" + entry for entry in handed_on), "--", CLIENT, *ARGUMENTS], own)
    queries = calls(machine, "systemctl")
    query = Call([*manager, "show", "-p", "ActiveState", "--value", unit], own)
    assert queries == [query] * len(queries)
    assert 10 <= len(queries) <= 80  # one every 250 ms for 20 s, and each takes its own time
    assert calls(machine, "cp") == [Call(["--", deb, COPY], own)]

    [(_, uid, arguments, environment)] = client_starts(machine, "1.1")
    assert uid == 1001
    assert arguments == ARGUMENTS
    assert set(handed_on) <= set(environment)
    assert not {"XDG_SESSION_ID", "XDG_SEAT"} & {entry.split("=")[0] for entry in environment}
