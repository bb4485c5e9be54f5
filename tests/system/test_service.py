"""The process of the service: its socket, its start and stop, and what it tells its manager."""

import signal
import time
from collections import namedtuple

import pytest

from lab.client_log import running
from lab.disturbances import replace_by_netcat
from lab.log_lines import HELD, LISTENING, RELEASED, START, STOP
from lab.machine import SERVICE, SOCKET
from lab.outside_world import UPDATES
from lab.releases import FIRST_STAMP, FLAVOUR
from lab.service_by_hand import Supervisor, start_by_hand
from lab.service_view import (CLIENT, CONFIG, PROGRAM, SECOND_SOCKET, SOCKET_UNIT, ask, backlogs,
                              context_switches, dial, end_unexpectedly, field, file_kind,
                              inode_of, process_folder, receive, restart, restarts, set_zone,
                              stop, wait_until_asleep)
from lab.update_steps import hold_session

NOT_THE_CLIENT = "ERR only the Vantrell Harbor client may hold a session"
ASK_STATUS = f"echo STATUS | nc -U -N {SOCKET}"


def test_the_socket_unit_serves_through_stops_and_crashes_of_the_service(machine):
    inode = inode_of(machine, SOCKET)
    # A unit with a limit on starts, or a socket unit with a limit on triggers, fails here.
    stop_and_ask = f"systemctl --quiet stop {SERVICE}; {ASK_STATUS}"
    assert machine.run(f"for i in $(seq 25); do {stop_and_ask}; done") == "IDLE - \n" * 25
    assert machine.log() == [START] + [STOP, START] * 25
    for unexpected in ("KILL", "TERM"):
        end_unexpectedly(machine, unexpected)
        assert ask(machine, "STATUS") == "IDLE - ", unexpected
    assert restarts(machine) == 2  # the service manager restarted it, not the socket
    machine.run(["systemctl", "--quiet", "stop", SERVICE])
    assert inode_of(machine, SOCKET) == inode
    assert file_kind(machine, SOCKET) == "socket 666 root"


@pytest.mark.parametrize("prepare, left", [
    (f"systemctl disable --now {SOCKET_UNIT}; rm -r /run/vantrell", ""),
    (SECOND_SOCKET, "2\n")], ids=["none", "two"])
def test_unless_passed_one_socket_the_service_makes_and_removes_its_own(machine, prepare, left):
    machine.run(f"systemctl --quiet stop {SERVICE}; {prepare}; systemctl start {SERVICE}")
    inode, lines = inode_of(machine, SOCKET), len(machine.log())
    assert file_kind(machine, "/run/vantrell") == "directory 755 root"
    assert 16 in backlogs(machine)  # beside that of the unit's own socket, if there is one
    machine.run(["systemctl", "kill", "--signal=KILL", SERVICE])
    assert machine.wait_for_log("listening", after=lines) == START
    assert inode_of(machine, SOCKET) != inode
    assert file_kind(machine, SOCKET) == "socket 666 root"
    assert machine.send("STATUS", user="carol") == "IDLE - "
    machine.run(["systemctl", "--quiet", "stop", SERVICE])
    assert machine.run(["ls", "-A", "/run/vantrell"]) == left


def test_a_stop_waits_neither_for_holders_nor_for_check_passes(machine):
    client = running(machine, machine.popen([CLIENT], user="alice"))
    for host in ["mute", "busy"] * 5:
        machine.run(["systemctl", "start", SERVICE])
        hold_session(machine, client)
        machine.behave()
        if host == "mute":
            machine.misbehave(UPDATES, None, "mute")
        with dial(machine):  # a peer that sends nothing
            assert [ask(machine, "CHECK") for _ in range(24)] == ["OK checking"] * 24
            machine.wait_for_mute(1 if host == "mute" else 0)
            assert stop(machine) == ["success", "0"]


def test_ready_follows_the_start_line_and_stopping_is_sent_last(machine):
    machine.run(["systemctl", "stop", SOCKET_UNIT, SERVICE])
    supervisor = Supervisor(machine)
    for end in (signal.SIGTERM, signal.SIGINT):
        daemon = supervisor.start()
        assert supervisor.log_before("READY=1") == START + "\n"
        assert ask(machine, "STATUS") == "IDLE - "
        process = process_folder(machine, daemon.pid_inside)
        assert field(process, "Umask") == "0022"
        assert int(field(process, "SigIgn"), 16) & 1 << signal.SIGPIPE - 1
        daemon.send_signal(end)
        assert supervisor.log_before("STOPPING=1") == STOP + "\n"
        assert daemon.wait(60) == 0
        assert not machine.exists(SOCKET)
    assert not supervisor.has_more()


