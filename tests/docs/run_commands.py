#!/usr/bin/env python3
"""Runs what a page of the documentation tells its reader to type.

    run_commands.py PAGE SOURCES BUILD

Fenced blocks marked "sh" are run one after the other, in a folder that looks like the
checkout (with BUILD as build/dev); blocks marked with a language and a file name ("c app.c")
are written to that file first. Blocks marked "sh by-hand REASON" are not run.
"""
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile

BLOCK = re.compile(r"^```(\S+)(?:[ \t]+([^\n]*))?\n(.*?)^```$", re.MULTILINE | re.DOTALL)


def checkout_lookalike(folder: pathlib.Path, sources: pathlib.Path, build: pathlib.Path) -> None:
    for entry in sources.iterdir():
        if entry.name not in (".git", "build"):
            (folder / entry.name).symlink_to(entry)
    (folder / "build").mkdir()
    (folder / "build" / "dev").symlink_to(build)


def wait(block: subprocess.Popen) -> object:
    """0, or what went wrong; then nothing is left of what the block has started."""
    try:
        status = block.wait(110)
        status = status and f"exit status {status}"
    except subprocess.TimeoutExpired:
        status = "no end after 110 s"
    if status != 0:
        os.killpg(block.pid, signal.SIGKILL)
    return status


def main() -> int:
    page, sources, build = (pathlib.Path(argument).resolve() for argument in sys.argv[1:4])
    commands = 0
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        checkout_lookalike(folder, sources, build)
        environment = dict(os.environ, PATH=f"{build}:{os.environ['PATH']}")
        for language, rest, text in BLOCK.findall(page.read_text()):
            if language != "sh":
                if rest:
                    (folder / rest).write_text(text)
                continue
            if rest.startswith("by-hand"):
                if not rest.removeprefix("by-hand").strip():
                    print(f"{page}: a block that is left out needs its reason", file=sys.stderr)
                    return 1
                print(f"not run ({rest.removeprefix('by-hand').strip()}):\n{text}")
                continue
            print(f"+ {text}", end="", flush=True)
            with subprocess.Popen(["bash", "-eu", "-o", "pipefail", "-c", text], cwd=folder,
                                  env=environment, stdin=subprocess.DEVNULL,
                                  start_new_session=True) as block:
                commands += 1
                status = wait(block)
            if status != 0:
                print(f"{page}: {status} from\n{text}", file=sys.stderr)
                return 1
    print(f"{commands} blocks run")
    return 0


if __name__ == "__main__":
    sys.exit(main())
