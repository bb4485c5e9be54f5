"""Runs the packaging recipe and the publishing tool, also on files that they must refuse."""

import subprocess

from lab.releases import BUILT, KEYS, ROOT

_RECIPE = f"""rm -rf client service && mkdir -p client/usr/bin && cp -r {BUILT}/service .
cp {BUILT}/stand-in-client client/usr/bin/vantrell-harbor
%s
exec {ROOT}/packaging/make-client-package --version 1 --client-tree client \\
  --service-tree service --output made "$@"
"""
# Packages with a wrong name (P), version (V) and architecture (A), a damaged one, a short key.
_PUBLISHER_FILES = """openssl genrsa -out short.pem 1024; echo >notes; mkdir -p root/DEBIAN
pack() { printf "Package: $2\nVersion: $3\nArchitecture: $4\nMaintainer: m\nDescription: d\n" >new
  mv new root/DEBIAN/control; dpkg-deb --build root $1.deb; }
pack good vantrell-harbor 1.1 amd64; head -c -9 good.deb >cut.deb; pack P x 1.1 amd64
pack V vantrell-harbor 1 amd64; pack A vantrell-harbor 1.1 all"""


def run_recipe(folder, damage, *options):
    """Packs valid trees to which a shell line did some damage; returns the CompletedProcess."""
    return subprocess.run(["sh", "-ec", _RECIPE % damage, "sh", *options], cwd=folder, text=True,
                          stderr=subprocess.PIPE)


def make_publisher_files(folder):
    """Makes good.deb for release 1.1 and other files, most of them invalid."""
    subprocess.run(["sh", "-ec", _PUBLISHER_FILES], cwd=folder, check=True)


def configure(folder, **change):
    """Configures a deployment, of which some values are changed; returns the CompletedProcess."""
    for key in ("one", "two"):
        subprocess.run(f"openssl genrsa 2048 | openssl rsa -pubout -out {key}.pub", shell=True,
                       cwd=folder, check=True, capture_output=True)
    values = {"RELEASE_KEY_1": "one.pub", "RELEASE_KEY_2": "two.pub",
              "UPDATE_HOST": "updates.example.org", "WITNESS_1": "https://a.example.org",
              "WITNESS_2": "https://b.example.org", "WITNESS_3": "https://c.example.org", **change}
    options = [f"-DVANTRELL_{name}={folder / value if 'KEY' in name else value}"
               for name, value in values.items()]
    return subprocess.run(["cmake", "-G", "Ninja", "-S", ROOT, "-B", "build", *options],
                          cwd=folder, text=True, capture_output=True)


def publish(folder, *arguments):
    """Publishes release 1.1 of files in a folder to made/; returns the CompletedProcess."""
    command = [ROOT / "publisher/publish-release", "--version", "1.1", "--channel", "prod", "--key",
               KEYS / "release-1.pem", "--output", "made", *arguments]
    return subprocess.run(command, cwd=folder, text=True, capture_output=True)


def publish_all(folder, files):
    """Publishes files, given as name and content; returns the published tree in the same form."""
    for number, content in enumerate(files.values()):
        (folder / f"{number}").write_bytes(content)
    result = publish(folder, *[f"{name}={number}" for number, name in enumerate(files)])
    assert result.returncode == 0, result.stderr
    tree = folder / "made"
    return {str(path.relative_to(tree)): path.read_bytes()
            for path in tree.rglob("*") if path.is_file()}
