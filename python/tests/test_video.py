"""Plain capture, each time from a board in a process of its own."""

from __future__ import annotations

import pytest
from started import alone

BOARD = """
import gc, os, signal, threading, time
import numpy
from tessaline.errors import *
from tessaline.errors import TimeoutError
from tessaline.video import Channel
from unstarted import HEIGHT, WIDTH, module, trigger

def channel(**also):
    return Channel("/dev/video0", WIDTH, HEIGHT, virtual=True, **also)
"""


def on_a_board(code: str) -> None:
    lines = code.strip("\n").split("\n")
    indent = len(lines[0]) - len(lines[0].lstrip())
    alone(BOARD + "\n".join(line[indent:] for line in lines))


def test_frames_are_kept_as_they_came() -> None:
    on_a_board(
        """
        with channel(buffers=3, tag=7) as c:
            assert c.buffers == 3
            trigger(True)
            kept = list(c.frames(40, timeout=10))
            sums = [int(frame.pixels.sum()) for frame in kept]
            for frame in c.frames(20):
                pass
        trigger(False)
        gc.collect()
        assert [int(frame.pixels.sum()) for frame in kept] == sums
        assert all(frame.pixels.shape == (HEIGHT, WIDTH) for frame in kept)
        assert all(frame.pixels.dtype == numpy.uint8 for frame in kept)
        assert [frame.sequence - kept[0].sequence for frame in kept] == list(range(40))
        ids = [int.from_bytes(frame.pixels[-1, :8].tobytes(), "little") for frame in kept]
        assert [one - ids[0] for one in ids] == list(range(40))
        assert {frame.tag for frame in kept} == {7}
        assert {frame.index for frame in kept} == {0, 1, 2}
        assert len({frame.pixels.ctypes.data for frame in kept}) == 40
        """
    )


def test_a_stopped_channel_goes_on() -> None:
    on_a_board(
        """
        with channel() as c:
            trigger(True)
            for _ in range(3):
                assert len(list(c.frames(5, timeout=10))) == 5
                c.stop()
            c.start()
            c.start()
            assert c.frame(timeout=10)
        trigger(False)
        """
    )


def test_waiting_ends_in_time() -> None:
    on_a_board(
        """
        with channel() as c:
            began = time.monotonic()
            with pytest.raises(TimeoutError, match="no frame of /dev/video0 within 0.2 s"):
                c.frame(timeout=0.2)
            assert 0.15 < time.monotonic() - began < 5
            with pytest.raises(TimeoutError):
                c.frame(timeout=0)
            for wrong in (-1, float("nan"), float("inf")):
                with pytest.raises(RefusedError, match="timeout is"):
                    c.frame(wrong)
        """
    )


def test_ctrl_c_ends_a_wait_and_so_does_close() -> None:
    on_a_board(
        """
        c = channel()
        threading.Timer(0.3, os.kill, (os.getpid(), signal.SIGINT)).start()
        with pytest.raises(KeyboardInterrupt):
            c.frame()
        threading.Timer(0.3, c.close).start()
        with pytest.raises(DeviceGone, match="the channel of /dev/video0 is closed"):
            c.frame()
        c.close()
        for call in (c.start, c.stop, c.frame):
            with pytest.raises(DeviceGone, match="is closed; open another one"):
                call()
        """
    )


def test_other_threads_run_while_a_frame_is_waited_for() -> None:
    on_a_board(
        """
        turns = 0
        done = False
        def turn():
            global turns
            while not done:
                turns += 1
        thread = threading.Thread(target=turn)
        with channel() as c:
            thread.start()
            with pytest.raises(TimeoutError):
                c.frame(timeout=0.5)
            seen = turns
            done = True
            thread.join()
        assert seen > 1000, seen
        """
    )


@pytest.mark.parametrize(
    "fault, words",
    [
        ('"open", 0, 0, 13', "Permission denied (open)"),
        ('"VIDIOC_QUERYCAP", 0, 0, 5', "Input/output error (open)"),
        ('"VIDIOC_S_FMT", 0, 0, 22', "Invalid argument (format)"),
        ('"VIDIOC_REQBUFS", 0, 0, 16', "Device or resource busy (buffers)"),
    ],
)
def test_what_cannot_be_set_up_is_an_error(fault: str, words: str) -> None:
    on_a_board(
        f"""
        module.board_fault("video0", {fault})
        with pytest.raises(StartUpError) as caught:
            channel()
        assert {words!r} in caught.value.what, caught.value
        assert caught.value.advice
        module.board_clear_faults()
        channel().close()
        """
    )


def test_bad_arguments_touch_nothing() -> None:
    on_a_board(
        """
        module.board_transcript_clear()
        for size in ((0, 10), (10, 0), (-1, 10), (10, 2**16)):
            with pytest.raises(RefusedError):
                Channel("/dev/video0", *size, virtual=True)
        for also in ({"buffers": 0}, {"buffers": 33}, {"tag": -1}):
            with pytest.raises(RefusedError):
                channel(**also)
        for wrong in (1.5, "5", None, True, float("nan")):
            with pytest.raises(TypeError):
                channel(buffers=wrong)
        with pytest.raises(TypeError):
            Channel(5, WIDTH, HEIGHT, virtual=True)
        assert module.board_transcript(False) == ""
        with pytest.raises(StartUpError, match="/dev/nowhere cannot be captured from: No such"):
            Channel("/dev/nowhere", WIDTH, HEIGHT, virtual=True)
        with pytest.raises(StartUpError, match="for the real board|for a virtual board"):
            Channel("/dev/video0", WIDTH, HEIGHT)
        """
    )


def test_a_device_that_is_gone() -> None:
    on_a_board(
        """
        with channel() as c:
            trigger(True)
            c.frame(timeout=10)
            module.board_unplug()
            with pytest.raises(DeviceGone, match="/dev/video0: frame failed: .*is the device"):
                for _ in c.frames(timeout=5):
                    pass
        """
    )
