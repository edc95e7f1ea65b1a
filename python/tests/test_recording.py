"""Recordings, read and written. What is right, sqlite3 and struct say (bags.py)."""

from __future__ import annotations

import dataclasses
import os
import pathlib
import pickle
import sqlite3
import subprocess
import sys
import threading
import time
from typing import Any

import bags
import numpy as np
import pytest
import recorded
import tessaline
from bags import S, cdr
from tessaline import Recording
from tessaline.recorded import KINDS

STRIPS = recorded.series(3)
PIXELS = np.arange(6 * 8, dtype=np.uint8).reshape(6, 8)
IMAGE = PIXELS.tobytes() + np.array([5, 600, 70, 0], "<u8").tobytes()
HEAD = '{"model": "K3710", "firmware": {"fpga": "2.1"}}'
T = 1_700_000_000 * S

# One of each kind, a second apart, with what the package says of it.
EACH: list[tuple[str, tuple[Any, ...]]] = [
    ("device", (HEAD,)),
    ("clock", (2**63 + 1, 900)),
    ("registers", (0x43C0_0004, 0xFFFF_FFFE)),
    ("strips", (3, 8, STRIPS)),
    ("images", (8, 6, IMAGE)),
    ("events", ("external_trigger", 1)),
    ("losses", (1, 2, 2**64 - 1)),
    ("log", (30, "app", "\N{MICRO SIGN}m, \n done", "a.cpp", "main", 77)),
    ("device", ('{"firmware": "newer", "gain": 3}',)),
]
ROWS = [(kind, T + i * S, cdr(kind, T + i * S, *fields)) for i, (kind, fields) in enumerate(EACH)]

MADE: dict[str, Any] = {
    "registers": tessaline.RecordedRegister,
    "events": tessaline.RecordedEvent,
    "losses": tessaline.RecordedLosses,
    "clock": tessaline.RecordedClock,
    "log": tessaline.RecordedLog,
    "device": tessaline.RecordedDevice,
}


@pytest.fixture
def run(tmp_path: pathlib.Path) -> pathlib.Path:
    return bags.make(tmp_path / "run.db3", ROWS)


def test_every_field_of_every_kind_is_read(run: pathlib.Path) -> None:
    with Recording(run) as recording:
        device, clock, register, strips, image, event, losses, log, _ = recording
        assert device == tessaline.RecordedDevice(T, HEAD)
        assert clock == tessaline.RecordedClock(T + S, 2**63 + 1, 900)
        assert register == tessaline.RecordedRegister(T + 2 * S, 0x43C0_0004, 0xFFFF_FFFE)
        assert event == tessaline.RecordedEvent(T + 5 * S, "external_trigger", 1)
        assert losses == tessaline.RecordedLosses(T + 6 * S, 1, 2, 2**64 - 1)
        assert log == tessaline.RecordedLog(
            T + 7 * S, 30, "app", "\N{MICRO SIGN}m, \n done", "a.cpp", "main", 77
        )
        assert isinstance(strips, tessaline.StripBuffer) and isinstance(image, tessaline.Image)
        assert (strips.stamp_ns, strips.strip_count, len(strips)) == (T + 3 * S, 3, 3)
        assert strips.raw.tobytes() == STRIPS and image.raw.tobytes() == IMAGE
        assert (image.stamp_ns, image.frame_id) == (T + 4 * S, 5)
        assert (image.time_stamp, image.encoder_stamp) == (600, 70)


def test_what_is_said_about_the_whole(run: pathlib.Path) -> None:
    with Recording(run) as recording:
        assert recording.model == "K3710"
        assert recording.device == {"model": "K3710", "firmware": "newer", "gain": 3}
        assert recording.counts == {
            **dict.fromkeys(KINDS, 1), "device": 2, "points": 0, "pictures": 0, "gaps": 0
        }
        assert (recording.start_ns, recording.start) == (T, T / S)
        assert (recording.end, recording.duration) == (T / S + 8, 8)
        assert recording.closed and recording.synced is None
        assert recording.path == str(run)
        assert repr(recording) == "<Recording 'run.db3', 8.000 s>"
        assert [recording.seconds_of(message) for message in recording] == list(range(9))


