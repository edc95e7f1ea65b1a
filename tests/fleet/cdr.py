"""Decodes messages in CDR, little-endian, by the definitions that a recording has of them."""

from __future__ import annotations

import struct

NUMBERS = {"bool": "?", "int8": "b", "uint8": "B", "int16": "h", "uint16": "H", "int32": "i",
           "uint32": "I", "int64": "q", "uint64": "Q", "float32": "f", "float64": "d"}
HEAD = b"\x00\x01\x00\x00"  # plain CDR, little-endian


def fields_of(definition: str) -> list[tuple[str, str]]:
    """Types and names of a message's own fields. Those of the types within it stand behind."""
    fields = []
    for line in definition.split("=" * 80)[0].splitlines():
        words = line.split("#")[0].split()
        if words:
            fields.append((words[0], words[1]))
    return fields


class Decoder:
    def __init__(self, definition: str):
        self._fields = fields_of(definition)

    def decode(self, cdr: bytes) -> dict:
        if cdr[:4] != HEAD:
            raise ValueError(f"no CDR message: {cdr[:4]!r}")
        cursor = _Cursor(memoryview(cdr)[4:])
        return {name: cursor.take(kind) for kind, name in self._fields}


class _Cursor:
    def __init__(self, data: memoryview):
        self._data = data
        self._at = 0

    def take(self, kind: str):
        if kind in NUMBERS:
            return self._number(NUMBERS[kind])
        if kind == "builtin_interfaces/Time":
            return self._number("i") * 1_000_000_000 + self._number("I")
        if kind == "string":
            return bytes(self._bytes()[:-1]).decode()
        if kind == "uint8[]":
            return self._bytes()
        raise ValueError(f"no type of ours: {kind}")

    def _number(self, code: str):
        size = struct.calcsize(code)
        self._at += -self._at % size
        (value,) = struct.unpack_from("<" + code, self._data, self._at)
        self._at += size
        return value

    def _bytes(self) -> memoryview:
        length = self._number("I")
        if self._at + length > len(self._data):
            raise ValueError("longer than the message")
        taken = self._data[self._at:self._at + length]
        self._at += length
        return taken
