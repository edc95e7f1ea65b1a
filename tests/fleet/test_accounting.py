"""The accounting finds what is wrong, in made-up logs and recordings."""

from __future__ import annotations

import json
import sqlite3
import struct
import zlib
from pathlib import Path

import accounting
import pytest
import truth_log
from accounting import Stored, account_sensor
from recording import Frame, Missing, Note

LOG = "/logs/line1.left.1.truth"


def crc(number: int) -> int:
    return number * 7 + 1


def truth(*deliveries, path=LOG):
    """An application that was handed these strips, one list a delivery."""
    ids = [number for delivery in deliveries for number in delivery]
    return truth_log.Truth(path, {"strips": {number: crc(number) for number in ids}, "images": {}},
                           {"strips": max(map(len, deliveries), default=0)}, 0)


def begin(run="a", path=LOG):
    return [Note({"run": run}), Note({"model": "K3610", "program": f"./truth {path} --images"})]


def strips(*ids):
    return [Frame("strips", number, crc(number)) for number in ids]


def gap(first, last, count=None, run="a", reason="store"):
    return Missing("strips", reason, run, first, last,
                   (last - first + 1 if last else 0) if count is None else count)


def account(*found, truths=None, killed=None):
    stored = Stored()
    for each in found:
        stored.take(each)
    return account_sensor(stored, [truth([1, 2, 3], [4, 5, 6])] if truths is None else truths,
                          killed)


def only(result, **wanted):
    """Nothing but these counts and those that are always there."""
    usual = {"truth": 6, "delivered": 6} | wanted
    assert {name: value for name, value in vars(result).items() if value} == usual


def test_all_stored():
    result = account(*begin(), *strips(1, 2, 3, 4, 5, 6))
    only(result)
    assert result.faults() == 0


def test_a_hole():
    result = account(*begin(), *strips(1, 2, 4, 5, 6))
    only(result, delivered=5, unaccounted=1)
    assert result.faults() == 1


def test_nothing_stored():
    result = account(truths=[truth([1, 2, 3])])
    assert (result.truth, result.delivered, result.unaccounted) == (3, 0, 3)


def test_a_duplicate():
    result = account(*begin(), *strips(1, 2, 3, 3, 4, 5, 6))
    only(result, duplicates=1)
    assert result.faults() == 1


def test_disorder():
    result = account(*begin(), *strips(1, 3, 2, 4, 5, 6))
    only(result, disordered=1)
    assert result.faults() == 1


def test_changed_bytes():
    result = account(*begin(), *strips(1, 2, 3, 4, 5), Frame("strips", 6, 0))
    only(result, changed=1)
    assert result.faults() == 1


def test_a_frame_that_nobody_was_handed():
    result = account(*begin(), *strips(1, 2, 3, 4, 5, 6, 10))
    only(result, delivered=7, invented=1, unaccounted=3)


def test_a_delivery_that_the_application_could_not_note():
    result = account(*begin(), *strips(1, 2, 3, 4, 5, 6, 7, 8, 9))
    only(result, delivered=9, unwitnessed=3)
    assert result.faults() == 0


def test_a_hole_that_is_named():
    result = account(*begin(), *strips(1, 2, 5, 6), gap(3, 4))
    only(result, delivered=4, named=2)
    assert result.faults() == 0


def test_a_gap_of_another_run_names_nothing():
    result = account(*begin(), *strips(1, 2, 5, 6), *begin("b", "/logs/line1.left.2.truth"),
                     gap(3, 4, run="b"),
                     truths=[truth([1, 2, 3], [4, 5, 6]),
                             truth(path="/logs/line1.left.2.truth")])
    assert result.unaccounted == 2


def test_a_gap_that_names_fewer_than_are_missing():
    result = account(*begin(), *strips(1, 5, 6), gap(2, 4, count=2))
    only(result, delivered=3, named=2, unaccounted=1)


