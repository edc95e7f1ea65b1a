"""A reader in another language finds on the servers what the subscriber stores."""

from __future__ import annotations

import json
import os
import shutil
import subprocess
import time
from pathlib import Path

import pytest
import recording
from cluster import Cluster
from members import Programs, Sensor, Subscriber
from proof import waiting
from server import wait_until

READER = Path(__file__).parent / "reader"
SECONDS = 4
# What the lock file or the scripts got wrong would be in npm's answer under another name.
OUR_FAULTS = ("EUSAGE", "EINTEGRITY", "EJSONPARSE", "ERESOLVE", "ETARGET", "E404")


@pytest.fixture(name="reader", scope="module")
def _reader(tmp_path_factory):
    """The reader beside its packages."""
    for program in ("node", "npm"):
        if shutil.which(program) is None:
            pytest.skip(f"there is no {program}")
    folder = Path(os.environ.get("TESSALINE_FLEET_PACKAGES") or tmp_path_factory.mktemp("packages"))
    folder.mkdir(parents=True, exist_ok=True)
    lock = "package-lock.json"
    installed = folder / "installed.json"
    if not installed.exists() or installed.read_bytes() != (READER / lock).read_bytes():
        for name in ("package.json", lock):
            shutil.copy(READER / name, folder)
        done = subprocess.run(
            ["npm", "ci", "--ignore-scripts", "--no-audit", "--no-fund", "--fetch-retries", "1"],
            cwd=folder, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            assert not any(fault in done.stderr for fault in OUR_FAULTS), done.stderr
            pytest.skip("npm does not get the packages from its registry")
        shutil.copy(READER / lock, installed)
    shutil.copy(READER / "read_sensor.js", folder)
    return folder / "read_sensor.js"


@pytest.fixture(name="programs", scope="module")
def _programs():
    return Programs(Path(os.environ["TESSALINE_BUILD"]))


@pytest.fixture(name="cluster", scope="module")
def _cluster(tmp_path_factory):
    # Without isolated.py's namespaces this would be the network of others.
    with Cluster(tmp_path_factory.mktemp("cluster"), 256 << 20) as cluster:
        yield cluster


@pytest.mark.parametrize("images", [False, True], ids=["strips", "images"])
def test_it_finds_what_is_recorded(images, reader, programs, cluster, tmp_path):
    name = f"line3.{'camera' if images else 'left'}"
    sensor = Sensor(name, programs, cluster.urls, tmp_path, spacing_us=200_000, images=images,
                    store=False)
    subscriber = Subscriber(programs, cluster.urls, tmp_path, name)
    try:
        sensor.start()
        wait_until(sensor.delivers, 30, "frames")
        time.sleep(SECONDS)
        # The messages are to be all there, and none more to come.
        sensor.kill(application_too=True)
        done = subprocess.run(["node", str(reader), cluster.urls, name], capture_output=True,
                              text=True, timeout=60, check=False)
        assert done.returncode == 0, done.stderr
        *frames, found = map(json.loads, done.stdout.splitlines())

        subscriber.start()
        wait_until(lambda: not waiting(cluster).get(sensor.stream, 1), 60, "everything stored")
        assert subscriber.end() == 0
    finally:
        sensor.abandon()
        subscriber.abandon()

    stored = [(frame.kind, frame.id, f"{frame.crc:08x}")
              for _, frame in recording.read(subscriber.recording)
              if isinstance(frame, recording.Frame)]
    assert [(frame["kind"], frame["id"], frame["crc32"]) for frame in frames] == stored
    assert len(stored) > SECONDS
    assert {frame["kind"] for frame in frames} == {"images" if images else "strips"}
    if not images:
        assert all(frame["points"] > 0 and frame["mean_row"] > 0 for frame in frames)
    assert [(run["duplicates"], run["missing"]) for run in found["runs"]] == [(0, [])]
