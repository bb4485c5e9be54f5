"""Who may install when, what an install leaves behind, and what becomes of it when tools fail."""

import signal
import subprocess
import time

import pytest
from conftest import ENDED, NO_COPY, RELAUNCHED, ROOT, SERVICE, UNJUDGED

from lab.client_log import CLIENT_LOG, client_starts, running, wait_for_client
from lab.machine import SOCKET
from lab.releases import NEXT_STAMP, package, publish_by_hand
from lab.service_view import CLIENT, CONFIG, STATE, kept
from lab.update_steps import client_requests_apply, request_apply, said, stage

DEB = "vantrell-harbor_1.1_amd64.deb"
README = f"notes/readme={ROOT}/README.md"
STAGED = f"{STATE}/client-staging/1.1"
BEHAVIOUR = "/usr/share/vantrell-harbor/behaviour"
REFUSED = "[UpdateSvc] apply refused: "
NOT_SWAPPED = "swap failed; the previous version was left in place (apt-get exited "
DPKG_FAILED = NOT_SWAPPED + "100: E: Sub-process /usr/bin/dpkg returned an error code (1))"
# The lock that apt-get and dpkg take, as they take it, until the input ends.
HOLD_PACKAGE_LOCK = r"""
use Fcntl; my $whole = pack 's s x4 q q l x4', F_WRLCK, 0, 0, 0, 0;
open F, '>>/var/lib/dpkg/lock-frontend'; fcntl(F, F_SETLKW, $whole) or die;
$| = 1; print "held\n"; <STDIN>"""


@pytest.mark.slow
def test_inside_the_window_an_offer_installs_itself(quiet_machine):
    machine = quiet_machine
    machine.write(CONFIG, "WindowEnabled=0\n")
    stage(machine, "1.1", files=[README], stamp=NEXT_STAMP)
    hashes = f"cd {STATE} && sha256sum client-staging/1.1/vantrell* client-staging/1.1/notes/readme"
    staged, identity, lines = machine.run(hashes), machine.read(f"{STATE}/install-id"), \
        len(machine.log())
    assert said(machine, lines, f"updated {NEXT_STAMP} listening on")[:-1] == [
        NO_COPY, UNJUDGED, *ENDED]
    assert "Scheduled restart job" in machine.journal()
    assert (machine.version_of("vantrell-harbor"), machine.send("STATUS")) == ("1.1", "IDLE - ")
    assert machine.send("CHECK") == "OK checking"
    machine.wait_for_log("[UpdateSvc] up to date", after=lines)

    (package_hash, _), (readme_hash, _) = map(str.split, staged.splitlines())
    assert machine.read(f"{STATE}/installed.sha256") == \
        f"{DEB} {package_hash}\nnotes/readme {readme_hash}\n"
    assert package_hash in machine.run(f"sha256sum {STATE}/client-rollback/previous.deb")
    assert machine.run(hashes) == staged and machine.read(f"{STATE}/install-id") == identity
    assert kept(machine) == [
        "client-rollback 700", "client-rollback/previous.deb 644", "client-staging 755",
        "client-staging/1.1 755", "client-staging/1.1/notes 755",
        "client-staging/1.1/notes/readme 644", f"client-staging/1.1/{DEB} 644", "install-id 644",
        "installed.sha256 644"]


@pytest.mark.slow
def test_a_session_stops_everybody_and_the_window_all_but_those_at_the_machine(quiet_machine):
    machine = quiet_machine
    machine.write(BEHAVIOUR, "linger-after-apply")
    asking, working = [running(machine, machine.popen([CLIENT], user="carol")) for _ in range(2)]
    at_the_machine = machine.login("alice")
    away = [machine.login(user, seat=None, remote_host="192.0.2.7") for user in ("alice", "bob")]
    stage(machine, "1.1")
    lines = client_requests_apply(machine, asking)
    wait_for_client(machine, 'APPLY "OK applying"')
    working.send_signal(signal.SIGUSR2)
    machine.wait_for_log("a session is live (1 held)")
    asking.terminate()  # for which its request was waiting
    assert machine.wait_for_log("refused", after=lines) == REFUSED + "a session is live"
    for session in (at_the_machine, *away, None):
        assert machine.send("APPLY", session=session) == "ERR a session is live"
    machine.wait_for_log("[UpdateSvc] holding: a session is live", 120)
    working.terminate()
    machine.wait_for_log("a session ended (0 held)")

    window = machine.send("WINDOW").removeprefix("SHUT ")
    for session in away:
        assert machine.wait_for_log("refused", after=request_apply(machine, session)) == \
            REFUSED + f"outside the maintenance window ({window})"
    assert machine.send("STATUS") == "READY 1.1 staged 1.1"
    lines = request_apply(machine, at_the_machine)
    assert said(machine, lines, "ended with status") == [NO_COPY, UNJUDGED, *ENDED]


