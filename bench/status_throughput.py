#!/usr/bin/python3
"""STATUS requests a second: the service and minimal servers of the same shape, one client."""

import statistics

import service
from lab.machine import SOCKET

ROUNDS = 61  # many short ones: a busy moment of the host then affects few of them
REQUESTS = 1000
REPLY = "IDLE - up to date"
# Names of units, and the arguments of minimal_server in each.
MINIMAL_SERVERS = {"bare": [], "limited": ["limited"]}


def rate(machine, client, path, threads):
    return int(machine.run([client, path, "STATUS", REPLY, REQUESTS, threads]))


def compare(machine, client, threads):
    paths = {"ours": SOCKET, **{name: f"/run/{name}.sock" for name in MINIMAL_SERVERS}}
    rates = {name: [] for name in paths}
    for _ in range(ROUNDS):
        for name, path in paths.items():
            rates[name].append(rate(machine, client, path, threads))
    line = f"STATUS, {threads} at a time: ours {statistics.median(rates['ours']):.0f}/s"
    for name in MINIMAL_SERVERS:
        # The ratio of each round, since the load of the machine changes between rounds.
        ratio = statistics.median(our / their for our, their in zip(rates["ours"], rates[name]))
        line += f"; {name} C server {statistics.median(rates[name]):.0f}/s, ratio {ratio:.2f}"
    print(line)


def main():
    service.build()
    with service.scratch() as built, service.machine_with_service(built) as machine:
        client = service.push_program(machine, "socket_client")
        server = service.push_program(machine, "minimal_server")
        for name, words in MINIMAL_SERVERS.items():
            # A unit, as ours is: the scheduler divides the processors between units.
            machine.run(["systemd-run", "--quiet", f"--unit={name}", server, f"/run/{name}.sock",
                         REPLY, *words])
        process = service.restart(machine)
        machine.send("CHECK")  # nothing is on offer: REPLY stays the same from then on
        service.wait_until_idle(process)
        for threads in (1, 4):
            compare(machine, client, threads)


main()
