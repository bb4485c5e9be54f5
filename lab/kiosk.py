"""Clients that a supervisor, a system service, keeps running."""

from lab.client_log import client_starts, wait_for_client
from lab.service_view import CLIENT

UID = 1010
# A line for a postinst: a new client of the kiosk's user that is not the supervisor's.
START_EARLY = f"systemd-run --quiet --property=Type=exec --uid=kiosk {CLIENT} early"


def start_kiosk(machine, restart="always", seconds=1, clients=1):
    """Starts clients of the user kiosk, with their numbers as arguments; returns their pids.

    The supervisor starts a client that ended again as `restart` says, after so many seconds.
    """
    machine.write("/etc/systemd/system/kiosk@.service", "[Service]\nUser=kiosk\n"
                  f"ExecStart={CLIENT} %i\nRestart={restart}\nRestartSec={seconds}\n")
    for number in range(1, clients + 1):
        machine.run(["systemctl", "start", f"kiosk@{number}.service"])
        wait_for_client(machine, f'start argv .*"{number}"')
    return [pid for pid, *_ in client_starts(machine, "1.0")]


def kiosk_clients(machine, version):
    """The arguments of each client of a version that ran as the kiosk's user, by its pid."""
    return {start.pid: start.arguments for start in client_starts(machine, version)
            if start.uid == UID}
