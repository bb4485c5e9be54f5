"""The process of the service: its socket, its start and stop, and what it tells its manager."""

import signal
import socket
import subprocess
import time

import pytest

from lab.client_log import CLIENT_LOG, running, wait_for_client
from lab.machine import SERVICE, SOCKET
from lab.outside_world import UPDATES
from lab.releases import FIRST_STAMP, FLAVOUR
from lab.service_view import CLIENT, CONFIG, ask, dial, main_pid

SOCKET_UNIT = "vantrell-harbor-updated.socket"
PROGRAM = "/usr/sbin/vantrell-harbor-updated"
# The thread sanitizer cannot place its shadow memory in a randomised address space.
BY_HAND = ["setarch", "-R", PROGRAM, "other", "--version"]
HEAD = f"[UpdateSvc] vantrell-harbor-updated {FIRST_STAMP} listening on {SOCKET}; "
START = HEAD + "ring prod, component client-linux-amd64, window 02:00-05:00 local"
STOP = "[UpdateSvc] stopping"
CANNOT_LISTEN = f"cannot listen on {SOCKET} "
NOT_THE_CLIENT = "ERR only the Vantrell Harbor client may hold a session\n"


def socket_file(machine):
    described, inode = machine.run(["stat", "--format=%F %a %U,%i", SOCKET]).split(",")
    assert described == "socket 666 root"
    return inode


def test_the_socket_unit_serves_whatever_becomes_of_the_service(machine):
    assert machine.send("STATUS") == "IDLE - " and machine.log()[-1] == START
    path = socket_file(machine)
    # A unit with a limit on starts, or a socket with one on triggers, does not get through this.
    stop_and_ask = f"systemctl --quiet stop {SERVICE}; echo STATUS | nc -U -N {SOCKET}"
    assert machine.run(f"for i in $(seq 25); do {stop_and_ask}; done") == "IDLE - \n" * 25
    assert machine.log()[-51:] == [START] + [STOP, START] * 25
    machine.run(["systemctl", "restart", SERVICE])
    assert machine.log()[-2:] == [STOP, START]  # not active before it is ready
    for unexpected in ("KILL", "TERM", "INT", "HUP"):
        machine.run(f"pid={main_pid(machine)}; systemctl kill --signal={unexpected} {SERVICE}; "
                    "tail --pid=$pid --sleep-interval=0.1 --follow /dev/null")
        assert ask(machine, "STATUS") == "IDLE - ", unexpected
    restarts = machine.run(["systemctl", "show", "--value", "--property=NRestarts", SERVICE])
    assert restarts == "4\n"  # not by way of the socket
    machine.run(["systemctl", "--quiet", "stop", SERVICE])
    assert socket_file(machine) == path


@pytest.mark.parametrize("prepare, left", [
    (f"systemctl disable --now {SOCKET_UNIT}; rm -r /run/vantrell", ""),
    (f"cd /run/systemd/system; mkdir {SOCKET_UNIT}.d; systemctl stop {SOCKET_UNIT}; "
     f"printf '[Socket]\nListenStream=/run/vantrell/2\n' >{SOCKET_UNIT}.d/second.conf; "
     f"systemctl daemon-reload; systemctl start {SOCKET_UNIT}", "2\n")], ids=["none", "two"])
def test_unless_passed_one_socket_the_service_keeps_its_own(machine, prepare, left):
    machine.run(f"systemctl --quiet stop {SERVICE}; {prepare}; systemctl start {SERVICE}")
    path, lines = socket_file(machine), len(machine.log())
    assert machine.run(["stat", "--format=%F %a %U", "/run/vantrell"]) == "directory 755 root\n"
    machine.run(["systemctl", "kill", "--signal=KILL", SERVICE])
    assert machine.wait_for_log("listening", after=lines) == START
    assert socket_file(machine) != path and machine.send("STATUS", user="carol") == "IDLE - "
    machine.run(["systemctl", "--quiet", "stop", SERVICE])
    assert machine.run(["ls", "-A", "/run/vantrell"]) == left and machine.log()[-1] == STOP


def test_a_stop_waits_neither_for_holders_nor_for_check_passes(machine):
    client = running(machine, machine.popen([CLIENT], user="alice"))
    for host in ["mute", "busy"] * 5:
        machine.run(["systemctl", "start", SERVICE])
        lines = len(machine.log())
        for held in (1, 2):
            client.send_signal(signal.SIGUSR2)
            machine.wait_for_log(f"a session is live ({held} held)", after=lines)
        machine.behave()
        if host == "mute":
            machine.misbehave(UPDATES, None, "mute")
        _silent = dial(machine)
        assert [ask(machine, "CHECK") for _ in range(24)] == ["OK checking"] * 24
        if host == "mute":
            machine.run("until ss -Htn state established dst 127.0.0.23 | grep -q .; do :; done")
            assert ask(machine, "STATUS") == "IDLE - "
        ended = machine.run(f"systemctl --quiet stop {SERVICE}; systemctl show "
                            f"--property=Result,ExecMainStatus {SERVICE}", timeout=15)
        assert ended == "Result=success\nExecMainStatus=0\n"
    client.terminate()
    client.wait()
    events = [line.split("] ")[1] for line in machine.read(CLIENT_LOG).splitlines()[1:-2]]
    assert events == (['HOLD "OK holding"'] * 2 + ["HOLD closed"] * 2) * 10