@pytest.mark.slow
def test_each_user_gets_one_start_and_the_first_that_succeeds_is_judged(quiet_machine):
    machine = quiet_machine
    stage(machine, "1.1")
    machine.run("systemctl mask user@1003.service")  # carol's manager does not start
    alice, bob = machine.login("alice"), machine.login("bob", seat=None)
    *old, asking = [running(machine, client) for client in (
        machine.popen(["setpriv", "--reuid", "4711", "--clear-groups", CLIENT]),
        machine.popen([CLIENT, "carol's"], user="carol"), alice.start([CLIENT, "alice's first"]),
        bob.start([CLIENT, "bob's"]), machine.popen([CLIENT, "sessionless"], user="kiosk"),
        alice.start([CLIENT, "alice's second"]))]
    story = said(machine, client_requests_apply(machine, asking), "ended with status")
    why = story.pop(1).removeprefix("[UpdateSvc] could not start the client in carol's session: ")
    assert why.startswith("Failed to ") and story == [NO_COPY, RELAUNCHED, *ENDED]
    assert [arguments for *_, arguments, _ in client_starts(machine, "1.1")] == [
        ["alice's second"], ["bob's"], ["sessionless"]]
    # The manager that the start had brought up for him alone is gone again, and took it along.
    new = client_starts(machine, "1.1")[-1][0]
    wait_for_client(machine, f"pid {new} uid 1010] SIGTERM")
    machine.run("while systemctl is-active user@1010.service; do sleep 0.1; done")
    ended = [line.split()[2] for line in machine.read(CLIENT_LOG).splitlines() if "SIGTERM" in line]
    assert sorted(map(int, ended)) == sorted([*(client.pid_inside for client in old), new])


@pytest.mark.slow
def test_clients_that_stay_are_waited_for_and_left_alone(quiet_machine):
    machine = quiet_machine
    stage(machine, "1.1")
    machine.write(BEHAVIOUR, "ignore-term\nlinger-after-apply")
    stubborn, asking = [running(machine, machine.login(user).start([CLIENT]))
                        for user in ("bob", "alice")]
    machine.run(f"mv /usr/bin/systemd-run /root; {stub('cp', 'exit 1')}")
    asked, lines = time.monotonic(), client_requests_apply(machine, asking)
    machine.wait_for_log(NO_COPY, 120)
    swapped, story = time.monotonic(), said(machine, lines, "ended with status")
    assert swapped - asked > 30 and time.monotonic() - swapped > 10
    assert story == [NO_COPY, *(f"[UpdateSvc] could not start the client in {user}'s session: "
                                "cannot run systemd-run" for user in ("alice", "bob")),
                     UNJUDGED, *ENDED]
    assert asking.poll() is None and stubborn.poll() is None
    told = [line for line in machine.read(CLIENT_LOG).splitlines() if "SIGTERM" in line]
    assert told == [f"[1.0 pid {stubborn.pid_inside} uid 1002] SIGTERM ignored"]
    assert machine.read(f"{STATE}/installed.sha256").startswith(DEB)
    assert machine.run(f"ls -A {STATE}/client-rollback") == ""


def test_a_sigterm_lets_an_install_end_that_waits_for_the_package_lock(quiet_machine):
    machine = quiet_machine
    busy = REFUSED + "an install is already running"
    stage(machine, "1.1", stamp=NEXT_STAMP)
    with machine.popen(["perl", "-e", HOLD_PACKAGE_LOCK], stdin=subprocess.PIPE,
                       stdout=subprocess.PIPE) as somebody:
        assert somebody.stdout.readline() == b"held\n"
        lines = request_apply(machine)
        machine.run("until pidof apt-get; do sleep 0.05; done")
        for _ in range(2):  # the second refusal shows that the first left the claim alone
            machine.wait_for_log(busy, after=request_apply(machine))
        machine.run(["systemctl", "kill", "--signal=TERM", "--kill-who=main", SERVICE])
        # Connections are no longer taken, and yet the service manager hears of no end.
        machine.run(f'until [ -z "$(echo STATUS | timeout 2 nc -U -N {SOCKET})" ]; do :; done')
        assert machine.run(["systemctl", "is-active", SERVICE]) == "active\n"
    assert said(machine, lines, NEXT_STAMP)[:-1] == [NO_COPY, busy, busy, UNJUDGED, *ENDED]


def test_a_stop_lets_an_install_end_that_fails_in_postinst(quiet_machine):
    machine = quiet_machine
    stage(machine, "1.1", "--postinst",
          "if mkdir /run/begun; then until [ -e /run/go ]; do sleep 0.1; done; exit 9; fi")
    lines = request_apply(machine)
    machine.run("until [ -e /run/begun ]; do sleep 0.05; done; "
                f"systemctl stop --no-block {SERVICE}; touch /run/go")
    assert said(machine, lines, "ended with status")[-4:] == [
        f"[UpdateSvc] {DPKG_FAILED}", REFUSED + DPKG_FAILED, "[UpdateSvc] stopping",
        "ended with status 0"]
    machine.run(["systemctl", "start", SERVICE])  # which first ends what dpkg has begun
    assert machine.version_of("vantrell-harbor") == "1.1" and machine.run("dpkg --audit") == ""


