"""A web server that gives wrong answers on purpose."""

import http.server
import os
import socket
import socketserver
import subprocess
import threading


class _Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def address_string(self):
        return "nginx"  # a Unix socket has no address

    def log_message(self, *_):
        pass  # nginx logs the request

    def _answer(self):
        self.close_connection = True
        key = (self.headers["Host"], self.path)
        how, content, came = self.server.plan.get(key, ("close", b"", threading.Event()))
        self.rfile.read(int(self.headers.get("Content-Length", 0)))
        released = self.server.released  # before clear() can replace it
        came.set()
        if how == "hang":
            released.wait()
        elif how == "cut":
            self._send(200, content, content[:len(content) // 2])
        elif isinstance(how, bytes):
            self._send(200, how, how)
        elif isinstance(how, int):
            body = b"" if how == 204 else b"<html>misbehaving</html>\n"
            self._send(how, body, body)
        elif how != "close":
            self._send(302, b"", b"", {"Location": how})

    def _send(self, status, announced, sent, headers=None):
        self.send_response(status)
        for name, value in (headers or {}).items():
            self.send_header(name, value)
        if status != 204:
            self.send_header("Content-Length", str(len(announced)))
        self.end_headers()
        self.wfile.write(sent)

    do_GET = do_POST = _answer


class MisbehavingServer(socketserver.ThreadingMixIn, socketserver.UnixStreamServer):
    """Serves the paths that must fail; nginx forwards them. Runs in threads of its own."""

    daemon_threads = True
    request_queue_size = 128  # each pass of the service may send one at the same time
    block_on_close = False

    def __init__(self, socket_path):
        super().__init__(socket_path, _Handler)
        os.chmod(socket_path, 0o666)
        self.plan = {}
        self.released = threading.Event()
        threading.Thread(target=self._accept_until_closed, daemon=True).start()

    def _accept_until_closed(self):
        try:
            while True:
                self.process_request(*self.get_request())
        except OSError:
            pass

    def handle_error(self, *_):
        pass  # nginx closes its connection when its client does

    def add(self, host, path, how, content):
        came = threading.Event()
        self.plan[host, path] = (how, content, came)
        return came

    def clear(self):
        self.plan = {}
        self.released.set()
        self.released = threading.Event()

    def close(self):
        self.released.set()
        self.socket.shutdown(socket.SHUT_RDWR)  # wakes the accepting thread
        self.server_close()


def serve_by_hand(machine, connections=1):
    """A server on port 8443 of every host. Its pipes carry so many connections, one by one."""
    server = machine.popen(["openssl", "s_server", "-quiet", "-naccept", str(connections),
                            "-accept", "8443", "-cert", "/etc/lab/server.crt", "-key",
                            "/etc/lab/server.key"],
                           stdin=subprocess.PIPE, stdout=subprocess.PIPE, bufsize=0)
    machine.run("until ss -Hltn sport = :8443 | grep -q .; do sleep 0.02; done")
    return server


def answer_by_hand(server, body, missing=0):
    """Answers with status 200; so many of the announced bytes do not come."""
    server.stdin.write(b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\n\r\n%s"
                       % (len(body) + missing, body))


def request_to(server, end):
    """Reads the request until it ends with the bytes `end`; returns its head and body as text."""
    got = b""
    while not got.endswith(end):
        assert (piece := server.stdout.read(65536)), f"the request ends with {got}"
        got += piece
    return got.decode().split("\r\n\r\n")
