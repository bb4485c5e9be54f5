"""One check pass seen from all sides, and the odd releases and servers that it may meet."""

import hashlib
import json
import pathlib
import subprocess
import time

from conftest import FLAVOUR, KEYS, STATE, dial

from lab.machine import SERVICE
from lab.outside_world import CHECK_PATH, DOWNLOADS, UPDATES, WITNESSES

COMPONENT = "client-linux-amd64"
WITNESS_FILES = BLOCK, SIGNATURE, DIGEST = "release.block", "release.sig", f"{COMPONENT}.sha256"
CHECKED = f"{UPDATES} POST {CHECK_PATH} 200"
VERIFIED = "[Update] digest signature verified against release key"
AGREED = f"[Update] 1.1/{COMPONENT} signed by a release key and agreed by 3/3 witnesses"
STAGED = "[UpdateSvc] 1.1 staged and verified"
NOTHING = ["client-staging 755", "install-id 644"]  # is kept of what was refused
IDLE_THREADS = 3 if FLAVOUR == "tsan" else 2  # one is the sanitizer's own


def fact(number, file, version="1.1"):
    """Host and path of one of the nine signed facts of a release."""
    host, base = WITNESSES[number - 1]
    return host, f"{base}/prod/{version}.{file}"


def asked(answers=9):
    """The requests of a pass over 1.1 that got so many good answers from the witnesses."""
    facts = [fact(number, file) for number in (1, 2, 3) for file in WITNESS_FILES]
    return [CHECKED] + [f"{host} GET {path} 200" for host, path in facts[:answers]]


def refused(why):
    return [f"[UpdateSvc] 1.1 refused: {why}", f"[UpdateSvc] refused: {why}"]


def ask(machine, request):
    with dial(machine) as connection:
        connection.sendall(request.encode() + b"\n")
        return connection.recv(4096).decode().removesuffix("\n")


def wait_for_passes(machine):
    """Returns when the service has no thread but its lasting ones: every pass has ended."""
    group = f"/proc/{machine.leader}/root/sys/fs/cgroup/system.slice/{SERVICE}/cgroup.threads"
    deadline = time.monotonic() + 120
    while len(pathlib.Path(group).read_text().split()) > IDLE_THREADS:
        assert time.monotonic() < deadline, "a pass does not end"
        time.sleep(0.01)


def check(machine):
    """Runs one pass to its end; the lines it logged."""
    ask(machine, "STATUS")  # once this is answered the service has said all about its start
    start = len(machine.log())
    assert ask(machine, "CHECK") == "OK checking"
    wait_for_passes(machine)
    return machine.log()[start:]


def kept(machine):
    """All that lies in the state directory, with modes."""
    root = pathlib.Path(f"/proc/{machine.leader}/root{STATE}")
    return sorted(f"{path.relative_to(root)} {path.lstat().st_mode & 0o7777:o}"
                  for path in root.rglob("*"))


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


def publish_by_hand(machine, files, key="release-1", block=None):
    """Publishes and offers a release 1.1 that no decent publisher would make.

    `files` are pairs of name and content; `block` stands for the true one. Returns the digest.
    """
    entries = [{"name": name, "sha256": hashlib.sha256(content).hexdigest(), "size": len(content),
                "url": f"https://{DOWNLOADS}/packages/1.1/{number}"}
               for number, (name, content) in enumerate(files)]
    lines = {f"{entry['name']}:{entry['sha256']}:{entry['size']}" for entry in entries}
    digest = hashlib.sha256("\n".join([f"1.1|{COMPONENT}", *sorted(lines)]).encode()).hexdigest()
    block = (block or f"vantrell-release-v1\n1.1\n{COMPONENT} {digest}\n").encode()
    signature = subprocess.run(["openssl", "dgst", "-sha256", "-sign", KEYS / f"{key}.pem"],
                               input=block, check=True, stdout=subprocess.PIPE).stdout
    offer = json.dumps({"version": "1.1", "files": entries}).encode()
    documents = {(UPDATES, "/offer.json"): offer}
    for number, (_, content) in enumerate(files):
        documents[DOWNLOADS, f"/packages/1.1/{number}"] = content
    for file, content in zip(WITNESS_FILES, (block, signature, digest.encode())):
        documents.update({fact(number, file): content for number in (1, 2, 3)})
    for place, content in documents.items():
        path = pathlib.Path(f"/proc/{machine.leader}/root{machine.document(*place)}")
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
    return digest


def serve_by_hand(machine):
    """A server on port 8443 of every host; its pipes are the one connection that it takes."""
    server = machine.popen(["openssl", "s_server", "-quiet", "-naccept", "1", "-accept", "8443",
                            "-cert", "/etc/lab/server.crt", "-key", "/etc/lab/server.key"],
                           stdin=subprocess.PIPE, stdout=subprocess.PIPE, bufsize=0)
    machine.run("until ss -Hltn sport = :8443 | grep -q .; do sleep 0.02; done")
    return server


def request_to(server, end):
    """The bytes of the request that ends so."""
    got = b""
    while not got.endswith(end):
        assert (piece := server.stdout.read(65536)), f"the request ends with {got}"
        got += piece
    return got.decode()
