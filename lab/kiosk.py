"""Clients that a supervisor, a system service, keeps running."""

from lab.client_log import client_starts, wait_for_client
from lab.service_view import CLIENT


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
