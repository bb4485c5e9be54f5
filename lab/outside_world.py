"""The network of a machine: update server, download host and witnesses, all on loopback."""

import collections
import json
import pathlib

from lab.misbehaviour import MisbehavingServer

UPDATES = "updates.vantrell.example"
DOWNLOADS = "downloads.vantrell.example"  # carries witness 1 as well
STORAGE = "storage.vantrell.example"
BLOBS = "blobs.vantrell.example"
CHECK_PATH = "/api/v1/check"
WITNESSES = [(DOWNLOADS, "/witness"), (STORAGE, "/vantrell-update-witness"), (BLOBS, "/witness")]

ADDRESSES = {UPDATES: "127.0.0.11", DOWNLOADS: "127.0.0.12", STORAGE: "127.0.0.13",
             BLOBS: "127.0.0.14"}
# The address that a host gets when the whole of it must fail.
MISBEHAVING_ADDRESSES = {
    "wrong name": "127.0.0.21",  # a certificate of the known authority for another host
    "unknown authority": "127.0.0.22",  # the right name, signed by an unknown authority
    "mute": "127.0.0.23",  # accepts connections and sends nothing, not even a handshake
    "not listening": "127.0.0.24",
}

Request = collections.namedtuple("Request", "scheme host method uri status agent type cache body")


class OutsideWorld:
    """The part of Machine that controls the servers. Documents are below /srv/lab/HOST/."""

    def open_outside_world(self):
        self._moved = {}
        self._misbehaving = MisbehavingServer(str(self.on_host("/run/lab/misbehave.sock")))

    def close_outside_world(self):
        if hasattr(self, "_misbehaving"):
            self._misbehaving.close()
            del self._misbehaving

    # Offers and releases

    def offer(self, manifest):
        """Answers checks with this text (status 200) from now on."""
        self.write(self.document(UPDATES, "/offer.json"), manifest)

    def withdraw(self):
        """Offers nothing from now on (status 204)."""
        self.run(["rm", "-f", self.document(UPDATES, "/offer.json")])

    def publish(self, tree, offer=True):
        """Adds the release in `tree` to what the hosts serve, and offers it.

        publish-release makes such a tree.
        """
        tree = pathlib.Path(tree)
        places = {tree / "downloads": DOWNLOADS}
        for number, (host, base) in enumerate(WITNESSES, 1):
            places[tree / f"witness-{number}"] = host + base
        self.push_folders(places, "/srv/lab")
        if offer:
            self.offer((tree / "offer.json").read_bytes())

    @staticmethod
    def document(host, path):
        """The file inside the machine that a URL names; the offer is UPDATES, "/offer.json"."""
        return f"/srv/lab/{host}{path}"

    # What was asked

    def requests(self):
        """Every request answered since the start or forget_requests(), in order, as a Request."""
        # nginx handles one request at a time: once this is answered, the log is complete.
        self.run(["nc", "-U", "/run/lab/offer.sock"], input="GET / HTTP/1.0\r\n\r\n")
        lines = self.read("/var/log/nginx/lab.log").splitlines()
        return [Request(**json.loads(line)) for line in lines]

    def request_lines(self):
        """The same as text "host METHOD /uri status"; 444: closed without an answer."""
        return [("http:" if request.scheme == "http" else "") +
                f"{request.host} {request.method} {request.uri} {request.status}"
                for request in self.requests()]

    def forget_requests(self):
        self.requests()
        self.run(["truncate", "--size=0", "/var/log/nginx/lab.log"])

    # Misbehaviour

    def misbehave(self, host, path, how):
        """Makes one path of a host misbehave, or the whole host if `path` is None.

        For a path (the check is CHECK_PATH), `how` is a status to answer with, bytes to send with
        status 200, or a URL to redirect to. "cut" stops in the middle of the true content, "close"
        closes without an answer, "hang" sends nothing until behave(). Returns an event that is set
        when a request for the path has come in.

        For a host, `how` is one of MISBEHAVING_ADDRESSES. Open connections are not affected.
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

    def wait_for_mute(self, count):
        """Waits until so many connections to the mute address are open."""
        self.run("until [ $(ss -Htn state established dst "
                 f"{MISBEHAVING_ADDRESSES['mute']} | wc -l) -ge {count} ]; do sleep 0.02; done")

    def behave(self):
        """Undoes every misbehave() and ends the requests that hang."""
        self._moved = {}
        self._write_hosts()
        self.run("rm -rf /srv/lab/misbehave/*")
        self._misbehaving.clear()

    def _write_hosts(self):
        lines = ["127.0.0.1 localhost harbor"]
        for host, address in {**ADDRESSES, **self._moved}.items():
            lines.append(f"{address} {host}")
        self.write("/etc/hosts", "\n".join(lines) + "\n")
