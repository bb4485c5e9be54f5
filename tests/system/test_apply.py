"""Who may install and when, and what an install or its failure leaves on the machine."""

import time
from collections import namedtuple

import pytest

from lab.client_log import running, started, wait_for_client
from lab.client_signals import told_to_end
from lab.footprint import footprint
from lab.held_install import package_lock
from lab.log_lines import (ENDED, NO_COPY, NO_START, NO_WINDOW, REFUSED, RELAUNCHED,
                           RELEASED, STOP, UNJUDGED)
from lab.log_times import log_times
from lab.machine import SERVICE, SOCKET
from lab.outside_world import CHECK_PATH, UPDATES
from lab.peers import FAR_AWAY
from lab.releases import DEB, NEXT_STAMP, ROOT, package
from lab.service_view import CLIENT, CONFIG, COPY, RECORD, STAGING, STATE, digest_of, kept
from lab.stubs import calls, record, stub, unstub
from lab.update_steps import (client_requests_apply, hold_session, request_apply, said,
                              shut_window, stage, stage_by_hand, start_client)

README = f"notes/readme={ROOT}/README.md"
STAGED_README = f"{STAGING}/1.1/notes/readme"
BEHAVIOUR = "/usr/share/vantrell-harbor/behaviour"
pytestmark = pytest.mark.usefixtures("quiet")


@pytest.mark.slow
def test_inside_the_window_an_offer_installs_itself_and_replaces_all_records(machine):
    machine.write(CONFIG, "WindowEnabled=0\n")
    stage(machine, "1.1", files=[README], stamp=NEXT_STAMP)
    machine.write(RECORD, "the record of an earlier release\n")
    machine.write(f"{STATE}/client-rollback/stray", "")
    deb, readme = [digest_of(machine, path) for path in (f"{STAGING}/1.1/{DEB}", STAGED_README)]
    assert said(machine, len(machine.log()), f"updated {NEXT_STAMP} listening on")[:-1] == [
        NO_COPY, UNJUDGED, *ENDED]
    assert machine.version_of("vantrell-harbor") == "1.1"
    assert machine.send("STATUS") == "IDLE - "
    assert machine.read(RECORD) == f"{DEB} {deb}\nnotes/readme {readme}\n"
    assert digest_of(machine, COPY) == deb
    assert kept(machine) == [
        "client-rollback 700", "client-rollback/previous.deb 644", "client-staging 755",
        "install-id 644", "installed.sha256 644", "machine-id 644"]


@pytest.mark.slow
def test_outside_the_window_nothing_installs_itself_and_a_stop_waits_for_the_pass(machine):
    window = shut_window(machine)
    stage(machine, "1.1")
    assert machine.misbehave(UPDATES, CHECK_PATH, "hang").wait(120)
    lines = len(machine.log())
    machine.run(["systemctl", "stop", "--no-block", SERVICE])
    machine.run(f"while systemctl is-active {SERVICE}; do sleep 0.05; done")  # SIGTERM is sent
    machine.behave()
    machine.wait_for_log("ended with status", after=lines)
    outcome, *story = machine.log()[lines:]
    assert outcome.startswith("[UpdateSvc] curl error ")
    assert story == [NO_WINDOW.format(window), STOP, "ended with status 0"]


def test_a_session_refuses_everybody_and_a_shut_window_refuses_remote_users(machine):
    machine.write(BEHAVIOUR, "linger-after-apply")
    asking, working = [running(machine, machine.popen([CLIENT], user="carol")) for _ in range(2)]
    remote = machine.login("bob", seat=None, **FAR_AWAY)
    stage(machine, "1.1")
    lines = client_requests_apply(machine, asking)
    wait_for_client(machine, 'APPLY "OK applying"')
    hold_session(machine, working)
    asking.terminate()  # the service waits for its end before it applies
    assert machine.wait_for_log("refused", after=lines) == REFUSED + "a session is live"
    assert machine.send("APPLY") == "ERR a session is live"
    working.terminate()
    machine.wait_for_log(RELEASED.format(0))

    window = machine.send("WINDOW").removeprefix("SHUT ")
    lines = request_apply(machine, remote)
    assert machine.wait_for_log("refused", after=lines) == \
        REFUSED + f"outside the maintenance window ({window})"


@pytest.mark.slow
def test_each_user_gets_one_start_and_the_first_that_succeeds_is_judged(machine):
    stage(machine, "1.1")
    carol = machine.login("carol")
    alice, bob = [machine.login(user, seat=None) for user in ("alice", "bob")]
    machine.run("systemctl mask --now user@1003.service")  # carol's manager does not start
    *others, asking = [running(machine, client) for client in (
        machine.popen(["setpriv", "--reuid", "4711", "--clear-groups", CLIENT]),
        alice.start([CLIENT, "alice's first"]), bob.start([CLIENT, "bob's"]),
        machine.popen([CLIENT, "sessionless"], user="kiosk"),
        alice.start([CLIENT, "alice's second"]), carol.start([CLIENT, "carol's"]))]
    record(machine, "systemctl", "echo activating")
    first, failure, *story = said(machine, client_requests_apply(machine, asking),
                                  "ended with status")
    assert failure.startswith(NO_START.format("carol") + "Failed to ")
    assert [first, *story] == [NO_COPY, RELAUNCHED, *ENDED]
    assert {call.arguments[1] for call in calls(machine, "systemctl")} == {"--machine=alice@.host"}
    assert started(machine, "1.1") == [["alice's first"], ["bob's"], ["sessionless"]]
    assert told_to_end(machine, "1.0") == sorted(client.pid_inside for client in others)


