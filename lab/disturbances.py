"""Programs of other makers, and requests, that can get in the way of the service's work."""

import contextlib
import subprocess
import threading

from lab.machine import SERVICE, SOCKET
from lab.outside_world import UPDATES
from lab.service_by_hand import start_by_hand
from lab.service_view import CLIENT, ask, main_pid

DEFAULT_LIMIT = 1024  # descriptors that systemd gives a service
UNIT_NAME = "vantrell-harbor-relaunch-"  # of the unit of a new client; the second follows
# Like apt-listbugs and apt-listchanges, which end an install when nobody answers their question.
_ASKING_HOOK = """DPkg::Pre-Install-Pkgs {
  "[ $APT_LISTBUGS_FRONTEND$APT_LISTCHANGES_FRONTEND = nonenone ]"; };"""
_TAKE_NAMES = f"""start=$(date +%s); for second in {{0..99}}; do systemd-run --user --quiet \\
  --remain-after-exit --unit={UNIT_NAME}$((start + second)) true & done; wait"""
# Until the service has ended: on a slow machine an answer can take longer than any limit.
_FLOOD = f"""service=$(systemctl show --value -p MainPID {SERVICE})
prlimit --as={2 ** 30} --pid $service
while [ -d /proc/$service ]; do echo CHECK | nc -U -N -w 5 {SOCKET} || :; done"""
_FOREIGN = """mkdir -p /root/foreign/DEBIAN && cd /root && cat >foreign/DEBIAN/control <<'END'
Package: foreign
Version: 1
Architecture: all
Maintainer: Somebody <somebody@vantrell.example>
Description: a package whose postinst leaves a process
END
printf '#!/bin/sh\\n[ -e /root/ready ] || exit 1\\nsleep 300 &\\n' >foreign/DEBIAN/postinst
chmod 755 foreign/DEBIAN/postinst; dpkg-deb --build foreign; ! dpkg --install foreign.deb
dpkg-query --status foreign >/var/lib/dpkg/updates/0000; touch /root/ready"""


@contextlib.contextmanager
def flood_of_checks(machine):
    """Sends CHECK all the time; the passes hold more descriptors than DEFAULT_LIMIT at the start.

    The passes must not end by themselves: make the update server mute before.
    """
    ended = threading.Event()

    def flood():
        while not ended.wait(0.1):  # 80 passes a second are enough, and each takes processor time
            with contextlib.suppress(OSError):  # too many connections
                ask(machine, "CHECK")

    senders = [threading.Thread(target=flood) for _ in range(8)]
    for sender in senders:
        sender.start()
    try:
        machine.run(f"until [ $(ls /proc/{main_pid(machine)}/fd | wc -l) -ge {DEFAULT_LIMIT} ]; do "
                    "sleep 0.2; done", timeout=180)
        yield
    finally:
        ended.set()
        for sender in senders:
            sender.join()


def add_asking_hook(machine):
    """An apt hook that asks a question before each install and ends it without an answer."""
    machine.write("/etc/apt/apt.conf.d/hook", _ASKING_HOOK)


def abort_by_flood(machine):
    """Ends the service by checks that use up its address space; returns when it serves again."""
    machine.misbehave(UPDATES, None, "mute")
    lines = len(machine.log())
    machine.run(_FLOOD)
    machine.wait_for_log("ended with status ABRT", after=lines)
    machine.wait_for_log("listening on", after=lines)
    machine.behave()


def take_unit_names(session):
    """Has the user's manager run a unit of every name that a client of the next 99 s can get."""
    session.run(_TAKE_NAMES)


def interrupt_foreign_package(machine):
    """Leaves dpkg in the middle of the package "foreign", whose postinst leaves a "sleep"."""
    machine.run(_FOREIGN)


def replace_by_netcat(machine):
    """Replaces the client's program by one that talks to the service by hand, and starts it."""
    machine.run(f"cp /bin/nc.openbsd {CLIENT}-2; mv {CLIENT}-2 {CLIENT}")
    return machine.popen([CLIENT, "-U", SOCKET], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                         bufsize=0)


def remove_socket(machine):
    """Starts a second instance of the service and ends it, which removes the socket of the first.

    Returns the first log line of the second instance.
    """
    with start_by_hand(machine) as second:
        line = second.stderr.readline().decode()
        second.terminate()
    return line


@contextlib.contextmanager
def pretend_install(machine, user="root", mode="755"):
    """Runs a process that looks like the apt-get of the service, but for its user or its mode."""
    machine.run("cp --remove-destination /usr/bin/sleep /run/apt-get; "
                f"chmod {mode} /run/apt-get")
    mark = {"VANTRELL_UPDATE_APPLY": "1"}
    with machine.popen(["/run/apt-get", "600"], user, mark) as process:
        try:
            yield
        finally:
            process.kill()  # after a failure too: the end of the block waits for it