def test_arrays_are_those_of_a_live_buffer(run: pathlib.Path) -> None:
    buffer = next(Recording(run).strips())
    profiles = tessaline.Profiles.from_strips(
        [buffer], point_bytes=8, geometry=tessaline.Geometry(1456, 1088)
    )
    for i, strip in enumerate(buffer):
        points = strip.points
        assert points.dtype == tessaline.POINT_TYPES[8] and points.flags.aligned
        assert not points.flags.writeable and not points.flags.owndata
        with pytest.raises(ValueError, match="read-only|WRITEABLE"):
            points["row"][0] = 1
        with pytest.raises(ValueError, match="WRITEABLE"):
            points.setflags(write=True)
        assert (strip.frame_id, strip.time_stamp) == (i + 1, 1000 + i * 200_000)
        np.testing.assert_array_equal(profiles[i].row, strip.rows.astype("f4"))
    assert np.shares_memory(buffer[0].points, buffer.raw)  # one bytes object, and no copy of it
    image = next(Recording(run).images())
    np.testing.assert_array_equal(image.pixels, PIXELS)
    assert not image.pixels.flags.writeable and np.shares_memory(image.pixels, image.raw)


def test_points_of_every_size(tmp_path: pathlib.Path) -> None:
    for size in (8, 4, 2):
        data = recorded.series(2, size)
        path = bags.make(tmp_path / f"{size}.db3", [("strips", T, cdr("strips", T, 2, size, data))])
        (buffer,) = Recording(path).strips()
        assert buffer.point_bytes == size and buffer[1].points.tobytes() == data[-1455 * size :]


def test_messages_stay_when_the_recording_is_closed(run: pathlib.Path) -> None:
    with Recording(run) as recording:
        messages = list(recording)
        loop = recording.strips()
    for use in (loop.__next__, recording.strips, lambda: recording.counts, lambda: recording.model):
        with pytest.raises(tessaline.RecordingError, match="is closed; open it anew"):
            use()
    assert messages[3][1].frame_id == 2
    for message in messages:
        again = pickle.loads(pickle.dumps(message))
        assert type(again) is type(message) and again._cdr == message._cdr
        assert again.stamp_ns == message.stamp_ns
    assert messages[3].copy() is messages[3] and not messages[3].zero_copy


def test_kinds_and_times(run: pathlib.Path) -> None:
    recording = Recording(run)

    def at(**span: float) -> list[float]:
        return [recording.seconds_of(message) for message in recording.messages(**span)]

    assert at(start=3) == [3, 4, 5, 6, 7, 8] and at(end=3) == [0, 1, 2]
    assert at(start=2.5, end=4.000000001) == [3, 4] and at(start=4, end=4) == []
    assert at(start=-1e300, end=1e300) == list(range(9)) and at(start=9) == []
    for kind in KINDS:
        loop = getattr(recording, "device" if kind == "device" else kind)
        if kind in ("points", "pictures", "gaps"):
            assert list(loop()) == []
        elif kind != "device":
            (message,) = loop()
            assert list(loop(start=recording.seconds_of(message) + 1e-9)) == []
            assert len(list(loop(start=recording.seconds_of(message), end=8))) == 1
    both = recording.messages("log", "strips", start=1)
    assert [type(message).__name__ for message in both] == ["RecordedStrips", "RecordedLog"]
    with pytest.raises(ValueError, match="there is no kind 'stripes', but strips, images"):
        recording.messages("stripes")  # type: ignore[arg-type]
    with pytest.raises(tessaline.RefusedError, match="start is nan"):
        recording.strips(start=float("nan"))
    with pytest.raises(TypeError):
        recording.strips(end="4")  # type: ignore[arg-type]


