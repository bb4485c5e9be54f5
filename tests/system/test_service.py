"""The process of the service: its socket, its start and stop, and what it tells its manager."""

import signal
import socket
import subprocess
import time
from collections import namedtuple

import pytest

from lab.client_log import running, wait_for_client
from lab.machine import SERVICE, SOCKET
from lab.outside_world import UPDATES
from lab.releases import FIRST_STAMP, FLAVOUR
from lab.service_view import (CLIENT, CONFIG, SOCKET_UNIT, ask, context_switches, dial, field,
                              main_pid, process_folder, receive, restart)

PROGRAM = "/usr/sbin/vantrell-harbor-updated"
# The thread sanitizer cannot place its shadow memory in a randomised address space.
BY_HAND = f"umask 077; exec setarch -R {PROGRAM} other --version"
HEAD = f"[UpdateSvc] vantrell-harbor-updated {FIRST_STAMP} listening on {SOCKET}; "
START = HEAD + "ring prod, component client-linux-amd64, window 02:00-05:00 local"
STOP = "[UpdateSvc] stopping"
CANNOT_LISTEN = f"cannot listen on {SOCKET} "
CONNECTED_TO_MUTE = "ss -Htn state established dst 127.0.0.23"
NOT_THE_CLIENT = "ERR only the Vantrell Harbor client may hold a session"


def socket_inode(machine):
    described, inode = machine.run(["stat", "--format=%F %a %U,%i", SOCKET]).split(",")
    assert described == "socket 666 root"
    return inode


def test_the_socket_unit_serves_through_stops_and_crashes_of_the_service(machine):
    assert machine.send("STATUS") == "IDLE - "
    inode = socket_inode(machine)
    # A unit with a limit on starts, or a socket unit with a limit on triggers, fails here.
    stop_and_ask = f"systemctl --quiet stop {SERVICE}; echo STATUS | nc -U -N {SOCKET}"
    assert machine.run(f"for i in $(seq 25); do {stop_and_ask}; done") == "IDLE - \n" * 25
    assert machine.log() == [START] + [STOP, START] * 25
    restart(machine)
    assert machine.log()[-2:] == [STOP, START]  # the unit becomes active after the start line
    for unexpected in ("KILL", "TERM"):
        machine.run(f"pid={main_pid(machine)}; systemctl kill --signal={unexpected} {SERVICE}; "
                    "tail --pid=$pid --sleep-interval=0.1 --follow /dev/null")
        assert ask(machine, "STATUS") == "IDLE - ", unexpected
    restarts = machine.run(["systemctl", "show", "--value", "--property=NRestarts", SERVICE])
    assert restarts == "2\n"  # the service manager restarted it, not the socket
    machine.run(["systemctl", "--quiet", "stop", SERVICE])
    assert socket_inode(machine) == inode


@pytest.mark.parametrize("prepare, left", [
    (f"systemctl disable --now {SOCKET_UNIT}; rm -r /run/vantrell", ""),
    (f"cd /run/systemd/system; mkdir {SOCKET_UNIT}.d; systemctl stop {SOCKET_UNIT}; "
     f"printf '[Socket]\nListenStream=/run/vantrell/2\n' >{SOCKET_UNIT}.d/second.conf; "
     f"systemctl daemon-reload; systemctl start {SOCKET_UNIT}", "2\n")], ids=["none", "two"])
def test_unless_passed_one_socket_the_service_makes_and_removes_its_own(machine, prepare, left):
    machine.run(f"systemctl --quiet stop {SERVICE}; {prepare}; systemctl start {SERVICE}")
    inode, lines = socket_inode(machine), len(machine.log())
    assert machine.run(["stat", "--format=%F %a %U", "/run/vantrell"]) == "directory 755 root\n"
    backlogs = [line.split()[3] for line in machine.run(["ss", "-Hlx", "src", SOCKET]).splitlines()]
    assert "16" in backlogs  # beside that of the unit's own socket, if there is one
    machine.run(["systemctl", "kill", "--signal=KILL", SERVICE])
    assert machine.wait_for_log("listening", after=lines) == START
    assert socket_inode(machine) != inode
    assert machine.send("STATUS", user="carol") == "IDLE - "
    machine.run(["systemctl", "--quiet", "stop", SERVICE])
    assert machine.run(["ls", "-A", "/run/vantrell"]) == left


def test_a_stop_waits_neither_for_holders_nor_for_check_passes(machine):
    client = running(machine, machine.popen([CLIENT], user="alice"))
    for host in ["mute", "busy"] * 5:
        machine.run(["systemctl", "start", SERVICE])
        lines = len(machine.log())
        client.send_signal(signal.SIGUSR2)
        machine.wait_for_log("a session is live (1 held)", after=lines)
        machine.behave()
        if host == "mute":
            machine.misbehave(UPDATES, None, "mute")
        with dial(machine):  # a peer that sends nothing
            assert [ask(machine, "CHECK") for _ in range(24)] == ["OK checking"] * 24
            if host == "mute":
                machine.run(f"until {CONNECTED_TO_MUTE} | grep -q .; do :; done")
            ended = machine.run(f"systemctl --quiet stop {SERVICE}; systemctl show "
                                f"--property=Result,ExecMainStatus {SERVICE}", timeout=15)
        assert ended == "Result=success\nExecMainStatus=0\n"


