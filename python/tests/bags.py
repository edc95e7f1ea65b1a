"""Recordings for tests, made and looked at without the package."""

from __future__ import annotations

import pathlib
import sqlite3
import struct
from typing import Any

# As the recorder makes them, in the order of the file.
TOPICS = (
    ("/tessaline/strips", "tessaline_msgs/msg/Strips"),
    ("/tessaline/images", "tessaline_msgs/msg/Image"),
    ("/tessaline/registers", "tessaline_msgs/msg/Register"),
    ("/tessaline/events", "tessaline_msgs/msg/Event"),
    ("/tessaline/losses", "tessaline_msgs/msg/Losses"),
    ("/tessaline/clock", "tessaline_msgs/msg/Clock"),
    ("/rosout", "rcl_interfaces/msg/Log"),
    ("/tessaline/device", "tessaline_msgs/msg/Device"),
    ("/tessaline/points", "sensor_msgs/msg/PointCloud2"),
    ("/tessaline/picture", "sensor_msgs/msg/Image"),
    ("/tessaline/gaps", "tessaline_msgs/msg/Gap"),
)
NUMBER = {name.rpartition("/")[2]: i for i, (name, _) in enumerate(TOPICS, 1)}
NUMBER["log"] = NUMBER.pop("rosout")
NUMBER["pictures"] = NUMBER.pop("picture")

SCHEMA = """
CREATE TABLE schema(schema_version INTEGER PRIMARY KEY, ros_distro TEXT NOT NULL);
CREATE TABLE metadata(id INTEGER PRIMARY KEY, metadata_version INTEGER NOT NULL,
  metadata TEXT NOT NULL);
CREATE TABLE topics(id INTEGER PRIMARY KEY, name TEXT NOT NULL, type TEXT NOT NULL,
  serialization_format TEXT NOT NULL, offered_qos_profiles TEXT NOT NULL,
  type_description_hash TEXT NOT NULL);
CREATE TABLE messages(id INTEGER PRIMARY KEY, topic_id INTEGER NOT NULL,
  timestamp INTEGER NOT NULL, data BLOB NOT NULL);
CREATE INDEX timestamp_idx ON messages (timestamp ASC);
CREATE TABLE tessaline(key TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;
INSERT INTO tessaline VALUES('version', '1'), ('closed', 'yes'), ('synced_ns', '0');
"""

S = 1_000_000_000


def cdr(kind: str, stamp_ns: int, *fields: Any, order: str = "<") -> bytes:
    """A message in CDR: each number at a multiple of its size, counted behind the first 4 bytes."""
    sizes = {
        "strips": "IBd", "images": "IId", "registers": "QI", "events": "sQ", "losses": "QQQ",
        "clock": "QI", "log": "BssssI", "device": "s",
        "points": "sIIaBIIdB", "pictures": "sIIsBId", "gaps": "ssBQQQQQQQ",
    }
    out = bytearray()

    def put(form: str, value: int) -> None:
        out.extend(bytes(-len(out) % struct.calcsize(form)))
        out.extend(struct.pack(order + form, value))

    put("i", stamp_ns // S)
    put("I", stamp_ns % S)
    for form, value in zip(sizes[kind], fields, strict=True):
        if form == "a":  # fields of points
            put("I", len(value))
            for name, offset, datatype, count in value:
                text = name.encode() + b"\0"
                put("I", len(text))
                out.extend(text)
                put("I", offset)
                put("B", datatype)
                put("I", count)
        elif form in "sd":
            content = value.encode() + b"\0" if isinstance(value, str) else bytes(value)
            put("I", len(content))
            out.extend(content)
        else:
            put(form, value)
    return bytes([0, order == "<", 0, 0]) + bytes(out)


def make(path: pathlib.Path, rows: list[tuple[str, int, bytes]], sql: str = "") -> pathlib.Path:
    """A recording of messages (kind, stamp, CDR), and what else is to be done to it."""
    database = sqlite3.connect(path)
    database.executescript("PRAGMA page_size = 65536;" + SCHEMA)
    for number, (name, kind) in enumerate(TOPICS, 1):
        database.execute("INSERT INTO topics VALUES(?, ?, ?, 'cdr', '', '')", (number, name, kind))
    database.executemany(
        "INSERT INTO messages(topic_id, timestamp, data) VALUES(?, ?, ?)",
        [(NUMBER[kind], stamp, data) for kind, stamp, data in rows],
    )
    database.executescript(sql)
    database.commit()
    database.close()
    return path


def make_fleet(
    path: pathlib.Path, sensors: dict[str, list[tuple[str, int, bytes]]]
) -> pathlib.Path:
    """A file of several sensors: of each, topics of its own, and its messages."""
    make(path, [], "DELETE FROM topics; UPDATE tessaline SET value = '2' WHERE key = 'version';")
    database = sqlite3.connect(path)
    for count, (sensor, messages) in enumerate(sensors.items()):
        first = count * len(TOPICS)
        prefix = "/" + sensor.replace(".", "/")
        database.executemany(
            "INSERT INTO topics VALUES(?, ?, ?, 'cdr', '', '')",
            [(first + i, prefix + name, kind) for i, (name, kind) in enumerate(TOPICS, 1)],
        )
        database.executemany(
            "INSERT INTO messages(topic_id, timestamp, data) VALUES(?, ?, ?)",
            [(first + NUMBER[kind], stamp, data) for kind, stamp, data in messages],
        )
    database.commit()
    database.close()
    return path


def rows(path: pathlib.Path) -> list[tuple[int, int, bytes]]:
    """Topic, stamp and bytes of all messages of a file."""
    database = sqlite3.connect(f"file:{path}?mode=ro", uri=True)
    assert database.execute("PRAGMA integrity_check").fetchall() == [("ok",)]
    found = list(database.execute("SELECT topic_id, timestamp, data FROM messages ORDER BY id"))
    database.close()
    return found
