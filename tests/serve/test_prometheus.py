"""A real Prometheus reads the figures, and its alert rules hold."""

from __future__ import annotations

import json
import pathlib
import shutil
import socket
import subprocess
import urllib.parse
import urllib.request

import pytest
from daemon import wait_until

pytestmark = pytest.mark.skipif(
    not (shutil.which("prometheus") and shutil.which("promtool")),
    reason="no prometheus and promtool: scripts/setup prometheus",
)


def free_port() -> int:
    with socket.socket() as one:
        one.bind(("127.0.0.1", 0))
        return one.getsockname()[1]


@pytest.fixture
def prometheus(daemon, tmp_path):
    """Asks a Prometheus that reads the daemon; gives the samples."""
    token = tmp_path / "token"
    token.write_text(daemon.token)
    rules = pathlib.Path(__file__).parents[2] / "packaging/serve/alerts.yml"
    (tmp_path / "prometheus.yml").write_text(json.dumps({
        "global": {"scrape_interval": "1s", "evaluation_interval": "1s"},
        "rule_files": [str(rules)],
        "scrape_configs": [{
            "job_name": "tessaline",
            "authorization": {"credentials_file": str(token)},
            "static_configs": [{"targets": [f"127.0.0.1:{daemon.port}"]}],
        }],
    }))
    port = free_port()
    process = subprocess.Popen(
        ["prometheus", f"--config.file={tmp_path / 'prometheus.yml'}",
         f"--storage.tsdb.path={tmp_path / 'data'}", f"--web.listen-address=127.0.0.1:{port}"],
        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
    )

    def ask(path: str, **query: str):
        address = f"http://127.0.0.1:{port}/api/v1/{path}?{urllib.parse.urlencode(query)}"
        try:
            with urllib.request.urlopen(address, timeout=5) as answer:
                return json.load(answer)["data"]
        except OSError:  # not yet
            return None

    yield ask
    process.terminate()
    process.wait()


def test_a_prometheus_reads_the_figures(daemon, prometheus):
    def newest(name: str) -> float | None:
        data = prometheus("query", query=name)
        return float(data["result"][0]["value"][1]) if data and data["result"] else None

    wait_until(lambda: newest('up{job="tessaline"}') == 1, 60, "a scrape")
    profiles = 'tessaline_frames_total{kind="strip"}'
    first = wait_until(lambda: newest(profiles), 60, "a number of profiles")
    wait_until(lambda: newest(profiles) > first, 60, "more profiles")
    assert newest("tessaline_laser_on") == 1
    assert 0 < first <= daemon.get("state")["counters"]["strips"]
    groups = prometheus("rules")["groups"]
    rules = [rule for group in groups for rule in group["rules"]]
    assert len(rules) > 5
    for rule in rules:
        assert rule["health"] in ("ok", "unknown"), rule
        assert rule["state"] == "inactive" or rule.get("duration", 0) > 0, rule


def test_the_alert_rules_hold():
    told = subprocess.run(
        ["promtool", "test", "rules", pathlib.Path(__file__).with_name("alerts_test.yml")],
        capture_output=True, text=True, timeout=60, check=False,
    )
    assert told.returncode == 0, told.stdout + told.stderr
