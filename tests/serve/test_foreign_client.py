"""Streams are read by a client that this project did not write."""

import json
import os
import pathlib
import shutil
import subprocess

import pytest

HERE = pathlib.Path(__file__).parent / "client"
LOCK = "package-lock.json"
# What npm says when it does not reach its registry.
UNREACHABLE = ("EAI_AGAIN", "ENOTFOUND", "ETIMEDOUT", "ECONNREFUSED", "ECONNRESET", "network")


@pytest.fixture(scope="module")
def packages(tmp_path_factory) -> pathlib.Path:
    """A folder with the packages of package.json. They are fetched when the list has changed."""
    if not (shutil.which("node") and shutil.which("npm")):
        pytest.skip("no node or npm; install them with: scripts/setup npm")
    chosen = os.environ.get("TESSALINE_SERVE_PACKAGES")
    folder = pathlib.Path(chosen) if chosen else tmp_path_factory.mktemp("packages")
    folder.mkdir(parents=True, exist_ok=True)
    fetched = folder / "fetched.json"
    if fetched.is_file() and fetched.read_text() == (HERE / LOCK).read_text():
        return folder
    for name in ("package.json", LOCK):
        shutil.copy(HERE / name, folder)
    done = subprocess.run(
        ["npm", "ci", "--ignore-scripts", "--no-audit", "--no-fund", "--fetch-retries", "1"],
        cwd=folder, capture_output=True, text=True, timeout=120, check=False)
    if done.returncode and any(word in done.stderr for word in UNREACHABLE):
        pytest.skip("npm does not get the package ws from its registry")
    assert done.returncode == 0, done.stderr
    shutil.copy(HERE / LOCK, fetched)
    return folder


def test_profiles_are_read_by_a_foreign_client(daemon, packages):
    done = subprocess.run(
        ["node", HERE / "read_stream.mjs", daemon.url, daemon.token, "30"],
        cwd=packages, capture_output=True, text=True, timeout=60, check=False)
    assert done.returncode == 0, done.stderr
    seen = json.loads(done.stdout)
    assert seen["messages"] == 30
    assert seen["protocol"] == "tessaline.v1"
    assert seen["code"] in (1000, 1005)
    assert seen["points"] == 1456
