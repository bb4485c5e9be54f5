"""What can go wrong between a check and a staged release, what is said of it and what is left."""

import json

import pytest

from lab.check_pass import (AGREED, CHECKED, NOTHING, STAGED, VERIFIED, asked, check,
                            expect_refusal, first_pass, refused)
from lab.misbehaviour import request_to, serve_by_hand
from lab.outside_world import CHECK_PATH, DOWNLOADS, STORAGE, UPDATES
from lab.releases import (BLOCK, COMPONENT, DIGEST, SIGNATURE, WITNESS_FILES, fact,
                          publish_by_hand, release)
from lab.service_view import CONFIG, STATE, ask, kept, wait_for_passes

PEER = "SSL peer certificate or SSH remote key was not OK"
CLOSED = "Server returned nothing (no headers, no data)"
HASH = "b" * 64

ANSWERS = [  # how the check is answered, what that server logs, the status
    (204, 204, "up to date"),
    (500, 500, "update service returned HTTP 500"),
    (f"https://{DOWNLOADS}/", 302, "update service returned HTTP 302"),
    ("close", 444, f"curl error {CLOSED}"),
    ("cut", 200, "curl error Transferred a partial file"),
    ("not listening", None, "curl error Couldn't connect to server"),
    ("no such host", None, "curl error Couldn't resolve host name"),
    ("wrong name", None, f"curl error {PEER}"),
    ("unknown authority", None, f"curl error {PEER}"),
    (b"", 200, "unreadable manifest: unexpected end of input at offset 0"),
    (b'{"version":"1.1","files":[{}]}', 200, "unreadable manifest: manifest entry  is incomplete"),
    (b'{"version":"1.1","files":[{"name":"../x","sha256":"%s","url":"u"}]}' % HASH.encode(), 200,
     "unreadable manifest: manifest entry ../x escapes the install directory"),
]


def test_what_the_update_server_answers(machine):
    machine.publish(release("1.1"))
    for how, logged, status in ANSWERS:
        machine.misbehave(UPDATES, CHECK_PATH if logged else None, how)
        requests = [f"{UPDATES} POST {CHECK_PATH} {logged}"] if logged else []
        assert (how, *first_pass(machine)) == (
            how, [f"[UpdateSvc] {status}"], f"IDLE - {status}", requests, ["install-id 644"])
        machine.behave()


WITNESS_FAULTS = [  # of which file or of the whole host, how, what that server logs, the refusal
    (BLOCK, 404, 404, "unreachable: HTTP 404"),
    (SIGNATURE, 204, 204, "unreachable: HTTP 204"),
    (DIGEST, 404, 404, f"disagrees for 1.1/{COMPONENT}"),
    (BLOCK, f"http://{DOWNLOADS}/x", 302, "unreachable: download failed, Unsupported protocol"),
    (SIGNATURE, "cut", 200, "unreachable: download failed, Transferred a partial file"),
    (None, "not listening", None, "unreachable: download failed, Couldn't connect to server"),
    (None, "wrong name", None, f"unreachable: download failed, {PEER}"),
]
# In each file of a witness: which witness is blamed, after how many answers.
ONE_BYTE_OFF = {1: [(2, 5), (2, 5), (1, 3)], 2: [(2, 5), (2, 5), (2, 6)],
                3: [(3, 8), (3, 8), (3, 9)]}


@pytest.mark.parametrize("number", [1, 2, 3])
def test_a_witness_that_fails_or_differs(machine, number):
    machine.publish(release("1.1"))
    for file, how, logged, words in WITNESS_FAULTS:
        host, path = fact(number, file or BLOCK)
        machine.misbehave(host, path if file else None, how)
        why = f"witness {number} {words}"
        good = asked(3 * (number - 1) + WITNESS_FILES.index(file or BLOCK))
        expect_refusal(machine, how, [f"[Update] quorum REFUSED - {why}"], why,
                       good + ([f"{host} GET {path} {logged}"] if logged else []))
    for file, (blamed, answers) in zip(WITNESS_FILES, ONE_BYTE_OFF[number]):
        host, path = fact(number, file)
        content = bytearray(machine.run(["cat", machine.document(host, path)], binary=True))
        content[20] ^= 1
        machine.misbehave(host, path, bytes(content))
        why = f"witness {blamed} " + (f"disagrees for 1.1/{COMPONENT}" if file == DIGEST else
                                      "serves a different signed release")
        expect_refusal(machine, file, [f"[Update] quorum REFUSED - {why}"], why, asked(answers))


