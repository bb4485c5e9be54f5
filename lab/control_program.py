"""Runs vantrell-harbor-updatectl, the program for operators, in a machine."""

import json
from typing import NamedTuple

PROGRAM = "vantrell-harbor-updatectl"


class Answer(NamedTuple):
    status: int
    printed: str  # both streams, without the last line feed


def control(machine, words, user=None):
    """Runs the program, with words of a shell line, as root unless a user is given."""
    printed = machine.run(f"{PROGRAM} {words}; status=$?; echo; echo $status", user=user)
    text, status = printed.removesuffix("\n").rsplit("\n", 1)
    return Answer(int(status), text.rstrip("\n"))


def facts(machine, user=None):
    """The object that "status --json" prints."""
    return json.loads(control(machine, "status --json", user).printed)
