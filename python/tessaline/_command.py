"""Runs the command ``tessaline`` as a child process."""

from __future__ import annotations

import json
import os
import shutil
import subprocess
from pathlib import Path
from typing import Any

from . import _profile
from .errors import TessalineError

_NAME = "tessaline"


def find(failure: type[TessalineError] = TessalineError) -> Path:
    """The command that belongs to the library in use, else that of the path.

    Raises:
        TessalineError: of the class ``failure``: it is not installed.
    """
    library = Path(_profile.library_path()).resolve().parent
    for folder in (library, library.parent / "bin", library.parent.parent / "bin"):
        if (command := folder / _NAME).is_file() and os.access(command, os.X_OK):
            return command
    if found := shutil.which(_NAME):
        return Path(found)
    raise failure(
        'the command "tessaline" was not found', "install the package tessaline-tools"
    )


def run(failure: type[TessalineError], name: str, *arguments: str) -> dict[str, Any]:
    """Runs one of its commands and returns the report that it prints with ``--json``.

    Raises:
        TessalineError: of the class ``failure``, with what the command says.
    """
    done = subprocess.run(
        [find(), name, "--json", *arguments],
        stdin=subprocess.DEVNULL,
        capture_output=True,
        encoding="utf-8",
        errors="replace",
    )
    try:
        report = json.loads(done.stdout)
    except ValueError:
        report = {}
    if done.returncode == 0 and isinstance(report, dict):
        return report
    said = done.stderr.strip().splitlines()[-1:] or [f"exit status {done.returncode}"]
    raise failure(report.get("error", said[0]), report.get("advice", ""))
