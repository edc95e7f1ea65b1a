"""Recordings that are hostile, damaged, interrupted, or somebody else's."""

from __future__ import annotations

import errno
import os
import pathlib
import random
import resource
import signal
import subprocess
import sys
import textwrap
import threading
import time
from typing import Any

import bags
import numpy as np
import pytest
import recorded
import tessaline
from bags import S, cdr
from tessaline import Recording, RecordingError

T = 1_700_000_000 * S
EVENT = ("events", T, cdr("events", T, "e", 1))
STRIPS = ("strips", T, cdr("strips", T, 3, 8, recorded.series(3)))


def run(source: str, *arguments: Any) -> subprocess.CompletedProcess[str]:
    """A program with HEAD in front, in a process of its own."""
    return subprocess.run(
        [sys.executable, "-c", HEAD + textwrap.dedent(source), *map(str, arguments)],
        capture_output=True,
        text=True,
        timeout=100,
    )


HEAD = """
import os, resource, signal, sys, time
import tessaline
from tessaline import Recording, RecordedEvent

def event(i): return RecordedEvent(1000 + i, "e", i)
"""


# --- Other files -----------------------------------------------------------------------------


def test_an_existing_file_is_never_written(tmp_path: pathlib.Path) -> None:
    (tmp_path / "a.db3").write_text("mine")
    with pytest.raises(FileExistsError, match="a.db3 already exists; .* choose another name") as it:
        Recording.create(tmp_path / "a.db3", model="K3710")
    assert it.value.errno == errno.EEXIST and (tmp_path / "a.db3").read_text() == "mine"
    with pytest.raises(FileNotFoundError, match="cannot create .*: No such file or directory"):
        Recording.create(tmp_path / "none" / "a.db3")


def test_files_that_cannot_be_read(tmp_path: pathlib.Path) -> None:
    with pytest.raises(FileNotFoundError, match="none.db3: No such file") as it:
        Recording(tmp_path / "none.db3")
    assert it.value.errno == errno.ENOENT
    with pytest.raises(IsADirectoryError):
        Recording(tmp_path)
    os.mkfifo(tmp_path / "pipe.db3")
    with pytest.raises(RecordingError, match="no recording, and no file"):
        Recording(tmp_path / "pipe.db3")
    os.symlink("loop", tmp_path / "loop")
    with pytest.raises(OSError, match="Too many levels"):
        Recording(tmp_path / "loop")
    name = os.fsdecode(bytes(tmp_path / "n") + b"\xff")
    with pytest.raises(FileNotFoundError, match=r"n\\xff"):
        Recording(name)
    bags.make(pathlib.Path(tmp_path / "a.db3"), [EVENT]).rename(name)
    assert len(list(Recording(name))) == 1
    with pytest.raises(TypeError):
        Recording(7)  # type: ignore[arg-type]


@pytest.mark.parametrize("content", [b"", b"text", b"SQLite format 3\0" + bytes(5000)])
def test_other_files_are_refused(content: bytes, tmp_path: pathlib.Path) -> None:
    (tmp_path / "a.db3").write_bytes(content)
    with pytest.raises(RecordingError, match="this is no recording"):
        Recording(tmp_path / "a.db3")
    assert (tmp_path / "a.db3").read_bytes() == content


@pytest.mark.parametrize(
    ("sql", "words"),
    [
        ("UPDATE tessaline SET value = '3' WHERE key = 'version'", "of version 3, this program"),
        ("DROP TABLE topics", "this is no recording"),
        ("ALTER TABLE messages RENAME TO m; CREATE VIEW messages AS SELECT * FROM m",
         "this is no recording"),
        ("ALTER TABLE messages RENAME COLUMN data TO d", "this is no recording"),
        ("ALTER TABLE messages RENAME COLUMN timestamp TO t", "this is no recording"),
        ("INSERT INTO topics SELECT value + 100, '/rosout', '', '', '', '' FROM "
         "generate_series(1, 100)", "topics repeat"),
        ("UPDATE messages SET data = zeroblob(70000000)", "more than 64 MiB"),
        ("DROP TABLE messages; CREATE TABLE messages(id, topic_id, timestamp, data AS "
         "(zeroblob(1e9)))", "this is no recording"),
        ("PRAGMA writable_schema = 1; UPDATE sqlite_schema SET rootpage = 99 WHERE name = "
         "'messages'", "damaged|malformed"),
    ],
)
def test_hostile_structures_are_errors(sql: str, words: str, tmp_path: pathlib.Path) -> None:
    sql = sql.replace("FROM generate_series(1, 100)", "FROM (WITH RECURSIVE s(value) AS (SELECT 1 "
                      "UNION ALL SELECT value + 1 FROM s LIMIT 100) SELECT value FROM s)")
    path = bags.make(tmp_path / "a.db3", [EVENT], sql)
    with pytest.raises(RecordingError, match=words):
        with Recording(path) as recording:
            list(recording)


