"""The demonstration that demo.sh runs. Each claim in its summary was checked during the run."""

import json
import signal
import subprocess
import sys
import threading
import time

from lab.client_log import CLIENT_LOG, wait_for_client
from lab.machine import SERVICE, Machine, missing_requirements
from lab.outside_world import DOWNLOADS
from lab.releases import NEXT_STAMP, package, release
from lab.service_view import CLIENT, STATE
from lab.update_steps import shut_window

EXIT_STATUS = "/run/exit-status-of-the-service"
ARGUMENTS = ["--room", "harbor view", ""]

LINE_LIMIT = 90  # seconds
proved = []


def heading(text):
    print(f"\n\033[1m{text}\033[0m" if sys.stdout.isatty() else f"\n{text}", flush=True)


def say(text):
    print("  " + text, flush=True)


def prove(claim, holds):
    """Adds a claim that holds to the summary; ends the demo on one that does not."""
    if not holds:
        sys.exit(f"\nNOT PROVED: {claim}")
    proved.append(claim)


class LiveLog:
    """Prints the service's log as it grows, and waits for lines of it."""

    def __init__(self, machine):
        self._lines = []
        self._grown = threading.Condition()
        self._journal = machine.popen(
            ["journalctl", "--quiet", "--follow", "--lines=all", "--output=cat",
             f"_SYSTEMD_UNIT={SERVICE}"], stdout=subprocess.PIPE)
        threading.Thread(target=self._follow, daemon=True).start()

    def _follow(self):
        for line in self._journal.stdout:
            with self._grown:
                self._lines.append(line.decode(errors="replace").rstrip("\n"))
                print("    | " + self._lines[-1], flush=True)
                self._grown.notify_all()

    def mark(self):
        return len(self._lines)

    def wait(self, text, mark, meanwhile="waiting"):
        """Waits for a line with `text` after the mark; prints `meanwhile` every five seconds.

        Ends the demo when no such line comes within LINE_LIMIT seconds.
        """
        started = last = time.monotonic()
        while True:
            with self._grown:
                found = [line for line in self._lines[mark:] if text in line]
                if found:
                    return found[0]
                self._grown.wait(1)
            now = time.monotonic()
            if now - last >= 5:
                say(f"({meanwhile}: {now - started:.0f} s)")
                last = now
            if now - started > LINE_LIMIT:
                sys.exit(f"\nNOT PROVED: the log says {text!r} within {LINE_LIMIT} s")


def start_client(machine):
    """Logs alice in on the seat and starts the client in her session."""
    session = machine.login("alice")
    client = session.start([CLIENT, *ARGUMENTS])
    return session, client


def running_clients(machine):
    processes = machine.run(["ps", "-e", "-o", "user=,pid=,args="]).splitlines()
    return [process for process in processes if f" {CLIENT} " in process]


def tell_of_a_good_release(machine, log):
    heading("1. Client 1.0 runs in alice's session on the seat.")
    machine.write(CLIENT_LOG, "", 0o666)
    session, client = start_client(machine)
    wait_for_client(machine, "start argv")
    for line in running_clients(machine):
        say(line)

    heading("2. Release 1.1 is published on three witnesses and offered. The service checks.")
    mark = log.mark()
    machine.publish(release("1.1", stamp=NEXT_STAMP))
    say("> CHECK     " + machine.send("CHECK"))
    proof = log.wait("agreed by 3/3 witnesses", mark)
    log.wait("1.1 staged and verified", mark)
    status = machine.send("STATUS")
    say("> STATUS    " + status)
    prove("release 1.1 was proved by three witnesses and a release key, then fetched",
          "1.1/client-linux-amd64 signed" in proof and status == "READY 1.1 staged 1.1")
    files = "vantrell-harbor_1.1_amd64.deb"
    staged = machine.run(f"cd {STATE}/client-staging/1.1 && sha256sum {files}")
    published = machine.run(f"cd /srv/lab/{DOWNLOADS}/packages/1.1 && sha256sum {files}")
    say("staged     " + staged.strip())
    say("published  " + published.strip())
    prove("the staged file is the published one", staged == published)

    heading("3. Alice agrees: her client requests the install and exits. The window does not "
            "apply to her.")
    shut_window(machine)
    say("> WINDOW    " + machine.send("WINDOW"))
    mark = log.mark()
    client.send_signal(signal.SIGUSR1)
    log.wait("applied 1.1 and relaunched the client", mark, "the new client is being watched")
    log.wait("stopping for the new build", mark)
    prove("the new client stayed for 20 seconds and was accepted",
          machine.version_of("vantrell-harbor") == "1.1" and len(running_clients(machine)) == 1)
    record = [line for line in machine.read(CLIENT_LOG).splitlines() if line.startswith("[1.1 ")]
    say(record[0].split(" environment")[0])
    prove("the new client runs as alice, with its old arguments and display",
          "uid 1001" in record[0] and json.dumps(ARGUMENTS[1]) in record[0]
          and "DISPLAY=:0" in record[0])

    heading("4. The package brought a new build of the service. The old one ends, and systemd "
            "starts the new one.")
    line = log.wait("listening on", mark)
    status = machine.read(EXIT_STATUS).strip()
    say(f"exit status of the old build: {status}")
    prove("the old build ended with status 75, and the new one serves",
          status == "75" and NEXT_STAMP in line)
    session.logout()


