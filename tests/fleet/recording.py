"""What a subscriber has stored, in the order in which it did."""

from __future__ import annotations

import dataclasses
import json
import sqlite3
import struct
import zlib
from collections.abc import Iterator
from pathlib import Path

from cdr import Decoder

STRIP_HEAD = struct.Struct("<QQQQ")  # frame id, time stamp, encoder stamp, points
IMAGE_HEAD = struct.Struct("<QQQQ")  # frame id, time stamp, encoder stamp, nothing


@dataclasses.dataclass(frozen=True)
class Frame:
    kind: str  # "strips" or "images"
    id: int
    crc: int   # of all its bytes


@dataclasses.dataclass(frozen=True)
class Note:
    facts: dict


@dataclasses.dataclass(frozen=True)
class Missing:
    """Frames of one kind that are named as lost."""
    kind: str
    reason: str
    run: str
    first: int
    last: int | None  # none: to the end of the run
    count: int


def strips_in(message: dict) -> Iterator[Frame]:
    data = message["data"]
    at = 0
    for _ in range(message["strips"]):
        frame_id, _, _, points = STRIP_HEAD.unpack_from(data, at)
        end = at + STRIP_HEAD.size + points * message["point_bytes"]
        yield Frame("strips", frame_id, zlib.crc32(data[at:end]))
        at = end
    if at != len(data):
        raise ValueError(f"{len(data) - at} bytes behind the last strip")


def image_in(message: dict) -> Iterator[Frame]:
    data = message["data"]
    head = IMAGE_HEAD.unpack_from(data, message["width"] * message["height"])
    yield Frame("images", head[0], zlib.crc32(data))


def missing_in(message: dict) -> Iterator[Missing]:
    known = message["end_known"]
    for kind in ("strips", "images"):
        first, last, count = (message[f"{kind}_{what}"] for what in ("first", "last", "count"))
        if count if known else first:
            yield Missing(kind, message["reason"], message["run"], first,
                          last if known else None, count)


READERS = {
    "tessaline_msgs/msg/Strips": strips_in,
    "tessaline_msgs/msg/Image": image_in,
    "tessaline_msgs/msg/Gap": missing_in,
    "tessaline_msgs/msg/Device": lambda message: iter([Note(json.loads(message["json"]))]),
}


def sensor_of(topic: str) -> str:
    """/line3/left/tessaline/strips is of line3.left."""
    return ".".join(topic.strip("/").split("/")[:-2])


def read(path: Path, readers: dict = READERS) -> Iterator[tuple[str, Frame | Note | Missing]]:
    """Sensors, and what was stored of them."""
    database = sqlite3.connect(f"{path.absolute().as_uri()}?mode=ro", uri=True)
    try:
        definitions = dict(database.execute(
            "SELECT topic_type, encoded_message_definition FROM message_definitions"))
        topics = {
            number: (sensor_of(name), readers[kind], Decoder(definitions[kind]))
            for number, name, kind in database.execute("SELECT id, name, type FROM topics")
            if kind in readers
        }
        wanted = ",".join(map(str, topics)) or "NULL"
        for topic, data in database.execute(
                f"SELECT topic_id, data FROM messages WHERE topic_id IN ({wanted}) ORDER BY id"):
            sensor, reader, decoder = topics[topic]
            for found in reader(decoder.decode(data)):
                yield sensor, found
    finally:
        database.close()
