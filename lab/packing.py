"""Runs the packaging recipe and the publishing tool, also on files that they must refuse."""

import datetime
import os
import pathlib
import re
import shutil
import subprocess
import tempfile

from lab.machine import image_path
from lab.outside_world import DOWNLOADS
from lab.releases import BUILT, FIRST_STAMP, KEYS, ROOT

_LICENSE = ROOT / "lab/client/copyright"
_RECIPE = f"""rm -rf client service && mkdir -p client/usr/bin && cp -r {BUILT}/service .
cp {BUILT}/stand-in-client client/usr/bin/vantrell-harbor
%s
exec {ROOT}/packaging/make-client-package --version 1 --client-tree client --output made \\
  --service-tree service --license {_LICENSE} --maintainer 'A <a@vantrell.invalid>' "$@"
"""
# The deployment of the lab, moved to hosts with names of the same length.
_DEPLOYMENT = {
    "UPDATE_HOST": "updates.vantrell.invalid",
    "WITNESS_1": "https://downloads.vantrell.invalid/witness",
    "WITNESS_2": "https://storage.vantrell.invalid/vantrell-update-witness",
    "WITNESS_3": "https://blobs.vantrell.invalid/witness", "RELEASE_KEY_1": "key1.pub",
    "RELEASE_KEY_2": "key2.pub", "DOWNLOADS": "https://downloads.vantrell.invalid/packages"}
# A valid package, and others that are it with one change; a damaged package, a short key.
_PUBLISHER_FILES = f"""openssl genrsa -out short.pem 1024; openssl genrsa -out key3.pem 2048
sed 's/blobs/clots/' deployment.conf >clots.conf; echo >notes
mv vantrell-harbor_1.1_amd64.deb good.deb; head -c -9 good.deb >cut.deb
pack() {{ dpkg-deb --raw-extract good.deb root; (cd root; eval "$2")
  dpkg-deb --root-owner-group -Znone --build root $1.deb; rm -r root; }}
field() {{ sed -i "s/^$1: .*/$1: $2/" DEBIAN/control; }}
pack P 'field Package x'; pack A 'field Architecture all'
pack conflicts 'echo "Conflicts: systemd" >>DEBIAN/control'
pack no-client 'rm usr/bin/*'; pack no-service 'rm usr/sbin/*'
pack arm64 'printf "\\267" | dd of=usr/sbin/vantrell-harbor-updated bs=1 seek=18 conv=notrunc'
pack no-unit 'rm usr/lib/systemd/system/*updated.service'
pack previous 'field Version 1; sed -i "s/^Depends: /&foo, /" DEBIAN/control'
pack other-keys 'field Version 1; cp {BUILT}/service/usr/sbin/* usr/sbin'"""


# A client as vendors pack it, with texts and a hook of its own.
_CLIENT = f"""mkdir -p client/usr/bin client/usr/share/man/man1 hooks
cp {BUILT}/stand-in-client client/usr/bin/vantrell-harbor
strip client/usr/bin/vantrell-harbor
printf '.TH VANTRELL-HARBOR 1\\n.SH NAME\\nvantrell-harbor \\\\- stand-in\\n' \\
  >client/usr/share/man/man1/vantrell-harbor.1
printf 'Stand-in for the client\\nFor the lab.\\n\\nIt is not distributed.\\n\\n' >description
printf '#!/bin/sh\\nset -e\\necho "hook $1"\\n' | tee hooks/prerm >hooks/postinst"""


def copy_sources(folder):
    shutil.copytree(ROOT, folder / "sources", ignore=lambda path, names: (
        ["build", ".git"] if path == str(ROOT) else ["__pycache__"]))


def environment_for_sources():
    """Builds of copied sources take the objects of the lab's build, where these are the same."""
    stamp = datetime.datetime.strptime(f"{FIRST_STAMP}+0000", "%Y-%m-%d-%H%M%z")
    return {**os.environ, "SOURCE_DATE_EPOCH": f"{stamp.timestamp():.0f}",
            "CMAKE_CXX_COMPILER_LAUNCHER": str(ROOT / "lab/reuse-objects"),
            "LAB_BUILD": str(BUILT / "build"), "VANTRELL_LAB_CACHE": os.path.dirname(image_path())}


def make_package_from_sources(folder):
    """Runs the recipe in a copy of the sources, where it builds the service; returns the result."""
    copy_sources(folder)
    lab = {name: value.replace(".invalid", ".example") for name, value in _DEPLOYMENT.items()}
    write_deployment(folder, **{**lab, "RELEASE_KEY_1": KEYS / "release-1.pub",
                                "RELEASE_KEY_2": KEYS / "release-2.pub"})
    subprocess.run(["sh", "-ec", _CLIENT], cwd=folder, check=True)
    subprocess.run(
        ["sources/packaging/make-client-package", "--version", "1", "--client-tree", "client",
         "--development", "--deployment", "deployment.conf", "--license", _LICENSE, "--maintainer",
         "The lab <lab@vantrell.example>", "--description", "description", "--hooks", "hooks",
         "--output", "."], cwd=folder, check=True, env=environment_for_sources())
    return folder / "vantrell-harbor_1_amd64.deb"


