/**
 * @file
 * What became of every frame that the capture threads took from their devices. No loss
 * goes uncounted.
 *
 * A *frame* is one buffer of a capture device: one image, or one buffer of strips with
 * as many strips as the FPGA put in. Every frame ends in exactly one of four ways, so in
 * every snapshot, even one taken while frames arrive or right after a reset,
 *
 *     dequeued = delivered + suppressed + released + malformed
 *
 * A frame is counted when the library is done with it. A frame that is in a handler at
 * the moment of the snapshot is not counted yet.
 *
 * The counters start at 0 with the process. Only TessalineResetCaptureStatistics() resets
 * them: they survive the end of a capture thread, ResetFrameID() and a change of the
 * collect mode. They include the images of the IMX252's self-test in
 * RegisterHardwareInit().
 *
 * A frame lost before it reaches a capture device shows as a missing id. Other counters
 * tell the cause: GetCallbackLostNum() counts what the FPGA dropped because no buffer
 * was free, GetXtrigLostSta() counts triggers that came too early to become a frame.
 *
 * Return values and the meaning of "Threads" are explained in tessaline.h. Both functions
 * also work before start-up.
 *
 * @code
 *   struct tessaline_capture_statistics seen;
 *   if (TessalineGetCaptureStatistics(TESSALINE_STREAM_STRIPS, &seen) == 0) {
 *     printf("%" PRIu64 " of %" PRIu64 " strips lost\n", seen.ids_missing,
 *            seen.ids_seen + seen.ids_missing);
 *   }
 * @endcode
 */
#ifndef TESSALINE_CAPTURE_STATISTICS_H
#define TESSALINE_CAPTURE_STATISTICS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** The two capture streams. */
enum tessaline_stream {
  TESSALINE_STREAM_IMAGES = 0, /**< /dev/video0, to the handler of TESSALINE_EVENT_IMAGE */
  TESSALINE_STREAM_STRIPS = 1  /**< /dev/video1, to the handler of TESSALINE_EVENT_STRIP */
};

/** Counters of one stream since the process started or since the last reset. */
struct tessaline_capture_statistics {
  /** Frames taken from the device's queue. */
  uint64_t dequeued;
  /** Of these, passed to the handler whole. Includes buffers without strips. */
  uint64_t delivered;
  /**
   * Whole, but withheld from the handler on purpose. Images: the time stamp is 0 or not
   * later than the last SetGlobalControl(0). Both streams: the thread is being ended.
   */
  uint64_t suppressed;
  /**
   * Whole, but no handler was registered. GetStripReleaseNum() counts the strips in them;
   * unlike this counter, it also counts the readable strips of malformed buffers.
   */
  uint64_t released;
  /**
   * Damaged. Strips: a strip does not fit into the buffer, or the buffer does not fit into
   * its memory; the handler still gets the strips before it. Images: the image does not fit
   * into its frame (not delivered), or its header reads all ones (delivered).
   */
  uint64_t malformed;

  /**
   * Failed attempts to dequeue. No frame is lost by one. The thread tries again after
   * 10 ms, then after longer pauses of up to a second.
   */
  uint64_t dequeue_errors;

  /**
   * Frame ids read, one per whole image or strip. The id counters below refer to these,
   * whether a handler got them or not.
   */
  uint64_t ids_seen;
  /**
   * Places where an id did not follow its predecessor. ResetFrameID() makes no gap, nor
   * does SetCollectMode(), which moves the ids from one stream to the other.
   */
  uint64_t id_gaps;
  /**
   * Ids missing in those gaps: images or strips that were made but never seen here,
   * including those too damaged to read.
   */
  uint64_t ids_missing;
  /**
   * Ids that cannot come next: not above the previous one, or more than 2^32 ahead of it.
   * Such a frame is an old one delivered again, or its header was not written. After two
   * such ids in a row that follow each other, counting continues from there.
   */
  uint64_t ids_out_of_order;

  /** Calls of the handler that have returned. */
  uint64_t callbacks;
  /** Total time spent in them, in nanoseconds. */
  uint64_t callback_total_ns;
  /** callback_total_ns / callbacks, rounded down; 0 without callbacks. */
  uint64_t callback_mean_ns;
  /**
   * The longest call, in nanoseconds. A handler that takes longer than the frame period
   * times the number of buffers (10 for images, 18 for strips) loses frames.
   */
  uint64_t callback_max_ns;
};

/**
 * Takes a snapshot of a stream's counters, all at the same moment.
 *
 * @param stream  one of enum tessaline_stream
 * @param out     receives the counters
 * @return 0; -1 for another stream or a null pointer (ERROR in the log, nothing written).
 *
 * Does not hold up the capture thread. Threads: any, handlers included.
 */
int TessalineGetCaptureStatistics(unsigned int stream, struct tessaline_capture_statistics* out);

/**
 * Sets a stream's counters to 0. A frame that is in a handler at that moment counts as
 * before the reset.
 *
 * @param stream  one of enum tessaline_stream
 * @return 0; -1 for another stream (ERROR in the log).
 *
 * Does not hold up the capture thread. Threads: any, handlers included.
 */
int TessalineResetCaptureStatistics(unsigned int stream);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