# Messages that are not what they seem, and what is said.
DAMAGED: list[tuple[str, bytes, str]] = [
    ("strips", b"", "a message of /tessaline/strips is damaged"),
    ("strips", STRIPS[2][:-1], "damaged"),
    ("strips", cdr("strips", T, 1, 8, b"")[:-4] + b"\xff\xff\xff\xff", "damaged"),
    ("strips", cdr("strips", T, 1, 0, b""), "points of 0 bytes"),
    ("strips", cdr("strips", T, 1, 7, b"1234567"), "points of 7 bytes"),
    ("images", cdr("images", T, 2**32 - 1, 2**32 - 1, bytes(99)), "in 99 bytes"),
    ("images", cdr("images", T, 2, 2, bytes(35)), "image of 2 x 2 pixels in 35 bytes"),
    ("log", cdr("log", T, 1, "n", "m", "f", "g", 1)[:-1], "/rosout is damaged"),
    ("log", cdr("log", T, 1, "n", "m", "f", "g", 1).replace(b"\2\0\0\0n", b"\xff\xff\xff\xffn"),
     "damaged"),
    ("clock", b"\0\1\0\0", "damaged"),
]


@pytest.mark.parametrize(("kind", "data", "words"), DAMAGED)
def test_a_damaged_message_is_told_and_the_loop_can_go_on(
    kind: str, data: bytes, words: str, tmp_path: pathlib.Path
) -> None:
    path = bags.make(tmp_path / "a.db3", [EVENT, (kind, T, data), STRIPS])
    loop = iter(Recording(path))
    next(loop)
    with pytest.raises(RecordingError, match=f"a.db3: message 2: .*{words}.*; next\\(\\) goes on"):
        next(loop)
    assert isinstance(next(loop), tessaline.RecordedStrips) and list(loop) == []


@pytest.mark.parametrize(
    ("count", "point_bytes", "data", "fitting"),
    [(2**32 - 1, 8, recorded.series(2), 2), (1, 8, b"", 0), (3, 2, bytes(95), 2),
     (2, 8, recorded.series(1) + b"\xff" * 40, 1), (0, 4, b"abc", 0)],
)
def test_strips_that_do_not_fit_are_left_out(
    count: int, point_bytes: int, data: bytes, fitting: int, tmp_path: pathlib.Path
) -> None:
    message = ("strips", T, cdr("strips", T, count, point_bytes, data))
    (buffer,) = Recording(bags.make(tmp_path / "a.db3", [message])).strips()
    assert (len(buffer), buffer.strip_count) == (fitting, count)
    assert sum(len(strip.points) for strip in buffer) <= len(data)
    assert len(buffer.raw) <= len(data)


@pytest.mark.parametrize(
    "text", ["", "{", "[]", "[" * 100_000, "1" * 5000, '{"a": ' * 100_000, "\0"],
)
def test_hostile_texts_about_the_device(text: str, tmp_path: pathlib.Path) -> None:
    path = bags.make(tmp_path / "a.db3", [("device", T, cdr("device", T, text))])
    with Recording(path) as recording:
        for ask in (lambda: recording.device, lambda: recording.model):
            with pytest.raises(RecordingError, match="about the device"):
                ask()
        (message,) = recording
        assert message.json == text


def test_too_much_about_the_device(tmp_path: pathlib.Path) -> None:
    made = [("device", T, cdr("device", T, f'{{"{i}": "{"x" * 100_000}"}}')) for i in range(90)]
    with pytest.raises(RecordingError, match="too much about the device"):
        Recording(bags.make(tmp_path / "a.db3", made)).device


