"""Recipes: the rules and words of the command, and what they write."""

from __future__ import annotations

import json
import os
import pathlib
import pickle
import subprocess
import sys
from typing import Any

import numpy
import pytest
from started import MODEL, board
from tessaline import recipes
from tessaline.errors import RefusedError
from tessaline.recipes import Recipe
from tessaline.settings import Colour, TriggerMode

EVERYTHING: dict[str, Any] = {
    "roi": (0, 0, 728, 544),
    "exposure_us": (100, 800),
    "gain": 6,
    "power_percent": 20.5,
    "laser": "off",
    "trigger": "timer",
    "spacing_us": 4000,
    "delay_us": 30,
    "input_filter_us": 5,
    "door": "on",
    "led": "magenta",
}


def configure(**settings: Any) -> Recipe:
    return recipes.configure(board().calls, MODEL, **settings)


def test_every_setting_reaches_its_register() -> None:
    s = board()
    made = configure(**EVERYTHING)
    assert dict(made) == EVERYTHING
    assert made.model == MODEL
    assert (s.image_sensor.width, s.image_sensor.height) == (728, 544)
    assert [s.held(f"EXP_TIME_{index}") for index in (1, 2)] == [32, 250]
    assert s.held("EXPOSURE_NUM.count") == 2
    assert s.module.board_chip_get("sensor", 0x3204) == 60
    assert s.module.board_chip_get("pot", 0) == 209
    assert s.held("TRIGGER_CTRL.mode") == 0
    assert s.held("TRI_SPACING") == 200_000
    assert (s.held("TRI_DELAY"), s.held("TRIGGER_CTRL.delay_enable")) == (1500, 1)
    assert s.held("EXTIN_WIDTH") == 250
    assert s.held("TRIGGER_CTRL.door_control") == 1
    assert [s.module.board_gpio_level(line) for line in (961, 962, 963)] == [1, 0, 1]
    configure(door=False, delay_us=0, roi=[0, 0, 1456, 1088])
    assert s.held("TRIGGER_CTRL.door_control") == s.held("TRIGGER_CTRL.delay_enable") == 0
    assert s.held("EXP_TIME_2") == 250  # what is not given stays


def test_numpy_and_enumerations_are_values_too() -> None:
    made = configure(
        exposure_us=numpy.array([100, 800]),
        gain=numpy.uint8(6),
        power_percent=numpy.float32(50),
        trigger=TriggerMode.TIMER_START,
        led=Colour.RED,
        laser=numpy.bool_(True),
        roi=None,
    )
    assert dict(made) == {
        "exposure_us": (100, 800),
        "gain": 6,
        "power_percent": 50.0,
        "laser": "on",
        "trigger": "timer-start",
        "led": "red",
    }


def test_a_spacing_has_the_unit_of_the_trigger() -> None:
    s = board()
    configure(trigger="encoder", spacing_pulses=10)
    assert (s.held("TRIGGER_CTRL.mode"), s.held("TRI_SPACING")) == (1, 10)
    s.touched()
    with pytest.raises(RefusedError, match="spacing_us goes with any other trigger"):
        configure(spacing_us=4000)
    with pytest.raises(RefusedError, match='spacing_pulses goes with trigger="encoder"'):
        configure(spacing_pulses=5, trigger="timer")
    with pytest.raises(RefusedError, match="exclude each other"):
        configure(spacing_pulses=5, spacing_us=4000)
    assert s.touched() == []
    configure(spacing_pulses=12)
    assert s.held("TRI_SPACING") == 12
    configure(trigger="external", spacing_us=100)
    configure(spacing_us=200)
    assert (s.held("TRIGGER_CTRL.mode"), s.held("TRI_SPACING")) == (2, 10_000)
    configure(trigger="timer", spacing_us=4000)


