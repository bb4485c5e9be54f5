#!/usr/bin/python3
"""Has the system calls of an operation of the service fail, one after another.

    lab/injected_faults.py [OPERATION ...]

An operation is first run as it is, which gives the list of its calls: thread, call and argument.
Each is then failed once. A pass makes the same calls for the check, for each signed fact and for
each file, so only the first few calls of a kind fail, and the last. After each failure
lab/invariants.py judges, and without the fault the next pass must succeed. The status is 1 if
anything was found.

Where clients run, an apply takes up to half a minute. So fewer of its calls fail, but those in each
of its steps: the start of a child process ends one. The next apply must then succeed too.
"""

import argparse
import collections
import contextlib
import errno
import functools
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time
from typing import Callable, NamedTuple

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from lab import installed_client  # noqa: E402
from lab.client_log import running, running_clients, wait_for_client  # noqa: E402
from lab.invariants import (begin_apply, client_violations, host_pid, observe,  # noqa: E402
                            settle, violations)
from lab.machine import LAB, SOCKET, Machine, missing_requirements  # noqa: E402
from lab.outside_world import UPDATES  # noqa: E402
from lab.releases import cached, release  # noqa: E402
from lab.service_view import CLIENT, CONFIG, FAILURES, RECORD, STATE, ask, restart  # noqa: E402
from lab.update_steps import shut_window  # noqa: E402

VERSIONS = ["1.1", "1.2", "1.3"]
NOT_STAYING = "1.4"
OPTIONS = {NOT_STAYING: ["--behaviour", "die-after 0"]}
SETTINGS = "# of the administrator\n\nUnknown = kept # too\nChannel=prod\n"
ERRORS = {
    "read": "EIO", "write": "ENOSPC", "getdents64": "EIO", "fsync": "EIO", "fdatasync": "EIO",
    "openat": "EMFILE", "unlink": "EIO", "unlinkat": "EIO", "mkdir": "ENOSPC", "chmod": "EPERM",
    "readlink": "EACCES", "rename": "ENOSPC", "socket": "EMFILE", "accept4": "EMFILE",
    "connect": "ECONNREFUSED", "sendto": "EPIPE", "recvfrom": "ECONNRESET", "pipe2": "EMFILE",
    "mmap": "ENOMEM", "clone3": "EAGAIN", "dup2": "EMFILE", "execve": "ENOMEM", "wait4": "ECHILD",
    "pidfd_open": "EMFILE"}


class Fault(NamedTuple):
    """As fail-call takes it: shell patterns, for a version and a session that may be others."""

    thread: str
    call: str
    argument: str
    number: int


# What a fault may change: call and argument, of one thread or of any.
EXPECTED = {
    # A file that cannot be opened or read is treated as one that does not exist.
    ("openat", CONFIG): "foreign",
    ("openat", f"{STATE}/install-id"): "install_id",
    ("read", f"{STATE}/install-id"): "install_id",
    # So a client is not started again, or without its arguments or its environment.
    ("connection", "readlink", "/proc/PID/exe"): "client",
    **{("connection", call, f"/proc/PID/{file}"): "client"
       for call in ("openat", "read") for file in ("status", "cmdline", "environ")},
    # The pipe of apt-get, which fails when nobody reads its output: even after its work.
    ("request", "read", "pipe 3"): "version",
}

# Version, session and the brackets of an inode, which a shell pattern would take for a set.
_VARIES = re.compile(r"(?<=[/_])1\.[1-4](?=[/_\n]|$)|(?<=sessions/)c\d+|[][]")
BY_CLIENT = "APPLY by a client"
# The calls of an apply that concern clients or children. Its other calls fail in "apply", too, and
# a child that cannot be started is the same to it, whichever call of the start has failed.
_WITH_CLIENTS = re.compile(r"connection\t.*/proc/PID/(exe|status|cmdline|environ)$|.*\texecve\t|"
                           r"request\t(?!write).*\t(/proc.*|/etc/passwd|pipe.*|socket|1|-)$")


class Operation(NamedTuple):
    name: str
    request: str
    prepare: Callable  # makes the machine ready for the request
    numbers: int = 0  # so many calls of a kind fail at most: the first ones and the last
    packages: bool = False  # the operation installs
    steps: range = None  # of an apply with clients: in these steps, each call of a kind fails once


def _set(machine, path, text):
    """Replaces a file without a process in the machine."""
    target = machine.on_host(path)
    new = target.with_name(target.name + ".new")
    new.write_text(text)
    new.rename(target)


def _release(version):
    return release(version, *OPTIONS.get(version, []))


