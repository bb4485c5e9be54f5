"""Parts of the pages that scripts write."""

import datetime
import os
import pathlib
import platform
import re
import subprocess
import textwrap


def first(pattern, path):
    return re.search(pattern, pathlib.Path(path).read_text(), re.MULTILINE)[1]


def machine():
    """This machine in a few words."""
    model = " ".join(first(r"^model name\s*: (.*)", "/proc/cpuinfo").split())
    memory = int(first(r"^MemTotal:\s+(\d+)", "/proc/meminfo")) / 2 ** 20
    system = first(r'^PRETTY_NAME="?([^"\n]*)', "/etc/os-release")
    return (f"{len(os.sched_getaffinity(0))} cores ({model}) with {memory:.0f} GiB of memory, "
            f"{system}, kernel {platform.release()}")


def commit():
    here = pathlib.Path(__file__).resolve().parent
    return subprocess.run(["git", "-C", here, "describe", "--always", "--dirty"], check=True,
                          stdout=subprocess.PIPE, text=True).stdout.strip()


def paragraph(text):
    return textwrap.fill(" ".join(text.split()), 100, break_on_hyphens=False)


def measured():
    """When and where the figures of a page were measured."""
    return paragraph(f"Measured on {datetime.date.today()}, at commit {commit()}, on {machine()}.")


def table(head, *rows):
    return "\n".join(f"| {' | '.join(row)} |" for row in (head, ["---"] * len(head), *rows))
