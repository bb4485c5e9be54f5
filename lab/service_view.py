"""What can be seen of the service from the host, quicker than through programs inside."""

import pathlib
import socket
import time

from lab.machine import SERVICE, SOCKET
from lab.releases import FLAVOUR

CLIENT = "/usr/bin/vantrell-harbor"
CONFIG = "/etc/vantrell-harbor/update.conf"
STATE = "/var/lib/vantrell-harbor/update"
IDLE_THREADS = 3 if FLAVOUR == "tsan" else 2  # one is the sanitizer's own


def dial(machine):
    """A connection to the control socket from the host, whose pids mean nothing in the machine."""
    connection = socket.socket(socket.AF_UNIX)
    connection.settimeout(60)
    connection.connect(f"/proc/{machine.leader}/root{SOCKET}")
    return connection


def ask(machine, request):
    with dial(machine) as connection:
        connection.sendall(request.encode() + b"\n")
        return connection.makefile().read().removesuffix("\n")


def main_pid(machine):
    """The pid of the service inside the machine, as text; "0" when it does not run."""
    return machine.run(["systemctl", "show", "--value", "--property=MainPID", SERVICE]).strip()


def wait_for_passes(machine):
    """Returns when the service has no thread but its lasting ones: every pass has ended."""
    group = f"/proc/{machine.leader}/root/sys/fs/cgroup/system.slice/{SERVICE}/cgroup.threads"
    deadline = time.monotonic() + 120
    while len(pathlib.Path(group).read_text().split()) > IDLE_THREADS:
        assert time.monotonic() < deadline, "a pass does not end"
        time.sleep(0.01)


def kept(machine):
    """All that lies in the state directory, with modes."""
    root = pathlib.Path(f"/proc/{machine.leader}/root{STATE}")
    return sorted(f"{path.relative_to(root)} {path.lstat().st_mode & 0o7777:o}"
                  for path in root.rglob("*"))