def test_what_all_witnesses_agree_on_and_is_no_release_of_ours(machine):
    unsigned = "1.1 is not signed by a Vantrell release key"
    mismatch = f"the signed digest for {COMPONENT} does not match what was offered"
    head = "vantrell-release-v1\n1.1\n"
    for key, block, why, log in [
            ("stranger", None, unsigned, []),
            ("release-1", None, unsigned, []),
            ("release-2", f"{head}client-mac {HASH}\n",
             f"the signed release does not cover {COMPONENT}", [f"{VERIFIED} 2"]),
            ("release-1", f"{head}{COMPONENT} {HASH}\n", mismatch, [f"{VERIFIED} 1"])]:
        digest = publish_by_hand(machine, [("x", b"content of x")], key, block)
        for number in (1, 2, 3) if log == [] and key == "release-1" else ():
            machine.misbehave(*fact(number, SIGNATURE), b"")
        both = f" (signed {HASH}, offered {digest})" if why == mismatch else ""
        expect_refusal(machine, key, [*log, f"[Update] REFUSED - {why}{both}"], why, asked())


def test_what_is_odd_and_yet_accepted(machine):
    files = [("x", b""), ("sub/dir/y", b"content of y"), ("sub/dir/y", b"content of y")]
    digest = publish_by_hand(machine, files, "release-2")
    machine.misbehave(*fact(2, DIGEST), digest.upper().encode() + b" \r\n")
    host, path = fact(3, BLOCK)
    machine.run(["cp", machine.document(host, path), machine.document(STORAGE, "/elsewhere")])
    machine.misbehave(host, path, f"https://{STORAGE}/elsewhere")
    requests = [*asked(6), f"{host} GET {path} 302", f"{STORAGE} GET /elsewhere 200", *asked()[8:],
                *(f"{DOWNLOADS} GET /packages/1.1/{number} 200" for number in (0, 1, 2))]
    staged = [f"client-staging/1.1{path}" for path in (
        " 755", "/sub 755", "/sub/dir 755", "/sub/dir/y 644", "/x 644")]
    assert first_pass(machine) == ([f"{VERIFIED} 2", AGREED, STAGED], "READY 1.1 staged 1.1",
                                   requests, sorted(NOTHING + staged))


DOWNLOAD_FAULTS = [  # names, what goes wrong with the last, what the server logs, the refusal
    (["a", "b"], 404, [200, 404], "b: HTTP 404"),
    (["a", "b"], "cut", [200, 200], "b: download failed, Transferred a partial file"),
    (["a"], "close", [444], f"a: download failed, {CLOSED}"),
    (["a"], f"http://{DOWNLOADS}/", [302], "a: download failed, Unsupported protocol"),
    (["a", "s/b"], b"other content", [200, 200], "s/b: sha256 mismatch"),
    (["a", "a/b"], None, [200], "cannot create staging subdir for a/b"),
    (["s/a", "."], None, [200], ".: cannot create staging file"),
]


def test_a_download_that_fails(machine):
    for names, how, statuses, why in DOWNLOAD_FAULTS:
        publish_by_hand(machine, [(name, f"content of {name}".encode()) for name in names])
        if how:
            machine.misbehave(DOWNLOADS, f"/packages/1.1/{len(names) - 1}", how)
        downloads = [f"{DOWNLOADS} GET /packages/1.1/{number} {status}"
                     for number, status in enumerate(statuses)]
        expect_refusal(machine, names, [f"{VERIFIED} 1", AGREED], why, asked() + downloads)
    machine.run(f"rmdir {STATE}/client-staging && touch {STATE}/client-staging")
    expect_refusal(machine, "", [f"{VERIFIED} 1", AGREED], "cannot create staging dir", asked())


def test_a_staged_file_that_is_gone_before_it_is_hashed(machine):
    publish_by_hand(machine, [("a", b"content of a")])
    offer = machine.read(machine.document(UPDATES, "/offer.json"))  # no signature covers its URLs
    machine.offer(offer.replace(f"{DOWNLOADS}/", f"{DOWNLOADS}:8443/"))
    server = serve_by_hand(machine)
    ask(machine, "CHECK")
    assert request_to(server, b"\r\n\r\n") == (
        f"GET /packages/1.1/0 HTTP/1.1\r\nHost: {DOWNLOADS}:8443\r\n"
        "User-Agent: VantrellUpdater/1.0\r\nAccept: */*\r\nCache-Control: no-cache\r\n\r\n")
    machine.run(["rm", f"{STATE}/client-staging/1.1/a"])
    server.stdin.write(b"HTTP/1.1 200 OK\r\nContent-Length: 12\r\n\r\ncontent of a")
    wait_for_passes(machine)
    assert machine.log()[-2:] == refused("a: cannot hash staged file")
    assert kept(machine) == NOTHING


@pytest.mark.slow
def test_silent_servers_hold_up_their_own_pass_alone(machine):
    machine.publish(release("1.1"))
    assert ask(machine, "STATUS") == "IDLE - "
    start = len(machine.log())
    for number, host in enumerate((UPDATES, STORAGE), 1):
        machine.behave()
        machine.misbehave(host, None, "mute")
        ask(machine, "CHECK")
        machine.run(f"until [ $(ss -Htn dst 127.0.0.23 | wc -l) = {number} ]; do sleep 0.02; done")
    assert ask(machine, "STATUS") == "IDLE - " and machine.log()[start:] == []
    wait_for_passes(machine)
    why = "witness 2 unreachable: download failed, Timeout was reached"
    assert sorted(machine.log()[start:]) == sorted([
        "[UpdateSvc] curl error Timeout was reached", f"[Update] quorum REFUSED - {why}",
        *refused(why)])
    assert (machine.request_lines(), kept(machine)) == (asked(3), NOTHING)


