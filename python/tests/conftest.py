"""What several tests need."""

from __future__ import annotations

import pathlib
import shutil

import pytest
import tessaline


@pytest.fixture
def command() -> str:
    """The command tessaline: that of the build folder, or an installed one."""
    built = pathlib.Path(tessaline.__file__).parents[2] / "tessaline"
    found = str(built) if built.is_file() else shutil.which("tessaline")
    if found is None:
        pytest.skip("the command tessaline is not built (TESSALINE_TOOLS)")
    return found
