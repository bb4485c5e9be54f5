#!/usr/bin/python3
"""The requests of the service: a check pass with nothing on offer, and the proof of a release.

A pass is measured from its CHECK to the end of its thread, beside a process of curl that posts the
same text. The bytes are those of all IP packets, in both directions. The rivals of the proof, nine
GETs, are a minimal loop with libcurl and nine processes of curl; the machine trusts all authorities
of Debian. The proof is measured once more with only the lab's authority: the difference is the load
of the certificate bundle, nine times.
"""

import shutil
import sys
import time

import service
from lab.outside_world import CHECK_PATH, UPDATES
from lab.releases import release
from lab.service_view import ask
from rows import row

ROUNDS = 31
PROOFS = 11
BUNDLE = "/etc/ssl/certs/ca-certificates.crt"
LOG = "/run/witness_files.log"
# Prints seconds of the clock, and two figures of the processor.
TIMED = """#!/bin/bash
TIMEFORMAT='%3R %3U %3S'
time curl --silent --fail --user-agent "$1" --header "Content-Type: $2" --data "$3" "$4" """


def measure_pass(machine, process):
    """Milliseconds, milliseconds of the processor, and bytes."""
    service.wait_until_idle(process)
    spent, sent = service.processor_seconds(machine), service.wire_bytes(machine)
    start = time.monotonic()
    ask(machine, "CHECK")
    service.wait_until_idle(process, interval=0.001)
    taken, spent = time.monotonic() - start, service.processor_seconds(machine) - spent
    return taken * 1e3, spent * 1e3, service.wire_bytes(machine) - sent


def measure_curl(machine, request):
    sent = service.wire_bytes(machine)
    printed = machine.run(["/run/timed-curl", request.agent, request.type, request.body,
                           f"https://{UPDATES}{CHECK_PATH}"])
    seconds, *spent = map(float, printed.split())
    return seconds * 1e3, sum(spent) * 1e3, service.wire_bytes(machine) - sent


def compare_passes(machine):
    process = service.restart(machine)
    machine.forget_requests()
    measure_pass(machine, process)
    [request] = machine.requests()
    ours, theirs = [], []
    for _ in range(ROUNDS):
        ours.append(measure_pass(machine, process))
        theirs.append(measure_curl(machine, request))
    columns = {"": "ms", ", processor time": "ms", ", bytes of packets": "bytes"}
    for (name, unit), our, their in zip(columns.items(), zip(*ours), zip(*theirs)):
        row("check pass, nothing on offer" + name, our, "curl", their, unit)


def prove(machine, program, bundle):
    """The columns of the program, in milliseconds."""
    printed = machine.run(f"cp {bundle} {BUNDLE}; {program} "
                          f"{machine.document(UPDATES, '/offer.json')} {PROOFS} 2>{LOG} || "
                          f"{{ cat {LOG}; exit 1; }}")
    return zip(*([float(word) / 1e3 for word in line.split()] for line in printed.splitlines()))


def compare_proofs(machine, built):
    program = service.push_program(machine, "witness_files")
    machine.publish(release("1.1", built=built))
    machine.run(f"cp {BUNDLE} /run/all-authorities.crt")
    ours, loop, processes = prove(machine, program, "/run/all-authorities.crt")
    fast, *_ = prove(machine, program, "/etc/lab/lab-authority.crt")
    row("proof of a release, nine GETs", ours, "libcurl loop", loop, "ms", "at most 1.05")
    row("proof of a release, nine GETs", ours, "nine curl", processes, "ms", "at most 1.00")
    row("proof of a release, nine GETs", ours, "trust in one authority", fast, "ms")


def main():
    curl = shutil.which("curl")
    if not curl:
        sys.exit("web_requests.py: curl is missing; run scripts/install-prerequisites test")
    service.build()
    with service.scratch() as built, service.machine_with_service(built) as machine:
        machine.push(curl, "/usr/local/bin/curl")
        machine.write("/run/timed-curl", TIMED, 0o755)
        compare_passes(machine)
        compare_proofs(machine, built)


main()
