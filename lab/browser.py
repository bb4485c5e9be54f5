"""A real browser, Chromium without a window, steered over the pipe of its debugging protocol."""

import base64
import itertools
import json
import os
import pathlib
import subprocess
import tempfile

_COMMAND = ("exec chromium --headless --no-sandbox --disable-gpu --disable-dev-shm-usage "
            "--remote-debugging-pipe --user-data-dir=\"$0\" 3<&{} 4>&{}")
# Every text that is shown, with its colour and the nearest colour behind it.
_TEXT_COLOURS = """[...document.querySelectorAll('body *')].filter(
  e => [...e.childNodes].some(n => n.nodeType == 3 && n.data.trim())).map(e => {
    let back = e, clear = 'rgba(0, 0, 0, 0)';
    while (getComputedStyle(back).backgroundColor == clear) back = back.parentElement;
    return [getComputedStyle(e).color, getComputedStyle(back).backgroundColor];
  })"""


class Browser:
    """One browser with one page, for use in a with statement."""

    def __enter__(self):
        reading, self._out = os.pipe()
        answers, writing = os.pipe()
        self._folder = tempfile.TemporaryDirectory()
        self._process = subprocess.Popen(
            ["bash", "-c", _COMMAND.format(reading, writing), self._folder.name],
            pass_fds=[reading, writing], stderr=subprocess.DEVNULL, start_new_session=True)
        os.close(reading)
        os.close(writing)
        self._in = os.fdopen(answers, "rb")
        self._numbers = itertools.count(1)
        self._buffer = b""
        self._session = {}
        target = self._call("Target.createTarget", url="about:blank")["targetId"]
        self._session["sessionId"] = self._call("Target.attachToTarget", targetId=target,
                                                flatten=True)["sessionId"]
        self._call("Page.enable")
        return self

    def __exit__(self, *_):
        os.close(self._out)  # the browser ends with its pipe
        self._process.wait()
        self._in.close()
        self._folder.cleanup()

    def _next_message(self):
        while b"\0" not in self._buffer:
            assert (piece := os.read(self._in.fileno(), 65536)), "the browser has ended"
            self._buffer += piece
        message, _, self._buffer = self._buffer.partition(b"\0")
        return json.loads(message)

    def _call(self, method, wait_for=None, **parameters):
        number = next(self._numbers)
        call = {"id": number, "method": method, "params": parameters, **self._session}
        os.write(self._out, json.dumps(call).encode() + b"\0")
        answer = None
        while answer is None or wait_for:
            message = self._next_message()
            assert "error" not in message, message
            answer = message["result"] if message.get("id") == number else answer
            wait_for = None if message.get("method") == wait_for else wait_for
        return answer

    def open(self, path, width=1400, scheme="light"):
        """Shows a file in a window of this width, to a user who prefers light or dark."""
        self._call("Emulation.setDeviceMetricsOverride", width=width, height=1200,
                   deviceScaleFactor=1, mobile=False)
        self._call("Emulation.setEmulatedMedia",
                   features=[{"name": "prefers-color-scheme", "value": scheme}])
        self._call("Page.navigate", wait_for="Page.loadEventFired",
                   url=pathlib.Path(path).as_uri())

    def ask(self, expression):
        """The value of a JavaScript expression in the page."""
        result = self._call("Runtime.evaluate", expression=expression, returnByValue=True)
        assert "exceptionDetails" not in result, result
        return result["result"].get("value")

    def screenshot(self, path):
        """Writes a PNG file."""
        data = self._call("Page.captureScreenshot")["data"]
        pathlib.Path(path).write_bytes(base64.b64decode(data))

    def lowest_contrast(self):
        """Of all texts of the page, as a ratio; 4.5 is enough for everybody to read them."""
        return min(_contrast(*pair) for pair in self.ask(_TEXT_COLOURS))


def channels(colour):
    """Red, green and blue of a computed colour."""
    return [int(channel) for channel in colour[colour.index("(") + 1:-1].split(",")[:3]]


def _luminance(colour):
    shares = [channel / 255 for channel in channels(colour)]
    linear = [c / 12.92 if c <= 0.04045 else ((c + 0.055) / 1.055) ** 2.4 for c in shares]
    return sum(weight * c for weight, c in zip((0.2126, 0.7152, 0.0722), linear))


def _contrast(one, other):
    dark, light = sorted((_luminance(one), _luminance(other)))
    return (light + 0.05) / (dark + 0.05)
