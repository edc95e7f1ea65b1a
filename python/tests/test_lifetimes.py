"""What arrays show after their buffer went back to the driver."""

from __future__ import annotations

import gc
import os
import pickle
import threading

import numpy as np
import pytest
import tessaline
from tessaline import Sensor

pytestmark = pytest.mark.filterwarnings("error")


@pytest.fixture
def sensor(tessaline_sensor: Sensor) -> Sensor:
    assert tessaline_sensor.board is not None
    tessaline_sensor.board.set_free_run(True)
    return tessaline_sensor


def detached(sensor: Sensor) -> int:
    return sensor._calls.module.strips().counters["detached"]


def test_nothing_is_copied_when_nothing_is_kept(sensor: Sensor) -> None:
    before = dict(sensor._calls.module.strips().counters)
    total = 0
    for buf in sensor.strips(2000):
        total += int(buf[0].points["row"][0])
    after = sensor._calls.module.strips().counters
    assert total > 0
    assert after["detached"] == before["detached"]
    # On a busy machine a turn may take longer than the driver's buffers last.
    assert after["lent"] - before["lent"] >= 150


def test_every_array_of_a_long_run_stays_as_it_was(sensor: Sensor) -> None:
    kept = [(buf[-1].points, buf[-1].points.copy()) for buf in sensor.strips(3000)]
    assert len(kept) >= 300  # after a pause, the driver hands out what it has
    assert len({bytes(array[:8]) + array.tobytes() for array, _ in kept}) > 1
    for array, copy in kept:
        np.testing.assert_array_equal(array, copy)


