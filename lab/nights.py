#!/usr/bin/python3
"""Lets a machine live through many nights, each with an event, and looks at it each morning.

    lab/nights.py [--nights N] [--seed S]

In the evening a release is offered and found, and alice works with a client. At night the window is
open, and the window's timer asks for the install. No night waits for the clock: the window is set.
The first nights show one event each; the events of later ones depend on the seed. The status is 1
if a machine is not as it should be in a morning.
"""

import argparse
import pathlib
import random
import sys
import time
from typing import NamedTuple

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from lab import log_lines as log  # noqa: E402
from lab.client_log import only_client, running, running_clients  # noqa: E402
from lab.footprint import package_state  # noqa: E402
from lab.installed_client import changes  # noqa: E402
from lab.kill_rounds import VICTIMS, missing, recorded, wait_until_whole  # noqa: E402
from lab.machine import Machine  # noqa: E402
from lab.releases import release  # noqa: E402
from lab.service_view import (CLIENT, COPY, KEPT, RESCUE, STATE, WINDOW, WINDOW_LOG,  # noqa: E402
                              WINDOW_TIMER, digest_of, failed_units, set_timer)
from lab.update_steps import DAY, NIGHT, SHUT, make_noon, set_window  # noqa: E402

NIGHT_LIMIT = 240  # seconds until a night has had its outcome
PACKAGES = 3  # at most so many are kept: the staged one, the rollback copy, the earlier one
BAD_CLIENT = ("--behaviour", "die-after 1")


class Event(NamedTuple):
    """What a night is like. `meanwhile` acts on the machine while the install runs."""

    offers: bool = True
    options: tuple = ()  # of the release
    good: bool = True
    line: str = "applied {} and relaunched the client"  # ends the night
    evening: str = "true"  # a shell line of root
    meanwhile: str = ""  # a name in VICTIMS
    reboots: bool = False  # in the morning
    morning: str = "true"


EVENTS = {
    "good": Event(),
    "bad client": Event(options=BAD_CLIENT, good=False, line="the previous version was restored"),
    "service killed": Event(meanwhile="service"),
    "broken service": Event(options=("--daemon", "exit 127"), good=False,
                            line="the service of {} does not start; installed "),
    "pause": Event(good=False, line=log.PAUSED, evening="apt-mark hold vantrell-harbor",
                   morning="apt-mark unhold vantrell-harbor"),
    "power cut": Event(meanwhile="power"),
    "nothing new": Event(offers=False, good=False, line=""),
    "logout": Event(),
    "install killed": Event(meanwhile="apt tree"),
    "reboot": Event(reboots=True),
}


class Life:
    """A machine, alice's session on it, and the version that it should run."""

    def __init__(self, machine):
        self.machine = machine
        self.good = "1.0"
        # Its install may have outlived the service, which has not recorded it then.
        self.is_good_unrecorded = False
        self.offered = 0
        self.session = None
        make_noon(machine, SHUT)
        set_timer(machine, 5, WINDOW_TIMER)
        set_timer(machine, 5)  # two runs of the repair prove a build
        self.rescued = False  # and no newer build has proved itself

    def start_client(self):
        """Logs alice in and starts her client, unless it runs."""
        if self.session is None:
            self.session = self.machine.login("alice")
        if not running_clients(self.machine):
            running(self.machine, self.session.start([CLIENT, "--room", "7"]))

    def log_out(self):
        self.session.logout()
        self.session = None
        while running_clients(self.machine):  # her manager ends it ten seconds later
            time.sleep(0.2)

    def cut_power(self):
        self.machine.cut_power()
        self.session = None

    def status(self):
        return self.machine.send("STATUS")


def wait_until(holds, what):
    deadline = time.monotonic() + NIGHT_LIMIT
    while not holds():
        assert time.monotonic() < deadline, f"not within {NIGHT_LIMIT} s: {what}"
        time.sleep(0.5)


def spend_evening(life, name, event):
    """Offers a release and has it found; a client runs and the window is shut."""
    machine = life.machine
    if name == "logout" and life.session:
        life.log_out()
    life.start_client()
    machine.run(event.evening)
    if not event.offers:
        return
    life.offered += 1
    version = f"2.{life.offered}"
    machine.publish(release(version, *event.options))
    machine.send("CHECK")
    wait_until(lambda: life.status().startswith(f"READY {version} "), f"{version} is staged")


