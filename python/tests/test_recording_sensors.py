"""Files of several sensors, read one sensor at a time."""

from __future__ import annotations

import pathlib
import sqlite3

import bags
import pytest
import recorded
import tessaline
from bags import S, cdr
from tessaline import Recording

T = 1_700_000_000 * S
GAP = ("ring", "6f1c", 0, 4, 6, 3, 0, 0, 0, 2**64 - 1)


def strips(count: int, stamp: int) -> tuple[str, int, bytes]:
    return "strips", stamp, cdr("strips", stamp, count, 8, recorded.series(count))


@pytest.fixture
def fleet(tmp_path: pathlib.Path) -> pathlib.Path:
    return bags.make_fleet(
        tmp_path / "all.db3",
        {
            "line3.left": [
                ("device", T, cdr("device", T, '{"model": "K3610"}')),
                strips(2, T + S),
                ("gaps", T + 2 * S, cdr("gaps", T + 2 * S, *GAP)),
            ],
            "line3.right": [
                ("device", T - S, cdr("device", T - S, '{"model": "K3710"}')),
                strips(3, T + 3 * S),
                strips(1, T + 4 * S),
            ],
        },
    )


def test_each_sensor_is_a_recording(fleet: pathlib.Path) -> None:
    assert Recording.sensors(fleet) == ["line3.left", "line3.right"]
    with Recording(fleet, "line3.left") as left, Recording(fleet, sensor="line3.right") as right:
        assert (left.sensor, right.sensor) == ("line3.left", "line3.right")
        assert (left.model, right.model) == ("K3610", "K3710")
        assert [len(buffer) for buffer in left.strips()] == [2]
        assert [len(buffer) for buffer in right.strips()] == [3, 1]
        assert (left.counts["strips"], left.counts["gaps"]) == (1, 1)
        assert (right.counts["strips"], right.counts["gaps"]) == (2, 0)
        # Nothing of the others: neither the times of the whole, nor in a part of it.
        assert (left.start_ns, left.duration) == (T, 2)
        assert (right.start_ns, right.duration) == (T - S, 5)
        assert len(list(left)) == 3 and len(list(right.messages(start=4))) == 2


def test_which_sensor_must_be_said(fleet: pathlib.Path) -> None:
    with pytest.raises(tessaline.RecordingError, match="of several sensors: line3.left, line3.ri"):
        Recording(fleet)
    with pytest.raises(tessaline.RecordingError, match='has no sensor "line4"; it has line3.left'):
        Recording(fleet, "line4")


def test_the_only_sensor_needs_no_name(tmp_path: pathlib.Path) -> None:
    path = bags.make_fleet(tmp_path / "one.db3", {"belt": [strips(2, T)]})
    assert Recording(path).sensor == "belt" and Recording(path).counts["strips"] == 1
    plain = bags.make(tmp_path / "plain.db3", [strips(2, T)])
    assert Recording.sensors(plain) == [] and Recording(plain).sensor is None
    with pytest.raises(tessaline.RecordingError, match="it is of one sensor without a name"):
        Recording(plain, "belt")


def test_gaps_are_read_and_written(fleet: pathlib.Path, tmp_path: pathlib.Path) -> None:
    (gap,) = Recording(fleet, "line3.left").gaps()
    assert gap == tessaline.RecordedGap(T + 2 * S, "ring", "6f1c", False, 4, 6, 3, 0, 0, 0, 2**64 - 1)
    assert gap.end_known is False
    with Recording.create(tmp_path / "new.db3") as writer:
        writer.write(gap)
        writer.write(
            tessaline.RecordedGap(T + 2 * S, *GAP[:2], end_known=False, strips_first=4,
                                  strips_last=6, strips_count=3, others=2**64 - 1)
        )
        with pytest.raises(TypeError, match="end_known must be a bool, not int"):
            writer.write(tessaline.RecordedGap(T, "ring", "6f1c", 1))  # type: ignore[arg-type]
    expected = (bags.NUMBER["gaps"], T + 2 * S, cdr("gaps", T + 2 * S, *GAP))
    assert bags.rows(tmp_path / "new.db3") == [expected, expected]


@pytest.mark.parametrize(
    "name",
    [
        "/line3.left/tessaline/strips",  # the same sensor in other words
        "//tessaline/strips",
        "/a//b/tessaline/strips",
        "/a b/tessaline/strips",
        "/\x1b[2J/tessaline/strips",
        "x/tessaline/strips",
        "/" + "a" * 129 + "/tessaline/strips",
    ],
)
def test_names_that_are_none_are_left_out(name: str, fleet: pathlib.Path) -> None:
    database = sqlite3.connect(fleet)
    database.execute("UPDATE topics SET name = ? WHERE name = '/line3/left/tessaline/strips'",
                     (name,))
    database.commit()
    database.close()
    assert Recording.sensors(fleet) == ["line3.left", "line3.right"]
    assert Recording(fleet, "line3.left").counts["strips"] == 0
    assert Recording(fleet, "line3.right").counts["strips"] == 2


def test_too_many_sensors_are_refused(tmp_path: pathlib.Path) -> None:
    path = bags.make_fleet(tmp_path / "many.db3", {f"s{i}": [] for i in range(300)})
    with pytest.raises(tessaline.RecordingError, match="more sensors than a file may have"):
        Recording.sensors(path)