def run_recipe(folder, damage, *options):
    """Packs valid trees to which a shell line did some damage; returns the CompletedProcess."""
    return subprocess.run(["sh", "-ec", _RECIPE % damage, "sh", *options], cwd=folder, text=True,
                          stderr=subprocess.PIPE)


def _public_key(folder, name):
    return subprocess.run(["openssl", "pkey", "-pubin", "-in", folder / f"{name}.pub", "-outform",
                           "DER"], check=True, stdout=subprocess.PIPE).stdout


def make_keys(folder):
    """Makes the pairs key1 and key2 in a folder."""
    for key in ("key1", "key2"):
        subprocess.run(f"openssl genrsa -out {key}.pem && openssl pkey -in {key}.pem -pubout "
                       f"-out {key}.pub", shell=True, cwd=folder, check=True)


def write_deployment(folder, **change):
    """Writes deployment.conf, in which some values are changed."""
    lines = [f"{name}={value}\n" for name, value in {**_DEPLOYMENT, **change}.items()]
    folder.joinpath("deployment.conf").write_text("".join(lines))


def make_deployed_package(folder, version, keys=("key1", "key2")):
    """Packs the client and the lab's service, in which keys and hosts are replaced."""
    with tempfile.TemporaryDirectory() as trees:
        trees = pathlib.Path(trees)
        (trees / "client/usr/bin").mkdir(parents=True)
        shutil.copy(BUILT / "stand-in-client", trees / "client/usr/bin/vantrell-harbor")
        shutil.copytree(BUILT / "service", trees / "service")
        for program in ("sbin/vantrell-harbor-updated", "lib/vantrell-harbor/prove-package"):
            program = trees / "service/usr" / program
            code = program.read_bytes().replace(b".vantrell.example", b".vantrell.invalid")
            for old, new in zip(("release-1", "release-2"), keys):
                code = code.replace(_public_key(KEYS, old), _public_key(folder, new))
            program.write_bytes(code)
        subprocess.run(
            [ROOT / "packaging/make-client-package", "--version", version, "--client-tree",
             trees / "client", "--service-tree", trees / "service", "--output", folder,
             "--deployment", folder / "deployment.conf", "--license", _LICENSE, "--maintainer",
             "A <a@vantrell.invalid>"],
            check=True, env={**os.environ, "DPKG_DEB_COMPRESSOR_TYPE": "none"})


def make_publisher_files(folder):
    """Makes good.deb for release 1.1 and other files, most of them invalid."""
    make_keys(folder)
    write_deployment(folder)
    make_deployed_package(folder, "1.1")
    subprocess.run(["sh", "-ec", _PUBLISHER_FILES], cwd=folder, check=True)


def command_blocks(section, page="publishing"):
    """The indented blocks of a section of a page in docs/, with its subsections, as scripts."""
    page = (ROOT / f"docs/{page}.md").read_text()
    text = re.search(rf"^## {section}\n(.*?)(?=^## |\Z)", page, re.M | re.S).group(1)
    return [block.group() for block in re.finditer(r"(^    .*\n)+", text, re.M)]


def run_as_operator(folder, block):
    """Runs a block in a folder; packages that it names are made first, with the keys of the day."""
    for version in re.findall(r"vantrell-harbor_([0-9.]+)_amd64.deb", block):
        if not (folder / f"vantrell-harbor_{version}_amd64.deb").exists():
            values = (folder / "deployment.conf").read_text()
            make_deployed_package(folder, version, re.findall(r"RELEASE_KEY_.=(.*)\.pub", values))
    return subprocess.run(["bash", "-euxo", "pipefail", "-c", block], cwd=folder, text=True,
                          capture_output=True)


def configure(folder, **change):
    """Configures a deployment, of which some values are changed; returns the CompletedProcess."""
    make_keys(folder)
    write_deployment(folder, **change)
    return subprocess.run(["cmake", "-G", "Ninja", "-S", ROOT, "-B", "build",
                           "-DVANTRELL_DEPLOYMENT=deployment.conf"],
                          cwd=folder, text=True, capture_output=True)


def publish(folder, *arguments):
    """Publishes release 1.1 of files in a folder to made/tree; returns the CompletedProcess."""
    command = [ROOT / "publisher/publish-release", "--version", "1.1", "--channel", "prod", "--key",
               "key1.pem", "--deployment", "deployment.conf", "--output", "made/tree", *arguments]
    return subprocess.run(command, cwd=folder, text=True, capture_output=True)


def publish_all(folder, files, tree):
    """Publishes files, given as name and content; returns the made tree in the same form."""
    for number, content in enumerate(files.values()):
        (folder / f"{number}").write_bytes(content)
    result = publish(folder, "--development", "--base-url", f"https://{DOWNLOADS}/packages",
                     "--output", tree, *[f"{name}={number}" for number, name in enumerate(files)])
    assert result.returncode == 0, result.stderr
    return {str(path.relative_to(tree)): path.read_bytes()
            for path in tree.rglob("*") if path.is_file()}
