"""What a check pass refuses and accepts, what it logs and requests, and what it leaves on disk."""

import json
import time
from collections import namedtuple

import pytest

from lab.check_pass import (AGREED, CHECKED, IDS, NOTHING, STAGED, VERIFIED, Pass, asked, check,
                            first_pass, refused)
from lab.misbehaviour import answer_by_hand, request_to, serve_by_hand
from lab.outside_world import CHECK_PATH, DOWNLOADS, STORAGE, UPDATES
from lab.releases import (BLOCK, COMPONENT, DIGEST, SIGNATURE, fact, publish_by_hand,
                          release)
from lab.service_view import CONFIG, STATE, ask, kept, restart, wait_for_passes

PEER = "SSL peer certificate or SSH remote key was not OK"
HASH = "b" * 64

CHECK = (UPDATES, CHECK_PATH)
FILES = [(DOWNLOADS, "/packages/1.1/0"), (DOWNLOADS, "/packages/1.1/1")]
REQUESTS = asked() + [f"{host} GET {path} 200" for host, path in FILES]

# `how` is that of Machine.misbehave(). Without a status in the server's log, the whole host fails.
Fault = namedtuple("Fault", "place how logged why")
FAULTS = [
    Fault(CHECK, 204, 204, "up to date"),
    Fault(CHECK, 500, 500, "update service returned HTTP 500"),
    Fault(CHECK, f"https://{DOWNLOADS}/", 302, "update service returned HTTP 302"),
    Fault(CHECK, "cut", 200, "curl error Transferred a partial file"),
    Fault(CHECK, "not listening", None, "curl error Couldn't connect to server"),
    Fault(CHECK, "wrong name", None, f"curl error {PEER}"),
    Fault(CHECK, "unknown authority", None, f"curl error {PEER}"),
    Fault(fact(1, BLOCK), f"http://{DOWNLOADS}/", 302,
          "witness 1 unreachable: download failed, Unsupported protocol"),
    Fault(fact(1, SIGNATURE), 204, 204, "witness 1 unreachable: HTTP 204"),
    Fault(fact(2, BLOCK), "wrong name", None, f"witness 2 unreachable: download failed, {PEER}"),
    Fault(fact(2, SIGNATURE), "cut", 200,
          "witness 2 unreachable: download failed, Transferred a partial file"),
    Fault(fact(3, SIGNATURE), b"another", 200, "witness 3 serves a different signed release"),
    Fault(FILES[0], 404, 404, "a: HTTP 404"),
    Fault(FILES[1], b"other content", 200, "s/b: sha256 mismatch"),
]


def test_a_fault_of_a_server_ends_the_pass_and_leaves_nothing_on_disk(machine):
    publish_by_hand(machine, [("a", b"content of a"), ("s/b", b"content of b")])
    for row in FAULTS:
        host, path = row.place
        machine.misbehave(host, path if row.logged else None, row.how)
        [at] = [at for at, line in enumerate(REQUESTS) if line.split()[::2] == [host, path]]
        last = [REQUESTS[at].replace(" 200", f" {row.logged}")] if row.logged else []
        proof = [f"{VERIFIED} 1", AGREED] if row.place in FILES else [
            f"[Update] quorum REFUSED - {row.why}"]
        log, prefix, left = ([f"[UpdateSvc] {row.why}"], "", IDS) if row.place == CHECK \
            else ([*proof, *refused(row.why)], "refused: ", NOTHING)
        assert first_pass(machine) == Pass(
            log, f"IDLE - {prefix}{row.why}", REQUESTS[:at] + last, left), row
        machine.behave()


def test_a_strangers_key_and_a_folder_that_cannot_be_made_refuse_a_release(machine):
    publish_by_hand(machine, [("a", b"content of a")], "stranger")
    seen = first_pass(machine)
    assert seen.status == "IDLE - refused: 1.1 is not signed by a Vantrell release key"
    assert seen.requests == asked()
    publish_by_hand(machine, [("a", b"content of a"), ("a/b", b"content of b")])
    assert first_pass(machine).status == "IDLE - refused: cannot create staging subdir for a/b"
    machine.run(f"rmdir {STATE}/client-staging && touch {STATE}/client-staging")
    assert first_pass(machine).status == "IDLE - refused: cannot create staging dir"


def test_empty_and_repeated_files_folders_redirects_and_the_second_key_are_accepted(machine):
    files = [("x", b""), ("sub/dir/y", b"content of y"), ("sub/dir/y", b"content of y")]
    publish_by_hand(machine, files, "release-2")
    host, path = fact(3, BLOCK)
    machine.run(["cp", machine.document(host, path), machine.document(STORAGE, "/elsewhere")])
    machine.misbehave(host, path, f"https://{STORAGE}/elsewhere")
    requests = [*asked(6), f"{host} GET {path} 302", f"{STORAGE} GET /elsewhere 200", *asked()[8:],
                *(f"{DOWNLOADS} GET /packages/1.1/{number} 200" for number in (0, 1, 2))]
    staged = [f"client-staging/1.1{path}" for path in (
        " 755", "/sub 755", "/sub/dir 755", "/sub/dir/y 644", "/x 644")]
    assert first_pass(machine) == Pass(
        [f"{VERIFIED} 2", AGREED, STAGED], "READY 1.1 staged 1.1", requests,
        sorted(NOTHING + staged))
    assert {(request.agent, request.cache, request.body) for request in machine.requests()[1:]} == {
        ("VantrellUpdater/1.0", "no-cache", "")}