def _offer(machine, version):
    _set(machine, machine.document(UPDATES, "/offer.json"),
         (_release(version) / "offer.json").read_text())


@functools.cache
def _session(machine, user):
    return machine.login(user, "seat0" if user == "alice" else None)


def _start_client(machine, user):
    return running(machine, _session(machine, user).start([CLIENT, user]))


def _request(machine, request):
    """Sends a request; returns the reply, which a fault may keep away.

    Only peers in the machine can be users at the machine.
    """
    if request == "CHECK":
        with contextlib.suppress(OSError):
            return ask(machine, request)
        return ""
    if request == BY_CLIENT:
        client = _start_client(machine, "alice")
        client.send_signal(signal.SIGUSR1)
        wait_for_client(machine, rf"^\[[^ ]* pid {client.pid_inside} .* APPLY ")
        return ""
    return machine.run(["nc", "-U", "-N", SOCKET], "alice", input=request + "\n", check=False)


def _pass(machine, request="CHECK"):
    """Runs a pass without a fault; returns the status."""
    settle(machine)
    reply = _request(machine, request)
    assert reply.startswith("OK"), reply
    return settle(machine)


def _offer_staged(machine):
    _offer(machine, VERSIONS[0])
    if not settle(machine).startswith("READY"):
        _pass(machine)


def _offer_another(machine):
    status = settle(machine)
    _offer(machine, VERSIONS[status.startswith(f"READY {VERSIONS[0]} ")])


def _change_ring(machine):
    _offer_staged(machine)
    text = machine.read(CONFIG)
    _set(machine, CONFIG, text.replace("Channel=prod", "Channel=dev"))


def _stage_another(machine):
    if not settle(machine).startswith("READY"):
        _stage(machine)


def _stage(machine, version=None):
    """A release is not offered again while it is installed, or recorded as that by mistake."""
    used = machine.run(f"dpkg-query -W vantrell-harbor; cat {RECORD}", check=False)
    version = version or next(version for version in VERSIONS if version not in used)
    _offer(machine, version)
    status = _pass(machine)
    assert status.startswith(f"READY {version} "), status


def _accept(machine):
    """Ends all clients, and has a release installed: it is the one to go back to."""
    machine.run(["kill", *running_clients(machine)], check=False)
    while running_clients(machine):
        time.sleep(0.05)
    _stage(machine)
    before = host_pid(machine)
    reply = _request(machine, "APPLY")
    assert reply == "OK applying\n", reply
    settle(machine, lambda _, pid: pid != before)


def _accept_and_stage_another(machine):
    _accept(machine)
    _stage(machine)


def _accept_and_stage_one_not_staying(machine):
    """The client of bob is replaced after that of alice, which has ended before it is judged."""
    _accept(machine)
    _stage(machine, NOT_STAYING)
    _start_client(machine, "bob")


OPERATIONS = [
    Operation("check", "CHECK", _offer_staged, 1),
    Operation("setring", "SETRING prod", _change_ring, 2),
    Operation("staging", "CHECK", _offer_another, 3),
    Operation("apply", "APPLY", _stage_another, 4, packages=True),
    # From the swap to the first check of the new client: from then on, it is as without clients.
    Operation("relaunch", BY_CLIENT, _accept_and_stage_another, packages=True,
              steps=range(3, 6)),
    Operation("rollback", BY_CLIENT, _accept_and_stage_one_not_staying, packages=True,
              steps=range(9)),
]


def tracer():
    """Path of the program that makes a call fail."""
    source = LAB / "faults/fail_call.cpp"

    def make(folder):
        subprocess.run(["g++", "-std=c++20", "-O1", "-o", folder / "fail-call", source], check=True)

    return cached(make, "fail-call", source.read_text()) / "fail-call"


@contextlib.contextmanager
def traced(machine, fault=None):
    """Yields a function that returns the lines of fail-call so far, for the running service."""
    words = [*fault, getattr(errno, ERRORS[fault.call])] if fault else []
    with tempfile.NamedTemporaryFile() as lines:
        process = subprocess.Popen([tracer(), *map(str, [host_pid(machine), *words])],
                                   stdout=lines, stderr=subprocess.PIPE, text=True)
        try:
            said = process.stderr.readline()
            assert said == "attached\n", said
            yield lambda: pathlib.Path(lines.name).read_text(errors="replace").splitlines()
        finally:
            process.terminate()
            process.wait()
            process.stderr.close()