def test_ready_follows_the_start_line_and_stopping_is_sent_last(machine):
    machine.run(["systemctl", "stop", SOCKET_UNIT, SERVICE])
    told, errors = (socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) for _ in range(2))
    told.settimeout(60)
    told.bind(f"/proc/{machine.leader}/root/run/told")
    errors.connect(told.getsockname())  # one queue, which shows the order
    for stop in (signal.SIGTERM, signal.SIGINT):
        daemon = machine.popen(BY_HAND, env={"NOTIFY_SOCKET": "/run/told"}, stderr=errors)
        assert "".join(iter(lambda: told.recv(999).decode(), "READY=1")) == START + "\n"
        assert ask(machine, "STATUS") == "IDLE - "
        process = process_folder(machine, daemon.pid_inside)
        assert field(process, "Umask") == "0022"
        assert int(field(process, "SigIgn"), 16) & 1 << signal.SIGPIPE - 1
        daemon.send_signal(stop)
        assert "".join(iter(lambda: told.recv(999).decode(), "STOPPING=1")) == STOP + "\n"
        assert daemon.wait(60) == 0
        assert not machine.exists(SOCKET)
    told.settimeout(0)
    with pytest.raises(BlockingIOError):
        told.recv(1)


FailedStart = namedtuple("FailedStart", "user prepare why")
FAILED_STARTS = [
    FailedStart("alice", "install -d -o alice", "vantrell-harbor-updated must run as root"),
    FailedStart("root", f"install -d {SOCKET}", CANNOT_LISTEN + "(Address already in use)"),
    FailedStart("root", "touch", CANNOT_LISTEN + "(Not a directory)"),
]


def test_a_start_that_fails_says_why_and_changes_nothing(machine):
    version = machine.run([PROGRAM, "--version", "other"], user="alice")
    assert version == f"vantrell-harbor-updated {FIRST_STAMP} (client-linux-amd64)\n"
    machine.run(["systemctl", "stop", SOCKET_UNIT, SERVICE])
    for user, prepare, why in FAILED_STARTS:
        listing = "find /run/vantrell -ls"
        before = machine.run(f"rm -r /run/vantrell; {prepare} /run/vantrell; {listing}")
        daemon = machine.popen(BY_HAND, user, stderr=subprocess.PIPE)
        assert daemon.stderr.read().decode() == f"[UpdateSvc] {why}\n"
        assert daemon.wait() == 1, why
        assert machine.run(listing) == before, why


def test_the_33rd_connection_is_closed_without_a_reply(machine):
    first, *_others = [dial(machine) for _ in range(32)]
    status = f"echo STATUS | nc -U -N {SOCKET}"
    assert machine.run(status, check=False) == ""
    first.sendall(b"STATUS\n")
    assert receive(first) == "IDLE - \n"
    # The service counts the connection down just after it closes the descriptor.
    machine.run(f"until {status} | grep -q IDLE; do :; done")


def test_after_15_seconds_of_silence_a_request_is_served_without_its_line_feed(machine):
    with dial(machine) as mute, dial(machine) as partial:
        began = time.monotonic()
        partial.sendall(b"STATUS")
        assert receive(mute) == ""
        assert receive(partial) == "IDLE - \n"
        assert 14 < time.monotonic() - began < 40


def test_only_the_client_may_hold_a_session_and_it_lasts_until_the_client_ends(machine):
    assert machine.send("HOLD") == NOT_THE_CLIENT
    assert ask(machine, "HOLD") == NOT_THE_CLIENT  # the machine cannot name this pid
    replaced = running(machine, machine.popen([CLIENT], user="alice"))
    machine.run(f"cp /bin/nc.openbsd {CLIENT}-2; mv {CLIENT}-2 {CLIENT}")
    replaced.send_signal(signal.SIGUSR2)
    machine.wait_for_log("a session is live (1 held)")
    with machine.popen([CLIENT, "-U", SOCKET], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                       bufsize=0) as talker:
        talker.stdin.write(b"HOLD\r\n")
        machine.wait_for_log("a session is live (2 held)")
        talker.stdin.write(b"STATUS\n" * 100)
        replaced.send_signal(signal.SIGUSR2)
        machine.wait_for_log("a session is live (3 held)")
        talker.kill()
        machine.wait_for_log("a session ended (2 held)")
        assert talker.stdout.read() == b"OK holding\n"
    replaced.send_signal(signal.SIGHUP)
    machine.wait_for_log("a session ended (0 held)")


@pytest.mark.skipif(FLAVOUR == "tsan", reason="this sanitizer has a thread that wakes up")
def test_no_thread_wakes_up_while_the_service_is_idle_with_a_session_held(machine):
    restart(machine)
    running(machine, machine.popen([CLIENT])).send_signal(signal.SIGUSR2)
    wait_for_client(machine, "OK holding")
    process = process_folder(machine)
    machine.run(f"while grep -L 'State:.S' /proc/{process.name}/task/*/status | grep .; do :; done")
    before = context_switches(process)
    time.sleep(2)
    assert context_switches(process) == before
    assert len(before) == 6  # two of each thread


def test_every_use_reads_the_settings_and_the_time_zone_again(machine):
    noon = int(machine.run("date +%-H")) - 12  # the zone in which it is noon; west is positive
    for zone, reply in ((noon, "OPEN"), (noon + (6 if noon < 0 else -6), "SHUT")):
        machine.run(f"ln -sfn /usr/share/zoneinfo/Etc/GMT{zone:+} /etc/localtime")
        machine.write(CONFIG, "WindowStart=10:00\nWindowEnd = 15:0\r\n")
        assert machine.send("WINDOW", user="carol") == f"{reply} 10:00-15:0 local"
    machine.write(CONFIG, "WindowEnabled=0\nChannel=BETA\n")
    assert machine.send("WINDOW") == "OPEN disabled"
    restart(machine)
    assert machine.log()[-2:] == [
        STOP, HEAD + "ring beta, component client-linux-amd64, window disabled"]
