"""What publish-release refuses, and the digest and signature that it makes. Needs no machine."""

import hashlib
import json
import os
import subprocess

from lab.packing import made_files, make_publisher_files, publish
from lab.releases import KEYS, signed_digest

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


def test_a_release_that_clients_would_refuse_is_not_published(tmp_path):
    make_publisher_files(tmp_path)
    before = sorted(os.listdir(tmp_path))
    for arguments, sentence in REFUSED:
        result = publish(tmp_path, *arguments.split())
        assert result.stderr.startswith(f"publish-release: {sentence}"), arguments
        assert result.returncode == 1, arguments
        assert sorted(os.listdir(tmp_path)) == before, arguments


def test_the_published_digest_is_that_of_a_second_computation_and_is_signed(tmp_path):
    make_publisher_files(tmp_path)
    # The signed text is sorted by whole lines, in which the ":" after a name is compared too.
    files = {"b.deb": (tmp_path / "good.deb").read_bytes(), "a": b"", "a.b": b"1", "a-": b"2",
             "A/z": bytes(range(256))}
    for number, data in enumerate(files.values()):
        (tmp_path / f"{number}").write_bytes(data)
    result = publish(tmp_path, *[f"{name}={number}" for number, name in enumerate(files)])
    assert result.returncode == 0, result.stderr
    entries = [{"name": name, "sha256": hashlib.sha256(data).hexdigest(), "size": len(data),
                "url": f"https://downloads.vantrell.example/packages/1.1/{name}"}
               for name, data in files.items()]
    digest = signed_digest(entries)
    made = made_files(tmp_path)
    assert json.loads(made.pop("offer.json")) == {
        "version": "1.1", "git_commit": "", "driver_fingerprint": "", "files": entries}
    block = f"vantrell-release-v1\n1.1\nclient-linux-amd64 {digest}\n".encode()
    signature = "witness-1/prod/1.1.release.sig"
    facts = {"release.block": block, "release.sig": made[signature],
             "client-linux-amd64.sha256": f"{digest}\n".encode()}
    assert made == {f"downloads/packages/1.1/{name}": data for name, data in files.items()} | {
        f"witness-{n}/prod/1.1.{fact}": data for n in (1, 2, 3) for fact, data in facts.items()}
    subprocess.run(["openssl", "dgst", "-sha256", "-verify", KEYS / "release-1.pub", "-signature",
                    tmp_path / "made" / signature], input=block, check=True)
