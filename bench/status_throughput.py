#!/usr/bin/python3
"""STATUS requests a second and the time of each: the service beside minimal servers in C.

The bare server has the same shape; the limited one also has what a server needs to stop at once and
to survive silent peers. The times are those that 50 %, 99 % and 99.9 % of the requests of a round
do not exceed. The service is measured idle, and then with 24 HOLDs while a pass waits for a
download, then only beside the bare server. The rivals are always idle.
"""

import sys
from typing import NamedTuple

import service
from lab.machine import SOCKET
from lab.outside_world import DOWNLOADS
from lab.releases import DEB, release
from rows import row

ROUNDS = 61  # many short ones: a busy moment of the host then affects few of them
REQUESTS = 2000
REPLY = "IDLE - up to date"
HOLDS = 24  # of the 32 connections that are served at once
TIMES = ["p50", "p99", "p99.9"]


class Server(NamedTuple):
    """A server, the socket that it listens on, and the goal of the service's rate beside it."""
    name: str
    path: str
    goal: str = ""
    arguments: tuple = ()  # of minimal_server


OURS = Server("ours", SOCKET)
RIVALS = [Server("bare C server", "/run/bare.sock", "at least 0.93"),
          Server("limited C server", "/run/limited.sock", "at least 0.97", ("limited",))]


def compare(machine, client, threads, state=""):
    rivals = RIVALS[:1] if state else RIVALS
    found = {server: [] for server in [OURS, *rivals]}
    for _ in range(ROUNDS):
        for server, figures in found.items():
            printed = machine.run([client, server.path, "STATUS", REPLY, REQUESTS, threads])
            figures.append([float(word) for word in printed.split()])
    our_rates, *our_times = zip(*found[OURS])
    name = f"STATUS, {threads} client{'s' * (threads > 1)}{state}"
    for server in rivals:
        rates, *times = zip(*found[server])
        row(name, our_rates, server.name, rates, "/s", "-" if state else server.goal)
        for quantile, ours, theirs in zip(TIMES, our_times, times):
            row(f"{name}, {quantile}", ours, server.name, theirs, "us")


def main():
    service.build()
    with service.scratch() as built, service.machine_with_service(built) as machine:
        client = service.push_program(machine, "socket_client")
        program = service.push_program(machine, "minimal_server")
        for server in RIVALS:
            # A unit, as ours is: the scheduler divides the processors between units.
            machine.run(["systemd-run", "--quiet", program, server.path, REPLY, *server.arguments])
        process = service.restart(machine)
        machine.send("CHECK")  # nothing is on offer: REPLY stays the same from then on
        service.wait_until_idle(process)
        for threads in (1, 8):
            compare(machine, client, threads)

        machine.publish(release("1.1", built=built))
        asked = machine.misbehave(DOWNLOADS, f"/packages/1.1/{DEB}", "hang")
        holder = service.hold_sessions(machine, HOLDS)
        machine.send("CHECK")
        if not asked.wait(60):
            sys.exit("status_throughput.py: the pass does not download")
        for threads in (1, 8):
            compare(machine, client, threads, f", {HOLDS} HOLDs and a pass")
        holder.terminate()


main()