def test_order_is_that_of_arrival_and_not_of_stamps(tmp_path: pathlib.Path) -> None:
    stamps = [T, T + 5 * S, T + 2 * S, T - S, T + 3 * S]
    path = bags.make(tmp_path / "a.db3", [("events", t, cdr("events", t, "e", 0)) for t in stamps])
    with Recording(path) as recording:
        assert [event.stamp_ns for event in recording.events()] == stamps
        assert (recording.start_ns, recording.duration) == (T - S, 6)
        between = [event.stamp_ns for event in recording.events(start=3, end=5)]
        assert between == [stamps[2], stamps[4]]


def test_loops_do_not_disturb_each_other(run: pathlib.Path) -> None:
    recording = Recording(run)
    first, second = iter(recording), iter(recording)
    next(first), next(first)
    assert next(second).stamp_ns == T and next(first).stamp_ns == T + 2 * S
    assert len(list(recording.log())) == 1 and len(list(second)) == 8
    assert list(second) == []  # ended is ended


def test_a_loop_of_several_threads_gives_each_message_once(tmp_path: pathlib.Path) -> None:
    made = [("events", T + i, cdr("events", T + i, "e", i)) for i in range(20_000)]
    recording = Recording(bags.make(tmp_path / "many.db3", made))
    loop, seen = recording.events(), [[] for _ in range(4)]  # type: ignore[var-annotated]
    threads = [
        threading.Thread(target=lambda to=to: to.extend(e.value for e in loop)) for to in seen
    ]
    for thread in threads:
        thread.start()
    alone = [event.value for event in recording.events()]
    for thread in threads:
        thread.join()
    assert sorted(sum(seen, [])) == list(range(20_000)) == alone


# --- Writing ---------------------------------------------------------------------------------


def test_what_is_written_is_right_in_every_byte(tmp_path: pathlib.Path) -> None:
    path = tmp_path / "new.db3"
    with Recording.create(path) as writer:
        for kind, stamp, data in ROWS:
            # Made from its fields, and not copied.
            fields = tessaline.recorded._recordings.decode(bags.NUMBER[kind] - 1, data)
            if kind == "strips":
                writer.write_strips(memoryview(STRIPS), 3, 8, stamp_ns=stamp)
            elif kind == "images":
                writer.write_image(
                    PIXELS, frame_id=5, time_stamp=600, encoder_stamp=70, stamp_ns=stamp
                )
            else:
                writer.write(MADE[kind](stamp, *fields))
        assert not writer.closed
    assert writer.closed
    assert bags.rows(path) == [(bags.NUMBER[kind], stamp, data) for kind, stamp, data in ROWS]
    assert os.listdir(tmp_path) == ["new.db3"]
    database = sqlite3.connect(path)
    assert tuple(database.execute("SELECT name, type FROM topics ORDER BY id")) == bags.TOPICS
    keys = dict(database.execute("SELECT key, value FROM tessaline"))
    assert keys == {"version": "1", "closed": "yes", "synced_ns": str(T + 8 * S)}


def test_a_copy_is_the_same_in_every_byte(tmp_path: pathlib.Path) -> None:
    odd = [
        ("strips", T + 1, cdr("strips", T, 3, 8, STRIPS, order=">")),  # of another machine
        ("events", T - 5, cdr("events", 7, "e", 1) + b"what is this?"),
        ("log", T, cdr("log", T, 10, "app", b"\xff\xfe\0", "", "", 0)),
        ("strips", T, cdr("strips", T, 9, 8, STRIPS + b"damaged")),
        ("images", T, cdr("images", T, 8, 6, IMAGE + b"behind")),
    ]
    first = bags.make(tmp_path / "first.db3", ROWS + odd)
    with Recording(first) as run, Recording.create(tmp_path / "copy.db3") as copy:
        for message in run:
            copy.write(message)
    assert bags.rows(tmp_path / "copy.db3") == bags.rows(first)
    with Recording(tmp_path / "copy.db3") as run, Recording.create(tmp_path / "cut.db3") as cut:
        for message in run.messages("strips"):
            cut.write(pickle.loads(pickle.dumps(message)))
        (_, line) = Recording(first).log()
        assert line.msg == "\\xff\\xfe"
    expected = [row for row in bags.rows(first) if row[0] == 1]
    assert bags.rows(tmp_path / "cut.db3") == expected and len(expected) == 3