@pytest.mark.slow
def test_clients_that_stay_are_waited_for_and_left_running(machine):
    stage(machine, "1.1")
    machine.write(BEHAVIOUR, "ignore-term\nlinger-after-apply")
    stubborn, asking = [start_client(machine, user) for user in ("bob", "alice")]
    machine.run(f"mv /usr/bin/systemd-run /root; {stub('cp', 'exit 1')}")
    asked, lines = time.monotonic(), client_requests_apply(machine, asking)
    failures = [NO_START.format(user) + "cannot run systemd-run" for user in ("alice", "bob")]
    assert said(machine, lines, "ended with status") == [NO_COPY, *failures, UNJUDGED, *ENDED]
    written = log_times(machine)
    assert 30 <= written[NO_COPY] - asked < 50  # for the client that asked
    assert 10 <= written[failures[1]] - written[failures[0]] < 50  # for bob's old client
    assert asking.poll() is None
    assert stubborn.poll() is None
    assert told_to_end(machine, "1.0") == [stubborn.pid_inside]
    said(machine, lines, "listening on")  # the copy failed, and this start has made it again
    assert f"{DEB} {digest_of(machine, COPY)}\n" in machine.read(RECORD)


def test_a_waiting_install_ignores_a_second_request_a_newer_release_and_a_sigterm(machine):
    stage(machine, "1.1", stamp=NEXT_STAMP)
    with package_lock(machine):
        request_apply(machine)
        machine.run("until pidof apt-get; do sleep 0.05; done")
        for _ in range(2):  # the first refusal must not end the claim of the install
            machine.wait_for_log(REFUSED + "an install is already running",
                                 after=request_apply(machine))
        stage(machine, "1.2", fresh=False)
        lines = len(machine.log())
        machine.run(["systemctl", "kill", "--signal=TERM", "--kill-who=main", SERVICE])
        # The service takes no more connections, and its manager is not yet told of the stop.
        machine.run(f'until [ -z "$(echo STATUS | timeout 2 nc -U -N {SOCKET})" ]; do :; done')
        assert machine.run(["systemctl", "is-active", SERVICE]) == "active\n"
    assert said(machine, lines, NEXT_STAMP)[:-1] == [UNJUDGED, *ENDED]
    assert machine.read(RECORD).startswith(DEB)


Refusal = namedtuple("Refusal", "error damage repair")
REFUSALS = [
    Refusal("notes/readme: sha256 no longer matches the manifest",
            f"echo >>{STAGED_README}", f"truncate -s -1 {STAGED_README}"),
    Refusal("the staged package is unreadable: two",
            stub("dpkg-deb", r"printf 'one\ntwo\r\n\n'; exit 2"), unstub("dpkg-deb")),
    Refusal("swap failed; the previous version was left in place (apt-get exited 100: "
            "E: Sub-process /usr/bin/dpkg returned an error code (1))",
            "mount -t tmpfs -o size=512k tmpfs /usr/share/vantrell-harbor",
            "umount /usr/share/vantrell-harbor"),
]
FOREIGN = "the staged package is not vantrell-harbor 1.1 amd64"
FOREIGN_FIELDS = ["Package: vantrell-harbour", "Version: 1.1-1", "Architecture: all"]


def expect_refusal(machine, error):
    """Checks that an install is refused with this error and changes nothing on the machine."""
    before, lines = footprint(machine), request_apply(machine)
    assert machine.wait_for_log(REFUSED, after=lines) == REFUSED + error
    assert footprint(machine) == before


def test_a_refused_install_gives_its_reason_and_changes_nothing(machine):
    assert machine.send("APPLY") == "ERR nothing is staged"
    start_client(machine, "alice")
    stage(machine, "1.1", "--ballast", "1", files=[README])
    for refusal in REFUSALS:
        machine.run(refusal.damage)
        expect_refusal(machine, refusal.error)
        machine.run(refusal.repair)

    own = package("1.1").read_bytes()
    for error, files in [
            *((FOREIGN, [(DEB, package("1.1", "--field", field).read_bytes())])
              for field in FOREIGN_FIELDS),
            ("the manifest lists more than one package", [("a.deb", own), ("c/.deb", own)]),
            ("the manifest lists no package", [("client.DEB", own)])]:
        stage_by_hand(machine, files)
        expect_refusal(machine, error)
