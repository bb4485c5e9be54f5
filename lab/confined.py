"""The service as an operator shuts it in."""

import re

from lab.machine import BASE_ENVIRONMENT, SERVICE
from lab.service_view import restart
from lab.stubs import FOLDER, REAL_TOOL, stub

PROFILE = "/usr/lib/vantrell-harbor/confined.conf"
SHIM = "/usr/lib/vantrell-harbor/confined/apt-get"


def confine(machine):
    """Switches the profile on, as the documentation says."""
    machine.run(f"mkdir -p /etc/systemd/system/{SERVICE}.d && "
                f"ln -s {PROFILE} /etc/systemd/system/{SERVICE}.d/ && systemctl daemon-reload")
    restart(machine)


def change_before_apt_get(machine, command):
    """Has a shell line run after the service's check of a package, and before its apt-get.

    Imitates a check pass that writes the file at this moment: the service itself runs the line,
    in its sandbox if it has one. Restarts the service; unstub("apt-get") undoes it.
    """
    environment = machine.run(["systemctl", "show", "--value", "--property=Environment", SERVICE])
    path = re.search(r"PATH=(\S+)|$", environment)[1] or BASE_ENVIRONMENT["PATH"]
    machine.write(f"/etc/systemd/system/{SERVICE}.d/path.conf",
                  f"[Service]\nEnvironment=PATH={FOLDER}:{path}\n")
    machine.run(f"systemctl daemon-reload; {stub('apt-get', f'{command}; {REAL_TOOL}')}")
    restart(machine)
