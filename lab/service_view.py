"""What the host can observe of the service, mostly without starting a program in the machine."""

import socket
import time
from typing import NamedTuple

from lab.machine import SERVICE, SOCKET
from lab.releases import FLAVOUR

SOCKET_UNIT = SERVICE.replace(".service", ".socket")
REPAIR = SERVICE.replace(".service", "-repair.service")
RESCUE = SERVICE.replace(".service", "-rescue.service")
TIMER = SERVICE.replace(".service", "-repair.timer")
WINDOW = SERVICE.replace(".service", "-window.service")
WINDOW_TIMER = SERVICE.replace(".service", "-window.timer")
PROGRAM = "/usr/sbin/vantrell-harbor-updated"
CLIENT = "/usr/bin/vantrell-harbor"
CLIENT_BEHAVIOUR = "/usr/share/vantrell-harbor/behaviour"  # of the stand-in client
CONFIG = "/etc/vantrell-harbor/update.conf"
STATE = "/var/lib/vantrell-harbor/update"
STAGING = f"{STATE}/client-staging"
RECORD = f"{STATE}/installed.sha256"
COPY = f"{STATE}/client-rollback/previous.deb"
# The arguments of apt-get before the path of the package.
INSTALL = ("install -y --allow-downgrades --no-install-recommends -o DPkg::Lock::Timeout=300 "
           "-o Dpkg::Options::=--force-confdef -o Dpkg::Options::=--force-confold").split()
KEPT = "/var/lib/vantrell-harbor/rescue"  # packages to go back to, and what is known of the builds
# The failures of an unproved build; three of them install the one before it.
FAILURES = "/run/vantrell-harbor-rescue.failures"
# Of the scripts around the service, which wait for them.
LOCKS = ["/run/vantrell-harbor-repair.lock", "/run/vantrell-harbor-rescue.lock"]
IDLE_THREADS = 3 if FLAVOUR == "tsan" else 2  # that sanitizer adds one of its own
# Prints the lines of the repair that the timer starts. That of a start is in the service's log.
REPAIR_LOG = f"journalctl --sync; journalctl --quiet --output=cat _SYSTEMD_UNIT={REPAIR}"
WINDOW_LOG = REPAIR_LOG.replace(REPAIR, WINDOW)
# A shell line for a machine without a running service: its unit then gets two sockets.
SECOND_SOCKET = f"""cd /run/systemd/system; mkdir {SOCKET_UNIT}.d; systemctl stop {SOCKET_UNIT}
printf '[Socket]\nListenStream=/run/vantrell/2\n' >{SOCKET_UNIT}.d/second.conf
systemctl daemon-reload; systemctl start {SOCKET_UNIT}"""
# Prints what systemd finds wrong in the units, the profile, the drop-ins of clients and the sample.
# The machine has no manual pages. For a user, systemd-analyze needs a runtime directory, of anyone.
VERIFY_UNITS = f"""exec 2>&1; cd "$(mktemp -d -p /var/tmp)"; mkdir {SERVICE}.d
ln -s /usr/lib/vantrell-harbor/confined.conf {SERVICE}.d/
cp /usr/share/doc/vantrell-harbor/kiosk.service.sample vantrell-harbor-kiosk.service
for name in vantrell-harbor-relaunch-1 'app-vantrell\\x2dharbor@1'; do
  printf '[Service]\\nExecStart=/usr/bin/vantrell-harbor\\n' >"$name.service"; done
units=/usr/lib/systemd
systemd-analyze verify --man=no $units/system/vantrell-harbor-* vantrell-harbor-kiosk.service
XDG_RUNTIME_DIR=/run/user systemd-analyze verify --man=no --user \\
  $units/user/vantrell-harbor-move-client@.service *1.service"""
PASS_LIMIT = 300  # seconds for a pass to end; generous, since the host may be busy


def dial(machine):
    """A connection to the control socket from the host; the machine cannot name the peer's pid."""
    connection = socket.socket(socket.AF_UNIX)
    connection.settimeout(60)
    connection.connect(str(machine.on_host(SOCKET)))
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


def log_exit_status(machine):
    """Has each end of the service logged as "ended with status STATUS"."""
    machine.write(f"/etc/systemd/system/{SERVICE}.d/status.conf",
                  "[Service]\nExecStopPost=echo ended with status $EXIT_STATUS\n")
    machine.run("systemctl daemon-reload")


def set_timer(machine, seconds, timer=TIMER):
    """Has the unit of a timer run after so many seconds, and again after each such time."""
    machine.write(f"/etc/systemd/system/{timer}.d/lab.conf", "[Timer]\nOnActiveSec=\n"
                  f"OnUnitInactiveSec=\nOnActiveSec={seconds}\nOnUnitInactiveSec={seconds}\n"
                  "AccuracySec=0.1\n")
    machine.run(f"systemctl daemon-reload; systemctl restart {timer}")


def until_logged(text):
    """A shell line that waits until the service has logged a text."""
    return (f"until journalctl --sync; journalctl --quiet --unit={SERVICE} | grep -q '{text}'; "
            "do sleep 0.1; done")


def end_unexpectedly(machine, signal):
    """Sends a signal to the processes of the service; the main one has ended on return."""
    machine.run(f"pid={main_pid(machine)}; systemctl kill --signal={signal} {SERVICE}; "
                "tail --pid=$pid --sleep-interval=0.1 --follow /dev/null")


