"""A sensor that `tessaline serve` has: publishing takes its frames beside everybody else."""

from __future__ import annotations

import json
import subprocess

import pytest
from commands import BUILD, Running, json_of, tool
from hub import clean_environment
from server import wait_until

PROGRAM = BUILD / "tessaline-serve"


@pytest.fixture(name="daemon")
def _daemon(fleet):
    """Its socket."""
    if not PROGRAM.is_file():
        pytest.skip(f"{PROGRAM} is not built")
    path = fleet.folder / "serve.sock"
    with (fleet.folder / "serve.log").open("wb") as log:
        process = subprocess.Popen(
            [PROGRAM, "--virtual", "K3610", "--port", "0", "--json"], cwd=fleet.folder,
            env=clean_environment(TESSALINE_SOCKET=str(path)), stdin=subprocess.DEVNULL,
            stdout=log, stderr=log)
    wait_until(path.exists, 20, "the daemon's socket")
    yield path
    process.terminate()
    process.wait(10)


def test_its_frames_are_published(fleet, daemon):
    hub = fleet.hub()
    said = json_of("publish", "--name", "line3", "-t", "1", url=hub.url,
                   TESSALINE_SOCKET=str(daemon))
    assert said["strips"] > 5
    stored = fleet.store(hub.url, "--strict")
    assert stored["strips"] == said["strips"]


def test_it_is_set_through_the_fleet(fleet, daemon):
    hub = fleet.hub()
    publisher = fleet.start("publish", "--name", "line3", url=hub.url,
                            TESSALINE_SOCKET=str(daemon))
    wait_until(lambda: tool("fleet", "status", "--patience", "0.2", url=hub.url).returncode == 0,
               10, "the sensor")
    recipe = fleet.folder / "recipe.json"
    recipe.write_text('{"recipe": 1, "exposure_us": 640}')
    done = tool("fleet", "set", "line3", "--recipe", recipe, url=hub.url)
    assert (done.returncode, done.stdout) == (0, "set 1 sensor\n"), done.stderr
    shown = tool("exposure", TESSALINE_SOCKET=str(daemon))
    assert "200 steps" in shown.stdout, shown
    assert publisher.running()


def test_the_daemon_ends(fleet, daemon):
    """What was taken by then is sent."""
    hub = fleet.hub()
    publisher = fleet.start("publish", "--name", "line3", url=hub.url,
                            TESSALINE_SOCKET=str(daemon))
    wait_until(lambda: hub.unstored("line3") > 5, 10, "messages")
    pid = json.loads((fleet.folder / "serve.log").read_text().splitlines()[0])["pid"]
    subprocess.run(["kill", "-9", str(pid)], check=True)
    said = publisher.result()
    assert publisher.status not in (0, None)
    assert said["waiting"] == 0
    assert fleet.store(hub.url)["strips"] == said["strips"]
