"""Recipes: settings that are kept in a file, compared, and made on a sensor.

The rules are those of the command ``tessaline recipe``, and so are the files. A recipe can be made,
read and checked without a sensor.
"""

from __future__ import annotations

import enum
import errno
import json
import math
import operator
import os
from collections.abc import Iterator, Mapping
from contextlib import suppress
from typing import Any

from . import _rules
from ._calls import Calls
from .errors import RefusedError
from .registers import Registers

__all__ = ["Recipe", "apply", "configure"]

_VERSION = 1
_LARGEST_FILE = 1 << 16
_SIDES = ("x", "y", "width", "height")
_SPACINGS = ("spacing_us", "spacing_pulses")
_SWITCHES = ("laser", "door")
# In the order in which they are made.
_NAMES = (
    "roi",
    "exposure_us",
    "gain",
    "power_percent",
    "laser",
    "trigger",
    *_SPACINGS,
    "delay_us",
    "input_filter_us",
    "door",
    "led",
)
_TRIGGERS = ("timer", "encoder", "external", "timer-start")  # in the order of their numbers
_ENCODER = _TRIGGERS[1]


def _plain(name: str, value: Any) -> Any:
    """A value as JSON has it: NumPy's numbers and enumerations, too."""
    if isinstance(value, (str, bool, int)):
        return value
    if isinstance(value, enum.Enum):
        return value.name.lower().replace("_", "-")
    if type(value).__name__ == "bool_":
        return bool(value)
    try:
        return operator.index(value)
    except TypeError:
        pass
    if hasattr(value, "__len__") and not isinstance(value, (bytes, bytearray, Mapping)):
        return [_plain(name, one) for one in value]
    if hasattr(value, "__float__"):
        number = float(value)
        if math.isfinite(number):
            return number
        raise RefusedError(f"{name} is {number}", "it takes a finite number; nothing was changed")
    raise TypeError(f"{name} cannot be {type(value).__name__} ({value!r})")


def _to_file(settings: Mapping[str, Any]) -> dict[str, Any]:
    """Settings of Python as a recipe's file has them. The values are not checked yet."""
    file: dict[str, Any] = {}
    for name, value in settings.items():
        if name not in _NAMES:
            raise RefusedError(f"{name!r} is no setting", f"there are {', '.join(_NAMES)}")
        plain = _plain(name, value)
        if name == "roi":
            if not isinstance(plain, list) or len(plain) != len(_SIDES):
                raise RefusedError(f"roi is {value!r}", "it takes x, y, width and height")
            file["region"] = dict(zip(_SIDES, plain))
        elif name in _SWITCHES and isinstance(plain, bool):
            file[name] = "on" if plain else "off"
        elif name not in _SPACINGS:
            file[name] = plain
    _add_spacing(file, settings)
    return file


def _add_spacing(file: dict[str, Any], settings: Mapping[str, Any]) -> None:
    given = [name for name in _SPACINGS if name in settings]
    if not given:
        return
    if len(given) > 1:
        raise RefusedError("spacing_us and spacing_pulses exclude each other", "give one of them")
    by_encoder = file.get("trigger") == _ENCODER
    if by_encoder != (given[0] == "spacing_pulses"):
        needs = 'goes with trigger="encoder"' if not by_encoder else "goes with any other trigger"
        other = _SPACINGS[by_encoder]
        raise RefusedError(
            f"{given[0]} {needs}, not with trigger={file.get('trigger')!r}", f"give {other}"
        )
    file["spacing"] = _plain(given[0], settings[given[0]])


def _from_file(file: Mapping[str, Any]) -> dict[str, Any]:
    """The same, the other way round."""
    settings: dict[str, Any] = {}
    for key, value in file.items():
        if key == "region":
            settings["roi"] = tuple(value[side] for side in _SIDES)
        elif key == "spacing":
            settings[_SPACINGS[file.get("trigger") == _ENCODER]] = value
        elif isinstance(value, list):
            settings[key] = tuple(value)
        elif key not in ("recipe", "model"):
            settings[key] = value
    return {name: settings[name] for name in _NAMES if name in settings}


