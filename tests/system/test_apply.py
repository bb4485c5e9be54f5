"""Who may install and when, and what an install or its failure leaves on the machine."""

import signal
import time
from typing import NamedTuple

import pytest
from conftest import ENDED, NO_COPY, RELAUNCHED, ROOT, SERVICE, UNJUDGED

from lab.client_log import client_starts, running, wait_for_client
from lab.client_signals import told_to_end
from lab.held_install import package_lock
from lab.log_times import log_times
from lab.machine import SOCKET
from lab.outside_world import CHECK_PATH, UPDATES
from lab.releases import NEXT_STAMP, package, publish_by_hand, release
from lab.service_view import CLIENT, CONFIG, STATE, kept
from lab.stubs import calls, record, stub, unstub
from lab.update_steps import client_requests_apply, request_apply, said, shut_window, stage

DEB = "vantrell-harbor_1.1_amd64.deb"
README = f"notes/readme={ROOT}/README.md"
STAGED_README = f"{STATE}/client-staging/1.1/notes/readme"
BEHAVIOUR = "/usr/share/vantrell-harbor/behaviour"
REFUSED = "[UpdateSvc] apply refused: "
NO_START = "[UpdateSvc] could not start the client in {}'s session: "


@pytest.mark.slow
def test_inside_the_window_an_offer_installs_itself_and_replaces_all_records(quiet_machine):
    machine = quiet_machine
    machine.write(CONFIG, "WindowEnabled=0\n")
    stage(machine, "1.1", files=[README], stamp=NEXT_STAMP)
    machine.write(f"{STATE}/installed.sha256", "the record of an earlier release\n")
    machine.write(f"{STATE}/client-rollback/stray", "")
    deb, readme = [line.split()[0] for line in machine.run(
        f"cd {STATE}/client-staging/1.1 && sha256sum {DEB} notes/readme").splitlines()]
    lines = len(machine.log())
    assert said(machine, lines, f"updated {NEXT_STAMP} listening on")[:-1] == [
        NO_COPY, UNJUDGED, *ENDED]
    assert machine.version_of("vantrell-harbor") == "1.1"
    assert machine.send("STATUS") == "IDLE - "

    assert machine.read(f"{STATE}/installed.sha256") == f"{DEB} {deb}\nnotes/readme {readme}\n"
    copy = machine.run(["sha256sum", f"{STATE}/client-rollback/previous.deb"]).split()[0]
    assert copy == deb
    assert kept(machine) == [
        "client-rollback 700", "client-rollback/previous.deb 644", "client-staging 755",
        "install-id 644", "installed.sha256 644", "machine-id 644"]


@pytest.mark.slow
def test_outside_the_window_nothing_installs_itself_and_a_stop_waits_for_the_pass(quiet_machine):
    machine = quiet_machine
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
    assert story == [f"[UpdateSvc] holding: outside the maintenance window ({window})",
                     "[UpdateSvc] stopping", "ended with status 0"]


def test_a_session_refuses_everybody_and_a_shut_window_refuses_remote_users(quiet_machine):
    machine = quiet_machine
    machine.write(BEHAVIOUR, "linger-after-apply")
    asking, working = [running(machine, machine.popen([CLIENT], user="carol")) for _ in range(2)]
    remote = machine.login("bob", seat=None, remote_host="192.0.2.7")
    stage(machine, "1.1")
    lines = client_requests_apply(machine, asking)
    wait_for_client(machine, 'APPLY "OK applying"')
    working.send_signal(signal.SIGUSR2)
    machine.wait_for_log("a session is live (1 held)")
    asking.terminate()  # the service waits for its end before it applies
    assert machine.wait_for_log("refused", after=lines) == REFUSED + "a session is live"
    assert machine.send("APPLY") == "ERR a session is live"
    working.terminate()
    machine.wait_for_log("a session ended (0 held)")

    window = machine.send("WINDOW").removeprefix("SHUT ")
    lines = request_apply(machine, remote)
    assert machine.wait_for_log("refused", after=lines) == \
        REFUSED + f"outside the maintenance window ({window})"