def spend_night(life, number, event):
    """Opens the window until the night has had its outcome."""
    machine, version = life.machine, f"2.{life.offered}"
    lines = len(machine.log())
    # Two windows that are open at noon: each night has another name than the one before.
    set_window(machine, NIGHT if number % 2 else DAY)
    machine.run("sync")  # a setting and what the web server publishes outlive a power cut
    if event.meanwhile:
        disturb_install(life, event.meanwhile)
        # An install that outlives the service is not recorded: the rollback copy stays as it was.
        wait_until(lambda: machine.version_of("vantrell-harbor") == version,
                   f"{version} is installed")
    elif event.line == log.PAUSED:
        sleep_through(life)
    elif event.offers:
        machine.wait_for_log(event.line.format(version), NIGHT_LIMIT, lines)
    else:
        machine.run(["systemctl", "start", WINDOW])
    if event.good:
        life.good = version
        life.is_good_unrecorded = event.meanwhile != ""
        life.rescued = False
    if event.options[:1] == ("--daemon",):
        life.rescued = True


def disturb_install(life, victim):
    """Kills something while the install runs."""
    life.machine.run("until grep -lszx VANTRELL_UPDATE_APPLY=1 /proc/[0-9]*/environ; do :; done")
    if victim == "power":
        life.cut_power()
    else:
        life.machine.run(VICTIMS[victim], check=False)


def sleep_through(life):
    """Waits for the pause of this night, which stays over a power cut, and is said once."""
    machine = life.machine
    wait_until(lambda: count_pauses(machine) == 1, "a pause")
    machine.run(f"systemctl start {WINDOW}; sync")
    life.cut_power()  # the journal is in memory
    machine.run(["systemctl", "start", WINDOW])
    assert count_pauses(machine) == 0


def count_pauses(machine):
    """How often the window's unit has said so since the boot."""
    return machine.run(WINDOW_LOG).splitlines().count(log.PAUSED)


def look(life, event):
    """The state of the machine in the morning, as a row; fails when it is not right."""
    machine = life.machine
    set_window(machine, SHUT)
    wait_until_whole(machine)
    record = recorded(machine)
    if event.options and life.is_good_unrecorded:  # the way back leads to a recorded release
        life.good = record[0].split("_")[1]
    assert package_state(machine) == f"installed ok {life.good}", package_state(machine)
    failed = [RESCUE] if life.rescued else []
    wait_until(lambda: failed_units(machine) == failed, f"failed units: {failed}")
    size = int(machine.run(["stat", "--format=%s", COPY])) if record else 0
    assert not record or record[1] == digest_of(machine, COPY), "the rollback copy is another one"
    used = int(machine.run(f"du --bytes --total --summarize {STATE} {KEPT}").split()[-2])
    assert used < PACKAGES * (size + 2 ** 20), f"{used} bytes are kept"
    if life.session is None:  # the machine was switched off, and nobody has logged in since
        life.start_client()
    only_client(machine)
    return life.good, used // 1024, life.status()


def live(machine, names):
    """Lives through nights with these events, and prints a row for each."""
    life = Life(machine)
    print(f"{'night':5} {'event':15} {'offered':8} {'installed':9} {'KiB':>6} {'s':>5} status",
          flush=True)
    for number, name in enumerate(names, 1):
        event, started = EVENTS[name], time.monotonic()
        spend_evening(life, name, event)
        spend_night(life, number, event)
        installed, used, status = look(life, event)
        machine.run(event.morning)
        if event.reboots:
            machine.run("sync")
            life.cut_power()
        print(f"{number:5} {name:15} {f'2.{life.offered}' if event.offers else '-':8} "
              f"{installed:9} {used:6} {time.monotonic() - started:5.1f} {status}", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--nights", type=int, default=30)
    parser.add_argument("--seed", type=int, default=random.randrange(10 ** 6))
    given = parser.parse_args()
    if reason := missing():
        sys.exit(f"nights.py: {reason}")
    print(f"seed {given.seed}", flush=True)
    rng = random.Random(given.seed)
    names = list(EVENTS)[:given.nights]
    names += rng.choices(list(EVENTS), k=given.nights - len(names))
    with Machine(changes(), durable=True) as machine:
        try:
            live(machine, names)
        except Exception:
            print(machine.run("journalctl -q -n 80 -u 'vantrell-harbor*'", check=False))
            raise
    print(f"{given.nights} nights, and the machine was as it should be each morning")


if __name__ == "__main__":
    main()
