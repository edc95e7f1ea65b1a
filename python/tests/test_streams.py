"""Loops over frames: their ends, their losses, slow ones, and asyncio."""

from __future__ import annotations

import asyncio
import threading
import time

import numpy as np
import pytest
import tessaline
from tessaline import FrameFault, Sensor


@pytest.fixture
def sensor(tessaline_sensor: Sensor) -> Sensor:
    return tessaline_sensor


def laser(sensor: Sensor) -> int | None:
    assert sensor.board is not None
    return sensor.board.line(907)


def running(sensor: Sensor) -> int:
    return sensor._calls.get("GetGlobalControl")


def test_exactly_as_many_strips_as_asked_for(sensor: Sensor) -> None:
    ids = [strip.frame_id for buf in sensor.strips(25) for strip in buf]
    assert ids == list(range(1, 26))


def test_laser_and_acquisition_run_while_the_loop_does(sensor: Sensor) -> None:
    assert (laser(sensor), running(sensor)) == (0, 0)
    for _ in sensor.strips(10):
        assert (laser(sensor), running(sensor)) == (1, 1)
    assert (laser(sensor), running(sensor)) == (0, 0)
    for _ in sensor.strips(10, laser=False):
        assert (laser(sensor), running(sensor)) == (0, 1)


def test_leaving_the_loop_stops(sensor: Sensor) -> None:
    for _ in sensor.strips():
        break
    assert (laser(sensor), running(sensor)) == (0, 0)
    with pytest.raises(ZeroDivisionError):
        for _ in sensor.strips():
            1 / 0
    stream = sensor.strips()
    next(stream)
    stream.close()
    stream.close()
    assert (laser(sensor), running(sensor)) == (0, 0)
    assert list(stream) == []


def test_a_second_loop_inside_the_first_is_refused(sensor: Sensor) -> None:
    for _ in sensor.strips(20):
        with pytest.raises(tessaline.RefusedError, match="another loop"):
            next(sensor.images(1))
        with pytest.raises(tessaline.RefusedError, match="another loop"):
            sensor.reset_frame_ids()
        assert (sensor.collecting, sensor.acquiring) == ("strips", True)
    assert sensor.image().shape == (1088, 1456)
    assert (sensor.collecting, sensor.acquiring) == ("images", False)
    sensor.reset_frame_ids()


def test_frames_of_an_earlier_run_do_not_come(sensor: Sensor) -> None:
    for _ in range(5):
        stream = sensor.strips()
        ids = [strip.frame_id for strip in next(stream)]
        assert ids == list(range(1, len(ids) + 1))
        stream.close()


@pytest.mark.parametrize(
    ("arguments", "error"),
    [
        ({"count": 0}, ValueError),
        ({"count": -1}, ValueError),
        ({"count": 1.5}, TypeError),
        ({"count": "10"}, TypeError),
        ({"timeout_s": 0}, ValueError),
        ({"timeout_s": float("nan")}, ValueError),
        ({"on_loss": "ignore"}, ValueError),
        ({"backlog_bytes": -1}, ValueError),
    ],
)
def test_bad_arguments_touch_nothing(sensor: Sensor, arguments, error) -> None:
    assert sensor.board is not None
    sensor.board.clear_transcript()
    with pytest.raises(error):
        sensor.strips(**arguments)
    assert sensor.board.transcript() == ""


def test_no_frame_in_time(sensor: Sensor) -> None:
    sensor._calls.set("SetTriMode", 2)  # the external input, which stays as it is
    begin = time.monotonic()
    with pytest.raises(tessaline.TimeoutError, match=r"no frame came for 0\.5 s"):
        list(sensor.strips(10, timeout_s=0.5))
    assert time.monotonic() - begin < 3
    assert isinstance(tessaline.TimeoutError("x"), TimeoutError)
    assert (laser(sensor), running(sensor)) == (0, 0)


def test_a_slow_loop_loses_nothing_while_the_backlog_has_room(sensor: Sensor) -> None:
    ids = []
    for n, buf in enumerate(sensor.strips(400)):
        ids += [strip.frame_id for strip in buf]
        if n in (3, 9):
            time.sleep(1.0)  # longer than the driver's 18 buffers last
    assert ids == list(range(1, 401))


def test_what_was_taken_stays_right_when_the_loop_is_slow(sensor: Sensor) -> None:
    for n, buf in enumerate(sensor.strips(100)):
        points = buf[0].points
        before = points.copy()
        if n == 2:
            assert buf.zero_copy
            time.sleep(1.0)
            assert not buf.zero_copy
        np.testing.assert_array_equal(points, before)
        np.testing.assert_array_equal(buf[0].points, before)


def test_a_loss_is_raised(sensor: Sensor) -> None:
    assert sensor.board is not None
    sensor.board.plant(FrameFault("strips", "lost", skip=3))
    seen = []
    with pytest.raises(tessaline.LostFrames, match="frames? (is|are) missing") as caught:
        for buf in sensor.strips(200):
            seen.append(buf[-1].frame_id)
    assert caught.value.missing >= 1
    assert caught.value.before > seen[-1]
    assert (laser(sensor), running(sensor)) == (0, 0)


