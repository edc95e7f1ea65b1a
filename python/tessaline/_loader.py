"""Loads the device library, on the sensor's own board or behind a virtual one.

The virtual board works by standing in front of the C library's calls. A program that is started
with ``LD_PRELOAD`` has it there. Python cannot go back to its start: a notebook would lose its
connection, a test run its results. So the board is loaded late, in a scope of its own
(``RTLD_DEEPBIND``) that holds the board and the device library. In there the board comes first, and
the rest of the process never meets it.
"""

from __future__ import annotations

import ctypes
import importlib
import os
import sys
from types import ModuleType

from .errors import StartUpError

_BOARD = "libtessaline-board.so"
_loaded: tuple[bool, ModuleType] | None = None


def _board_is_preloaded() -> bool:
    return hasattr(ctypes.CDLL(None), "tessaline_board_select")


def load(virtual: bool) -> ModuleType:
    """The module of the device library. A process has one, real or virtual."""
    global _loaded
    if _loaded is not None:
        if _loaded[0] != virtual:
            kinds = ("the real board", "a virtual board")
            raise StartUpError(
                f"this process has loaded the device library for {kinds[_loaded[0]]} already",
                f"use {kinds[virtual]} in another process",
            )
        return _loaded[1]
    module = _virtual() if virtual else importlib.import_module("tessaline._device")
    _loaded = (virtual, module)
    # A child must not share pages with the driver: it would see them change.
    os.register_at_fork(before=lambda: _detach(module))
    return module


def _detach(module: ModuleType) -> None:
    module.strips().detach()
    module.images().detach()


def _virtual() -> ModuleType:
    flags = sys.getdlopenflags()
    if not _board_is_preloaded():
        sys.setdlopenflags(os.RTLD_NOW | os.RTLD_LOCAL | os.RTLD_DEEPBIND)
    try:
        return importlib.import_module("tessaline._virtual")
    except ImportError as error:
        if _BOARD not in str(error):
            raise
        raise StartUpError(
            f"there is no virtual board: {error}", "install the package tessaline-board"
        ) from None
    finally:
        sys.setdlopenflags(flags)