def tell_of_a_tampered_offer(machine, log):
    heading("5. The update server is broken into: release 1.2 is offered with another file.")
    tree = release("1.2")
    machine.publish(tree, offer=False)
    manifest = json.loads((tree / "offer.json").read_text())
    manifest["files"][0]["sha256"] = "0" * 64
    machine.offer(json.dumps(manifest))
    machine.forget_requests()
    mark = log.mark()
    say("> CHECK     " + machine.send("CHECK"))
    log.wait("refused: witness 1 disagrees for 1.2/client-linux-amd64", mark)
    say("> STATUS    " + machine.send("STATUS"))
    say("What was asked of the network:")
    requests = machine.request_lines()
    for line in requests:
        say("  " + line)
    prove("an offer altered after signing is refused before a byte of it is fetched",
          len(requests) == 4 and not any("/packages/" in line for line in requests))
    prove("a refused offer leaves nothing on disk",
          not machine.exists(f"{STATE}/client-staging/1.2"))


def tell_of_a_bad_release(machine, log):
    heading("6. Alice logs in again. Release 1.3 is signed and proved, but its client dies.")
    _, client = start_client(machine)
    mark = log.mark()
    machine.publish(release("1.3", "--behaviour", "die-after 3"))
    say("> CHECK     " + machine.send("CHECK"))
    log.wait("1.3 staged and verified", mark)
    client.send_signal(signal.SIGUSR1)
    log.wait("rolling back to the previous set", mark, "the new client is being watched")
    log.wait("apply refused: the updated client did not stay running; the previous version was "
             "restored", mark)
    version = machine.version_of("vantrell-harbor")
    say(f"installed now: {version}")
    for line in running_clients(machine):
        say(line)
    prove("a release whose client does not stay is rolled back", version == "1.1")
    prove("the previous client runs again for alice", len(running_clients(machine)) == 1)


def main():
    missing = missing_requirements()
    if missing:
        sys.exit(f"The demo cannot run here: {missing}.")
    with Machine() as machine:
        heading(f"A Debian machine with systemd has booted in {machine.boot_seconds:.1f} s. "
                "Client 1.0 is installed; the service came with it.")
        log = LiveLog(machine)
        machine.write(f"/etc/systemd/system/{SERVICE}.d/lab.conf",
                      f"[Service]\nExecStopPost=sh -c 'echo $EXIT_STATUS >{EXIT_STATUS}'\n")
        machine.install(package("1.0"))
        log.wait("listening on", 0)
        tell_of_a_good_release(machine, log)
        tell_of_a_tampered_offer(machine, log)
        tell_of_a_bad_release(machine, log)
        heading("This run has proved:")
        for claim in proved:
            say("- " + claim)
        if "--keep" in sys.argv[1:]:
            heading("The machine stays until you leave this shell (exit).")
            machine.shell()


main()