class Recipe(Mapping[str, Any]):
    """Settings, checked by the rules of the command. What is absent stays as it is on the sensor.

    A recipe is a mapping of the arguments it was made of, so ``sensor.configure(**recipe)`` works.
    It never changes; updated() makes another one.

    Args:
        model: the product it is for: a model code, or the first three characters of a family's; "":
            any product.
        **settings: each may be left out.

            ========================  ==========================================================
            roi                       (x, y, width, height) in pixels of the full sensor
            exposure_us               1 to 10 000 000 us, or up to 5 of them that take turns
            gain                      in the sensor's own steps, see ImageSensor.gain
            power_percent             laser power, 0 to 100
            laser                     "on", "off", True or False: while frames are taken
            trigger                   "timer", "encoder", "external", "timer-start", TriggerMode
            spacing_us                between triggers, 1 to 85 899 345 us (1 is made 2)
            spacing_pulses            the same with trigger="encoder", 1 to 85 899 345 pulses
            delay_us                  from trigger to exposure, to 85 899 345 us; 0: none
            input_filter_us           shortest pulse of the external input, to 85 899 345 us
            door                      "on", "off", True or False: the input gates the trigger
            led                       "red", "magenta", ..., or a Colour
            ========================  ==========================================================

    Attributes:
        model: as given.

    Raises:
        RefusedError: a setting that there is not, or a value that no product, or not this one, has.
            The error has the limits. NaN is refused, too.
        TypeError: a value is nothing that a setting can be.

    Example:
        >>> front = Recipe("K3610", exposure_us=(100, 800), gain=6)
        >>> front.save("front.json")
        >>> Recipe.load("front.json").diff(front.updated(gain=8))
        {'gain': (6, 8)}
    """

    def __init__(self, model: str = "", **settings: Any) -> None:
        if not isinstance(model, str):
            raise TypeError(f"model must be a string, not {type(model).__name__} ({model!r})")
        given = {name: value for name, value in settings.items() if value is not None}
        self._read(_text(model, _to_file(given)), "", "")

    def _read(self, text: str, origin: str, model: str) -> None:
        self._text = _rules.recipe_text(text, origin, model)
        file = json.loads(self._text)
        self.model: str = file.get("model", "")
        self._settings = _from_file(file)

    @classmethod
    def load(cls, path: str | os.PathLike[str], model: str = "") -> Recipe:
        """Reads a recipe's file.

        Args:
            path: a file as save() or ``tessaline recipe save`` writes it.
            model: model code that it must suit; "": that of the recipe.

        Raises:
            OSError: the file cannot be read.
            RefusedError: it is no recipe, or not one for this model. The error names the key.
        """
        with open(os.fspath(path), "rb") as file:
            content = file.read(_LARGEST_FILE + 1)
        if len(content) > _LARGEST_FILE:
            raise RefusedError(f"{path}: is larger than 64 KiB", "a recipe is a small JSON file")
        recipe = cls()
        recipe._read(content.decode("utf-8", "replace"), os.fspath(path), model)
        return recipe

    def save(self, path: str | os.PathLike[str], *, overwrite: bool = False) -> None:
        """Writes the recipe into a file, which appears as a whole.

        Args:
            path: where.
            overwrite: whether it may replace a file.

        Raises:
            FileExistsError: there is a file, and overwrite is False. It is as it was.
            OSError: the file cannot be written.
        """
        place = os.fspath(path)
        if not overwrite and os.path.exists(place):
            advice = "there is a file; overwrite=True replaces it"
            raise FileExistsError(errno.EEXIST, advice, place)
        part = f"{place}.{os.getpid()}.part"
        try:
            with open(part, "x", encoding="utf-8") as file:
                file.write(self._text)
            os.replace(part, place)
        finally:
            if os.path.exists(part):
                os.unlink(part)

    def check(self, model: str) -> None:
        """Raises RefusedError unless the product has all these settings, with its limits."""
        _rules.recipe_text(self._text, "", model)

    def updated(self, **settings: Any) -> Recipe:
        """Another recipe, with these settings in place of its own; None leaves one out."""
        return Recipe(self.model, **{**self._settings, **settings})

    def diff(self, other: Recipe) -> dict[str, tuple[Any, Any]]:
        """The settings that differ: this recipe's value and the other's, None for an absent one."""
        pairs: dict[str, tuple[Any, Any]] = {
            name: (self.get(name), other.get(name))
            for name in _NAMES
            if self.get(name) != other.get(name)
        }
        if self.model != other.model:
            pairs["model"] = (self.model, other.model)
        return pairs

    def __getitem__(self, name: str) -> Any:
        return self._settings[name]

    def __iter__(self) -> Iterator[str]:
        return iter(self._settings)

    def __len__(self) -> int:
        return len(self._settings)

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Recipe):
            return NotImplemented
        return self._text == other._text

    def __hash__(self) -> int:
        return hash(self._text)

    def __repr__(self) -> str:
        given = [repr(self.model)] if self.model else []
        given += [f"{name}={value!r}" for name, value in self._settings.items()]
        return f"Recipe({', '.join(given)})"


def _text(model: str, file: Mapping[str, Any]) -> str:
    about: dict[str, Any] = {"recipe": _VERSION, **({"model": model} if model else {})}
    return json.dumps({**about, **file})


def apply(calls: Calls, model: str, recipe: Recipe) -> None:
    """Makes a recipe's settings on a started device, in the order of the table in Recipe.

    Nothing is touched unless the product has all of them. "laser" is left out: it is about the time
    while frames are taken.

    Raises:
        RefusedError: the product has no such setting; or the device refused one, with the library's
            own words. What came before the refused one stays made.
    """
    for step in calls.module.recipe_steps(recipe._text, model):
        name, _, listed = step.call.rstrip(")").partition("(")
        arguments = tuple(listed.split(", "))
        calls.note(name, tuple(map(_argument, arguments)))
        if not calls.raw("run_step", step):
            calls.last[name] = None
            raise calls.refused(name, arguments)


def _argument(text: str) -> int | float | str:
    with suppress(ValueError):
        return int(text)
    with suppress(ValueError):
        return float(text)
    return text


def configure(calls: Calls, model: str, **settings: Any) -> Recipe:
    """Makes settings on a started device; what is not given stays as it is.

    Args:
        calls: the device's functions.
        model: its model code.
        **settings: as in Recipe. A spacing without a trigger is one for the trigger mode that the
            device is in, which is set again.

    Returns:
        What was made.

    Raises:
        RefusedError: see Recipe and apply(). Nothing is touched when a value is refused.
        TypeError: a value is nothing that a setting can be.
    """
    given = {name: value for name, value in settings.items() if value is not None}
    if "trigger" not in given and any(name in given for name in _SPACINGS):
        given["trigger"] = _TRIGGERS[Registers(calls, model).read("TRIGGER_CTRL.mode")]
    recipe = Recipe(model, **given)
    apply(calls, model, recipe)
    return recipe
