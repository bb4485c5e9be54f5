#!/usr/bin/python3
"""Checks a second of the publisher's update server, and GETs of a static file beside it.

nginx and wrk share the processors, so the rate is what both reach together. The time of nginx for a
request is that of its control group, the kernel's work for it included.
"""

import re
import subprocess
import sys
from typing import NamedTuple

from service import BUILT, processor_seconds, wire_bytes  # finds the lab, too
from lab.machine import Machine, missing_requirements
from lab.outside_world import CHECK_PATH, DOWNLOADS, UPDATES
from lab.reference_servers import ReferenceServers, text_of_check

SECONDS = 10
ID = "7c9f4c1e-6a53-4c1b-9d0e-3f6d2b8a1c55"
SET_UP = """install -m 644 publisher/server/update-server.conf /etc/nginx/conf.d/
install -m 644 publisher/server/static-host.conf publisher/server/rollout.conf /etc/nginx/conf.d/
sed -i '/[$]prod /s/{.*}/{ * 1.1; }/' /etc/nginx/conf.d/rollout.conf
mkdir -p /srv/vantrell/offers /srv/vantrell/public
printf '{"version": "1.1", "files": [%0400d]}' 1 >/srv/vantrell/offers/1.1.json
cp /srv/vantrell/offers/1.1.json /srv/vantrell/public
sed -i 's/^worker_processes .*/worker_processes auto;/' /etc/nginx/nginx.conf
systemctl start nginx"""


class Load(NamedTuple):
    name: str
    host: str
    path: str
    body: str = ""


LOADS = [Load("an offer", UPDATES, CHECK_PATH, text_of_check(install_id=ID)),
         Load("up to date (204)", UPDATES, CHECK_PATH, text_of_check("dev", install_id=ID)),
         Load("a static file", DOWNLOADS, "/1.1.json")]


def measure(machine, load, script, new_connections):
    lines = [f'wrk.headers["Host"] = "{load.host}"']
    if load.body:
        lines += ['wrk.method = "POST"', f"wrk.body = '{load.body}'"]
    if new_connections:
        lines.append('wrk.headers["Connection"] = "close"')
    script.write_text("\n".join(lines))

    group = machine.on_host("/sys/fs/cgroup/system.slice/nginx.service")

    def used():
        return processor_seconds(machine, group) * 1e6, wire_bytes(machine)

    before = used()
    report = subprocess.run(
        ["nsenter", "--net", "--target", str(machine.leader), "wrk", "-t2", "-c64",
         f"-d{SECONDS}s", "-s", script, f"https://127.0.0.11{load.path}"],
        check=True, stdout=subprocess.PIPE, text=True).stdout
    if "Non-2xx" in report:
        sys.exit(report)
    spent, sent = (after - start for after, start in zip(used(), before))
    count = int(re.search(r"(\d+) requests in", report)[1])
    print(f"{'new connections' if new_connections else 'kept connections'}, {load.name}: "
          f"{count / SECONDS:.0f}/s, {spent / count:.0f} us of nginx and {sent / count:.0f} bytes "
          "for each")


def main():
    missing = missing_requirements()
    if missing:
        sys.exit(f"{sys.argv[0]}: {missing}")
    BUILT.mkdir(parents=True, exist_ok=True)
    script = BUILT / "load.lua"
    with Machine() as machine:
        ReferenceServers(machine).run(SET_UP)
        for new_connections in (False, True):
            for load in LOADS:
                measure(machine, load, script, new_connections)


main()
