#!/usr/bin/python3
"""The staging of a package of 256 MiB onto a disk, beside the same work by hand.

The rivals get the same file from the same server with the same certificates: curl, sync and openssl
in a shell, and a minimal program with libcurl. Each writes the file to the disk, and then reads it
again to hash it.

The time of the service is that from its log line of the proof to that of the staged release: the
check and the proof are not in it, the handshake for the package is. The processor time at a line of
the log is not known, so that of each is what these 256 MiB take on top of a small package.

    bench/staging_time.py [ROUNDS]
"""

import functools
import shutil
import sys

import service  # finds the lab, too
from lab.check_pass import AGREED, STAGED
from lab.log_lines import times
from lab.outside_world import DOWNLOADS
from lab.releases import release
from lab.service_view import STAGING, ask
from rows import row

ROUNDS = 7
SMALL, LARGE = "1.2", "1.1"
OPTIONS = {SMALL: [], LARGE: ["--ballast", "256"]}
FILE = "/var/tmp/staged.deb"
SHELL = "/usr/local/bin/stage-in-shell"
# Prints seconds of the clock, two figures of the processor, and the digest.
STAGE_IN_SHELL = """#!/bin/bash
set -e
TIMEFORMAT='%3R %3U %3S'
stage() {
  curl --silent --fail --output "$2" "$1"
  sync "$2"
  openssl dgst -sha256 -r "$2" >/run/digest
}
time stage "$@"
cut -c 1-64 /run/digest"""


def stage_by_service(machine, version, tree):
    """Seconds, and processor seconds of the whole pass."""
    machine.offer((tree / "offer.json").read_bytes())
    process = service.restart(machine)
    spent = service.processor_seconds(machine)
    ask(machine, "CHECK")
    service.wait_until_idle(process)
    spent = service.processor_seconds(machine) - spent
    if not ask(machine, "STATUS").startswith(f"READY {version}"):
        sys.exit("staging_time.py: the service has staged nothing:\n" + "\n".join(machine.log()))
    logged = times(machine)
    proved, staged = (logged[line.replace("1.1", version)] for line in (AGREED, STAGED))
    return staged - proved, spent


def stage_by(program, machine, version, tree):
    """Seconds and processor seconds of a program that gets a URL and the path of a new file."""
    [deb] = tree.glob("downloads/packages/*/*.deb")
    url = f"https://{DOWNLOADS}/packages/{version}/{deb.name}"
    seconds, *spent, digest = machine.run([program, url, FILE], timeout=300).split()
    if digest not in (tree / "offer.json").read_text():
        sys.exit(f"staging_time.py: {program} has staged something else")
    return float(seconds), sum(map(float, spent))


def measure(machine, stage, trees):
    """Seconds for the large package, and processor seconds on top of the small one."""
    spent = {}
    for version, tree in trees.items():
        machine.run(f"rm -rf {STAGING}/* {FILE}; sync --file-system /var")
        seconds, spent[version] = stage(machine, version, tree)
    return seconds, spent[LARGE] - spent[SMALL]


def main():
    rounds = int(sys.argv[1]) if len(sys.argv) > 1 else ROUNDS
    curl = shutil.which("curl")
    if not curl:
        sys.exit("staging_time.py: curl is missing; run scripts/install-prerequisites test")
    service.build()
    with service.scratch() as built, service.machine_with_service(built, durable=True) as machine:
        machine.push(curl, "/usr/local/bin/curl")
        machine.write(SHELL, STAGE_IN_SHELL, 0o755)
        minimal = service.push_program(machine, "minimal_staging")
        trees = {version: release(version, *options, built=built)
                 for version, options in OPTIONS.items()}
        for tree in trees.values():
            machine.publish(tree, offer=False)
        stagers = [stage_by_service, functools.partial(stage_by, SHELL),
                   functools.partial(stage_by, minimal)]
        # The file of the machine's disk grows in the first round, which is not counted.
        found = [[measure(machine, stage, trees) for stage in stagers]
                 for _ in range(1 + rounds)][1:]
    ours, shell, program = (list(zip(*column)) for column in zip(*found))
    for name, theirs, goal in (("curl, sync, openssl", shell, "at most 1.00"),
                               ("a minimal program", program, "at most 1.05")):
        for kind, our, their in zip(("", ", processor time"), ours, theirs):
            row("staging of 256 MiB" + kind, our, name, their, "s", goal)


main()