MEGABYTE = "yes " + 63 * "x" + " | head -c 1M"
FOREIGN = "the staged package is not vantrell-harbor 1.1 amd64"
UNREADABLE = "the staged package is unreadable: "


def stub(tool, script):
    """A shell command that puts a script first in the PATH of the service."""
    path = f"/usr/local/sbin/{tool}"
    return f"cat >{path} <<'END'\n#!/bin/sh\n{script}\nEND\nchmod +x {path}"


DAMAGES = [  # done in the staged folder, or to the tools
    ("rm -r $PWD", "the staged set is empty"),
    (f"touch {DEB}.part", "the staged set has 3 files, the manifest lists 2"),
    ("rm notes/readme", "the staged set has 1 files, the manifest lists 2"),
    ("mv notes/readme .", "notes/readme: missing from the staged set"),
    (f"mv {DEB} /run; ln -s /run/{DEB} .", f"{DEB}: missing from the staged set"),
    ("echo >>notes/readme", "notes/readme: sha256 no longer matches the manifest"),
    (f"echo >>{DEB}", f"{DEB}: sha256 no longer matches the manifest"),
    ("mv /usr/bin/dpkg-deb /root", UNREADABLE + "cannot run dpkg-deb"),
    (stub("dpkg-deb", r"printf 'one\ntwo\r\n\n'; exit 2"), UNREADABLE + "two"),
    (stub("dpkg-deb", "echo half; kill -KILL $$"), UNREADABLE + "half"),
    (stub("dpkg-deb", f"{MEGABYTE}; exit 1"), UNREADABLE + 63 * "x"),
    (stub("dpkg-deb", MEGABYTE), FOREIGN),
    ("mv /usr/bin/apt-get /root", NOT_SWAPPED + "-1: cannot run apt-get)"),
    (stub("apt-get", "exit 3"), NOT_SWAPPED + "3: )"),
    (stub("apt-get", "echo half; kill -KILL $$"), NOT_SWAPPED + "-1: half)"),
    (stub("apt-get", f"{MEGABYTE}; exit 1"), NOT_SWAPPED + "1: " + 63 * "x" + ")"),
    ("mount -t tmpfs -o size=512k tmpfs /usr/share/vantrell-harbor", DPKG_FAILED),  # a full disk
]
REPAIR = (f"(rm -rf /usr/local/sbin/dpkg-deb /usr/local/sbin/apt-get {STAGED}; cp -a /root/good "
          f"{STAGED}; mv /root/dpkg-deb /root/apt-get /usr/bin; umount /usr/share/vantrell-harbor) "
          "2>/dev/null")


def assert_refused(machine, text, damage=":", repair=":"):
    """Sees an install refused in these words, and leave no trace."""
    look = (f"cd {STATE} && find . -printf '%p %m %l\n' -type f -exec sha256sum {{}} +; "
            "dpkg-query -W vantrell-harbor; dpkg --audit; dpkg --verify vantrell-harbor; "
            f"pgrep -a vantrell; echo STATUS | nc -U -N {SOCKET}")
    before = machine.run(f"{damage}\n{look}")
    assert machine.wait_for_log(REFUSED, after=request_apply(machine)) == REFUSED + text
    assert machine.run(f"{look}\n{repair}", check=False) == before


@pytest.mark.slow
def test_every_gate_refuses_in_its_own_words_and_leaves_everything(quiet_machine):
    machine = quiet_machine
    assert machine.send("APPLY") == "ERR nothing is staged"
    client = running(machine, machine.login("alice").start([CLIENT]))
    own = package("1.1").read_bytes()
    for text, *files in (
            *((FOREIGN, (DEB, package("1.1", "--field", field).read_bytes())) for field in (
                "Package: vantrell-harbour", "Version: 1.1-1", "Architecture: all")),
            ("the manifest lists more than one package", ("a.deb", own), ("c/.deb", own)),
            ("the manifest lists no package", ("client.DEB", own))):
        machine.run(["systemctl", "restart", SERVICE])
        publish_by_hand(machine, files)
        assert machine.send("CHECK") == "OK checking"
        machine.run(f"until echo STATUS | nc -U -N {SOCKET} | grep READY; do sleep 0.05; done")
        assert_refused(machine, text)

    machine.run(["systemctl", "restart", SERVICE])
    stage(machine, "1.1", "--ballast", "1", files=[README])
    machine.run(f"cp -a {STAGED} /root/good")
    for damage, text in DAMAGES:
        assert_refused(machine, text, f"cd {STAGED}; {damage}", REPAIR)
    client.terminate()
    assert said(machine, request_apply(machine), "ended with status")[-3:] == [UNJUDGED, *ENDED]