REFUSED: list[tuple[dict[str, Any], str]] = [
    ({"gain": 49}, "the IMX273 of a K3610 has no gain of 49; its gain is 0 to 48 decibels"),
    ({"gain": 1.5}, "gain is 1.5; it takes a whole number from 0 to 4294967295"),
    ({"gain": True}, "gain is true; it takes a whole number"),
    ({"gain": -1}, "gain is -1; it takes a whole number"),
    ({"gain": 2**70}, "gain is"),
    ({"exposure_us": 0}, "exposure_us is 0; it takes a whole number from 1 to 10000000"),
    ({"exposure_us": []}, "exposure_us is []; it takes a number, or 1 to 5 of them"),
    ({"exposure_us": [1] * 6}, "exposure_us is [1,1,1,1,1,1]; it takes a number, or 1 to 5"),
    ({"exposure_us": [[1]]}, "is nested too deeply"),
    ({"exposure_us": float("nan")}, "exposure_us is nan; it takes a finite number"),
    ({"power_percent": 100.1}, "power_percent is 100.1; it takes a number from 0 to 100"),
    ({"power_percent": float("nan")}, "power_percent is nan"),
    ({"power_percent": float("inf")}, "power_percent is inf"),
    ({"power_percent": "50"}, 'power_percent is "50"; it takes a number'),
    ({"trigger": "clock"}, 'trigger is "clock"; it takes timer, encoder, external, timer-start'),
    ({"spacing_us": 0}, "spacing is 0; it takes a whole number from 1 to 85899345"),
    ({"delay_us": 85_899_346}, "delay_us is 85899346; it takes a whole number from 0 to 85899345"),
    ({"door": 1}, "door is 1; it takes off, on"),
    ({"led": "pink"}, 'led is "pink"; it takes off, red, green, yellow'),
    ({"roi": (0, 0, 1457, 1)}, "no region of 1457 x 1 at column 0, row 0; a region lies within"),
    ({"roi": (0, 0, 1456)}, "roi is (0, 0, 1456); it takes x, y, width and height"),
    ({"roi": (0, 0, 10, -1)}, "region.height is -1; it takes a whole number"),
    ({"exposure": 100}, "'exposure' is no setting; there are roi, exposure_us"),
]


@pytest.mark.parametrize("wrong, words", REFUSED, ids=[str(row[0]) for row in REFUSED])
def test_a_refused_value_touches_nothing(wrong: dict[str, Any], words: str) -> None:
    s = board()
    s.touched()
    with pytest.raises(RefusedError) as caught:
        configure(**{"led": "green", "delay_us": 7, **wrong})
    assert words in str(caught.value)
    assert s.touched() == []


@pytest.mark.parametrize("wrong", [object(), b"5", {"x": 1}, 1j, ...])
def test_a_wrong_type_touches_nothing(wrong: Any) -> None:
    s = board()
    s.touched()
    with pytest.raises(TypeError, match="gain cannot be"):
        configure(led="green", gain=wrong)
    assert s.touched() == []


def test_a_refused_step_has_the_librarys_words() -> None:
    s = board()
    s.image_sensor.drive_mode = "reduced"  # which takes no region
    try:
        with pytest.raises(RefusedError) as caught:
            configure(roi=(0, 0, 728, 544), gain=6)
    finally:
        s.image_sensor.drive_mode = "full"
    assert caught.value.call == "SetROI1"
    assert caught.value.what.startswith('SetROI1(0, 0, 728, 544) failed: "')
    assert caught.value.text


def test_a_recipe_is_a_mapping_that_never_changes(tmp_path: pathlib.Path) -> None:
    one = Recipe("K3610", **EVERYTHING)
    assert dict(one) == EVERYTHING and len(one) == len(EVERYTHING)
    assert Recipe("K3610", **one) == one and hash(Recipe("K3610", **one)) == hash(one)
    assert eval(repr(one)) == one
    assert pickle.loads(pickle.dumps(one)) == one
    other = one.updated(gain=8, led=None)
    assert one.diff(other) == {"gain": (6, 8), "led": ("magenta", None)}
    assert one.diff(one) == {}
    assert one.diff(Recipe("K36", **one)) == {"model": ("K3610", "K36")}
    with pytest.raises(TypeError):
        one["gain"] = 3  # type: ignore[index]
    with pytest.raises(KeyError):
        other["led"]