def test_arrays_do_not_point_into_memory_that_the_driver_writes_to(sensor: Sensor) -> None:
    arrays = [buf.raw for buf in sensor.strips(500)]
    pages = {array.ctypes.data // 4096 for array in arrays}
    assert len(pages) == len(arrays)


@pytest.mark.parametrize(
    "derive",
    [
        lambda points: points["row"],
        lambda points: points[10:20]["row"][::2],
        lambda points: np.asarray(memoryview(points)),
        lambda points: np.lib.stride_tricks.as_strided(points, shape=(3,), strides=(8,)),
        lambda points: points.view(np.uint8),
        lambda points: np.frombuffer(points, np.uint8),
    ],
    ids=["field", "slice", "memoryview", "as_strided", "view", "frombuffer"],
)
def test_what_is_derived_keeps_the_memory(sensor: Sensor, derive) -> None:
    kept = []
    for buf in sensor.strips(300):
        part = derive(buf[0].points)
        kept.append((part, part.copy()))
    for part, copy in kept:
        np.testing.assert_array_equal(part, copy)


def test_arrays_are_read_only(sensor: Sensor) -> None:
    for buf in sensor.strips(10):
        points = buf[0].points
        with pytest.raises(ValueError, match="read-only"):
            points["row"][0] = 1
        with pytest.raises(ValueError, match="WRITEABLE"):
            points.flags.writeable = True
        with pytest.raises((ValueError, BufferError, TypeError)):
            memoryview(points).cast("B")[0] = 1


def test_a_buffer_says_that_its_turn_is_over(sensor: Sensor) -> None:
    buffers = list(sensor.strips(50))
    assert len(buffers) == 5
    for use in (
        lambda buf: buf[0].points,
        lambda buf: buf.raw,
        lambda buf: buf.copy(),
        pickle.dumps,
        lambda buf: np.asarray(buf[0]),
    ):
        with pytest.raises(tessaline.BufferReturned, match=r"buf\.copy\(\)"):
            use(buffers[0])
    assert buffers[0][0].frame_id == 1  # headers were read in their turn
    assert list(buffers[4].frame_ids) == list(range(41, 51))


def test_copies_stay(sensor: Sensor) -> None:
    copies = [buf.copy() for buf in sensor.strips(500)]
    assert [strip.frame_id for buf in copies for strip in buf] == list(range(1, 501))
    assert all(len(strip.points) > 0 for buf in copies for strip in buf)


def test_a_buffer_pickles_by_its_content(sensor: Sensor) -> None:
    for buf in sensor.strips(10):
        again = pickle.loads(pickle.dumps(buf))
        np.testing.assert_array_equal(again[3].points, buf[3].points)
    assert len(again) == 10
    np.testing.assert_array_equal(again.copy()[9].points, again[9].points)
    for image in sensor.images(1):
        other = pickle.loads(pickle.dumps(image))
        np.testing.assert_array_equal(other.pixels, image.pixels)
        assert other.frame_id == image.frame_id


def test_what_is_left_when_the_loop_is_left(sensor: Sensor) -> None:
    for buf in sensor.strips():
        rows = buf[0].points["row"]
        before = rows.copy()
        break
    for other in sensor.strips(500):
        del other
    np.testing.assert_array_equal(rows, before)


def test_an_exception_keeps_what_its_frames_show(sensor: Sensor) -> None:
    with pytest.raises(ZeroDivisionError) as caught:
        for buf in sensor.strips():
            rows = buf[0].points["row"]
            before = rows.copy()
            1 / 0
    del buf
    for _ in sensor.strips(500):
        pass
    np.testing.assert_array_equal(rows, before)
    del caught
    gc.collect()


def test_a_generator_may_hand_arrays_on(sensor: Sensor) -> None:
    def rows():
        for buf in sensor.strips(300):
            for strip in buf:
                yield strip.points["row"]

    kept = list(rows())
    again = [array.copy() for array in kept]
    for _ in sensor.strips(300):
        pass
    assert len(kept) >= 300  # after a pause, the driver hands out what it has
    for array, copy in zip(kept, again, strict=True):
        np.testing.assert_array_equal(array, copy)


def test_another_thread_reads_while_the_loop_goes_on(sensor: Sensor) -> None:
    wrong: list[int] = []

    def read(array, copy) -> None:
        for _ in range(50):
            if not np.array_equal(array, copy):
                wrong.append(1)

    threads = []
    for buf in sensor.strips(300):
        array = buf[0].points
        thread = threading.Thread(target=read, args=(array, array.copy()))
        thread.start()
        threads.append(thread)
    for thread in threads:
        thread.join()
    assert not wrong


def test_detaching_ends_with_the_array(sensor: Sensor) -> None:
    def memory() -> int:
        with open("/proc/self/maps") as maps:
            return len(maps.readlines())

    for _ in sensor.strips(200):
        pass
    before = memory()
    kept = [buf.raw for buf in sensor.strips(1000)]
    assert memory() >= before + 50
    del kept
    for _ in sensor.strips(200):
        pass
    gc.collect()
    assert memory() <= before + 25  # one for each of the driver's buffers


def test_images_stay_too(sensor: Sensor) -> None:
    kept = []
    uncopied = 0  # on a busy machine the driver cannot wait for every one
    for image in sensor.images(30):
        uncopied += image.zero_copy
        assert image.pixels.shape == (1088, 1456)
        kept.append((image.pixels, image.pixels.copy()))
    assert uncopied > 0
    for pixels, copy in kept:
        np.testing.assert_array_equal(pixels, copy)


def test_a_forked_child_sees_what_was_there(sensor: Sensor) -> None:
    stream = sensor.strips()
    array = next(stream).raw
    before = array.copy()
    ready, go = os.pipe()
    if (child := os.fork()) == 0:
        os.read(ready, 1)
        os._exit(0 if np.array_equal(array, before) else 1)
    for _ in range(100):
        next(stream)
    os.write(go, b"x")
    assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 0
    np.testing.assert_array_equal(array, before)
    stream.close()
    os.close(ready)
    os.close(go)


def test_keeping_thousands_of_arrays_costs_no_more_each(sensor: Sensor) -> None:
    sensor.board.set_strips_per_buffer(1)
    kept = [(buf[0].points, buf[0].points.copy()) for buf in sensor.strips(4000)]
    assert len(kept) == 4000
    for array, copy in kept[::100]:
        np.testing.assert_array_equal(array, copy)


def test_strips_are_compared_by_their_content(sensor: Sensor) -> None:
    kept = []
    for buf in sensor.strips(10):
        copy = buf.copy()
        assert buf[0] == buf[0] == copy[0]
        assert copy[0] in buf
        kept += list(copy)
    assert kept[0] != kept[1]
    assert kept[0] != 1


def test_a_whole_buffer_is_no_array(sensor: Sensor) -> None:
    for buf in sensor.strips(10):
        with pytest.raises(TypeError, match=r"buf\[0\]\.points, buf\.raw"):
            np.asarray(buf)
        assert np.asarray(buf[0]).shape == (1456,)
