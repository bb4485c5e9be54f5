"""The publisher's configuration of nginx, in place of the lab's own servers."""

import http.client
import socket
import time

from lab.outside_world import BLOBS, STORAGE
from lab.releases import COMPONENT, ROOT

MIRROR = "mirror.site.example"
CHECKS, MIRRORED = "/var/log/nginx/checks.log", "/var/log/nginx/mirror.log"
# A second entrance to the update server, without TLS, so that the host can ask it.
_ENTRANCE = "/run/check.sock"
_GROUP = "/sys/fs/cgroup/system.slice/nginx.service/cgroup.procs"
_GIVE_UP = """systemctl stop nginx lab-mute.socket
rm /etc/systemd/system/nginx.service.d/lab.conf; systemctl daemon-reload"""
# One worker of nginx: its log has the order of the answers. Certificates; the name of the mirror;
# hosts for witnesses 2 and 3.
_PREPARE = f"""{_GIVE_UP}
sed -i 's/^worker_processes .*/worker_processes 1;/' /etc/nginx/nginx.conf
mkdir -p /etc/ssl/vantrell; cd /etc/ssl/vantrell
for host in updates downloads mirror; do
  ln -s /etc/lab/server.crt $host.crt; ln -s /etc/lab/server.key $host.key
done
echo 127.0.0.15 {MIRROR} >>/etc/hosts
cd /root/publisher/server
sed -i 's|listen 443 ssl;|&\\n  listen unix:{_ENTRANCE};|' update-server.conf
for host in {STORAGE} {BLOBS}; do
  sed "/_log\\|log_format/d; s|server_name .*|server_name $host;|; s|root .*|root /srv/$host;|" \\
    static-host.conf >/etc/nginx/conf.d/$host.conf
done"""
_SERVE_WITNESSES = f"""cd /root/release; mkdir /srv/{STORAGE} /srv/{BLOBS}
cp -R witness-2 /srv/{STORAGE}/vantrell-update-witness; cp -R witness-3 /srv/{BLOBS}/witness"""


def give_up_servers(machine):
    """Ends the lab's servers on a machine and leaves nginx as Debian installs it, not started."""
    machine.run(["sh", "-euc", _GIVE_UP])


def text_of_check(ring="prod", installed="1.0", os_build="Debian", install_id="0"):
    """A check as the service writes it; the values go in as they stand."""
    return (f'{{"ring":"{ring}","component":"{COMPONENT}","current_version":"{installed}",'
            f'"driver_fingerprint":"","os_build":"{os_build}","install_id":"{install_id}"}}')


class ReferenceServers:
    """Update server, download host, witnesses and a mirror, all of one nginx on a machine."""

    def __init__(self, machine, release=None):
        """The folder of a release becomes /root/release. Witnesses 2 and 3 serve it already."""
        self._machine = machine
        machine.push_folders({ROOT / "publisher/server": "publisher/server",
                              **({release: "release"} if release else {})}, "/root")
        machine.run(["sh", "-euc", _PREPARE])
        if release:
            machine.run(["sh", "-euc", _SERVE_WITNESSES])

    def run(self, *blocks):
        """Runs blocks of commands in /root. After a reload only the new configuration serves."""
        for block in blocks:
            before = self._processes()
            self._machine.run(["bash", "-euo", "pipefail", "-c", f"cd /root\n{block}"])
            if "reload" in block:
                self._wait_for_new_worker(before)

    def _wait_for_new_worker(self, before):
        """The master process stays, and its old worker ends when the new one serves."""
        deadline = time.monotonic() + 60
        while len(self._processes()) < 2 or len(self._processes() & before) > 1:
            assert time.monotonic() < deadline, "nginx does not reload"
            time.sleep(0.01)

    def _processes(self):
        group = self._machine.on_host(_GROUP)
        return set(group.read_text().split()) if group.exists() else set()

    def statuses(self, bodies, method="POST"):
        """The status of the answer to each body."""
        connection = _Connection(self._machine.on_host(_ENTRANCE))
        found = []
        for body in bodies:
            connection.request(method, "/api/v1/check", body.encode())
            answer = connection.getresponse()
            answer.read()
            found.append(answer.status)
        connection.close()
        return found

    def offered(self, ids):
        """Those of the ids to which a release is offered."""
        found = self.statuses([text_of_check(install_id=each) for each in ids])
        return {each for each, status in zip(ids, found) if status == 200}

    def wait_for_log(self, log, line):
        """Waits until a log of nginx has a line with this in it: nginx writes once a second."""
        wait = 'until grep -qF -e "$1" "$0"; do sleep 0.1; done'
        self._machine.run(["sh", "-c", wait, log, line])


class _Connection(http.client.HTTPConnection):
    def __init__(self, path):
        super().__init__("localhost")
        self._path = str(path)

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.settimeout(60)
        self.sock.connect(self._path)
