#!/usr/bin/python3
"""Kills the service, the install or the whole machine in the middle of updates, round after round.

    lab/kill_rounds.py [--rounds N] [--seed S] [--machines M]

A round starts an update, kills something at a random moment of the install or of the rollback, and
waits until the next start of the service or the repair's timer has made the machine whole again.
The next update must then go through. A round is the same for the same seed and number, except for
the timing of the host. The status is 1 if a machine was not whole.
"""

import argparse
import collections
import concurrent.futures
import pathlib
import random
import shutil
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from lab import log_lines  # noqa: E402
from lab.client_log import running, running_clients  # noqa: E402
from lab.footprint import package_state  # noqa: E402
from lab.installed_client import install_client  # noqa: E402
from lab.machine import SERVICE, SOCKET, Machine, missing_requirements  # noqa: E402
from lab.releases import release  # noqa: E402
from lab.service_view import (CLIENT, COPY, RECORD, REPAIR, digest_of,  # noqa: E402
                              set_timer)
from lab.update_steps import request_apply, shut_window  # noqa: E402

GOOD, BAD = ("2.0", "2.1", "2.2"), "3.0"
BALLAST = ("--ballast", "8")  # unpacking then takes a good part of the install
VICTIMS = {
    # Between two runs the main pid is 0, which kill would take for the caller's own group.
    "service": f"pid=$(systemctl show -P MainPID {SERVICE}); [ $pid = 0 ] || kill -9 $pid",
    "apt-get": "kill -9 $(pidof apt-get)",
    "apt tree": "kill -9 $(grep -lszx VANTRELL_UPDATE_APPLY=1 /proc/[0-9]*/environ | "
                "cut -d / -f 3)",
    # Not cgroup.kill: some kernels then also kill what systemd 257 starts in this group.
    "both": f"cd /sys/fs/cgroup/system.slice/{SERVICE} && echo 1 >cgroup.freeze && "
            "until grep -q 'frozen 1' cgroup.events; do :; done && "
            "kill -9 $(cat cgroup.procs) && echo 0 >cgroup.freeze",
    "power": None,
}
WHOLE_LIMIT = 180  # seconds until a machine is whole
LOOK = f"""dpkg --audit; ls /var/lib/dpkg/updates
dpkg-query -W -f '${{db:Status-Status}} ${{db:Status-Eflag}}\n' vantrell-harbor
systemctl is-active {SERVICE}; systemctl is-active {REPAIR}; systemctl list-jobs --no-legend
echo STATUS | timeout 5 nc -U -N {SOCKET} | cut -c 1-4
"""
WHOLE = [["installed ok", "active", "inactive", word] for word in ("IDLE", "READ")]
MENDED = {
    "finished": log_lines.FINISHED,
    "reinstalled": log_lines.REINSTALLED,
    "copied": log_lines.COPIED_AGAIN,
    "no copy": log_lines.COPY_REMOVED,
    "waited": log_lines.WAITED,
}

# The kill comes after this part of an install, of the length that the last one without a kill had,
# counted from the request of the install or from the line that begins the rollback.
Round = collections.namedtuple("Round", "place victim part")


def missing():
    """One sentence on why no round can be played here; empty if one can."""
    found = subprocess.run(["losetup", "--find"], capture_output=True)
    if found.returncode != 0 or not shutil.which("mkfs.ext4"):
        return "the kill rounds need loop devices and the program mkfs.ext4"
    return missing_requirements()


def draw(seed, number):
    rng = random.Random(f"{seed}/{number}")
    return Round(rng.choice(["install", "rollback"]), rng.choice(list(VICTIMS)), rng.random())


def prepare(machine):
    """Brings a new machine to an accepted release, with a rollback copy; see update()."""
    install_client(machine)
    shut_window(machine)
    set_timer(machine, 3)
    return update(machine, GOOD[0])


def recorded(machine):
    """Name and hash of the accepted package, as the service recorded them; empty if none is."""
    return machine.run(f"grep '[.]deb ' {RECORD}", check=False).split()


def make_ready(machine, version, *options):
    """As stage(), for a release that may be staged already."""
    machine.publish(release(version, *options, *BALLAST))
    machine.send("CHECK")
    machine.run(f'until [ "$(echo STATUS | nc -U -N {SOCKET} | cut -d " " -f 1,2)" = '
                f'"READY {version}" ]; do sleep 0.1; done')


