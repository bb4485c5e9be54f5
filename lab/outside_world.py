"""What a machine sees of the network: update server, download host, witnesses, all on loopback."""

import collections
import io
import json
import pathlib
import tarfile

from lab.misbehaviour import MisbehavingServer

UPDATES = "updates.vantrell.example"
DOWNLOADS = "downloads.vantrell.example"  # carries witness 1 as well
STORAGE = "storage.vantrell.example"
BLOBS = "blobs.vantrell.example"
CHECK_PATH = "/api/v1/check"
WITNESSES = [(DOWNLOADS, "/witness"), (STORAGE, "/vantrell-update-witness"), (BLOBS, "/witness")]

ADDRESSES = {UPDATES: "127.0.0.11", DOWNLOADS: "127.0.0.12", STORAGE: "127.0.0.13",
             BLOBS: "127.0.0.14"}
# Where a host that misbehaves as a whole is moved to.
MISBEHAVING_ADDRESSES = {
    "wrong name": "127.0.0.21",  # a certificate of the known authority for another host
    "unknown authority": "127.0.0.22",  # the right name, signed by nobody we know
    "mute": "127.0.0.23",  # takes connections and says nothing, not even in the handshake
    "not listening": "127.0.0.24",
    "no such host": None,
}

Request = collections.namedtuple("Request", "scheme host method uri status agent type cache body")


class OutsideWorld:
    """The part of Machine that stands for the servers. Documents lie below /srv/lab/HOST/."""

    def open_outside_world(self):
        self._moved = {}
        self._misbehaving = MisbehavingServer(f"/proc/{self.leader}/root/run/lab/misbehave.sock")

    def close_outside_world(self):
        if hasattr(self, "_misbehaving"):
            self._misbehaving.close()

    # Offers and releases

    def offer(self, manifest):
        """Answers checks with this text (status 200) from now on."""
        self.write(self.document(UPDATES, "/offer.json"), manifest)

    def withdraw(self):
        """Offers nothing from now on (status 204)."""
        self.run(["rm", "-f", self.document(UPDATES, "/offer.json")])

    def publish(self, tree, offer=True):
        """Adds a release, as publish-release lays it out, to what the hosts serve, and offers it."""
        tree = pathlib.Path(tree)
        places = {tree / "downloads": DOWNLOADS}
        for number, (host, base) in enumerate(WITNESSES, 1):
            places[tree / f"witness-{number}"] = host + base
        packed = io.BytesIO()
        with tarfile.open(fileobj=packed, mode="w") as archive:
            for source, place in places.items():
                archive.add(source, place, filter=_readable_by_all)
        self.run(["tar", "-x", "-C", "/srv/lab"], input=packed.getvalue(), timeout=300)
        if offer:
            self.offer((tree / "offer.json").read_bytes())

    @staticmethod
    def document(host, path):
        """The file inside the machine behind a URL; the offer is UPDATES, "/offer.json"."""
        return f"/srv/lab/{host}{path}"

    # What was asked

    def requests(self):
        """Every request answered since the start or forget_requests(), in order, as records."""
        # nginx works on one thing after the other: once this is answered the log is complete.
        self.run(["nc", "-U", "/run/lab/offer.sock"], input="GET / HTTP/1.0\r\n\r\n")
        lines = self.read("/var/log/nginx/lab.log").splitlines()
        return [Request(**json.loads(line)) for line in lines]

    def request_lines(self):
        """The same in the form "host METHOD /uri status"; status 444 means closed unanswered."""
        return [("http:" if request.scheme == "http" else "") +
                f"{request.host} {request.method} {request.uri} {request.status}"
                for request in self.requests()]

    def forget_requests(self):
        self.requests()
        self.run(["truncate", "--size=0", "/var/log/nginx/lab.log"])

    # Misbehaviour

    def misbehave(self, host, path, how):
        """Makes one path of a host misbehave, or the whole host if `path` is None.

        A path (the check is CHECK_PATH): a number is the status to answer with, bytes are other
        content with status 200, a URL is a redirect there; "cut" ends in the middle of the true
        content, "close" without an answer, "hang" says nothing until behave(). Returns an event
        that is set as soon as a request for the path has come in.

        A host: one of MISBEHAVING_ADDRESSES. Connections that stand already are not touched.
        """
        if path is None:
            self._moved[host] = MISBEHAVING_ADDRESSES[how]
            return self._write_hosts()
        content = b""
        if how == "cut":
            source = "/offer.json" if path == CHECK_PATH else path
            content = self.run(["cat", self.document(host, source)], binary=True)
        came = self._misbehaving.add(host, path, how, content)
        self.write("/srv/lab/misbehave/" + host + path, "")
        return came

    def behave(self):
        """Undoes every misbehave(), and lets go of the requests that hang."""
        self._moved = {}
        self._write_hosts()
        self.run("rm -rf /srv/lab/misbehave/*")
        self._misbehaving.clear()

    def _write_hosts(self):
        lines = ["127.0.0.1 localhost harbor"]
        for host, address in {**ADDRESSES, **self._moved}.items():
            if address:
                lines.append(f"{address} {host}")
        self.write("/etc/hosts", "\n".join(lines) + "\n")


def _readable_by_all(entry):
    entry.uid = entry.gid = 0
    entry.uname = entry.gname = "root"
    entry.mode = 0o755 if entry.isdir() else 0o644
    return entry
