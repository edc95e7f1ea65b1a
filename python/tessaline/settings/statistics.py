"""What became of every frame."""

from __future__ import annotations

from dataclasses import dataclass

from .._calls import ALL_ONES_64
from ._group import Group, Reading

_IMAGES = 0
_STRIPS = 1


@dataclass(frozen=True)
class CaptureStatistics:
    """Counters of one stream, all of the same moment.

    ``dequeued = delivered + suppressed + released + malformed`` holds always. A frame is one buffer
    of a capture device: an image, or a buffer with several strips.

    Attributes:
        dequeued: frames taken from the device's queue.
        delivered: of these, passed on whole.
        suppressed: whole, but withheld on purpose: taken before the acquisition began.
        released: whole, but nobody was registered for them.
        malformed: damaged.
        dequeue_errors: failed attempts to dequeue; no frame is lost by one.
        ids_seen: frame ids read, one an image or strip.
        id_gaps: places where an id did not follow its predecessor.
        ids_missing: ids missing in those gaps: frames that were made but never seen here.
        ids_out_of_order: ids that cannot come next.
        callbacks: calls of the handler that have returned.
        callback_total_ns: time spent in them, nanoseconds.
        callback_mean_ns: of one call, rounded down; 0 without calls.
        callback_max_ns: the longest call.
    """

    dequeued: int
    delivered: int
    suppressed: int
    released: int
    malformed: int
    dequeue_errors: int
    ids_seen: int
    id_gaps: int
    ids_missing: int
    ids_out_of_order: int
    callbacks: int
    callback_total_ns: int
    callback_mean_ns: int
    callback_max_ns: int


class Statistics(Group):
    """Counters of frames. Threads: any.

    Example:
        >>> before = sensor.statistics.strips
        >>> ...
        >>> sensor.statistics.strips.ids_missing - before.ids_missing
        0
    """

    @property
    def images(self) -> CaptureStatistics:
        """Counters of the image stream, /dev/video0, since the process began or the last reset."""
        return self._read(_IMAGES)

    @property
    def strips(self) -> CaptureStatistics:
        """Counters of the strip stream, /dev/video1, likewise."""
        return self._read(_STRIPS)

    def reset(self) -> None:
        """Sets the counters of both streams to 0."""
        for stream in (_IMAGES, _STRIPS):
            self._calls.set("TessalineResetCaptureStatistics", stream)

    lost_buffers = Reading(
        "GetCallbackLostNum",
        int,
        register="CALLBACK_LOST_NUM",
        doc="""Frames that the FPGA lost because no buffer was free.""",
    )
    released_strips = Reading(
        "GetStripReleaseNum",
        int,
        bad=ALL_ONES_64,
        doc="""Strips dropped because nobody was registered for them.""",
    )

    def reset_lost_buffers(self) -> None:
        """Clears `lost_buffers`. The library's function says -1 even when it has."""
        self._calls.set("ResetCallbackLostNum", good=(-1,))

    def reset_released_strips(self) -> None:
        """Clears `released_strips`."""
        self._calls.set("ResetStripReleaseNum")

    def _read(self, stream: int) -> CaptureStatistics:
        result, counters = self._calls.raw("TessalineGetCaptureStatistics", stream)
        if result != 0:
            raise self._calls.refused("TessalineGetCaptureStatistics", (stream,))
        return CaptureStatistics(**counters)
