"""The configuration store: 512 bytes in a serial EEPROM on the board."""

from __future__ import annotations

import time
from typing import Any

from .._calls import number
from ..errors import RefusedError
from ._group import UNCHANGED, Group

SIZE = 512
PAGE_BYTES = 16
_HALF = 256
_FIRST_CHIP = 0x50
_PAUSE = 0.010  # seconds that the EEPROM needs to store a page


def _bytes(data: Any) -> bytes:
    if isinstance(data, (str, int)):
        raise TypeError(f"data must be bytes, not {type(data).__name__} ({data!r})")
    return bytes(memoryview(data).cast("B"))


class Store(Group):
    """512 bytes that survive power-down. Only the application knows what they mean.

    There is no checksum, and nothing is read back after writing. Device: EEPROM, /dev/i2c-0.
    Threads: one; nothing else may talk to the EEPROM meanwhile.

    Example:
        >>> sensor.store.write(b"serial 4711", offset=256)
        >>> sensor.store.read(256, 11)
        b'serial 4711'
    """

    def read(self, offset: int = 0, size: int | None = None) -> bytes:
        """Reads bytes.

        Args:
            offset: first byte, 0 to 512.
            size: how many; not given: up to the end.

        Takes 10 ms for each 16 bytes when it starts at byte 0 (the library pauses between pages).

        Raises:
            RefusedError: outside the store, or the EEPROM does not answer.
        """
        start = number("offset", offset, 0, SIZE)
        wanted = SIZE - start if size is None else number("size", size, 0, SIZE - start, "bytes")
        if start == 0 and wanted > 0:
            result, read = self._calls.raw("ConfigRead", wanted)
            if result != 0:
                raise self._calls.refused("ConfigRead", (wanted,))
            return bytes(read)
        return b"".join(
            self._read_piece(at, length) for at, length in self._pieces(start, wanted)
        )

    def write(self, data: Any, offset: int = 0) -> None:
        """Writes bytes; the rest of the store stays as it is.

        Args:
            data: bytes, or what has a buffer: bytearray, a NumPy array.
            offset: where the first one goes, 0 to 511.

        Takes 10 ms for each page of 16 bytes.

        Raises:
            RefusedError: they do not fit (nothing is written), or the EEPROM does not answer (the
                pages before stay written).
        """
        start = number("offset", offset, 0, SIZE)
        content = _bytes(data)
        if len(content) > SIZE - start:
            raise RefusedError(
                f"{len(content)} bytes from byte {start} on do not fit into {SIZE}", UNCHANGED
            )
        if not content:
            return
        if start == 0:
            if self._calls.raw("ConfigSave", content) != 0:
                raise self._calls.refused("ConfigSave", (f"{len(content)} bytes",))
            return
        for at, length in self._pieces(start, len(content)):
            first = at - start
            self._write_piece(at, content[first : first + length])

    def read_page(self, page: int) -> bytes:
        """The 16 bytes of a page, 0 to 31."""
        return self._read_piece(number("page", page, 0, SIZE // PAGE_BYTES - 1) * PAGE_BYTES, 16)

    def write_page(self, page: int, data: Any) -> None:
        """Writes 1 to 16 bytes from the start of a page, 0 to 31, and waits 10 ms."""
        at = number("page", page, 0, SIZE // PAGE_BYTES - 1) * PAGE_BYTES
        content = _bytes(data)
        if not 1 <= len(content) <= PAGE_BYTES:
            raise RefusedError(f"a page takes 1 to 16 bytes, not {len(content)}", UNCHANGED)
        self._write_piece(at, content)

    @staticmethod
    def _pieces(start: int, size: int) -> list[tuple[int, int]]:
        """Place and length of the pages' parts."""
        pieces = []
        end = start + size
        while start < end:
            length = min(end, (start // PAGE_BYTES + 1) * PAGE_BYTES) - start
            pieces.append((start, length))
            start += length
        return pieces

    def _read_piece(self, at: int, length: int) -> bytes:
        chip = _FIRST_CHIP + at // _HALF
        result, read = self._calls.raw("eeprom_page_read", at % _HALF, length, chip)
        if result != length:
            raise self._calls.refused("eeprom_page_read", (at % _HALF, length, chip))
        return bytes(read)

    def _write_piece(self, at: int, content: bytes) -> None:
        chip = _FIRST_CHIP + at // _HALF
        if self._calls.raw("eeprom_page_write", at % _HALF, content, chip) != 0:
            raise self._calls.refused(
                "eeprom_page_write", (at % _HALF, f"{len(content)} bytes", chip)
            )
        time.sleep(_PAUSE)
