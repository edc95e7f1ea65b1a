"""A strict reader of the text format of Prometheus, version 0.0.4."""

from __future__ import annotations

import dataclasses
import math
import re

NAME = r"[a-zA-Z_:][a-zA-Z0-9_:]*"
LABEL = r'[a-zA-Z_][a-zA-Z0-9_]*="(?:[^"\\\n]|\\["\\n])*"'
VALUE = r"[+-]?(?:[0-9]+(?:\.[0-9]*)?(?:[eE][+-]?[0-9]+)?|Inf)|NaN"
SAMPLE = re.compile(rf"({NAME})(?:\{{({LABEL}(?:,{LABEL})*)\}})? ({VALUE})")
HELP = re.compile(rf"# HELP ({NAME}) (.+)")
TYPE = re.compile(rf"# TYPE ({NAME}) (counter|gauge|histogram|summary|untyped)")


@dataclasses.dataclass
class Family:
    help: str
    type: str = ""
    samples: dict[str, float] = dataclasses.field(default_factory=dict)  # by name and labels


def parse(text: str) -> dict[str, Family]:
    """The families by name. Fails at the first line that is not as it has to be."""
    assert text.endswith("\n"), "the last line is not complete"
    families: dict[str, Family] = {}
    current = ""
    for line in text.splitlines():
        if described := HELP.fullmatch(line):
            current = described[1]
            assert current not in families, f"described twice: {current}"
            families[current] = Family(described[2])
        elif typed := TYPE.fullmatch(line):
            assert typed[1] == current and not families[current].type, line
            families[current].type = typed[2]
        else:
            sample = SAMPLE.fullmatch(line)
            assert sample, f"no sample: {line!r}"
            _add(families, current, sample)
    return families


def _add(families: dict[str, Family], current: str, sample: re.Match) -> None:
    name, labels, value = sample.groups()
    family = families[current]
    suffixes = ("_bucket", "_sum", "_count") if family.type == "histogram" else ("",)
    assert name in [current + suffix for suffix in suffixes], f"{name} is not of {current}"
    key = f"{name}{{{labels or ''}}}"
    assert key not in family.samples, f"twice: {key}"
    family.samples[key] = float(value)
    assert not math.isnan(family.samples[key]), key


def value(text: str, key: str) -> float:
    """One sample, by its name and, in braces, its labels."""
    key = key if "{" in key else key + "{}"
    found = [family.samples[key] for family in parse(text).values() if key in family.samples]
    assert len(found) == 1, key
    return found[0]
