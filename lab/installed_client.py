"""Client 1.0 and the service on a machine, installed from their package.

apt-get installs them once. What this changes on the disk is copied to each further machine, which
boots as one that was switched off after the installation.
"""

import subprocess

from lab import sanitizers
from lab.client_log import CLIENT_LOG
from lab.machine import SERVICE, Machine, image_path
from lab.releases import cached, package
from lab.service_view import SOCKET_UNIT, TIMER, WINDOW_TIMER

# Paths of what belongs to one machine only.
OWN = ["etc/machine-id", "var/lib/vantrell-harbor", "var/log/journal"]


def install_client(machine):
    """Installs client 1.0; the service serves when this returns."""
    sanitizers.prepare(machine)
    machine.install(package("1.0"))
    machine.wait_for_log("listening on")  # the package does not wait for that
    machine.write(CLIENT_LOG, "", 0o666)


def changes():
    """What makes Machine(changes) a machine with client 1.0, whose service starts at boot."""
    def make(folder):
        with Machine() as machine:
            install_client(machine)
            machine.run(["systemctl", "stop", SOCKET_UNIT, SERVICE, TIMER, WINDOW_TIMER])
            subprocess.run(["cp", "-a", machine.changes(), folder / "disk"], check=True)
        subprocess.run(["rm", "-r", *OWN], cwd=folder / "disk", check=True)

    return cached(make, "installed", image_path(), package("1.0")) / "disk"