def test_a_loss_at_the_very_beginning_is_one(sensor: Sensor) -> None:
    assert sensor.board is not None
    sensor.board.plant(FrameFault("strips", "lost"))
    stream = sensor.strips(50, on_loss="count")
    first = next(stream)[0].frame_id
    assert stream.lost == first - 1 > 0


def test_a_loss_is_counted(sensor: Sensor) -> None:
    assert sensor.board is not None
    sensor.board.plant(FrameFault("strips", "lost", skip=3))
    stream = sensor.strips(200, on_loss="count")
    got = sum(len(buf) for buf in stream)
    assert got == 200
    assert stream.lost >= 1


def test_a_full_backlog_is_a_loss(sensor: Sensor) -> None:
    with pytest.raises(tessaline.LostFrames):
        for _ in sensor.strips(backlog_bytes=0, timeout_s=5):
            time.sleep(1.0)


def test_async_for(sensor: Sensor) -> None:
    async def main() -> tuple[list[int], int]:
        ticks = 0

        async def tick() -> None:
            nonlocal ticks
            while True:
                await asyncio.sleep(0.005)
                ticks += 1

        other = asyncio.create_task(tick())
        ids = [strip.frame_id async for buf in sensor.strips(100) for strip in buf]
        other.cancel()
        return ids, ticks

    ids, ticks = asyncio.run(main())
    assert ids == list(range(1, 101))
    assert ticks > 2  # other tasks ran


def test_a_cancelled_task_stops_the_sensor(sensor: Sensor) -> None:
    async def main() -> None:
        async def take() -> None:
            async for _ in sensor.strips():
                pass

        task = asyncio.create_task(take())
        await asyncio.sleep(0.2)
        assert running(sensor) == 1
        task.cancel()
        with pytest.raises(asyncio.CancelledError):
            await task

    asyncio.run(main())
    assert (laser(sensor), running(sensor)) == (0, 0)


def test_a_stream_that_is_not_used_disturbs_nobody(sensor: Sensor) -> None:
    ids = []
    for buf in sensor.strips(100):
        sensor.strips(5)
        ids += [strip.frame_id for strip in buf]
    assert ids == list(range(1, 101))


@pytest.mark.parametrize("kind", ["lost", "truncated"])
def test_the_loss_of_the_first_frames_is_a_loss(sensor: Sensor, kind) -> None:
    assert sensor.board is not None
    sensor.board.plant(FrameFault("strips", kind, skip=0))
    with pytest.raises(tessaline.LostFrames):
        list(sensor.strips(50))


def test_a_text_is_no_state_of_the_laser(sensor: Sensor) -> None:
    with pytest.raises(TypeError, match="laser must be True, False or None"):
        sensor.strips(10, laser="off")  # type: ignore[arg-type]
    sensor.configure(laser="off")
    for _ in sensor.strips(10):
        assert laser(sensor) == 0


def test_the_layout_is_that_of_the_first_turn(sensor: Sensor) -> None:
    stream = sensor.strips(20)
    sensor.extraction.write_mode = 1
    assert {buf.point_bytes for buf in stream} == {4}


def test_closing_ends_a_loop_that_waits_in_another_thread(sensor: Sensor) -> None:
    sensor._calls.set("SetTriMode", 2)
    caught: list[BaseException] = []

    def wait() -> None:
        try:
            list(sensor.strips(10, timeout_s=100))
        except tessaline.TessalineError as error:
            caught.append(error)

    thread = threading.Thread(target=wait)
    thread.start()
    time.sleep(0.3)
    sensor.close()
    thread.join(5)
    assert not thread.is_alive()
    assert isinstance(caught[0], tessaline.DeviceGone)


def test_a_refused_region_leaves_no_wrong_geometry(sensor: Sensor) -> None:
    with pytest.raises(tessaline.RefusedError):
        sensor._calls.set("SetROI1", 0, 0, 9999, 9999)
    with pytest.raises(tessaline.RefusedError, match="SetROI1 was refused"):
        _ = sensor.geometry


def test_a_setting_that_is_none_is_no_new_attribute(sensor: Sensor) -> None:
    with pytest.raises(AttributeError, match=r"configure\(exposure_us=\.\.\.\)"):
        sensor.exposure_us = 150  # type: ignore[attr-defined]
    with pytest.raises(AttributeError):
        sensor.trigger = 3  # type: ignore[assignment]
    for count, error in ((0, ValueError), (1.5, TypeError), (None, TypeError)):
        with pytest.raises(error):
            sensor.profiles(count)  # type: ignore[arg-type]
    with pytest.raises(tessaline.RefusedError):
        sensor.configure(exposure=150)


def test_an_interrupt_between_two_turns_ends_the_stream(
    sensor: Sensor, monkeypatch: pytest.MonkeyPatch
) -> None:
    stream = sensor.strips()
    next(stream)
    release = type(stream)._release

    def interrupted(self: object) -> None:
        monkeypatch.setattr(type(stream), "_release", release)
        raise KeyboardInterrupt

    monkeypatch.setattr(type(stream), "_release", interrupted)
    with pytest.raises(KeyboardInterrupt):
        next(stream)
    assert laser(sensor) == 0 and running(sensor) == 0
