"""Calls of the virtual board in a program that has it alone, and in one that shares it.

    board_calls.py FOLDER [LIBRARY]

FOLDER has the build. With LIBRARY, another version of the board is measured, too. The rounds take
turns, because machines are shared; the table has their medians, and ratios to the board alone.
"""

from __future__ import annotations

import os
import statistics
import subprocess
import sys
from pathlib import Path

ROUNDS = 7


def alone(library: Path) -> dict[str, str]:
    return os.environ | {"TESSALINE_BOARD": "K3610", "TESSALINE_BOARD_PACE": "free",
                         "LD_PRELOAD": str(library)}


def measure(words: list, environment) -> dict[str, float]:
    done = subprocess.run([str(word) for word in words], env=environment, check=True, text=True,
                          stdout=subprocess.PIPE)
    return {name: float(value) for name, value in map(str.split, done.stdout.splitlines())}


def main() -> None:
    folder = Path(sys.argv[1]).resolve()
    program = folder / "bench_board_calls"
    runner = [folder / "tessaline-board", "run", "--model", "K3610", "--pace", "free", "--"]
    ways = {"alone": ([program], alone(folder / "libtessaline-board.so")),
            "shared": ([*runner, program], os.environ)}
    if len(sys.argv) > 2:
        ways["other"] = ([program], alone(Path(sys.argv[2]).resolve()))
    rounds: dict[str, list] = {way: [] for way in ways}
    for _ in range(ROUNDS):
        for way, how in ways.items():
            rounds[way].append(measure(*how))
    print("| ns a call | " + " | ".join(ways) + " |")
    print("|---|" + "---:|" * len(ways))
    for name in rounds["alone"][0]:
        medians = {way: statistics.median(taken[name] for taken in all_taken)
                   for way, all_taken in rounds.items()}
        cells = [f"{medians[way]:.0f} ({medians[way] / medians['alone']:.2f})" for way in ways]
        print(f"| {name} | " + " | ".join(cells) + " |")


if __name__ == "__main__":
    main()
