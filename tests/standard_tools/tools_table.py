"""The table of programs in docs/virtual-board.md: which ones the tests have run, and what for.

`tools_table.py FILE` puts the table that the tests left in FILE into the page.
"""

from __future__ import annotations

import json
import os
import re
import sys
from collections import defaultdict
from pathlib import Path

PAGE = Path(__file__).parents[2] / "docs" / "virtual-board.md"
BEGIN = "<!-- tools: written by scripts/standard-tools -->\n"
END = "<!-- end of tools -->\n"
_running: set[str] = set()  # programs of the test that runs now
_passed: dict[str, dict[str, int]] = defaultdict(lambda: defaultdict(int))


def note(words) -> None:
    """A test runs a program."""
    names = [Path(str(word)).name for word in words]
    if names[0] == "timeout":  # SECONDS PROGRAM
        names = names[2:]
    # Our own command is not one of those that nobody here wrote.
    if names[0] != "tessaline":
        _running.add(re.sub(r"^python[\d.]*$", "python3", names[0]))


def begin() -> None:
    _running.clear()


def passed(test: str) -> None:
    """The test that ran these programs has passed."""
    what = re.sub(r"\[.*", "", test).removeprefix("test_").replace("_", " ")
    for program in _running:
        _passed[program][what] += 1


def missing() -> list[str]:
    """What the page does not say of the programs that ran."""
    rows = _rows_of(PAGE.read_text())
    return [f"{program}: {what}" for program, tests in sorted(_passed.items())
            for what in sorted(tests) if what not in rows.get(program, [])]


def save(path: str) -> None:
    Path(path).write_text(json.dumps(_passed))


def _rows_of(page: str) -> dict[str, list[str]]:
    table = page.partition(BEGIN)[2].partition(END)[0]
    rows = re.findall(r"^\| `(.*?)` \| \d+ \| (.*) \|$", table, re.MULTILINE)
    return {program: what.split("; ") for program, what in rows}


def _table(programs: dict[str, dict[str, int]]) -> str:
    lines = ["| program | tests | what they see |\n", "|---|---|---|\n"]
    for program, tests in sorted(programs.items()):
        lines.append(f"| `{program}` | {sum(tests.values())} | {'; '.join(sorted(tests))} |\n")
    return BEGIN + "".join(lines) + END


if __name__ == "__main__":
    page = PAGE.read_text()
    before, _, rest = page.partition(BEGIN)
    PAGE.write_text(before + _table(json.loads(Path(sys.argv[1]).read_text()))
                    + rest.partition(END)[2])
