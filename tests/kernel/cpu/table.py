"""The processor time that a frame costs each program, from the guest's lines "cpu NAME FRAMES
MICROSECONDS". What a program needs to start is the same for few frames and for many, so it drops
out of the difference.

    table.py SERIAL_LOG
"""

from __future__ import annotations

import re
import statistics
import sys
from collections import defaultdict
from pathlib import Path


def main() -> None:
    spent: dict[str, dict[int, list[int]]] = defaultdict(lambda: defaultdict(list))
    for name, frames, time in re.findall(r"^cpu (\S+) (\d+) (\d+)", Path(sys.argv[1]).read_text(),
                                         re.MULTILINE):
        spent[name][int(frames)].append(int(time))
    costs = {}
    for name, times in spent.items():
        few, many = min(times), max(times)
        costs[name] = [(b - a) / (many - few) for a, b in zip(times[few], times[many])]
    library = statistics.median(costs["library"])
    print("| program | microseconds a frame (rounds) | the library takes |")
    print("|---|---|---:|")
    for name, rounds in costs.items():
        median = statistics.median(rounds)
        each = ", ".join(f"{cost:.0f}" for cost in rounds)
        print(f"| {name} | {median:.0f} ({each}) | {library / median:.2f} |")


if __name__ == "__main__":
    main()