def test_ready_follows_the_start_up_line_and_stopping_comes_last(machine):
    machine.run(["systemctl", "stop", SOCKET_UNIT, SERVICE])
    told, errors = (socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) for _ in range(2))
    told.settimeout(60)
    told.bind(f"/proc/{machine.leader}/root/run/told")
    errors.connect(told.getsockname())  # one queue, so that the order shows
    for stop in (signal.SIGTERM, signal.SIGINT):
        daemon = machine.popen(BY_HAND, env={"NOTIFY_SOCKET": "/run/told"}, stderr=errors)
        assert "".join(iter(lambda: told.recv(999).decode(), "READY=1")) == START + "\n"
        assert ask(machine, "STATUS") == "IDLE - "
        daemon.send_signal(stop)
        assert "".join(iter(lambda: told.recv(999).decode(), "STOPPING=1")) == STOP + "\n"
        assert daemon.wait(60) == 0 and not machine.exists(SOCKET)
    told.settimeout(0)
    with pytest.raises(BlockingIOError):
        told.recv(1)


def test_what_cannot_start_says_why_and_makes_nothing(machine):
    version = machine.run([PROGRAM, "--version", "other"], user="alice")
    assert version == f"vantrell-harbor-updated {FIRST_STAMP} (client-linux-amd64)\n"
    machine.run(["systemctl", "stop", SOCKET_UNIT, SERVICE])
    for user, prepare, why in (
            ("alice", "install -d -o alice", "vantrell-harbor-updated must run as root"),
            ("root", f"install -d {SOCKET}", CANNOT_LISTEN + "(Address already in use)"),
            ("root", "touch", CANNOT_LISTEN + "(Not a directory)")):
        found = machine.run(f"rm -r /run/vantrell; {prepare} /run/vantrell; find /run/vantrell -ls")
        daemon = machine.popen(BY_HAND, user, stderr=subprocess.PIPE)
        assert (daemon.stderr.read().decode(), daemon.wait()) == (f"[UpdateSvc] {why}\n", 1)
        assert machine.run("find /run/vantrell -ls") == found


def test_the_33rd_connection_is_closed_unanswered(machine):
    first, *_others = [dial(machine) for _ in range(32)]
    status = f"echo STATUS | nc -U -N {SOCKET}"
    assert machine.run(status, check=False) == ""
    first.sendall(b"STATUS\n")
    assert first.makefile().read() == "IDLE - \n"
    # The slot is free a moment after the descriptor.
    machine.run(f"until {status} | grep -q IDLE; do :; done", timeout=10)


def test_a_request_needs_no_line_feed(machine):
    mute, partial, ended = [dial(machine) for _ in range(3)]
    began = time.monotonic()
    partial.sendall(b"STATUS")
    ended.sendall(b"WINDOWS\r\r")
    ended.shutdown(socket.SHUT_WR)
    replies = [connection.makefile().read() for connection in (mute, partial, ended)]
    assert replies[:2] == ["", "IDLE - \n"] and replies[2][4:] == " 02:00-05:00 local\n"
    assert time.monotonic() - began > 14


def test_only_the_client_may_hold_a_session_and_ends_it_by_its_own_end(machine):
    longer_name = CLIENT + "-2"
    machine.run(f"cp /bin/nc.openbsd /opt/vantrell-harbor; cp /bin/nc.openbsd {longer_name}")
    for program in ("/bin/nc", "/opt/vantrell-harbor", longer_name):
        assert machine.run([program, "-U", SOCKET], input="HOLD\n") == NOT_THE_CLIENT
    assert ask(machine, "HOLD") + "\n" == NOT_THE_CLIENT  # whose pid is unknown
    replaced = running(machine, machine.popen([CLIENT], user="alice"))
    machine.run(["mv", longer_name, CLIENT])
    link = machine.run(["readlink", f"/proc/{replaced.pid_inside}/exe"])
    assert link == CLIENT + " (deleted)\n"
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


@pytest.mark.skipif(FLAVOUR == "tsan", reason="a thread of this sanitizer's own wakes up")
def test_idle_with_a_session_held_no_thread_wakes_up(machine):
    running(machine, machine.popen([CLIENT])).send_signal(signal.SIGUSR2)
    wait_for_client(machine, "OK holding")
    threads = f"/proc/{main_pid(machine)}/task/*/status"
    machine.run(f"while grep -L 'State:.S' {threads} | grep .; do :; done")
    counts = f"grep ctxt_switches {threads}"
    before, after = machine.run(f"{counts}; echo; sleep 2; {counts}").rstrip().split("\n\n")
    assert before == after and before.count("ctxt") == 6  # two of each thread


def test_every_use_reads_the_settings_and_the_time_zone_anew(machine):
    assert machine.send("WINDOW")[4:] == " 02:00-05:00 local"
    noon = int(machine.run("date +%-H")) - 12  # the zone in which it is noon, west being positive
    other = noon + (6 if noon < 0 else -6)
    for zone, start, end, word in (
            (noon, "10:00", "15:0", "OPEN"), (other, "10:00", "15:0", "SHUT"),
            (noon, "15:00", "10:00", "SHUT"), (noon, "16:00", "15:00", "OPEN"),
            (noon, "1:00", "10:00", "SHUT"), (noon, "4:00", "4:00", "OPEN"),
            (noon, "25:00", "5:0", "OPEN")):
        machine.run(f"ln -sfn /usr/share/zoneinfo/Etc/GMT{zone:+} /etc/localtime")
        machine.write(CONFIG, f"WindowStart={start}\nWindowEnd = {end}\r\n")
        assert machine.send("WINDOW", user="carol") == f"{word} {start}-{end} local"
    machine.write(CONFIG, "WindowEnabled=0\nWindowStart=25:00\nChannel=BETA\n")
    assert machine.send("WINDOW") == "OPEN disabled"
    machine.run(["systemctl", "restart", SERVICE])
    assert machine.log()[-4:] == [
        START, "[Update] window '25:00'-'5:0' is unreadable; treating the window as open", STOP,
        HEAD + "ring beta, component client-linux-amd64, window disabled"]