def update(machine, version):
    """One update without a client, after which everything is in order; seconds of the install."""
    make_ready(machine, version)
    started, lines = time.monotonic(), request_apply(machine)
    machine.wait_for_log(f"applied {version};", 120, lines)
    seconds = time.monotonic() - started
    machine.wait_for_log("listening on", 120, lines)
    wait_until_whole(machine)
    state = package_state(machine)
    assert state == f"installed ok {version}", state
    assert recorded(machine)[1] == digest_of(machine, COPY)
    return seconds


def wait_until_whole(machine):
    deadline = time.monotonic() + WHOLE_LIMIT
    while (seen := machine.run(LOOK, check=False).splitlines()) not in WHOLE:
        assert time.monotonic() < deadline, f"not whole: {seen}"
        time.sleep(0.2)


def mended(machine):
    """How often the repair did what, since the boot."""
    log = machine.run("journalctl --sync; journalctl --boot --quiet --output=cat "
                      f"--unit={SERVICE} --unit={REPAIR}")
    return collections.Counter({name: log.count(text) for name, text in MENDED.items()})


def unused(machine):
    """A good version that is neither installed nor recorded: the service takes it for new."""
    installed, record = machine.version_of("vantrell-harbor"), "".join(recorded(machine)[:1])
    return next(version for version in GOOD
                if version != installed and f"_{version}_" not in record)


def play(machine, given, seconds):
    """One round; returns the names of what the repair did, and the seconds of the last install."""
    session = machine.login("alice") if given.place == "rollback" else None
    if session:
        running(machine, session.start([CLIENT]))
        make_ready(machine, BAD, "--behaviour", "die-after 0")
    else:
        make_ready(machine, unused(machine))
    machine.run("sync")  # what the web server publishes is not part of the trial
    before = mended(machine)
    lines = request_apply(machine)
    if session:
        machine.wait_for_log("rolling back", 120, lines)
    time.sleep(given.part * seconds)
    if given.victim == "power":
        machine.cut_power()
        before.clear()
    else:
        machine.run(VICTIMS[given.victim], check=False)
    wait_until_whole(machine)
    damaged = machine.run("dpkg -V vantrell-harbor", check=False)
    assert damaged == "", damaged
    done = mended(machine) - before
    if session and given.victim != "power":
        session.logout()
        while running_clients(machine):  # its manager ends it ten seconds later
            time.sleep(0.2)
    return sorted(done), update(machine, unused(machine))


def last_lines(machine):
    """The end of the journal; empty when the machine has not booted or cannot be entered."""
    try:
        return machine.run("journalctl --boot --quiet --lines=80", check=False)
    except Exception:
        return ""


def play_all(seed, numbers):
    """Plays rounds on one machine, and on a new one after a failure; pairs of round and outcome."""
    played, machine = [], None
    for number in numbers:
        given, started = draw(seed, number), time.monotonic()
        try:
            if machine is None:
                machine = Machine(durable=True).__enter__()
                seconds = prepare(machine)
            (outcome, seconds), text = play(machine, given, seconds), ""
        except Exception as error:
            outcome, text = ["NOT WHOLE"], f" ({error!r})\n{last_lines(machine)}"
            if machine is not None:
                machine.close()
            machine = None
        print(f"{number:4} {given.place:8} {given.victim:8} at {given.part:4.2f}, "
              f"{time.monotonic() - started:5.1f} s: {', '.join(outcome) or 'whole'}{text}",
              flush=True)
        played.append((given, outcome))
    if machine is not None:
        machine.close()
    return played


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--rounds", type=int, default=40)
    parser.add_argument("--seed", type=int, default=random.randrange(10 ** 6))
    parser.add_argument("--machines", type=int, default=1, help="side by side")
    given = parser.parse_args()
    if reason := missing():
        sys.exit(f"kill_rounds.py: {reason}")
    print(f"seed {given.seed}", flush=True)
    with concurrent.futures.ThreadPoolExecutor(given.machines) as pool:
        shares = [range(first, given.rounds, given.machines) for first in range(given.machines)]
        played = sum(pool.map(lambda numbers: play_all(given.seed, numbers), shares), [])
    for kind in sorted({(one.place, one.victim) for one, _ in played}):
        outcomes = [outcome for one, outcome in played if (one.place, one.victim) == kind]
        counted = collections.Counter(name for outcome in outcomes for name in outcome)
        print(f"{kind[0]:8} {kind[1]:8} {len(outcomes):3} rounds:",
              ", ".join(f"{name} {count}" for name, count in sorted(counted.items())))
    failed = sum("NOT WHOLE" in outcome for _, outcome in played)
    print(f"{len(played)} rounds, {failed} machines not whole")
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
