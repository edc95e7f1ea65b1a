"""What an application was handed: the log that truth.cpp writes."""

from __future__ import annotations

import dataclasses
import struct
from pathlib import Path

HEAD = struct.Struct("<4sI")   # what, and how many entries follow
ENTRY = struct.Struct("<QQ")   # frame id and check sum; of the start: process and host clock
KINDS = {b"STRP": "strips", b"IMAG": "images"}


@dataclasses.dataclass
class Truth:
    path: str
    frames: dict[str, dict[int, int]]  # by kind: check sums by id
    largest_delivery: dict[str, int]      # by kind: frames in one
    disordered: int                    # frames that came twice, or before others
    process: int = 0


def read(path: Path) -> Truth:
    """A last entry that was being written when the application was killed is left out."""
    truth = Truth(str(path), {kind: {} for kind in KINDS.values()}, {}, 0)
    newest = dict.fromkeys(KINDS.values(), 0)
    for what, entries in _records(path.read_bytes()):
        if what == b"BORN":
            truth.process = entries[0][0]
            continue
        kind = KINDS[what]
        truth.largest_delivery[kind] = max(truth.largest_delivery.get(kind, 0), len(entries))
        for number, crc in entries:
            truth.disordered += number <= newest[kind]
            newest[kind] = number
            truth.frames[kind][number] = crc
    return truth


def _records(data: bytes):
    at = 0
    while at + HEAD.size <= len(data):
        what, count = HEAD.unpack_from(data, at)
        at += HEAD.size
        if at + count * ENTRY.size > len(data):
            return
        yield what, list(ENTRY.iter_unpack(data[at:at + count * ENTRY.size]))
        at += count * ENTRY.size
