#!/usr/bin/env python3
"""What the command says of real ptp4l processes: two hosts, which are network namespaces.

They stamp in software and are told not to set any clock, so the one that follows stays
UNCALIBRATED.
    ptp4l.py TESSALINE
"""

import contextlib
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

SKIPPED = 77
PATIENCE_S = 60


def skip(reason: str) -> None:
    print("SKIPPED:", reason)
    sys.exit(SKIPPED)


def run(*words: str) -> None:
    subprocess.run(words, check=True, stderr=subprocess.PIPE, text=True)


def report(tool: str, socket: pathlib.Path) -> dict:
    words = [tool, "time", "-t", "0.5", "--json", "--virtual", "K3610", "--ptp-socket", str(socket)]
    done = subprocess.run(words, check=True, capture_output=True, text=True)
    return json.loads(done.stdout)["host_clock"]


@contextlib.contextmanager
def hosts(names: list[str]):
    """Network namespaces that are linked."""
    try:
        for name in names:
            run("ip", "netns", "add", name)
        one, two = names
        run("ip", "link", "add", "veth0", "netns", one, "type", "veth", "peer", "name", "veth0",
            "netns", two)
        for number, name in enumerate(names):
            run("ip", "-n", name, "address", "add", f"192.0.2.{number + 1}/24", "dev", "veth0")
            run("ip", "-n", name, "link", "set", "veth0", "up")
        yield
    finally:
        for name in names:
            subprocess.run(["ip", "netns", "delete", name], check=False, stderr=subprocess.DEVNULL)


@contextlib.contextmanager
def ptp4l(host: str, socket: pathlib.Path, follows: bool):
    words = ["ip", "netns", "exec", host, "ptp4l", "-S", "-4", "-q", "-i", "veth0",
             "--free_running", "1", "--slaveOnly", str(int(follows)), "--uds_address", str(socket),
             "--logAnnounceInterval", "-2", "--logSyncInterval", "-2",
             "--logMinDelayReqInterval", "-2"]
    process = subprocess.Popen(words)
    try:
        yield process
    finally:
        process.terminate()
        process.wait()


def check(tool: str, folder: pathlib.Path) -> None:
    names = [f"tessaline-{role}-{os.getpid()}" for role in ("leads", "follows")]
    leads, follows = folder / "leads", folder / "follows"
    with contextlib.ExitStack() as stack:
        try:
            stack.enter_context(hosts(names))
        except subprocess.CalledProcessError as error:
            skip(f"no network namespaces here: {error.stderr.strip()}")
        stack.enter_context(ptp4l(names[0], leads, False))
        follower = stack.enter_context(ptp4l(names[1], follows, True))
        end = time.monotonic() + PATIENCE_S
        ptp = None
        while not ptp or ptp["port_state"] != "UNCALIBRATED" or not ptp["path_delay_ns"]:
            assert time.monotonic() < end, ptp
            time.sleep(0.5)
            ptp = report(tool, follows)["ptp"]
        print("follows:", ptp)
        # Both stamp by this machine's clock.
        assert abs(ptp["offset_ns"]) < 10_000_000, ptp
        assert 0 < ptp["path_delay_ns"] < 10_000_000, ptp
        assert ptp["grandmaster"], ptp

        first = report(tool, leads)
        print("leads:", first["ptp"])
        assert first["ptp"] == {"port_state": "MASTER", "grandmaster": "", "offset_ns": None,
                                "path_delay_ns": None}
        assert "ptp4l" in first["programs"], first

        follower.kill()
        follower.wait()
        dead = report(tool, follows)
        assert dead["ptp"] is None and "nobody answers" in dead["ptp_problem"], dead


def main() -> None:
    if os.geteuid() != 0:
        skip("only root makes network namespaces")
    for program in ("ip", "ptp4l", "pmc"):
        if shutil.which(program) is None:
            skip(f"{program} is not installed (iproute2, linuxptp)")
    with tempfile.TemporaryDirectory() as folder:
        check(sys.argv[1], pathlib.Path(folder))


if __name__ == "__main__":
    main()