@pytest.mark.slow
def test_a_silent_server_delays_only_its_own_pass_and_for_20_seconds(machine):
    machine.publish(release("1.1"))
    restart(machine)
    machine.forget_requests()  # of a pass before the restart, on a slow machine
    assert ask(machine, "STATUS") == "IDLE - "
    start, began = len(machine.log()), time.monotonic()
    for number, host in enumerate((UPDATES, STORAGE), 1):
        machine.behave()
        machine.misbehave(host, None, "mute")
        ask(machine, "CHECK")
        machine.run(f"until [ $(ss -Htn dst 127.0.0.23 | wc -l) = {number} ]; do sleep 0.02; done")
    assert ask(machine, "STATUS") == "IDLE - "
    assert machine.log()[start:] == []
    wait_for_passes(machine)
    assert 19 < time.monotonic() - began < 45
    why = "witness 2 unreachable: download failed, Timeout was reached"
    assert sorted(machine.log()[start:]) == sorted([
        "[UpdateSvc] curl error Timeout was reached", f"[Update] quorum REFUSED - {why}",
        *refused(why)])
    assert machine.request_lines() == asked(3)
    assert kept(machine) == NOTHING


def test_a_status_is_logged_once_and_stays_until_another_is_published(machine):
    publish_by_hand(machine, [("x", b"content of x")])
    machine.misbehave(*fact(1, BLOCK), 404)
    why = "witness 1 unreachable: HTTP 404"
    assert first_pass(machine).log == [f"[Update] quorum REFUSED - {why}", *refused(why)]
    assert check(machine) == [f"[Update] quorum REFUSED - {why}", refused(why)[0]]
    machine.behave()
    assert check(machine)[-1] == STAGED
    machine.misbehave(UPDATES, CHECK_PATH, 500)
    assert check(machine) == ["[UpdateSvc] update service returned HTTP 500"]
    machine.behave()
    machine.forget_requests()
    machine.offer('{"version":"1.1","files":[{"name":"x","sha256":"%s","url":"u"}]}' % HASH)
    assert check(machine) == []
    assert machine.request_lines() == [CHECKED]
    assert ask(machine, "STATUS") == "READY 1.1 update service returned HTTP 500"


def test_a_staged_release_stays_until_a_newer_one_is_staged(machine):
    publish_by_hand(machine, [("x", b"content of x")])
    older = first_pass(machine).kept
    machine.publish(release("1.2"))
    machine.misbehave(*fact(3, DIGEST, "1.2"), 404)
    check(machine)
    assert ask(machine, "STATUS") == f"READY 1.1 refused: witness 3 disagrees for 1.2/{COMPONENT}"
    assert kept(machine) == older
    machine.write(f"{STATE}/client-staging/1.2/left-over", "")
    machine.behave()
    check(machine)
    assert ask(machine, "STATUS") == "READY 1.2 staged 1.2"
    both = sorted([*older, "client-staging/1.2 755",
                   "client-staging/1.2/vantrell-harbor_1.2_amd64.deb 644"])
    assert kept(machine) == both
    again = first_pass(machine)  # the start has removed what was staged
    assert len(again.requests) == 11
    assert again.kept == [name for name in both if "/1.1" not in name]


Offer = namedtuple("Offer", "version names status")
OFFERS = [  # the record lists x, and package 1.0 is installed
    Offer("1.1", "x", "IDLE - up to date"),
    Offer("1.0", "xy", "IDLE - up to date"),
    Offer("1", "xy", "IDLE - refused: witness 1 unreachable: HTTP 404"),
]


def test_an_offer_is_installed_when_the_record_lists_it_or_the_package_has_its_version(machine):
    machine.write(f"{STATE}/installed.sha256", f"x {HASH}")
    for row in OFFERS:
        machine.offer(json.dumps({"version": row.version, "files": [
            {"name": name, "sha256": HASH, "url": "u"} for name in row.names]}))
        assert first_pass(machine).status == row.status, row


def test_the_check_names_ring_system_and_install_id_and_witnesses_are_asked_by_ring(machine):
    machine.publish(release("1.1"))
    machine.write(CONFIG, f"Channel=Beta\nEndpoint=https://{UPDATES}:8443//\n")
    server = serve_by_hand(machine)
    restart(machine)
    machine.forget_requests()
    ask(machine, "CHECK")
    head, body = request_to(server, b'"}').split("\r\n\r\n")
    install_id, kernel = machine.read(f"{STATE}/install-id"), machine.run(["uname", "-r"])
    assert body == (
        '{"ring":"beta","component":"client-linux-amd64","current_version":"1.0",'
        '"driver_fingerprint":"","os_build":"Debian GNU/Linux 12 (bookworm) '
        f'{kernel[:-1]} x86_64","install_id":"{install_id[:-1]}"}}')
    assert len(install_id) == 37
    assert head.split("\r\n") == [
        f"POST {CHECK_PATH} HTTP/1.1", f"Host: {UPDATES}:8443", "User-Agent: VantrellUpdater/1.0",
        "Accept: */*", "Content-Type: application/json", f"Content-Length: {len(body)}"]
    machine.write(CONFIG, "Channel=dev\n")  # before the witnesses of the same pass are asked
    answer_by_hand(server, (release("1.1") / "offer.json").read_bytes())
    wait_for_passes(machine)
    assert machine.request_lines() == [f"{DOWNLOADS} GET /witness/dev/1.1.release.block 404"]
