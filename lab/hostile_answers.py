"""Answers to a check that are deep, wide or large, to make the service use memory or the stack."""

DEEP = b"[" * 200_000
MANY_KEYS = b"{%s}" % b",".join(b'"%d":0' % key for key in range(1_000_000))
LONG_TEXT = b'{"files":[],"version":"1.1","filling":"%s"}' % (b"x" * 60_000_000)
MANY_VALUES = b'{"version":"1.1","a":[0%s]}' % (b",0" * 1_000_000)
