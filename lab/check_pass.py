"""One check pass seen from all sides."""

from lab.machine import SERVICE
from lab.outside_world import CHECK_PATH, UPDATES
from lab.releases import COMPONENT, WITNESS_FILES, fact
from lab.service_view import ask, kept, wait_for_passes

CHECKED = f"{UPDATES} POST {CHECK_PATH} 200"
VERIFIED = "[Update] digest signature verified against release key"
AGREED = f"[Update] 1.1/{COMPONENT} signed by a release key and agreed by 3/3 witnesses"
STAGED = "[UpdateSvc] 1.1 staged and verified"
NOTHING = ["client-staging 755", "install-id 644"]  # is kept of what was refused


def asked(answers=9):
    """The requests of a pass over 1.1 that got so many good answers from the witnesses."""
    facts = [fact(number, file) for number in (1, 2, 3) for file in WITNESS_FILES]
    return [CHECKED] + [f"{host} GET {path} 200" for host, path in facts[:answers]]


def refused(why):
    return [f"[UpdateSvc] 1.1 refused: {why}", f"[UpdateSvc] refused: {why}"]


def check(machine):
    """Runs one pass to its end; the lines it logged."""
    ask(machine, "STATUS")  # once this is answered the service has said all about its start
    start = len(machine.log())
    assert ask(machine, "CHECK") == "OK checking"
    wait_for_passes(machine)
    return machine.log()[start:]


def first_pass(machine):
    """Runs the first pass of a new process: its log, the status, its requests, what it left."""
    machine.run(["systemctl", "restart", SERVICE])
    machine.forget_requests()
    return check(machine), ask(machine, "STATUS"), machine.request_lines(), kept(machine)


def expect_refusal(machine, given, log, why, requests):
    """The first pass refuses 1.1 in these words, after these requests, and leaves nothing."""
    assert (given, *first_pass(machine)) == (
        given, [*log, *refused(why)], f"IDLE - refused: {why}", requests, NOTHING)
    machine.behave()
