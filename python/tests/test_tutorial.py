"""Runs the tutorial: every line of Python in docs/python.md, each chapter in its own process.

A block "python" is run after those before it in its chapter, and "python NAME" as a program of that
name, or by pytest when it is called test_*. A block "text" behind one is what it prints, with "..."
for anything; of a traceback it has the last line. What prints something must show it. Other blocks
with a name are files; blocks "sh" are run by tests/docs.
"""

from __future__ import annotations

import dataclasses
import doctest
import json
import pathlib
import re
import subprocess
import sys
import textwrap

import pytest

ROOT = pathlib.Path(__file__).parents[2]
PAGE = ROOT / "docs" / "python.md"
README = ROOT / "README.md"
FENCE = re.compile(r"^```(\S*)[ ]*(.*)$")

# Runs blocks of one chapter, and prints what each of them printed.
RUNNER = """
import io, json, sys, traceback
names = {"__name__": "__main__"}
everything = io.StringIO()
shown = sys.stdout
sys.stdout = sys.stderr = everything
for line, source in json.load(sys.stdin):
    start = everything.tell()
    try:
        exec(compile("\\n" * line + source, sys.argv[1], "exec"), names)
    except Exception as error:
        everything.write(traceback.format_exception_only(error)[-1])
    print(json.dumps(everything.getvalue()[start:]), file=shown, flush=True)
"""


@dataclasses.dataclass
class Block:
    """One fenced block."""

    line: int
    language: str
    name: str
    text: str
    printed: str = ""


def chapters() -> dict[str, list[Block]]:
    """The blocks by chapter."""
    found: dict[str, list[Block]] = {}
    title = ""
    block: Block | None = None
    for number, line in enumerate(PAGE.read_text(encoding="utf-8").splitlines(), 1):
        fence = FENCE.match(line)
        if block is not None:
            if fence:
                block = None
            else:
                block.text += line + "\n"
        elif fence:
            block = Block(number, fence[1], fence[2], "")
            found.setdefault(title, []).append(block)
        elif line.startswith("## "):
            title = line[3:]
    return found


def with_output(blocks: list[Block]) -> list[Block]:
    """The blocks that are run or written, each with what it shall print."""
    kept: list[Block] = []
    before: Block | None = None
    for block in blocks:
        if block.language == "text":
            assert before is not None and not before.printed, f"line {block.line}: output of what?"
            before.printed = block.text
        elif block.language == "python" or block.name and block.language in ("ini", "json"):
            kept.append(block)
        else:
            assert block.language == "sh", f"line {block.line}: what is to be done with this?"
        before = block if block.language == "python" else None
    return kept


def compare(block: Block, printed: str) -> None:
    options = doctest.ELLIPSIS | doctest.NORMALIZE_WHITESPACE
    if not doctest.OutputChecker().check_output(block.printed, printed, options):
        pytest.fail(
            f"{PAGE}:{block.line} prints\n{printed}\nand the page shows\n{block.printed}",
            pytrace=False,
        )


def run_file(block: Block, folder: pathlib.Path) -> None:
    (folder / block.name).write_text(block.text, encoding="utf-8")
    if block.language != "python":
        return
    how = ["-m", "pytest", "-q", "-p", "no:cacheprovider"] if block.name.startswith("test_") else []
    done = subprocess.run(
        [sys.executable, *how, block.name],
        cwd=folder,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        timeout=120,
    )
    assert done.returncode == 0, done.stdout
    if not how:
        compare(block, done.stdout)


def run_blocks(blocks: list[Block], folder: pathlib.Path) -> None:
    lines = [(block.line, block.text) for block in blocks]
    done = subprocess.run(
        [sys.executable, "-c", RUNNER, str(PAGE)],
        input=json.dumps(lines),
        cwd=folder,
        capture_output=True,
        text=True,
        timeout=120,
    )
    printed = [json.loads(line) for line in done.stdout.splitlines()]
    for block, text in zip(blocks, printed):
        compare(block, text)
    assert len(printed) == len(blocks), textwrap.indent(done.stderr, "  ")
    assert done.returncode == 0, done.stderr


CHAPTERS = {title: with_output(blocks) for title, blocks in chapters().items()}


@pytest.mark.parametrize("title", CHAPTERS)
def test_chapter(title: str, tmp_path: pathlib.Path) -> None:
    for block in CHAPTERS[title]:
        if block.name:
            run_file(block, tmp_path)
    run_blocks([block for block in CHAPTERS[title] if not block.name], tmp_path)


def test_the_lines_of_the_readme_run(tmp_path: pathlib.Path) -> None:
    (source,) = re.findall(r"^```python\n(.*?)^```$", README.read_text(encoding="utf-8"),
                           re.MULTILINE | re.DOTALL)
    run_blocks([Block(0, "python", "", source)], tmp_path)


def test_no_python_is_left_out() -> None:
    text = PAGE.read_text(encoding="utf-8")
    fenced = re.findall(r"^```python.*?\n(.*?)^```$", text, re.MULTILINE | re.DOTALL)
    run = [block.text for blocks in CHAPTERS.values() for block in blocks
           if block.language == "python"]
    assert run == fenced and sum(len(source.splitlines()) for source in run) > 150
    # Python that stands outside of fences would not be run.
    rest = re.sub(r"^```.*?^```$", "", text, flags=re.MULTILINE | re.DOTALL)
    assert not re.search(r"^    (import|from|with|for|print)\b", rest, re.MULTILINE)