def _run(machine, operation, fault=None):
    """Runs the operation to its end; returns the lines of fail-call."""
    before = host_pid(machine)

    def ended(status, pid):
        # An accepted apply ends the service, and a refused one leaves what is staged.
        return not operation.packages or pid != before or status.startswith("READY")

    with traced(machine, fault) as lines:
        _request(machine, operation.request)
        settle(machine, ended)
        return lines()


def faults(lines, numbers):
    """The calls to fail, for the lines of a run without a fault."""
    counted = collections.Counter(_call(line) for line in lines)
    return [Fault(*call, number) for call, count in counted.items()
            for number in range(1, count + 1) if number < numbers or number == count]


def _call(line):
    return tuple(_VARIES.sub("*", line).split("\t")[1:])


def faults_in_steps(lines, steps):
    """The same for an apply with clients: in each step, one call of each kind."""
    counted, found, step = collections.Counter(), {}, 0
    for call in map(_call, lines):
        counted[call] += 1
        if step in steps and _WITH_CLIENTS.match("\t".join(call)):
            # A program is looked for along PATH: the first failure ends that.
            kind = call[:2] if call[1] == "execve" else call
            found.setdefault((step, kind), Fault(*call, counted[call]))
        step += call[1:] == ("clone3", "process")
    return list(found.values())


def prepared(machine):
    """Brings a new machine to the state that operations begin with; returns what must stay."""
    for version in [*VERSIONS, NOT_STAYING]:
        machine.publish(_release(version), offer=False)
    _session(machine, "alice")
    shut_window(machine)  # no pass installs by itself
    _set(machine, CONFIG, SETTINGS + machine.read(CONFIG))
    restart(machine)
    _offer(machine, VERSIONS[0])
    _pass(machine)
    return observe(machine)


def restore(machine, before):
    """Undoes what EXPECTED allows."""
    _set(machine, CONFIG, "".join([*before.foreign, "Channel=prod\n"]))
    _set(machine, f"{STATE}/install-id", before.install_id)


def play(machine, operation):
    """Fails each call of an operation once; prints and returns a line for each thing found."""
    before, started = prepared(machine), time.monotonic()
    operation.prepare(machine)
    lines = _run(machine, operation)
    planned = (faults_in_steps(lines, operation.steps) if operation.steps else
               faults(lines, operation.numbers))
    seen = [_play_one(machine, operation, fault, before) for fault in planned]
    operation.prepare(machine)
    found = [f"{' '.join(map(str, fault))}: {what}"
             for fault, outcome in zip(planned, seen) for what in outcome.wrong]
    print(f"{operation.name}: {len(planned)} faults in {time.monotonic() - started:.0f} s,",
          f"{sum(not outcome.reached for outcome in seen)} not reached;",
          f"the service ended {sum(outcome.ended for outcome in seen)} times;",
          f"{len(found)} findings", flush=True)
    return found


class Outcome(NamedTuple):
    reached: bool  # the call was made, and it failed
    ended: bool  # the service ended
    wrong: list


def _play_one(machine, operation, fault, before):
    machine.run(["rm", "-f", FAILURES])
    operation.prepare(machine)
    pid = host_pid(machine)
    apply = begin_apply(machine) if operation.steps else None
    lines = _run(machine, operation, fault)
    settle(machine)
    ended = host_pid(machine) != pid
    wrong = violations(machine, before, operation.packages, ended)
    if apply:
        wrong += client_violations(machine, apply)
    status = _pass(machine, "CHECK" if operation.packages else operation.request)
    if not status.startswith("READY") and status != "IDLE - up to date":
        wrong.append(f"the next pass: {status}")
    wrong += violations(machine, before)
    if known := EXPECTED.get(fault[1:3], EXPECTED.get(fault[:3])):
        wrong = [what for what in wrong if not what.startswith(known)]
        restore(machine, before)
    reached = any(line.startswith("failed") for line in lines)
    for what in wrong if reached else [*wrong, "not reached"]:
        print(*fault, what, sep="\t", flush=True)
    return Outcome(reached, ended, wrong)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    names = [operation.name for operation in OPERATIONS]
    parser.add_argument("operations", nargs="*", metavar="OPERATION", help=", ".join(names))
    given = parser.parse_args().operations or names
    if not set(given) <= set(names):
        parser.error(f"no such operation; give some of: {', '.join(names)}")
    if reason := missing_requirements():
        sys.exit(f"injected_faults.py: {reason}")
    found = []
    for operation in OPERATIONS:
        if operation.name in given:
            with Machine(installed_client.changes()) as machine:
                machine.wait_for_log("listening on")
                found += play(machine, operation)
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