def stop(machine):
    """Stops the service; returns the service manager's word for the end, and the exit status."""
    return machine.run(f"systemctl --quiet stop {SERVICE}; systemctl show --value "
                       f"--property=Result,ExecMainStatus {SERVICE}", timeout=15).split()


def begin_stop(machine):
    """Stops the service without waiting for its end; returns the number of log lines before."""
    lines = len(machine.log())
    machine.run(["systemctl", "stop", "--no-block", SERVICE])
    machine.run(f"while systemctl is-active {SERVICE}; do sleep 0.05; done")  # SIGTERM is sent
    return lines


def end_listening(machine):
    """Sends SIGTERM to the service, which takes no more connections on return.

    It may still work, and the service manager has not been told of its end.
    """
    machine.run(["systemctl", "kill", "--signal=TERM", "--kill-who=main", SERVICE])
    machine.run(f'until [ -z "$(echo STATUS | timeout 10 nc -U -N {SOCKET})" ]; do :; done')


def restarts(machine):
    """How often the service manager restarted the service because that had ended."""
    return int(machine.run(["systemctl", "show", "--value", "--property=NRestarts", SERVICE]))


def failed_units(machine):
    """The names of all units that `systemctl --failed` shows."""
    return machine.run("systemctl --failed --no-legend --plain | cut -d ' ' -f 1").split()


def file_kind(machine, path):
    """Type, mode and owner of a file, such as "socket 666 root"."""
    return machine.run(["stat", "--format=%F %a %U", path]).rstrip("\n")


def backlogs(machine):
    """How many connections may wait, for each socket that listens at the service's path."""
    lines = machine.run(["ss", "-Hlx", "src", SOCKET]).splitlines()
    return [int(line.split()[3]) for line in lines]


def inode_of(machine, path):
    return machine.run(["stat", "--format=%i", path])


def wait_until_asleep(process):
    """Waits until every thread of a process sleeps."""
    states = [thread / "status" for thread in (process / "task").iterdir()]
    while not all("State:\tS" in state.read_text() for state in states):
        time.sleep(0.01)


def set_zone(machine, west):
    """Sets the time zone that is so many hours west of Greenwich."""
    machine.run(f"ln -sfn /usr/share/zoneinfo/Etc/GMT{west:+} /etc/localtime")


def main_pid(machine):
    """The pid of the service inside the machine, as text; "0" when it does not run."""
    return machine.run(["systemctl", "show", "--value", "--property=MainPID", SERVICE]).strip()


class Units(NamedTuple):
    """The socket unit, the service and the two timers, as the service manager has them."""

    states: list  # "active" or "inactive" for each of the four
    enabled: list  # "enabled" or "disabled" for each, while the package is installed
    reload_needed: str  # "yes" when the unit file changed after it was read
    socket_start: str  # another text for each start of the socket
    pid: str  # of the service; "0" when it does not run


def units(machine):
    """Returns Units once the service manager has no more jobs."""
    machine.run("while systemctl list-jobs --no-legend | grep -q .; do sleep 0.1; done")
    names = f"{SOCKET_UNIT} {SERVICE} {TIMER} {WINDOW_TIMER}"
    enabled = machine.run(f"systemctl is-enabled {names}", check=False).splitlines()
    *states, reload_needed, socket_start, pid = machine.run(
        f"systemctl is-active {names}; "
        f"systemctl show -P NeedDaemonReload {SERVICE}; "
        f"systemctl show -P InvocationID {SOCKET_UNIT}; systemctl show -P MainPID {SERVICE}",
        check=False).splitlines()
    return Units(states, enabled, reload_needed, socket_start, pid)


def process_folder(machine, pid=None):
    """The folder /proc/PID of the service or of another pid inside the machine."""
    return machine.on_host(f"/proc/{pid or main_pid(machine)}")


def environment_of(machine, pid):
    """The environment of a process inside the machine: NAME=value, in its own order."""
    return machine.run(["cat", f"/proc/{pid}/environ"]).split("\0")[:-1]


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


def service_group(machine):
    """The control group of the service, as a folder on the host."""
    return machine.on_host(f"/sys/fs/cgroup/system.slice/{SERVICE}")


def wait_for_passes(machine):
    """Returns when only the lasting threads of the service are left: every pass has ended."""
    threads = service_group(machine) / "cgroup.threads"
    deadline = time.monotonic() + PASS_LIMIT
    while len(threads.read_text().split()) > IDLE_THREADS:
        assert time.monotonic() < deadline, "a pass does not end"
        time.sleep(0.01)


def digest_of(machine, path):
    """The SHA-256 of a file, in hexadecimal digits."""
    return machine.run(["sha256sum", path]).split()[0]


def records(machine):
    """The record of the installed release and its rollback copy, as text to be compared."""
    return machine.run(f"sha256sum {RECORD} {COPY.rpartition('/')[0]}/*")


def kept(machine):
    """Every path below the state directory, with its mode, sorted."""
    root = machine.on_host(STATE)
    return sorted(f"{path.relative_to(root)} {path.lstat().st_mode & 0o7777:o}"
                  for path in root.rglob("*"))
