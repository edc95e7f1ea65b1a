"""Runs a command in namespaces of its own: network, mounts and processes.

    isolated.py COMMAND...

What it starts, mounts and adds to the network ends with it, however it ends. Where that is not
permitted, the command runs without, and TESSALINE_FLEET_SHARED says why.
"""

from __future__ import annotations

import ctypes
import os
import shutil
import signal
import subprocess
import sys

SHARED = "TESSALINE_FLEET_SHARED"
PR_SET_PDEATHSIG = 1

# /run is new because `ip netns` keeps names there, /dev/shm because process numbers begin anew.
# The shell stays, as the first process, and reaps what others leave behind.
INSIDE = 'mount -t tmpfs none /run && mount -t tmpfs none /dev/shm && ip link set lo up || exit 125'
PROBE = INSIDE + """
ip netns add probe && ip link add type veth && ip link add probe type bridge || exit 125"""


def _unshare(script: str, *words: str) -> list[str]:
    as_root = [] if os.geteuid() == 0 else ["--user", "--map-root-user"]
    return ["unshare", *as_root, "--mount", "--net", "--pid", "--fork", "--kill-child",
            "--mount-proc", "sh", "-c", script, "sh", *words]


def why_not() -> str | None:
    """Why namespaces cannot be had here; none if they can."""
    for program in ("unshare", "ip"):
        if shutil.which(program) is None:
            return f"there is no {program}"
    probe = subprocess.run(_unshare(PROBE), capture_output=True, text=True, check=False)
    if probe.returncode == 0:
        return None
    lines = probe.stderr.strip().splitlines()
    return "no namespaces: " + (lines[0] if lines else f"exit code {probe.returncode}")


def _die_with_parent() -> None:
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


def run(command: list[str]) -> int:
    if reason := why_not():
        os.environ[SHARED] = reason
        os.execvp(command[0], command)
    process = subprocess.Popen(_unshare(INSIDE + '\n"$@"\nexit $?', *command),
                               preexec_fn=_die_with_parent)
    signal.signal(signal.SIGTERM, lambda *_: process.kill())  # takes all that is inside with it
    signal.signal(signal.SIGINT, signal.SIG_IGN)              # the command has it, too
    status = process.wait()
    return status if status >= 0 else 128 - status


if __name__ == "__main__":
    sys.exit(run(sys.argv[1:]))