def test_a_status_stands_until_another_is_published(machine):
    publish_by_hand(machine, [("x", b"content of x")])
    machine.misbehave(*fact(1, BLOCK), 404)
    why = "witness 1 unreachable: HTTP 404"
    assert check(machine) == [f"[Update] quorum REFUSED - {why}", *refused(why)]
    assert check(machine) == [f"[Update] quorum REFUSED - {why}", refused(why)[0]]
    machine.behave()
    assert check(machine)[-1] == STAGED
    machine.misbehave(UPDATES, CHECK_PATH, 500)
    assert check(machine) == ["[UpdateSvc] update service returned HTTP 500"]
    machine.behave()
    machine.forget_requests()
    machine.offer('{"version":"1.1","files":[{"name":"x","sha256":"%s","url":"u"}]}' % HASH)
    assert check(machine) == [] and machine.request_lines() == [CHECKED]
    assert ask(machine, "STATUS") == "READY 1.1 update service returned HTTP 500"


def test_what_is_staged_stays_until_a_newer_release_is(machine):
    publish_by_hand(machine, [("x", b"content of x")])
    assert check(machine)[-1] == STAGED
    older = kept(machine)
    machine.publish(release("1.2"))
    machine.misbehave(*fact(3, DIGEST, "1.2"), 404)
    check(machine)
    assert ask(machine, "STATUS") == f"READY 1.1 refused: witness 3 disagrees for 1.2/{COMPONENT}"
    assert kept(machine) == older
    machine.run(["mkdir", f"{STATE}/client-staging/1.2"])
    machine.run(["touch", f"{STATE}/client-staging/1.2/left-over"])
    machine.behave()
    check(machine)
    both = sorted([*older, "client-staging/1.2 755",
                   "client-staging/1.2/vantrell-harbor_1.2_amd64.deb 644"])
    assert (ask(machine, "STATUS"), kept(machine)) == ("READY 1.2 staged 1.2", both)
    _, status, requests, files = first_pass(machine)  # which knows of nothing staged
    assert (status, len(requests), files) == ("READY 1.2 staged 1.2", 11, both)


def test_what_counts_as_installed(machine):
    for record, version, files, installed in [
            (f"y 1\nprefix-x {HASH}", "1.1", "x", True), (f"x {HASH}\n", "1.1", "xy", False),
            ("", "1.0", "x", True), (f"x {HASH}0\n", "1", "x", False)]:
        machine.write(f"{STATE}/installed.sha256", record)
        machine.offer(json.dumps({"version": version, "files": [
            {"name": name, "sha256": HASH, "url": "u"} for name in files]}))
        _, status, requests, _ = first_pass(machine)
        assert (record, status, requests[1:]) == (record, *(
            ("IDLE - up to date", []) if installed else
            ("IDLE - refused: witness 1 unreachable: HTTP 404",
             [f"{DOWNLOADS} GET /witness/prod/{version}.release.block 404"])))


def test_what_the_servers_are_told(machine):
    machine.publish(release("1.1"))
    machine.write(CONFIG, f"Channel=Beta\nEndpoint=https://{UPDATES}:8443//\n")
    server = serve_by_hand(machine)
    ask(machine, "CHECK")
    head, body = request_to(server, b'"}').split("\r\n\r\n")
    install_id, kernel = machine.read(f"{STATE}/install-id"), machine.run(["uname", "-r"])
    assert body == (
        '{"ring":"beta","component":"client-linux-amd64","current_version":"1.0",'
        '"driver_fingerprint":"","os_build":"Debian GNU/Linux 12 (bookworm) '
        f'{kernel[:-1]} x86_64","install_id":"{install_id[:-1]}"}}')
    assert len(install_id) == 37 and head.split("\r\n") == [
        f"POST {CHECK_PATH} HTTP/1.1", f"Host: {UPDATES}:8443", "User-Agent: VantrellUpdater/1.0",
        "Accept: */*", "Content-Type: application/json", f"Content-Length: {len(body)}"]
    machine.write(CONFIG, "Channel=dev\n")  # in time for the witnesses of this very pass
    offer = (release("1.1") / "offer.json").read_bytes()
    server.stdin.write(b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\n\r\n%s" % (len(offer), offer))
    wait_for_passes(machine)
    assert machine.request_lines() == [f"{DOWNLOADS} GET /witness/dev/1.1.release.block 404"]

    machine.run(["rm", CONFIG])
    first_pass(machine)
    post, *gets = machine.requests()
    assert post.body == body.replace("beta", "prod")
    assert [(get.agent, get.type, get.cache, get.body) for get in gets] == \
        [("VantrellUpdater/1.0", "", "no-cache", "")] * 10
