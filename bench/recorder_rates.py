"""What the recorder takes from each series, as fast as the virtual board can make frames, and how
fast a recording is replayed. Prints a table in Markdown.

    python3 bench/recorder_rates.py BUILD_FOLDER [SECONDS]
"""

from __future__ import annotations

import json
import os
import pathlib
import resource
import subprocess
import sys
import tempfile

MODELS = (
    "K3610", "K3710", "K3710ch16", "K3710ch16arm_rebuild", "K3820", "K3810", "K3920",
    "K3920arm_rebuild", "K4020", "K4020arm_rebuild",
)

# Microseconds from trigger to trigger when all rows are read.
SPACING = {"K36": 4000, "K37": 8000, "K38": 5000, "K39": 4000, "K40": 4000}


def run(tool: pathlib.Path, *words: str, **variables: str) -> tuple[dict, float]:
    """What a command answers, and the processor seconds of it and its children."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    done = subprocess.run(
        [tool, *words], env={**os.environ, **variables}, capture_output=True, text=True, timeout=300
    )
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    if done.returncode != 0:
        sys.exit(f"{' '.join(words)}: {done.returncode}\n{done.stdout}{done.stderr}")
    spent = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
    return json.loads(done.stdout), spent


def measure(tool: pathlib.Path, folder: pathlib.Path, model: str, what: str, seconds: str) -> str:
    fast = {"TESSALINE_BOARD_SLEEP": "0", "TESSALINE_BOARD_PACE": "free"}
    file = folder / f"{model}.db3"
    # At the rate of the sensor with all rows.
    real, _ = run(
        tool, "record", "-o", str(folder / "real.db3"), "-t", seconds, f"--{what}", "--json",
        "--virtual", model, "--trigger", "timer", "--spacing", str(SPACING[model[:3]]),
        TESSALINE_BOARD_SLEEP="0",
    )
    (folder / "real.db3").unlink()
    made, cpu = run(
        tool, "record", "-o", str(file), "-t", seconds, f"--{what}", "--json", "--virtual", model,
        **fast,
    )
    frames, rate = made[what], made[what] / float(seconds)
    # An application that only takes frames: a recorder's own, that is told there is no recorder.
    take = (
        f"TESSALINE_RECORD=none exec {tool} record -o none --{what} --model {model} >/dev/null"
    )
    played, _ = run(
        tool, "replay", str(file), "--fast", "--stop", "--json", "--", "sh", "-c", take,
        TESSALINE_BOARD_SLEEP="0",
    )
    file.unlink()
    # The command looks every 20 ms.
    took = played["seconds"] or 0
    replay = f"{frames / took:.0f}" if took > 0.2 else ""
    return (
        f"| {model}, {what} | {real[what] / float(seconds):.0f} | {real['dropped_frames'] + real['lost_by_device']} | "
        f"{rate:.0f} | {made['bytes'] / float(seconds) / 1e6:.0f} | {made['dropped_frames']} | "
        f"{1e6 * cpu / frames:.0f} | {replay} |"
    )


def main() -> None:
    tool = pathlib.Path(sys.argv[1]).resolve() / "tessaline"
    seconds = sys.argv[2] if len(sys.argv) > 2 else "3"
    print(
        "| | top rate: /s | lost | free-running: /s | MB/s | dropped | us a frame | replay /s |\n"
        "|---|---|---|---|---|---|---|---|"
    )
    with tempfile.TemporaryDirectory(dir=tool.parent) as folder:
        for model in MODELS:
            for what in ("strips", "images"):
                print(measure(tool, pathlib.Path(folder), model, what, seconds), flush=True)


if __name__ == "__main__":
    main()