def test_a_changed_message_is_not_the_old_one(run: pathlib.Path, tmp_path: pathlib.Path) -> None:
    (event,) = Recording(run).events()
    with Recording.create(tmp_path / "new.db3") as writer:
        writer.write(dataclasses.replace(event, value=4))
    (changed,) = Recording(tmp_path / "new.db3").events()
    assert (changed.value, changed.stamp_ns) == (4, event.stamp_ns)


def test_about_the_device(tmp_path: pathlib.Path) -> None:
    before = time.time_ns()
    with Recording.create(tmp_path / "a.db3", model="K3710", device={"gain": 3}):
        pass
    with Recording(tmp_path / "a.db3") as recording:
        assert recording.device == {"model": "K3710", "gain": 3}
        assert before <= (recording.start_ns or 0) <= time.time_ns()
    with Recording.create(tmp_path / "b.db3"):
        pass
    with Recording(tmp_path / "b.db3") as recording:
        assert (recording.model, recording.start, recording.duration) == ("", None, 0)
        assert list(recording) == [] and sum(recording.counts.values()) == 0
    for model, error in (("K3711x", tessaline.RefusedError), (3710, TypeError)):
        with pytest.raises(error):
            Recording.create(tmp_path / "c.db3", model=model)  # type: ignore[arg-type]
    with pytest.raises(ValueError):
        Recording.create(tmp_path / "c.db3", device={"gain": float("nan")})
    assert not (tmp_path / "c.db3").exists()


def test_what_does_not_fit_is_refused_and_the_rest_is_written(tmp_path: pathlib.Path) -> None:
    event, strips = tessaline.RecordedEvent, recorded.series(1)
    refused: list[tuple[type[Exception], Any]] = [
        (tessaline.RefusedError, lambda w: w.write(event(-1, "e", 0))),
        (tessaline.RefusedError, lambda w: w.write(event(2**31 * S, "e", 0))),
        (tessaline.RefusedError, lambda w: w.write(event(0, "e", 2**64))),
        (tessaline.RefusedError, lambda w: w.write(event(0, "e\0f", 0))),
        (TypeError, lambda w: w.write(event(0, 5, 0))),  # type: ignore[arg-type]
        (TypeError, lambda w: w.write("a text")),
        (tessaline.StripError, lambda w: w.write_strips(strips, 2, 8)),
        (tessaline.StripError, lambda w: w.write_strips(strips + b"x", 1, 8)),
        (tessaline.StripError, lambda w: w.write_strips(strips, 0, 8)),
        (tessaline.RefusedError, lambda w: w.write_strips(strips, 1, 3)),
        (TypeError, lambda w: w.write_strips(strips)),
        (TypeError, lambda w: w.write_strips("text", 1, 8)),
        (TypeError, lambda w: w.write_image(PIXELS.astype(float))),
        (TypeError, lambda w: w.write_image(PIXELS[0])),
        (tessaline.RefusedError, lambda w: w.write_image(PIXELS, frame_id=-1)),
        (tessaline.RefusedError, lambda w: w.write_image(np.zeros((8192, 8192), np.uint8))),
        (tessaline.RefusedError, lambda w: w.write(event(0, "e" * (64 << 20), 0))),
    ]
    path = tmp_path / "new.db3"
    with Recording.create(path) as writer:
        for error, call in refused:
            with pytest.raises(error):
                call(writer)
        writer.write_strips(b"", 0, 8, stamp_ns=T)
        writer.write_image(PIXELS[:, ::2], stamp_ns=T)
    assert [len(data) for _, _, data in bags.rows(path)] == [24, 24 + 24 + 32]
    assert [len(buffer.raw) for buffer in Recording(path).strips()] == [0]
    with pytest.raises(tessaline.RecordingError, match="new.db3 is closed"):
        writer.write(event(0, "e", 0))
    writer.close()


