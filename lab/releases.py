"""Packages and signed releases of the stand-in client, valid and invalid ones.

The environment variable VANTRELL_FLAVOUR names the build of the service in them: release (the
default), asan or tsan. lab/build makes that build. Packages and releases are made once and kept in
the folder of the build.
"""

import fcntl
import hashlib
import json
import os
import pathlib
import subprocess

from lab.outside_world import DOWNLOADS, UPDATES, WITNESSES

ROOT = pathlib.Path(__file__).resolve().parents[1]
FLAVOUR = os.environ.get("VANTRELL_FLAVOUR", "release")
BUILT = ROOT / "build/lab" / FLAVOUR
KEYS = BUILT.parent / "keys"
FIRST_STAMP, NEXT_STAMP = "2026-10-11-2304", "2026-11-21-0900"
README = f"notes/readme={ROOT}/README.md"  # a second file for a release
COMPONENT = "client-linux-amd64"
HASH = "b" * 64  # in the form of a SHA-256
DEB = "vantrell-harbor_1.1_amd64.deb"  # the file of package("1.1")
# Each makes a package that is not the client's of release 1.1; see package().
FOREIGN_FIELDS = ["Package: vantrell-harbour", "Version: 1.1-1", "Architecture: all"]
WITNESS_FILES = BLOCK, SIGNATURE, DIGEST = "release.block", "release.sig", f"{COMPONENT}.sha256"


def cached(make, *key, built=BUILT):
    """A folder that `make(folder)` filled. Made once for each key and shared by all runs."""
    digest = hashlib.sha256(repr(key).encode()).hexdigest()[:16]
    built.joinpath("made").mkdir(exist_ok=True)
    folder = built / "made" / digest
    with open(f"{folder}.lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not folder.exists():
            making = folder.with_suffix(".making")
            subprocess.run(["rm", "-rf", making], check=True)
            making.mkdir()
            make(making)
            making.rename(folder)
    return folder


def package(version, *options, stamp=FIRST_STAMP, built=BUILT):
    """Path of a client package. The options are those of lab/client/make-package.

    `built` holds the build to pack (service/ and stand-in-client) and gets the package; the keys
    of its releases are beside it, in keys/.
    """
    service = built / ("service" if stamp == FIRST_STAMP else "next-service")
    sources = [service, ROOT / "packaging", ROOT / "lab/client"]
    newest = max(path.stat().st_mtime_ns for root in sources for path in root.rglob("*"))

    def unpack(folder):
        subprocess.run([ROOT / "lab/client/unpack-package", built, service, folder], check=True)

    def make(folder):
        subprocess.run([ROOT / "lab/client/make-package", "--version", version, "--from",
                        cached(unpack, "unpacked", stamp, newest, built=built), "--output", folder,
                        *options], check=True, stdout=subprocess.DEVNULL)

    return next(cached(make, "package", version, stamp, options, newest,
                       built=built).glob("*.deb"))


def release(version, *options, files=(), channel="prod", key="release-1", deb=None, built=BUILT,
            **kind):
    """Folder with a published release of package(version, *options) and of other `files`."""
    deb = deb or package(version, *options, built=built, **kind)

    def make(folder):
        subprocess.run([ROOT / "publisher/publish-release", "--development", "--version", version,
                        "--channel", channel, "--key", built.parent / f"keys/{key}.pem", "--output",
                        folder / "tree", deb, *files], check=True, stdout=subprocess.DEVNULL)

    names = [str(file) for file in files]
    return cached(make, "release", str(deb), version, channel, key, names, built=built) / "tree"


def fact(number, file, version="1.1"):
    """Host and path of one of the nine signed facts of a release."""
    host, base = WITNESSES[number - 1]
    return host, f"{base}/prod/{version}.{file}"


def manifest_entries(files, paths, version="1.1"):
    """The entries of pairs of name and content, which are served under the paths."""
    return [{"name": name, "sha256": hashlib.sha256(content).hexdigest(), "size": len(content),
             "url": f"https://{DOWNLOADS}/packages/{version}/{path}"}
            for (name, content), path in zip(files, paths)]


def signed_digest(entries, version="1.1"):
    """The digest that a release of these manifest entries must be signed with."""
    lines = {f"{entry['name']}:{entry['sha256']}:{entry['size']}" for entry in entries}
    text = "\n".join([f"{version}|{COMPONENT}", *sorted(lines)])
    return hashlib.sha256(text.encode()).hexdigest()


def manifest(version, names):
    """An offer whose files have names of one letter and the digest HASH, and are not served."""
    return json.dumps({"version": version, "files": [
        {"name": name, "sha256": HASH, "url": "u"} for name in names]})


def publish_by_hand(machine, files, key="release-1", version="1.1", keys=KEYS):
    """Publishes and offers a release that publish-release would refuse to make.

    `files` are pairs of name and content. Returns the digest.
    """
    entries = manifest_entries(files, range(len(files)), version)
    digest = signed_digest(entries, version)
    block = f"vantrell-release-v1\n{version}\n{COMPONENT} {digest}\n".encode()
    signature = subprocess.run(["openssl", "dgst", "-sha256", "-sign", keys / f"{key}.pem"],
                               input=block, check=True, stdout=subprocess.PIPE).stdout
    offer = json.dumps({"version": version, "files": entries}).encode()
    documents = {(UPDATES, "/offer.json"): offer}
    for number, (_, content) in enumerate(files):
        documents[DOWNLOADS, f"/packages/{version}/{number}"] = content
    for file, content in zip(WITNESS_FILES, (block, signature, digest.encode())):
        documents.update({fact(number, file, version): content for number in (1, 2, 3)})
    for place, content in documents.items():
        path = machine.on_host(machine.document(*place))
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
    return digest
