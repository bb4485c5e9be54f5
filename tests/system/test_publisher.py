"""What may be published, and that it is signed as a second computation says. Needs no machine."""

import hashlib
import json
import os
import subprocess

from conftest import ROOT

from lab.releases import KEYS

GIVEN = """openssl genrsa -out short.pem 1024; echo >notes; mkdir -p root/DEBIAN
pack() { printf "Package: $2\nVersion: $3\nArchitecture: $4\nMaintainer: m\nDescription: d\n" >new
  mv new root/DEBIAN/control; dpkg-deb --build root $1.deb; }
pack good vantrell-harbor 1.1 amd64; head -c -9 good.deb >cut.deb; pack P x 1.1 amd64
pack V vantrell-harbor 1 amd64; pack A vantrell-harbor 1.1 all"""
REFUSED = [  # options and files, what is said
    ("good.deb --version 1/1", 'the version "1/1" holds characters that do not pass unchanged '),
    ("good.deb --channel Prod", '"Prod" is not a channel that machines ask for'),
    ("good.deb --key short.pem", "the key short.pem is not an RSA-2048 key with the usual"),
    ("good.deb /etc/x=notes", 'the name "/etc/x" escapes the install directory of the machines'),
    ("good.deb a/../../x=notes", 'the name "a/../../x" escapes the install directory'),
    ("notes", 'no name ends in ".deb"'),
    ("good.deb 2.deb=good.deb", '2 names end in ".deb"'),
    ("cut.deb", "cut.deb is damaged"),
    ("P.deb", 'P.deb says "Package: x, Version: 1.1, Architecture: amd64" and the release'),
    ("V.deb", 'V.deb says "Package: vantrell-harbor, Version: 1, Architecture: amd64" and '),
    ("A.deb", 'A.deb says "Package: vantrell-harbor, Version: 1.1, Architecture: all" and '),
]


def publish(folder, *arguments):
    command = [ROOT / "publisher/publish-release", "--version", "1.1", "--channel", "prod", "--key",
               KEYS / "release-1.pem", "--output", "made", *arguments]
    return subprocess.run(command, cwd=folder, text=True, capture_output=True)


def test_what_clients_would_refuse_is_not_published(tmp_path):
    subprocess.run(["sh", "-ec", GIVEN], cwd=tmp_path, check=True)
    before = sorted(os.listdir(tmp_path))
    for arguments, sentence in REFUSED:
        result = publish(tmp_path, *arguments.split())
        assert result.stderr.startswith(f"publish-release: {sentence}"), arguments
        assert (result.returncode, sorted(os.listdir(tmp_path))) == (1, before), arguments


def test_what_is_published_is_signed_as_computed_anew(tmp_path):
    subprocess.run(["sh", "-ec", GIVEN], cwd=tmp_path, check=True)
    # In the order of the signed text, where the ":" behind a name takes part.
    files = {"A/z": bytes(range(256)), "a-": b"2", "a.b": b"1", "a": b"",
             "b.deb": (tmp_path / "good.deb").read_bytes()}
    for number, data in enumerate(files.values()):
        (tmp_path / f"{number}").write_bytes(data)
    result = publish(tmp_path, *[f"{name}={number}" for number, name in enumerate(files)][::-1])
    assert result.returncode == 0, result.stderr
    entries = [{"name": name, "sha256": hashlib.sha256(data).hexdigest(), "size": len(data),
                "url": f"https://downloads.vantrell.example/packages/1.1/{name}"}
               for name, data in files.items()]
    lines = ["{name}:{sha256}:{size}".format(**entry) for entry in entries]
    text = "\n".join(["1.1|client-linux-amd64", *lines])
    digest = hashlib.sha256(text.encode()).hexdigest()
    tree, signature = tmp_path / "made", "witness-1/prod/1.1.release.sig"
    made = {str(p.relative_to(tree)): p.read_bytes() for p in tree.rglob("*") if p.is_file()}
    assert json.loads(made.pop("offer.json")) == {
        "version": "1.1", "git_commit": "", "driver_fingerprint": "", "files": entries[::-1]}
    block = f"vantrell-release-v1\n1.1\nclient-linux-amd64 {digest}\n".encode()
    facts = {"release.block": block, "release.sig": made[signature],
             "client-linux-amd64.sha256": f"{digest}\n".encode()}
    assert made == {f"downloads/packages/1.1/{name}": data for name, data in files.items()} | {
        f"witness-{n}/prod/1.1.{fact}": data for n in (1, 2, 3) for fact, data in facts.items()}
    subprocess.run(["openssl", "dgst", "-sha256", "-verify", KEYS / "release-1.pub", "-signature",
                    tree / signature], input=block, check=True)