def test_flipped_bits_never_crash(tmp_path: pathlib.Path) -> None:
    source = bags.make(tmp_path / "a.db3", [STRIPS, EVENT] * 10)
    whole = source.read_bytes()
    chance = random.Random(5)
    ended, failed = 0, 0
    for turn in range(300):
        damaged = bytearray(whole)
        for i in range(20):
            page = chance.randrange(len(whole) // 65536) * 65536
            damaged[page + chance.randrange(200 if i % 2 else 65536)] = chance.randrange(256)
        path = tmp_path / "damaged.db3"
        path.write_bytes(damaged[: chance.randrange(len(damaged)) if turn % 10 == 0 else None])
        try:
            with Recording(path) as recording:
                for message in recording:
                    if isinstance(message, tessaline.StripBuffer):
                        assert sum(len(strip.points) for strip in message) < 10_000
                ended += sum(recording.counts.values()) >= 0
        except RecordingError:
            failed += 1
    assert ended > 10 and failed > 100


def test_memory_is_that_of_a_message(tmp_path: pathlib.Path) -> None:
    image = cdr("images", T, 1000, 1000, bytes(1_000_032))
    path = bags.make(tmp_path / "a.db3", [("images", T, image)] * 300)
    done = run(
        """
        before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
        with Recording(sys.argv[1]) as recording:
            for n, message in enumerate(recording.images(start=0)): pass
            assert recording.counts["images"] == 300
        print(n, resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before)
        """,
        path,
    )
    count, grown = map(int, done.stdout.split())
    assert count == 299 and grown < 30_000, done


# --- Writers that are interrupted, and others ------------------------------------------------


def test_what_was_written_is_there_a_second_later(tmp_path: pathlib.Path) -> None:
    path = tmp_path / "a.db3"
    writer = subprocess.Popen(
        [sys.executable, "-c", HEAD + "w = Recording.create(sys.argv[1], model='K3710')\n"
         "for i in range(500): w.write(event(i))\n"
         "print('written', flush=True)\ntime.sleep(50)", str(path)],
        stdout=subprocess.PIPE,
    )
    assert writer.stdout is not None and writer.stdout.readline() == b"written\n"
    time.sleep(2.5)
    writer.send_signal(signal.SIGKILL)
    writer.communicate(timeout=30)
    with Recording(path) as recording:
        assert not recording.closed and recording.synced == 1499 / S
        assert [event.value for event in recording.events()] == list(range(500))
    assert len(bags.rows(path)) == 501


def test_sync_is_there_at_once(tmp_path: pathlib.Path) -> None:
    done = run(
        """
        w = Recording.create(sys.argv[1])
        for i in range(5): w.write(event(i))
        w.sync()
        w.write(event(6))
        os.kill(os.getpid(), signal.SIGKILL)
        """,
        tmp_path / "a.db3",
    )
    assert done.returncode == -signal.SIGKILL
    assert [event.value for event in Recording(tmp_path / "a.db3").events()] == [0, 1, 2, 3, 4]


@pytest.mark.parametrize("end", ["", "del w", "raise RuntimeError", "sys.exit(3)"])
def test_a_forgotten_recording_ends_with_python(end: str, tmp_path: pathlib.Path) -> None:
    run(f"w = Recording.create(sys.argv[1])\nw.write(event(1))\n{end}", tmp_path / "a.db3")
    assert Recording(tmp_path / "a.db3").closed and len(bags.rows(tmp_path / "a.db3")) == 1


def test_nobody_reads_or_disturbs_what_is_being_written(tmp_path: pathlib.Path) -> None:
    path = tmp_path / "a.db3"
    with Recording.create(path) as writer:
        writer.write(tessaline.RecordedEvent(T, "e", 1))
        # Also not after a try in this process, which could end the process's locks.
        for _ in range(2):
            with pytest.raises(RecordingError, match="another program is writing it; wait"):
                Recording(path)
            done = run("try: Recording(sys.argv[1])\n"
                       "except tessaline.RecordingError as error: print(error.what)", path)
            assert done.stdout == f"{path}: another program is writing it\n", done
    assert len(list(Recording(path))) == 1


def test_a_forked_child_does_no_harm(tmp_path: pathlib.Path) -> None:
    done = run(
        """
        w = Recording.create(sys.argv[1])
        w.write(event(1)); w.sync(); w.write(event(2))
        r = Recording(sys.argv[2]); loop = iter(r); next(loop)
        for end in (lambda: sys.exit(0), lambda: os._exit(0)):
            if os.fork() == 0:
                for call in (lambda: w.write(event(9)), w.sync, loop.__next__, lambda: r.counts):
                    try: call()
                    except tessaline.RecordingError as error: assert "this child" in error.what
                    else: os._exit(1)
                w.close(); del w
                end()
            assert os.wait()[1] == 0
        w.write(event(3)); w.close()
        print(len(list(loop)))
        """,
        bags.make(tmp_path / "b.db3", [EVENT, STRIPS]).with_name("a.db3"),
        tmp_path / "b.db3",
    )
    assert (done.stdout, done.stderr) == ("1\n", "")
    with Recording(tmp_path / "a.db3") as recording:
        assert recording.closed and [event.value for event in recording.events()] == [1, 2, 3]
    assert len(bags.rows(tmp_path / "a.db3")) == 3


def test_a_child_that_forgets_the_writer_takes_nothing_back(tmp_path: pathlib.Path) -> None:
    # Without the package around it, whose thread holds it also in a child.
    done = run(
        """
        from tessaline import _recordings
        w = _recordings.Writer(sys.argv[1].encode())
        w.put(3, 0, ("e", 0))
        w.sync()
        for i in range(90): w.put(3, i, ("e" * 1_000_000, i))  # more than is kept in memory
        if os.fork() == 0:
            del w
            sys.exit(0)
        assert os.wait()[1] == 0
        w.put(3, 90, ("e", 90)); w.close()
        """,
        tmp_path / "a.db3",
    )
    assert (done.returncode, done.stderr) == (0, "")
    assert Recording(tmp_path / "a.db3").closed and len(bags.rows(tmp_path / "a.db3")) == 92


def test_a_full_disk_is_told_once_and_what_was_synced_stays(tmp_path: pathlib.Path) -> None:
    done = run(
        """
        import numpy
        resource.setrlimit(resource.RLIMIT_FSIZE, (3_000_000, resource.RLIM_INFINITY))
        with Recording.create(sys.argv[1]) as w:
            w.write(event(1)); w.sync()
            for i in range(2):
                try:
                    for _ in range(200): w.write_image(numpy.zeros((1000, 1000), "u1"))
                    w.sync()
                except OSError as error: print(error.errno, error)
        """,
        tmp_path / "a.db3",
    )
    line = f"{errno.EFBIG} [Errno {errno.EFBIG}] {tmp_path}/a.db3: File too large\n"
    assert (done.stdout, done.stderr) == (line * 2, "")
    with Recording(tmp_path / "a.db3") as recording:
        assert not recording.closed and len(list(recording)) == 1


# --- Threads and signals ---------------------------------------------------------------------


@pytest.fixture(scope="module")
def large(tmp_path_factory: pytest.TempPathFactory) -> pathlib.Path:
    """Many small messages, and one at the end that a search must find."""
    sql = ("INSERT INTO messages SELECT NULL, 3, value, zeroblob(24) FROM (WITH RECURSIVE s(value) "
           "AS (SELECT 1 UNION ALL SELECT value + 1 FROM s LIMIT 3000000) SELECT value FROM s);"
           "INSERT INTO messages SELECT NULL, topic_id, 4000000, data FROM messages WHERE id = 1")
    return bags.make(tmp_path_factory.mktemp("large") / "a.db3", [EVENT], sql)


def test_other_threads_run_meanwhile(large: pathlib.Path) -> None:
    turns: list[float] = []
    ended = threading.Event()

    def turn() -> None:
        while not ended.wait(0.001):
            turns.append(time.monotonic())

    thread = threading.Thread(target=turn)
    thread.start()
    start = time.monotonic()
    with Recording(large) as recording:
        assert recording.counts["registers"] == 3_000_000
        assert len(list(recording.events())) == 2
    took = time.monotonic() - start
    ended.set()
    thread.join()
    gaps = np.diff([start, *turns])
    assert took > 0.1 and gaps.max() < took / 3 + 0.05, (took, gaps.max())


@pytest.mark.parametrize("search", [lambda r: list(r.events()), lambda r: r.counts])
def test_ctrl_c_ends_a_long_search(search: Any, large: pathlib.Path) -> None:
    def interrupt(*_: object) -> None:
        raise KeyboardInterrupt

    with Recording(large) as recording:
        start = time.monotonic()
        search(recording)
        whole = time.monotonic() - start
    before = signal.signal(signal.SIGALRM, interrupt)
    try:
        with Recording(large) as recording:
            start = time.monotonic()
            with pytest.raises(KeyboardInterrupt):
                signal.setitimer(signal.ITIMER_REAL, whole / 5)
                search(recording)
                time.sleep(60)
            took = time.monotonic() - start
            assert took < 0.7 * whole
            # It is as before.
            assert next(recording.registers(start=1e-6)).stamp_ns == 1001
    finally:
        signal.signal(signal.SIGALRM, before)
