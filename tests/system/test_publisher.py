"""verify-release: what it says about a release as it is served, and the page that it writes."""

import itertools
from subprocess import DEVNULL

import pytest

from lab.browser import Browser, channels
from lab.control_program import Answer
from lab.hostile_answers import DEEP
from lab.machine import Machine
from lab.outside_world import CHECK_PATH, DOWNLOADS, UPDATES
from lab.releases import (BLOCK, DEB, DIGEST, SIGNATURE, fact, manifest, publish_by_hand, release)
from lab.verifier import install_verifier, verify, wrong_files

NAMES = {BLOCK: "block", SIGNATURE: "signature", DIGEST: "digest"}
UNSIGNED = "is not a signature of the block by a release key"
LIGHTS = """[...document.querySelectorAll('section')].map(ring => [
  ring.querySelector('h2').innerText, ring.querySelector('.version').innerText,
  [...ring.querySelectorAll('.light')].map(light => {
    const box = light.getBoundingClientRect();
    const top = document.elementFromPoint(box.x + box.width / 2, box.y + box.height / 2);
    return [top == light && box.width > 12 && box.height > 12,
            getComputedStyle(light).backgroundColor, light.parentElement.innerText];
  })])"""
MARKUP = "<script>document.title = 'x'</script>" + "9" * 500
FITS = "document.documentElement.scrollWidth <= innerWidth"


@pytest.fixture(scope="module")
def servers():
    with Machine() as machine:
        install_verifier(machine)
        yield machine


@pytest.fixture
def world(servers):
    """A machine without the service, for its servers: they behave, and offer nothing."""
    servers.behave()
    servers.withdraw()
    return servers


def altered(content):
    return bytes([*content[:-2], content[-2] ^ 1, content[-1]])


def probe(world, words=""):
    status, printed = verify(world, f"--probe {words}")
    return Answer(status, printed.removeprefix("RELEASE "))


def colour_of(light):
    """The name of the colour of a light that is not hidden and says the same in a word."""
    seen, colour, text = light
    red, green, _ = channels(colour)
    name, word = ("green", "right") if green > red else ("red", "wrong")
    return name if seen and word in text else "none"


def answers(offer):
    """What a faulty update server answers, and what is said about it."""
    yield 500, f"no offer from {UPDATES}: update service returned HTTP 500"
    yield "close", f"no offer from {UPDATES}: curl error "
    yield DEEP, "unreadable manifest: nesting too deep"
    yield b"\x1b[2J|\n", "unreadable manifest: "
    yield (offer.replace('"size": ', '"size": 1').encode(),
           "1.1: the offer is not the release that was signed, ")
    yield manifest("\x1b[2J" + "1" * 9999, ["a.deb"]).encode(), r"\x1b[2J111"


def wrong_contents(file, digest):
    """Contents of a file of release 1.1 that are wrong, each with its fault."""
    this, other, second = [(tree / f"witness-1/prod/{version}.{file}").read_bytes()
                           for tree, version in ((release("1.1"), "1.1"), (release("1.2"), "1.2"),
                                                 (release("1.1", key="release-2"), "1.1"))]
    yield 404, "HTTP 404"
    if file == BLOCK:
        yield this + b"x\n", "is not the block that was signed"
        yield other, 'is for version "1.2"'
    elif file == SIGNATURE:
        yield altered(this), UNSIGNED
        yield other, UNSIGNED
        yield second, "differs from that of witness "
    else:
        for content in (this.strip()[::-1], other):
            named = content.decode().strip()
            yield content, f"names the digest {named}, but that of the offer is {digest}"
        yield b"x" * 2**21, "larger than 1 MiB"


def test_the_wrong_one_of_the_nine_files_is_named_with_its_fault(world):
    tree = release("1.1")
    world.publish(tree)
    good = verify(world, "--files")
    assert (good.status, wrong_files(good)) == (0, {})
    assert good.printed.endswith("\nRELEASE OK: prod 1.1 is proved and its files are right")
    digest = (tree / f"witness-1/prod/1.1.{DIGEST}").read_text().strip()
    for file, name in NAMES.items():
        # All faults of the file, and so each of the nine files at least once.
        for number, (content, fault) in zip(itertools.cycle((1, 2, 3)),
                                            wrong_contents(file, digest)):
            world.misbehave(*fact(number, file), content)
            answer = verify(world)
            (place, said), = wrong_files(answer).items()
            assert place == (number, name), answer.printed
            assert said.startswith(fault)
            line = f"\nRELEASE CRITICAL: prod 1.1: witness {number} {name}: {said}"
            assert (answer.status, answer.printed.endswith(line)) == (2, True), answer.printed
            world.behave()


