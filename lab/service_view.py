"""What the host can observe of the service, mostly without starting a program in the machine."""

import pathlib
import socket
import time
from typing import NamedTuple

from lab.machine import SERVICE, SOCKET
from lab.releases import FLAVOUR

SOCKET_UNIT = SERVICE.replace(".service", ".socket")
CLIENT = "/usr/bin/vantrell-harbor"
CONFIG = "/etc/vantrell-harbor/update.conf"
STATE = "/var/lib/vantrell-harbor/update"
IDLE_THREADS = 3 if FLAVOUR == "tsan" else 2  # that sanitizer adds one of its own
PASS_LIMIT = 300  # seconds for a pass to end; generous, since the host may be busy


def dial(machine):
    """A connection to the control socket from the host; the machine cannot name the peer's pid."""
    connection = socket.socket(socket.AF_UNIX)
    connection.settimeout(60)
    connection.connect(f"/proc/{machine.leader}/root{SOCKET}")
    return connection


def receive(connection):
    """What the service sends until it closes the connection, as text."""
    return connection.makefile().read()


def ask(machine, request):
    """Sends a request from the host; returns the reply without its line feed."""
    with dial(machine) as connection:
        connection.sendall(request.encode() + b"\n")
        return receive(connection).removesuffix("\n")


def restart(machine):
    """Restarts the service. It then starts no pass of its own for 60 seconds."""
    machine.run(["systemctl", "restart", SERVICE])


def main_pid(machine):
    """The pid of the service inside the machine, as text; "0" when it does not run."""
    return machine.run(["systemctl", "show", "--value", "--property=MainPID", SERVICE]).strip()


class Units(NamedTuple):
    """The socket unit and the service, as the service manager has them."""

    states: list  # "active" or "inactive" for the socket and for the service
    reload_needed: str  # "yes" when the unit file changed after it was read
    socket_start: str  # another text for each start of the socket
    pid: str  # of the service; "0" when it does not run


def units(machine):
    """Returns Units once the service manager has no more jobs."""
    machine.run("while systemctl list-jobs --no-legend | grep -q .; do sleep 0.1; done")
    *states, reload_needed, socket_start, pid = machine.run(
        f"systemctl is-active {SOCKET_UNIT} {SERVICE}; "
        f"systemctl show -P NeedDaemonReload {SERVICE}; "
        f"systemctl show -P InvocationID {SOCKET_UNIT}; systemctl show -P MainPID {SERVICE}",
        check=False).splitlines()
    return Units(states, reload_needed, socket_start, pid)


def process_folder(machine, pid=None):
    """The folder /proc/PID of the service or of another pid inside the machine.

    Reading it from the host takes no processor time in the machine.
    """
    return pathlib.Path(f"/proc/{machine.leader}/root/proc/{pid or main_pid(machine)}")


def field(process, name):
    """The first word of a field of /proc/PID/status; sizes are in KiB."""
    for line in (process / "status").read_text().splitlines():
        if line.startswith(name + ":"):
            return line.split()[1]
    raise KeyError(name)


def mebibytes(process, name):
    """A size in /proc/PID/status, such as VmRSS."""
    return int(field(process, name)) / 1024


def context_switches(process):
    """For each counter of each thread, its line; two lines a thread."""
    return [f"{thread.name} {line}" for thread in sorted((process / "task").iterdir())
            for line in (thread / "status").read_text().splitlines() if "ctxt_switches" in line]


def wait_for_passes(machine):
    """Returns when only the lasting threads of the service are left: every pass has ended."""
    group = f"/proc/{machine.leader}/root/sys/fs/cgroup/system.slice/{SERVICE}/cgroup.threads"
    deadline = time.monotonic() + PASS_LIMIT
    while len(pathlib.Path(group).read_text().split()) > IDLE_THREADS:
        assert time.monotonic() < deadline, "a pass does not end"
        time.sleep(0.01)


def kept(machine):
    """Every path below the state directory, with its mode, sorted."""
    root = pathlib.Path(f"/proc/{machine.leader}/root{STATE}")
    return sorted(f"{path.relative_to(root)} {path.lstat().st_mode & 0o7777:o}"
                  for path in root.rglob("*"))
