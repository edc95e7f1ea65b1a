"""The command line."""

import json
import subprocess

import pytest
from daemon import PROGRAM, clean_environment, tool


def run(tmp_path, *words: object, program=PROGRAM, **variables: str):
    return subprocess.run(
        [program, *map(str, words)], capture_output=True, text=True, timeout=20, check=False,
        env=clean_environment(TESSALINE_SOCKET=str(tmp_path / "serve.sock"), **variables))


def test_a_rehearsal_touches_nothing(tmp_path):
    transcript = tmp_path / "transcript.txt"
    done = run(tmp_path, "--virtual", "K3610", "--dry-run", "--recordings", tmp_path / "new",
               TESSALINE_BOARD_TRANSCRIPT=str(transcript))
    assert done.returncode == 0
    for call in ("RegisterHardwareInit()", "OpenLaser()", "CloseLaser()", "SetTriSpacing(4000)"):
        assert call in done.stdout
    assert "Nothing was touched" in done.stdout + done.stderr
    assert not transcript.exists() or "write" not in transcript.read_text()
    assert [path.name for path in tmp_path.iterdir() if path != transcript] == []


def test_a_rehearsal_in_json_lists_the_calls(tmp_path):
    done = run(tmp_path, "--virtual", "K3610", "--dry-run", "--json", "--laser", "off")
    assert done.returncode == 0
    assert "OpenLaser" not in json.dumps(json.loads(done.stdout))


@pytest.mark.parametrize("words", [[], ["serve"]], ids=["its own name", "with the word serve"])
def test_the_help_is_that_of_the_command(tmp_path, words):
    own = run(tmp_path, *words, "--help")
    whole = tool("serve", "--help")
    assert (own.returncode, whole.returncode) == (0, 0)
    assert own.stdout == whole.stdout
    for option in ("--listen", "--port", "--token-file", "--certificate", "--host",
                   "--recordings", "--dry-run"):
        assert option in own.stdout
    assert "--guard" not in own.stdout


def test_the_help_names_the_usual_port(tmp_path):
    assert "8080" in run(tmp_path, "--help").stdout


def test_the_help_does_not_say_that_the_laser_is_on_by_default(tmp_path):
    lines = run(tmp_path, "--help").stdout.splitlines()
    line, = [line for line in lines if line.startswith("  --laser ")]
    assert "=on" not in line


def test_the_command_starts_the_daemon(daemons, tmp_path):
    done = tool("serve", "--virtual", "K3610", "--dry-run",
                TESSALINE_SOCKET=str(tmp_path / "serve.sock"))
    assert done.returncode == 0 and "OpenLaser()" in done.stdout


@pytest.mark.parametrize("words", [
    ["--virtual", "K9999"], ["--virtual", "K3610", "--spacing", "0"],
    ["--virtual", "K3610", "--no-such-option"], ["--virtual", "K3610", "--recipe", "/nowhere.json"],
    ["--virtual", "K3610", "--roi", "0", "0", "1457", "1088"], ["--virtual"], [],
], ids=str)
def test_a_wrong_command_line_is_refused_before_anything_happens(tmp_path, words):
    done = run(tmp_path, *words, "--port", "0")
    assert done.returncode in (2, 6)
    assert done.stderr and "terminate" not in done.stderr
    assert list(tmp_path.iterdir()) == []


def test_options_and_recipe_are_the_settings_at_the_start(daemons, tmp_path):
    recipe = tmp_path / "belt.json"
    recipe.write_text(json.dumps({"recipe": 1, "model": "K3610", "power_percent": 30, "gain": 2,
                                  "spacing": 8000}))
    daemon = daemons.start("--recipe", recipe, "--spacing", 9000, TESSALINE_BOARD_SLEEP="0")
    settings = daemon.get("settings")
    assert (settings["power_percent"], settings["gain"], settings["spacing"]) == (30, 2, 9000)


def test_what_the_daemon_serves_can_be_a_recipe_file(daemons, tmp_path):
    first = daemons.start("--gain", 3, "--led", "green", TESSALINE_BOARD_SLEEP="0")
    recipe = tmp_path / "saved.json"
    recipe.write_bytes(first.request("GET", "/api/v1/settings").body)
    second = daemons.start("--recipe", recipe, TESSALINE_BOARD_SLEEP="0")
    assert second.get("settings") == first.get("settings")


@pytest.mark.parametrize("model", ["K3810", "K3920", "K4010", "K3710ch16arm_rebuild"])
def test_other_models_are_served_too(daemons, model):
    daemon = daemons.start(model=model, TESSALINE_BOARD_SLEEP="0")
    assert daemon.get("state")["model"] == model
    settings = daemon.get("settings")
    assert daemon.patch(**settings) == settings
    region = daemon.get("limits")["region"]
    assert settings["region"]["width"] <= region["sensor_width"]
    assert settings["region"]["height"] <= region["sensor_height"]
    assert daemon.request("GET", "/api/v1/snapshot.csv").status in (200, 404)
