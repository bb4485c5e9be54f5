"""Installs that wait at a known place until the test lets them continue."""

import contextlib
import subprocess

from lab.service_view import COPY
from lab.update_steps import stage

# Takes the lock the way apt-get and dpkg take it, and keeps it until its input ends.
_HOLD_PACKAGE_LOCK = r"""
use Fcntl; my $whole = pack 's s x4 q q l x4', F_WRLCK, 0, 0, 0, 0;
open F, '>>/var/lib/dpkg/lock-frontend'; fcntl(F, F_SETLKW, $whole) or die;
$| = 1; print "held\n"; <STDIN>"""
# Opening the pipe blocks until the other side opens it too; the read ends when that side closes.
_WAIT_AT_GATE = "[ ! -p /run/gate ] || read -r _ </run/gate || true"
# Lets through less than the first file of the package. apt-get gives dpkg a PATH of its own, so
# the real dpkg-deb must be replaced.
_GATE_IN_UNPACKING = f"""#!/bin/bash
[[ $1 = --fsys-tarfile && $2 = *PACKAGE ]] || exec dpkg-deb.real "$@"
dpkg-deb.real "$@" | {{ head -c 300000; {_WAIT_AT_GATE}; cat; }}
"""


@contextlib.contextmanager
def package_lock(machine):
    """Keeps the package lock from apt-get and dpkg while the with block runs."""
    with machine.popen(["perl", "-e", _HOLD_PACKAGE_LOCK], stdin=subprocess.PIPE,
                       stdout=subprocess.PIPE) as holder:
        assert holder.stdout.readline() == b"held\n"
        yield


def gate(machine, place, package=""):
    """Makes a gate that one install waits at: "preinst", "unpacking" or "postinst".

    The gate in unpacking can be for one `package` file only, given by the end of its path.
    Returns the options that the release to be installed needs; see lab.releases.release.
    """
    machine.run(["mkfifo", "/run/gate"])
    if place != "unpacking":
        return [f"--{place}", _WAIT_AT_GATE]
    machine.run("mv /usr/bin/dpkg-deb /usr/bin/dpkg-deb.real")
    machine.write("/usr/bin/dpkg-deb", _GATE_IN_UNPACKING.replace("PACKAGE", package), 0o755)
    return []


def stage_held(machine, version, place):
    """Stages a release whose install waits at a gate, or for "rollback" the end of which does."""
    if place == "rollback":
        gate(machine, "unpacking", COPY)
        stage(machine, version, "--behaviour", "die-after 0")
    else:
        stage(machine, version, *gate(machine, place))


def run_at_gate(machine, command):
    """Runs a shell line while the install waits at the gate, then opens the gate for good.

    Returns the output of the line.
    """
    return machine.run(f"exec 3>/run/gate && rm /run/gate && {command}", timeout=120)