@pytest.mark.slow
def test_each_user_gets_one_start_and_the_first_that_succeeds_is_judged(quiet_machine):
    machine = quiet_machine
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
    story = said(machine, client_requests_apply(machine, asking), "ended with status")
    failure = story.pop(1)
    assert failure.startswith(NO_START.format("carol") + "Failed to ")
    assert story == [NO_COPY, RELAUNCHED, *ENDED]
    assert {call.arguments[1] for call in calls(machine, "systemctl")} == {"--machine=alice@.host"}
    assert [arguments for _, _, arguments, _ in client_starts(machine, "1.1")] == [
        ["alice's first"], ["bob's"], ["sessionless"]]
    assert told_to_end(machine, "1.0") == sorted(client.pid_inside for client in others)


@pytest.mark.slow
def test_clients_that_stay_are_waited_for_and_left_running(quiet_machine):
    machine = quiet_machine
    stage(machine, "1.1")
    machine.write(BEHAVIOUR, "ignore-term\nlinger-after-apply")
    stubborn, asking = [running(machine, machine.login(user).start([CLIENT]))
                        for user in ("bob", "alice")]
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
    # The copy failed. The next start makes it again.
    said(machine, lines, "listening on")
    copied = machine.run(["sha256sum", f"{STATE}/client-rollback/previous.deb"]).split()[0]
    assert f"{DEB} {copied}\n" in machine.read(f"{STATE}/installed.sha256")


def test_a_waiting_install_ignores_a_second_request_a_newer_release_and_a_sigterm(quiet_machine):
    machine = quiet_machine
    stage(machine, "1.1", stamp=NEXT_STAMP)
    with package_lock(machine):
        request_apply(machine)
        machine.run("until pidof apt-get; do sleep 0.05; done")
        for _ in range(2):  # the first refusal must not end the claim of the install
            machine.wait_for_log(REFUSED + "an install is already running",
                                 after=request_apply(machine))
        machine.publish(release("1.2"))
        assert machine.send("CHECK") == "OK checking"
        machine.wait_for_log("1.2 staged and verified", 120)
        lines = len(machine.log())
        machine.run(["systemctl", "kill", "--signal=TERM", "--kill-who=main", SERVICE])
        # The service takes no more connections, and its manager is not yet told of the stop.
        machine.run(f'until [ -z "$(echo STATUS | timeout 2 nc -U -N {SOCKET})" ]; do :; done')
        assert machine.run(["systemctl", "is-active", SERVICE]) == "active\n"
    assert said(machine, lines, NEXT_STAMP)[:-1] == [UNJUDGED, *ENDED]
    assert machine.read(f"{STATE}/installed.sha256").startswith(DEB)


class Refusal(NamedTuple):
    error: str
    damage: str
    repair: str


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


def expect_refusal(machine, error, damage=":", repair=":"):
    """Checks that an install is refused with this error and changes nothing on the machine."""
    state = (f"cd {STATE}; find . -printf '%p %m %l\n' -type f -exec sha256sum {{}} +; "
             "dpkg-query -W vantrell-harbor; dpkg --audit; dpkg --verify vantrell-harbor; "
             f"pgrep -a vantrell; echo STATUS | nc -U -N {SOCKET} | cut -d ' ' -f 1,2")
    before = machine.run(f"{damage}\n{state}")
    lines = request_apply(machine)
    assert machine.wait_for_log(REFUSED, after=lines) == REFUSED + error
    assert machine.run(f"{state}\n{repair}") == before


def test_a_refused_install_gives_its_reason_and_changes_nothing(quiet_machine):
    machine = quiet_machine
    assert machine.send("APPLY") == "ERR nothing is staged"
    running(machine, machine.login("alice").start([CLIENT]))
    stage(machine, "1.1", "--ballast", "1", files=[README])
    for refusal in REFUSALS:
        expect_refusal(machine, *refusal)

    own = package("1.1").read_bytes()
    for error, files in [
            *((FOREIGN, [(DEB, package("1.1", "--field", field).read_bytes())])
              for field in FOREIGN_FIELDS),
            ("the manifest lists more than one package", [("a.deb", own), ("c/.deb", own)]),
            ("the manifest lists no package", [("client.DEB", own)])]:
        machine.run(["systemctl", "restart", SERVICE])
        publish_by_hand(machine, files)
        lines = len(machine.log())
        assert machine.send("CHECK") == "OK checking"
        machine.wait_for_log("1.1 staged and verified", 120, lines)
        expect_refusal(machine, error)