FailedStart = namedtuple("FailedStart", "user prepare why")
FAILED_STARTS = [
    FailedStart("alice", "install -d -o alice", "vantrell-harbor-updated must run as root"),
    FailedStart("root", f"install -d {SOCKET}",
                f"cannot listen on {SOCKET} (Address already in use)"),
    FailedStart("root", "touch", f"cannot listen on {SOCKET} (Not a directory)"),
]


def test_a_start_that_fails_says_why_and_changes_nothing(machine):
    version = machine.run([PROGRAM, "--version", "other"], user="alice")
    assert version == f"vantrell-harbor-updated {FIRST_STAMP} (client-linux-amd64)\n"
    machine.run(["systemctl", "stop", SOCKET_UNIT, SERVICE])
    for user, prepare, why in FAILED_STARTS:
        listing = "find /run/vantrell -ls"
        before = machine.run(f"rm -r /run/vantrell; {prepare} /run/vantrell; {listing}")
        daemon = start_by_hand(machine, user)
        assert daemon.stderr.read().decode() == f"[UpdateSvc] {why}\n"
        assert daemon.wait() == 1, why
        assert machine.run(listing) == before, why


def test_32_connections_are_served_and_each_for_at_most_15_seconds(machine):
    whole, partial, mute, *_others = [dial(machine) for _ in range(32)]
    began = time.monotonic()
    assert machine.run(ASK_STATUS, check=False) == ""
    whole.sendall(b"STATUS\n")
    partial.sendall(b"STATUS")
    assert receive(whole) == "IDLE - \n"
    # The service counts the connection down just after it closes the descriptor.
    machine.run(f"until {ASK_STATUS} | grep -q IDLE; do :; done")
    assert receive(mute) == ""
    assert receive(partial) == "IDLE - \n"  # without its line feed
    assert 14 < time.monotonic() - began < 40


def test_only_the_client_may_hold_a_session_and_it_lasts_until_the_client_ends(machine):
    assert machine.send("HOLD") == NOT_THE_CLIENT
    assert ask(machine, "HOLD") == NOT_THE_CLIENT  # the machine cannot name this pid
    replaced = running(machine, machine.popen([CLIENT], user="alice"))
    hold_session(machine, replaced)
    with replace_by_netcat(machine) as talker:
        talker.stdin.write(b"HOLD\r\n")
        machine.wait_for_log(HELD.format(2))
        talker.stdin.write(b"STATUS\n" * 100)
        hold_session(machine, replaced, 3)
        talker.kill()
        machine.wait_for_log(RELEASED.format(2))
        assert talker.stdout.read() == b"OK holding\n"
    replaced.send_signal(signal.SIGHUP)
    machine.wait_for_log(RELEASED.format(0))


@pytest.mark.skipif(FLAVOUR == "tsan", reason="this sanitizer has a thread that wakes up")
def test_no_thread_wakes_up_while_the_service_is_idle_with_a_session_held(machine):
    restart(machine)
    hold_session(machine, running(machine, machine.popen([CLIENT])))
    process = process_folder(machine)
    wait_until_asleep(process)
    before = context_switches(process)
    time.sleep(2)
    assert context_switches(process) == before
    assert len(before) == 6  # two of each thread


def test_every_use_reads_the_settings_and_the_time_zone_again(machine):
    noon = int(machine.run("date +%-H")) - 12  # the zone in which it is noon; west is positive
    for zone, reply in ((noon, "OPEN"), (noon + (6 if noon < 0 else -6), "SHUT")):
        set_zone(machine, zone)
        machine.write(CONFIG, "WindowStart=10:00\nWindowEnd = 15:0\r\n")
        assert machine.send("WINDOW", user="carol") == f"{reply} 10:00-15:0 local"
    machine.write(CONFIG, "WindowEnabled=0\nChannel=BETA\n")
    assert machine.send("WINDOW") == "OPEN disabled"
    restart(machine)
    assert machine.log()[-2:] == [  # the unit becomes active after the start line
        STOP, LISTENING + "ring beta, component client-linux-amd64, window disabled"]