def test_the_probe_judges_the_answer_of_the_update_server_and_the_files(world):
    tree = release("1.1")
    offer = (tree / "offer.json").read_text()
    assert probe(world) == (1, "WARNING: prod nothing is offered")
    assert probe(world, "--installed 1.0") == (0, "OK: prod nothing is offered")
    assert ('"current_version":"1.0"' in world.requests()[-1].body,
            world.requests()[-1].body.endswith(',"install_id":"verify-release"}')) == (True, True)
    world.publish(tree)
    assert probe(world, "--ring prod --ring beta") == (
        2, "CRITICAL: prod 1.1 is proved; beta 1.1: witness 1 block: HTTP 404 (and 8 more)")
    for answer, words in answers(offer):
        world.misbehave(UPDATES, CHECK_PATH, answer)
        status, line = probe(world)
        assert (status, line.isprintable()) == (2, True)
        assert line.startswith(f"CRITICAL: prod {words}")
    world.write("/root/offer.json", offer)
    assert probe(world, "--offer /root/offer.json").status == 3  # alice cannot read it
    world.run("mv /root/offer.json /tmp")
    assert probe(world, "--offer /tmp/offer.json") == (0, "OK: prod 1.1 is proved")
    world.misbehave(DOWNLOADS, f"/packages/1.1/{DEB}", b"x")
    assert probe(world, "--offer /tmp/offer.json --files") == (
        2, f"CRITICAL: prod 1.1: refused: {DEB}: sha256 mismatch")
    world.behave()
    came = world.misbehave(DOWNLOADS, f"/packages/1.1/{DEB}", "hang")
    with world.popen(["verify-release", "--files"], user="alice", stdout=DEVNULL) as fetching:
        assert came.wait(60)
        fetching.terminate()
    assert fetching.returncode == 3
    world.behave()
    full = "mount -t tmpfs -o size=4k full /mnt; TMPDIR=/mnt verify-release --probe --files"
    assert world.run(full, check=False) == (
        "RELEASE UNKNOWN: prod 1.1 is proved, but its files need more room\n")
    publish_by_hand(world, [(DEB, b"not a package")])
    assert probe(world) == (0, "OK: prod 1.1 is proved")
    assert probe(world, "--files").printed.startswith("CRITICAL: prod 1.1: the staged package is ")
    publish_by_hand(world, [("a", b"content of a")])
    assert probe(world) == (2, "CRITICAL: prod 1.1: the manifest lists no package")
    assert "verify-release" not in world.run("ls -A /var/tmp")


def test_the_page_shows_nine_lights_for_each_ring(world, tmp_path):
    world.publish(release("1.1"))
    world.misbehave(*fact(2, SIGNATURE), 404)
    assert verify(world, "--ring beta --ring prod --html page.html").status == 2
    page = tmp_path / "page.html"
    page.write_text(world.read("/home/alice/page.html"))
    with Browser() as browser:
        for scheme in ("light", "dark"):
            browser.open(page, scheme=scheme)
            beta, prod = browser.ask(LIGHTS)
            assert (beta[:2], prod[:2]) == (["beta", "1.1"], ["prod", "1.1"])
            assert [colour_of(light) for light in beta[2]] == ["red"] * 9
            assert [colour_of(light) for light in prod[2]] == (
                ["green"] * 4 + ["red"] + ["green"] * 4)
            assert prod[2][4][2].split() == ["\N{BALLOT X}wrong", "HTTP", "404"]
            assert browser.lowest_contrast() > 4.5
            browser.screenshot(tmp_path / f"{scheme}.png")
        browser.open(page, width=360)
        assert browser.ask(FITS)
        world.offer(manifest(MARKUP, ["a.deb"]))
        verify(world, "--html page.html")
        page.write_text(world.read("/home/alice/page.html"))
        browser.open(page, width=360)
        assert (browser.ask(FITS), browser.ask("document.scripts.length")) == (True, 0)
        assert MARKUP[:40] in browser.ask("document.querySelector('.version').innerText")
