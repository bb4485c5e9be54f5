"""Clients that a supervisor, a system service, keeps running."""

from lab.client_log import client_starts, wait_for_client
from lab.releases import ROOT
from lab.service_view import CLIENT

UID = 1010
UNIT = "/etc/systemd/system/kiosk@.service"
# A line for a postinst: a new client of the kiosk's user that is not the supervisor's.
START_EARLY = f"systemd-run --quiet --property=Type=exec --uid=kiosk {CLIENT} early"


def start_kiosk(machine, restart="always", seconds=1, names="1"):
    """Starts clients of the user kiosk, with their names as arguments; returns their pids.

    The supervisor is the sample of the package. It starts a client that ended again as `restart`
    says, after so many seconds.
    """
    machine.push(ROOT / "packaging/kiosk.service.sample", UNIT)
    machine.write(f"{UNIT}.d/lab.conf", f"[Service]\nExecStart=\nExecStart={CLIENT} %i\n"
                  f"Restart={restart}\nRestartSec={seconds}\n")
    for name in names:
        machine.run(["systemctl", "start", f"kiosk@{name}.service"])
        wait_for_client(machine, f'start argv .*"{name}"')
    return [pid for pid, *_ in client_starts(machine, "1.0")]


def kiosk_clients(machine, version):
    """The arguments of each client of a version that ran as the kiosk's user, by its pid."""
    return {start.pid: start.arguments for start in client_starts(machine, version)
            if start.uid == UID}