def test_a_gap_that_names_what_is_there():
    result = account(*begin(), *strips(1, 2, 3, 4, 5, 6), gap(3, 4))
    only(result, both=2)
    assert result.faults() == 2


def test_what_the_device_lost_was_never_handed_over():
    result = account(*begin(), *strips(1, 2, 5, 6), gap(3, 4, reason="device"),
                     truths=[truth([1, 2, 5, 6])])
    assert result.faults() == 0


def test_what_the_application_had_was_not_lost_by_the_device():
    result = account(*begin(), *strips(1, 2, 5, 6), gap(3, 4, reason="device"))
    only(result, delivered=4, unaccounted=2)


@pytest.mark.parametrize("reason", [None, "device", "memory"])
def test_ids_that_nobody_had_are_named_too(reason):
    named = [gap(3, 4, reason=reason)] if reason else []
    result = account(*begin(), *strips(1, 2, 5, 6), *named, truths=[truth([1, 2, 5, 6])])
    assert result.unaccounted == (0 if reason else 2)


def test_what_only_the_subscriber_misses_is_not_named():
    result = account(*begin(), *strips(1, 2, 5, 6), gap(3, 4, reason="unknown"))
    only(result, delivered=4, unaccounted=2, unexplained=1)


def test_a_gap_to_the_end_of_a_run():
    result = account(*begin(), *strips(1, 2, 3), gap(4, None, reason="publisher"))
    only(result, delivered=3, open_ended=3)
    assert result.faults() == 0


def test_a_gap_to_the_end_in_front_of_others():
    result = account(*begin(), *strips(1, 2, 3, 6), gap(4, None, reason="publisher"))
    only(result, delivered=4, both=1, unaccounted=2)


def test_only_who_was_killed_has_a_gap_to_the_end():
    found = [*begin(), *strips(1, 2, 3), gap(4, None, reason="publisher")]
    only(account(*found, killed={Path(LOG)}), delivered=3, open_ended=3)
    only(account(*found, killed=set()), delivered=3, both=1, unaccounted=3)


def test_a_hole_in_front_of_a_gap_to_the_end():
    result = account(*begin(), *strips(1, 3), gap(4, None, reason="publisher"))
    only(result, delivered=2, open_ended=3, unaccounted=1)


def test_ids_that_start_again_are_another_run():
    second = "/logs/line1.left.2.truth"
    result = account(*begin(), *strips(1, 2, 3, 4, 5, 6), *begin("b", second), *strips(1, 2),
                     truths=[truth([1, 2, 3], [4, 5, 6]), truth([1, 2], path=second)])
    only(result, truth=8, delivered=8)


def test_a_run_of_which_only_a_gap_is_known_has_the_log_that_is_left():
    second = "/logs/line1.left.2.truth"
    truths = [truth([1, 2]), truth([1, 2], path=second)]
    found = [gap(1, None, run="a", reason="publisher"), *begin("b", second), *strips(1, 2)]
    result = account(*found, truths=truths)
    assert (result.open_ended, result.unaccounted) == (2, 0)
    # With two logs left it is not clear which; nothing is excused then.
    third = truth([1, 2], path="/logs/line1.left.3.truth")
    assert account(*found, truths=[*truths, third]).unaccounted == 4


def test_a_frame_without_a_run_is_an_error():
    with pytest.raises(ValueError, match="in front of the note"):
        account(*strips(1))


def test_a_torn_end_of_a_log_is_left_out(tmp_path):
    path = tmp_path / "line1.left.1.truth"
    whole = struct.pack("<4sIQQ", b"BORN", 1, 4711, 0) + struct.pack("<4sIQQ", b"STRP", 1, 1, 9)
    path.write_bytes(whole + struct.pack("<4sIQQ", b"STRP", 2, 2, 9))
    log = truth_log.read(path)
    assert (log.process, log.frames["strips"]) == (4711, {1: 9})


