"""Compares what the commands printed on the kernel board and on the virtual board.

compare.py TABLE KERNEL VIRTUAL: the table of the commands, and the folders of what they printed.
"""

from __future__ import annotations

import difflib
import re
import sys
from pathlib import Path

# What must differ: names and versions of drivers, how their devices are called on their bus, times.
REPLACED = [(re.compile(pattern, re.MULTILINE), text) for pattern, text in [
    (r"tessaline-board|(?:board_video|tessaline)(?=-video)|board_video(?!\.)", "DRIVER"),
    (r"platform:(?:video|board_video\.)([01])", r"BUS\1"),
    (r"(Driver version\s+: ).*", r"\1VERSION"),
    (r"(tessaline I2C adapter|sensor board bus) (\d) *", r"ADAPTER \2 "),
    (r"\b(xadc|tessaline-monitor)\b", "THERMOMETER"),
    (r"(Identity:\s+).*(\[version).*", r"\1WATCHDOG"),
    (r"(MAJOR=)2[3-5]\d", r"\1DYNAMIC"),
    (r"\b\d+\.\d{6} ", "TIME "),
    (r"(ts|delta): [\d.]+( ms)?", r"\1: TIME"),
    (r"^\s*Video Capture: Frame #.*\r", ""),
]]


def normal(text: str) -> str:
    for pattern, replacement in REPLACED:
        text = pattern.sub(replacement, text)
    return text


def commands(table: Path):
    """(file name, command, whether it is known to differ) of each command of the table."""
    board, number = "", 0
    for line in table.read_text().splitlines():
        if line.startswith("["):
            board, number = line.strip("[]"), 0
        elif line and line[0] not in "#!":
            number += 1
            yield f"{board}.{number:03}", line.removeprefix("~ "), line.startswith("~ ")


def printed(folder: Path, name: str) -> list[str]:
    file = folder / name
    return normal(file.read_text(errors="replace")).splitlines() if file.exists() else ["not run"]


def main() -> int:
    table, kernel, virtual = (Path(argument) for argument in sys.argv[1:])
    counts = {"same": 0, "known": 0, "DIFFERS": 0, "NO LONGER DIFFERS": 0}
    for name, command, known in commands(table):
        sides = [printed(folder, name) for folder in (kernel, virtual)]
        same = sides[0] == sides[1] and sides[0] != ["not run"]
        verdict = ("NO LONGER DIFFERS" if known else "same") if same else (
            "known" if known else "DIFFERS")
        counts[verdict] += 1
        print(f"{verdict:8} {name.split('.')[0]} {command}")
        if verdict in ("DIFFERS", "known"):
            for line in difflib.unified_diff(*sides, "kernel", "virtual", lineterm="", n=0):
                print(f"    {line}")
    print(f"{counts['same']} same, {counts['known']} differ as known, "
          f"{counts['DIFFERS'] + counts['NO LONGER DIFFERS']} failed")
    return 1 if counts["DIFFERS"] + counts["NO LONGER DIFFERS"] else 0


if __name__ == "__main__":
    sys.exit(main())