def test_frames_of_a_sensor(tessaline_sensor: Any, tmp_path: pathlib.Path) -> None:
    kept = []
    with Recording.create(tmp_path / "live.db3", model="K3610") as writer:
        for buffer in tessaline_sensor.strips(40):
            writer.write(buffer)
            kept.append(buffer.copy())
        tessaline_sensor.configure(spacing_us=50_000)
        for image in tessaline_sensor.images(2):
            writer.write_image(image)
            kept.append(image.copy())
    with pytest.raises(tessaline.BufferReturned):
        writer.write_strips(buffer)
    with Recording(tmp_path / "live.db3") as recording:
        read = list(recording.messages("strips", "images"))
        assert len(read) == len(kept) > 2 and recording.counts["images"] == 2
        for message, live in zip(read, kept):
            assert message.raw.tobytes() == live.raw.tobytes()
            if isinstance(live, tessaline.StripBuffer):
                assert list(message) == list(live)
            else:
                np.testing.assert_array_equal(message.pixels, live.pixels)
                assert message.frame_id == live.frame_id


FLOATS = [(name, 4 * i, 7, 1) for i, name in enumerate(("x", "y", "z", "intensity"))]
CLOUD = np.arange(8, dtype="<f4")


def clouds(*fields: Any) -> list[tuple[str, int, bytes]]:
    return [("points", T, cdr("points", T, *fields))]


def test_messages_for_viewers(tmp_path: pathlib.Path) -> None:
    rows = clouds("sensor", 1, 2, FLOATS, 0, 16, 32, CLOUD.tobytes(), 1)
    image = cdr("pictures", T, "sensor", 6, 8, "mono8", 0, 8, PIXELS.tobytes())
    rows.append(("pictures", T, image))
    run = bags.make(tmp_path / "run.db3", rows)
    with Recording(run) as recording:
        (cloud,), (picture,) = recording.points(), recording.pictures()
        assert cloud.points.dtype.names == ("x", "y", "z", "intensity")
        assert cloud.points["z"].tolist() == [2.0, 6.0]
        assert not cloud.points.flags.writeable and cloud.stamp_ns == picture.stamp_ns == T
        np.testing.assert_array_equal(picture.pixels, PIXELS)
        again = pickle.loads(pickle.dumps(cloud))
        assert again.points.tolist() == cloud.points.tolist()
        with Recording.create(tmp_path / "copy.db3") as writer:
            for message in recording:
                writer.write(message)
    assert bags.rows(tmp_path / "copy.db3") == bags.rows(run)


@pytest.mark.parametrize(
    "fields",
    [
        ("", 1, 3, FLOATS, 0, 16, 32, CLOUD.tobytes(), 1),
        ("", 1, 2, FLOATS, 0, 8, 32, CLOUD.tobytes(), 1),
        ("", 2**31, 2**31, FLOATS, 0, 16, 32, CLOUD.tobytes(), 1),
        ("", 1, 2, [("x", 0, 8, 1)], 0, 16, 32, CLOUD.tobytes(), 1),
        ("", 1, 2, [("x", 0, 7, 1), ("x", 4, 7, 1)], 0, 16, 32, CLOUD.tobytes(), 1),
    ],
)
def test_point_clouds_that_do_not_fit(tmp_path: pathlib.Path, fields: tuple[Any, ...]) -> None:
    run = bags.make(tmp_path / "run.db3", clouds(*fields))
    with Recording(run) as recording, pytest.raises(tessaline.RecordingError, match="point cloud"):
        list(recording.points())


def test_neither_device_nor_board_is_loaded(run: pathlib.Path) -> None:
    source = (
        "import sys, tessaline\n"
        "assert len(list(tessaline.Recording(sys.argv[1]))) == 9\n"
        "maps = open('/proc/self/maps').read()\n"
        "print('libtessaline.so' in maps, 'libtessaline-board' in maps)"
    )
    done = subprocess.run(
        [sys.executable, "-c", source, str(run)], capture_output=True, text=True, timeout=60
    )
    assert (done.stdout, done.stderr) == ("False False\n", "")
