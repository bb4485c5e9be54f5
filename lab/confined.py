"""The service as an operator shuts it in."""

import json
import pathlib
import re

from lab.machine import BASE_ENVIRONMENT, SERVICE
from lab.misbehaviour import answer_by_hand, request_to, serve_by_hand
from lab.outside_world import DOWNLOADS
from lab.service_view import restart
from lab.stubs import FOLDER, REAL_TOOL, stub

PROFILE = "/usr/lib/vantrell-harbor/confined.conf"
END = b"\r\n\r\n"  # of a request without a body
# The header of a member of the given size that dpkg and apt-get ignore at the end of a package.
IGNORED = b"_padding        0           0     0     100644  %-10d`\n"
BUFFER = 4096  # bytes of the service's stream
SHIM = "/usr/lib/vantrell-harbor/confined/apt-get"


def confine(machine):
    """Switches the profile on, as the documentation says."""
    machine.run(f"mkdir -p /etc/systemd/system/{SERVICE}.d && "
                f"ln -s {PROFILE} /etc/systemd/system/{SERVICE}.d/ && systemctl daemon-reload")
    restart(machine)


def hold_apt_get(machine, condition):
    """Has the service wait for a shell condition after its check of a package, before its apt-get.

    The service tests the condition itself, in its sandbox if it has one. Restarts the service;
    unstub("apt-get") undoes it.
    """
    environment = machine.run(["systemctl", "show", "--value", "--property=Environment", SERVICE])
    path = re.search(r"PATH=(\S+)|$", environment)[1] or BASE_ENVIRONMENT["PATH"]
    machine.write(f"/etc/systemd/system/{SERVICE}.d/path.conf",
                  f"[Service]\nEnvironment=PATH={FOLDER}:{path}\n")
    held = f"touch /tmp/held; until {condition}; do sleep 0.05; done"
    machine.run(f"systemctl daemon-reload; {stub('apt-get', f'{held}; {REAL_TOOL}')}")
    restart(machine)


def begin_pass_by_hand(machine, tree):
    """Begins a check pass for a release whose files are served by hand, the package last.

    The pass has asked for the first file when this returns. Then the release is offered as it was
    published, so that another pass can stage it. This one has emptied the directory before, and
    writes there again what the server sends, when it sends it.
    """
    published = pathlib.Path(tree, "offer.json").read_text()
    offer = json.loads(published)
    offer["files"].sort(key=lambda file: file["name"].endswith(".deb"))
    for file in offer["files"]:
        file["url"] = f"https://{DOWNLOADS}:8443/{file['name']}"
    server = serve_by_hand(machine, len(offer["files"]))
    machine.publish(tree, offer=False)
    machine.offer(json.dumps(offer))
    machine.send("CHECK")
    request_to(server, END)
    machine.offer(published)
    return server


def overwrite_package(server, first, content):
    """Lets such a pass go on to the package, and has it write another one there without an end."""
    answer_by_hand(server, first)
    request_to(server, END)
    # The package fills whole buffers, so that all of it is written. The last byte never comes.
    padding = -(len(content) + len(IGNORED % 0)) % BUFFER
    answer_by_hand(server, content + IGNORED % padding + bytes(padding + 1), missing=1)
