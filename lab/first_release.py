"""Follows docs/first-release.md, command by command, in a copy of the checkout."""

import subprocess

from lab.packing import command_blocks, copy_sources, environment_for_sources

PAGE = "first-release"


def follow_page(folder):
    """What the blocks of the machine's shell print, in the order of the page."""
    copy_sources(folder)
    place = {"cwd": folder / "sources", "env": environment_for_sources()}
    made = "".join(command_blocks("Keys, packages and releases", PAGE))
    subprocess.run(["bash", "-euo", "pipefail", "-c", made], check=True, **place)
    boot, *typed = command_blocks("A machine with your servers", PAGE)
    for section in ("installs itself", "is refused", "is taken back"):
        typed += command_blocks(f"A release that {section}", PAGE)
    commands = "".join(f"echo ====\n{block}" for block in typed)
    try:
        shell = subprocess.run(["bash", "-c", boot], input=commands, text=True,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=600,
                               **place)
    except subprocess.TimeoutExpired as error:
        error.add_note(error.output.decode())
        raise
    return shell.stdout.split("====\n")[1:]
