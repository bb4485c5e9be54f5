"""The service as an operator shuts it in."""

from lab.machine import SERVICE
from lab.service_view import restart

PROFILE = "/usr/lib/vantrell-harbor/confined.conf"
INSTALL = SERVICE.replace(".service", "-install.service")


def confine(machine):
    """Switches the profile on, as the documentation says."""
    machine.run(f"mkdir -p /etc/systemd/system/{SERVICE}.d && "
                f"ln -s {PROFILE} /etc/systemd/system/{SERVICE}.d/ && systemctl daemon-reload")
    restart(machine)