def test_disorder_in_front_of_the_publisher_is_not_its_fault(tmp_path):
    path = tmp_path / "line1.left.1.truth"
    path.write_bytes(struct.pack("<4sIQQQQ", b"STRP", 2, 2, 9, 1, 9))
    assert truth_log.read(path).disordered == 1


# --- A recording as a subscriber writes it.

STRIPS = """# One strip buffer, as the driver delivered it.
builtin_interfaces/Time stamp  # when the handler got it, host clock
uint32 strips                  # in data, one behind the other
uint8 point_bytes              # of a point: 8, 4 or 2
uint8[] data                   # the bytes in use, headers included
""" + "=" * 80 + "\nMSG: builtin_interfaces/Time\nint32 sec\nuint32 nanosec\n"
DEVICE = "builtin_interfaces/Time stamp\nstring json\n"
GAP = """builtin_interfaces/Time stamp
string reason
string run
bool end_known
uint64 strips_first
uint64 strips_last
uint64 strips_count
uint64 images_first
uint64 images_last
uint64 images_count
uint64 others
"""
HEAD = b"\x00\x01\x00\x00" + struct.pack("<iI", 5, 6)


def text(value: str) -> bytes:
    return struct.pack("<I", len(value) + 1) + value.encode() + b"\0"


def padded(data: bytes, size: int) -> bytes:
    return data + b"\0" * (-(len(data) - 4) % size)


@pytest.fixture(name="recording")
def _recording(tmp_path):
    path = tmp_path / "all.db3"
    database = sqlite3.connect(path)
    database.executescript("""
        CREATE TABLE topics(id INTEGER PRIMARY KEY, name TEXT, type TEXT);
        CREATE TABLE message_definitions(topic_type TEXT, encoded_message_definition TEXT);
        CREATE TABLE messages(id INTEGER PRIMARY KEY, topic_id INTEGER, timestamp INTEGER,
                              data BLOB);""")
    for number, (name, kind, definition) in enumerate([
            ("strips", "Strips", STRIPS), ("device", "Device", DEVICE), ("gaps", "Gap", GAP)], 1):
        kind = f"tessaline_msgs/msg/{kind}"
        database.execute("INSERT INTO topics VALUES (?, ?, ?)",
                         (number, f"/line1/left/tessaline/{name}", kind))
        database.execute("INSERT INTO message_definitions VALUES (?, ?)", (kind, definition))

    def put(topic, data):
        database.execute("INSERT INTO messages(topic_id, timestamp, data) VALUES (?, 0, ?)",
                         (topic, data))
        database.commit()

    yield path, put
    database.close()


def strip(number: int) -> bytes:
    return struct.pack("<QQQQ", number, 0, 0, 2) + bytes([number] * 16)


def test_a_file_is_read(recording, tmp_path):
    path, put = recording
    log = tmp_path / "line1.left.1.truth"
    put(2, HEAD + text(json.dumps({"run": "a"})))
    put(2, HEAD + text(json.dumps({"program": f"truth {log}"})))
    data = strip(1) + strip(2)
    put(1, padded(HEAD + struct.pack("<IB", 2, 8), 4) + struct.pack("<I", len(data)) + data)
    named = padded(HEAD + text("store"), 4) + text("a") + b"\x01"
    put(3, padded(named, 8) + struct.pack("<7Q", 3, 3, 1, 0, 0, 0, 0))
    entries = b"".join(struct.pack("<QQ", number, zlib.crc32(strip(number)))
                       for number in (1, 2, 3, 4))
    log.write_bytes(struct.pack("<4sI", b"STRP", 4) + entries)

    result = accounting.account([path], {"line1.left": [log]})
    assert list(result) == ["line1.left"]
    only(result["line1.left"], truth=4, delivered=2, named=1, unaccounted=1)
    assert accounting.main([str(path), str(log)]) == 1
