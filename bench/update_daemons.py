#!/usr/bin/python3
"""Memory and context switches of the idle service, beside other update daemons of Debian.

All run in one lab machine, as Debian's packages start them. Their packages are fetched once with
apt-get, from the sources of this host, and kept in build/bench.

The memory is the resident one (VmRSS) of the daemon's process, as in start.py. Nothing is on offer,
and apt has no sources, so no check finds an update.
"""

import subprocess
import time

import service  # finds the lab, too
from lab.machine import image_path
from lab.releases import cached
from lab.service_view import context_switches, mebibytes, process_folder
from rows import row

SECONDS = 10
ROUNDS = 3
# The daemons end the threads that they do not need within this time.
SETTLING_SECONDS = 20
PACKAGES = "packagekit packagekit-tools fwupd rauc-service unattended-upgrades".split()
UNITS = ["packagekit", "fwupd", "rauc", "unattended-upgrades"]
# Has the first two check for updates; the others do not check by themselves. They exit with 5 and 2
# when there are none.
CHECK = "pkcon get-updates || [ $? = 5 ]; fwupdmgr get-updates || [ $? = 2 ]"
# rauc needs a configuration, with a slot and a certificate. The unit of fwupd refuses a container.
PREPARE = """apt-get install --yes --no-install-recommends /var/tmp/daemons/*.deb
mkdir -p /etc/rauc /run/systemd/system/fwupd.service.d
cp /etc/lab/lab-authority.crt /etc/rauc
cat >/etc/rauc/system.conf <<'END'
[system]
compatible=lab
bootloader=noop
[keyring]
path=lab-authority.crt
[slot.rootfs.0]
device=/dev/null
END
printf '[Unit]\\nConditionVirtualization=\\n' >/run/systemd/system/fwupd.service.d/lab.conf
systemctl daemon-reload"""


def fetch(folder):
    """Fetches what the image lacks: the packages, and all that they need."""
    (folder / "partial").mkdir()
    subprocess.run(["apt-get", "-qq", "update"], check=True)
    subprocess.run(["apt-get", "-qq", "install", "--download-only", "--yes",
                    "--no-install-recommends", "-o", "APT::Sandbox::User=root",
                    "-o", f"Dir::State::status={image_path()}/var/lib/dpkg/status",
                    "-o", f"Dir::Cache::archives={folder}", *PACKAGES],
                   check=True, stdout=subprocess.DEVNULL)


def count_switches(process):
    """Of each thread, since it began."""
    counts = {}
    for line in context_switches(process):
        thread, _, count = line.split()
        counts[thread] = counts.get(thread, 0) + int(count)
    return counts


def measure(processes):
    """For each process, MiB and the context switches, of each round."""
    found = {name: [] for name in processes}
    for _ in range(ROUNDS):
        before = {name: count_switches(process) for name, process in processes.items()}
        time.sleep(SECONDS)
        for name, process in processes.items():
            switches = sum(count - before[name].get(thread, 0)
                           for thread, count in count_switches(process).items())
            found[name].append((mebibytes(process, "VmRSS"), switches))
    return found


def compare(machine, state, check):
    """Prints the rows; with `check`, the service checks first, as the others have."""
    time.sleep(SETTLING_SECONDS)
    # All rounds end before the first pass of its own, at 60 s.
    processes = {"service": service.restart(machine)}
    if check:
        machine.send("CHECK")
        service.wait_until_idle(processes["service"])
    for unit in UNITS:
        pid = machine.run(["systemctl", "show", "--value", "--property=MainPID", unit]).strip()
        processes[unit] = process_folder(machine, pid)
    found = {name: list(zip(*figures)) for name, figures in measure(processes).items()}
    memory, switches = found.pop("service")
    for name, (their_memory, their_switches) in found.items():
        row(f"idle memory, {state}", memory, name, their_memory, "MiB")
        row(f"idle for {SECONDS} s, {state}", switches, name, their_switches, "switches",
            "at most 0 switches")


def main():
    service.build()
    packages = cached(fetch, "daemons", image_path(), PACKAGES, built=service.BUILT)
    with service.scratch() as built, service.machine_with_service(built) as machine:
        machine.push_folders({packages: "daemons"}, "/var/tmp")
        machine.run(["sh", "-ec", PREPARE], env={"DEBIAN_FRONTEND": "noninteractive"}, timeout=600)
        machine.run(["systemctl", "restart", *UNITS])
        compare(machine, "just started", check=False)
        machine.run(["bash", "-ec", CHECK])
        compare(machine, "after a check", check=True)


main()
