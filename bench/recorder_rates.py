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
    file, again = folder / "a.db3", folder / "b.db3"
    for old in folder.iterdir():
        old.unlink()
    # The same run without a recorder: what the board can make.
    plain, plain_cpu = run(
        tool, "capture", what, "-t", seconds, "-o", "/dev/null", "--format", "raw", "--json",
        "--force", "--virtual", model, **fast,
    )
    made, cpu = run(
        tool, "record", "-o", str(file), "-t", seconds, f"--{what}", "--json", "--virtual", model,
        **fast,
    )
    frames = made[what]
    if frames == 0:
        return f"| {model} | {what} | no frames |"
    size = file.stat().st_size
    inner = [str(tool), "record", "-o", "x", f"--{what}", "--model", model]
    played, _ = run(
        tool, "record", "-o", str(again), f"--{what}", "--json", "--", str(tool), "replay",
        str(file), "--fast", "--stop", "--json", "--", *inner, TESSALINE_BOARD_SLEEP="0",
    )
    return ""


def main() -> None:
    tool = pathlib.Path(sys.argv[1]).resolve() / "tessaline"
    seconds = sys.argv[2] if len(sys.argv) > 2 else "3"
    with tempfile.TemporaryDirectory(dir=tool.parent) as folder:
        for model in MODELS:
            for what in ("strips", "images"):
                print(measure(tool, pathlib.Path(folder), model, what, seconds), flush=True)


if __name__ == "__main__":
    main()
