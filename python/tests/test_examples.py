"""The programs of examples/python, as a user starts them."""

from __future__ import annotations

import os
import pathlib
import subprocess
import sys

import numpy as np
import pytest

EXAMPLES = pathlib.Path(__file__).parents[2] / "examples" / "python"


def run(name: str, folder: pathlib.Path, *arguments: str) -> str:
    done = subprocess.run(
        [sys.executable, EXAMPLES / name, *arguments],
        cwd=folder,
        capture_output=True,
        text=True,
        timeout=100,
        env={**os.environ, "MPLCONFIGDIR": str(folder)},
    )
    assert (done.returncode, done.stderr) == (0, ""), done.stderr
    return done.stdout


def test_the_height_map_is_a_picture_of_the_belt(tmp_path: pathlib.Path) -> None:
    pytest.importorskip("matplotlib", reason="python3-matplotlib is not installed")
    from matplotlib import image

    printed = run("height_map.py", tmp_path)
    assert printed == "height_map.png: <Profiles: 750 profiles, 1092000 points, mm>\n"
    picture = image.imread(tmp_path / "height_map.png")
    assert picture.shape == (450, 900, 4)
    # Dark belt, objects up to the top of the scale, and the paper around them.
    map_only = picture[60:380, 80:780, :3]
    belt, top = np.array([68, 1, 84]) / 255, np.array([253, 231, 37]) / 255
    is_belt = np.abs(map_only - belt).max(axis=2) < 0.02
    assert 0.4 < is_belt.mean() < 0.8
    assert (np.abs(map_only - top).max(axis=2) < 0.1).sum() > 100
    assert len(np.unique(map_only.reshape(-1, 3), axis=0)) > 100
    assert (picture[:30, :50, :3] == 1).all()


def test_the_steps_are_three_millimetres(tmp_path: pathlib.Path) -> None:
    lines = run("stair_steps.py", tmp_path).splitlines()
    assert [line.split()[-2] for line in lines] == ["+3.000"] * 4 + ["-3.000"] * 4