def test_a_recipe_knows_what_it_is_for() -> None:
    family = Recipe("K38", gain=5)
    family.check("K3810")
    with pytest.raises(RefusedError, match="made for a K38.., not for a K3610"):
        family.check("K3610")
    with pytest.raises(RefusedError, match="no gain of 5"):
        Recipe(gain=5).check("K3910")
    with pytest.raises(RefusedError, match="no model has a gain of 99"):
        Recipe(gain=99)
    with pytest.raises(RefusedError, match='unknown model "K3611"; the nearest is K3610'):
        Recipe("K3611")
    with pytest.raises(TypeError, match="model must be a string"):
        Recipe(3610)  # type: ignore[arg-type]


def test_a_recipe_goes_through_a_file(tmp_path: pathlib.Path) -> None:
    path = tmp_path / "front.json"
    one = Recipe("K3610", **EVERYTHING)
    one.save(path)
    assert Recipe.load(path) == one
    assert Recipe.load(str(path), "K3610") == one
    with pytest.raises(FileExistsError):
        Recipe().save(path)
    assert Recipe.load(path) == one
    Recipe(gain=1).save(path, overwrite=True)
    assert dict(Recipe.load(path)) == {"gain": 1}
    assert os.listdir(tmp_path) == ["front.json"]
    with pytest.raises(OSError):
        one.save(tmp_path / "nowhere" / "front.json")
    with pytest.raises(FileNotFoundError):
        Recipe.load(tmp_path / "none.json")


@pytest.mark.parametrize(
    "text, words",
    [
        ("", "is empty"),
        ("[]", "is not a JSON object"),
        ("{", "is not valid JSON in line 1"),
        ('{"recipe": 2}', "a newer format"),
        ('{"recipe": 1, "gain": 3, "gain": 4}', '"gain" stands there twice'),
        ('{"recipe": 1, "gian": 3}', '"gian" is no setting'),
        ('{"recipe": 1, "gain": 99}', "no model has a gain of 99"),
        (" " * 65537, "is larger than 64 KiB"),
        ("\xff\xfe", "is not valid JSON"),
    ],
)
def test_a_damaged_file_is_refused(tmp_path: pathlib.Path, text: str, words: str) -> None:
    path = tmp_path / "front.json"
    path.write_bytes(text.encode("latin-1"))
    with pytest.raises(RefusedError) as caught:
        Recipe.load(path)
    assert str(caught.value).startswith(f"{path}: ")
    assert words in str(caught.value)


def test_the_command_takes_the_file(tmp_path: pathlib.Path, command: str) -> None:
    path = tmp_path / "front.json"
    Recipe("K3610", **EVERYTHING).save(path)
    run = subprocess.run(
        [command, "recipe", "show", "--json", str(path)], capture_output=True, text=True
    )
    assert run.returncode == 0, run.stderr
    assert json.loads(run.stdout)["defaults"] == []
    copy = tmp_path / "copy.json"
    options = ["--recipe", str(path), "--gain", "7", "--model", "K3610"]
    subprocess.run([command, "recipe", "save", str(copy), *options], check=True)
    assert Recipe.load(path).diff(Recipe.load(copy)) == {"gain": (6, 7)}


def test_recipes_need_no_device_library() -> None:
    code = (
        "from tessaline.recipes import Recipe; import sys\n"
        "Recipe('K3610', gain=6)\n"
        "assert 'libtessaline.so' not in open('/proc/self/maps').read()\n"
    )
    subprocess.run([sys.executable, "-c", code], check=True, env=_environment())


def _environment() -> dict[str, str]:
    return {**os.environ, "PYTHONPATH": os.pathsep.join(sys.path)}
