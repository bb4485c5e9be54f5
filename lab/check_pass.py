"""Runs a check pass and collects what can be observed afterwards."""

from typing import NamedTuple

from lab.outside_world import CHECK_PATH, DOWNLOADS, UPDATES
from lab.releases import COMPONENT, WITNESS_FILES, fact
from lab.service_view import ask, kept, restart, wait_for_passes

CHECKED = f"{UPDATES} POST {CHECK_PATH} 200"
VERIFIED = "[Update] digest signature verified against release key"
AGREED = f"[Update] 1.1/{COMPONENT} signed by a release key and agreed by 3/3 witnesses"
STAGED = "[UpdateSvc] 1.1 staged and verified"
IDS = ["install-id 644", "machine-id 644"]
NOTHING = ["client-staging 755", *IDS]  # is kept of a release that was refused


class Pass(NamedTuple):
    """What can be observed after a pass."""

    log: list  # the lines of this pass
    status: str  # the reply to STATUS
    requests: list  # in the form of Machine.request_lines()
    kept: list  # in the form of kept()


def asked(answers=9):
    """The requests of a pass over 1.1 in which the witnesses gave this many good answers."""
    facts = [fact(number, file) for number in (1, 2, 3) for file in WITNESS_FILES]
    return [CHECKED] + [f"{host} GET {path} 200" for host, path in facts[:answers]]


def fetched(count):
    """The requests for the first files of a release that publish_by_hand() has published."""
    return [f"{DOWNLOADS} GET /packages/1.1/{number} 200" for number in range(count)]


def asked_until(place, status):
    """The requests of a pass over a release made by hand that ends with the one for a place.

    `place` is a host and a path. Without a status, the pass ends before that request.
    """
    requests = asked() + fetched(2)
    [at] = [at for at, line in enumerate(requests) if line.split()[::2] == list(place)]
    return requests[:at] + [requests[at].replace(" 200", f" {status}")] * bool(status)


def refused(why):
    """The two log lines of a refusal."""
    return [f"[UpdateSvc] 1.1 refused: {why}", f"[UpdateSvc] refused: {why}"]


def no_quorum(why):
    """The log lines of a refusal by the witnesses."""
    return [f"[Update] quorum REFUSED - {why}", *refused(why)]


def not_connected(machine):
    """What libcurl says when a server does not listen; its versions use different words."""
    return machine.run(["grep", "-aoE", "Could(n't| not) connect to server",
                        "/usr/lib/x86_64-linux-gnu/libcurl.so.4"]).rstrip("\n")


def begin(machine):
    """Restarts the service and forgets what it has requested."""
    restart(machine)
    machine.forget_requests()


def check(machine):
    """Runs one pass to its end; returns the lines that it logged."""
    ask(machine, "STATUS")  # once this is answered, the lines of the start are in the log
    start = len(machine.log())
    assert ask(machine, "CHECK") == "OK checking"
    wait_for_passes(machine)
    return machine.log()[start:]


def first_pass(machine):
    """Restarts the service and runs a pass; returns a Pass."""
    restart(machine)
    return next_pass(machine)


def next_pass(machine):
    """Runs a pass of the service as it is; returns a Pass."""
    machine.forget_requests()
    return Pass(check(machine), ask(machine, "STATUS"), machine.request_lines(), kept(machine))
