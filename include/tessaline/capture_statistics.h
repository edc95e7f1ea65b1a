/**
 * @file
 * What became of every frame the capture threads took from their devices: nothing that
 * is lost is lost silently.
 *
 * A *frame* is one buffer of a capture device: one image, or one buffer of strips with
 * as many strips as the FPGA put in. Every frame ends in exactly one of four ways, so
 * that in every snapshot, also one taken while frames arrive and whatever was reset when,
 *
 *     dequeued = delivered + suppressed + released + malformed
 *
 * A frame is counted when the library is done with it; one that is in a handler at the
 * moment of the snapshot is in none of the counters yet.
 *
 * The counters start at 0 with the process, and only TessalineResetCaptureStatistics()
 * sets them back: they survive the end of a capture thread, ResetFrameID() and a change
 * of the collect mode. The images of the IMX252's self-test in RegisterHardwareInit() are
 * among them.
 *
 * What is lost before it reaches a capture device shows as ids missing. Its cause is
 * told elsewhere: GetCallbackLostNum() counts what the FPGA dropped because no buffer
 * was free, GetXtrigLostSta() triggers that came too early to become a frame at all.
 *
 * Return values and the meaning of "Threads" are explained in tessaline.h. Both functions
 * work before start-up, too.
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

/** Counters of one stream since the process began or they were last reset. */
struct tessaline_capture_statistics {
  /** Frames taken out of the device's queue. */
  uint64_t dequeued;
  /** Of these, given to the handler whole; a buffer of no strips is among them. */
  uint64_t delivered;
  /**
   * Whole, and kept from the handler on purpose. Images: the time stamp is 0 or not beyond
   * that of the last SetGlobalControl(0). Both streams: the thread is being ended.
   */
  uint64_t suppressed;
  /**
   * Whole, but no handler was registered. GetStripReleaseNum() counts the strips in them,
   * and besides, what this does not, the readable strips of malformed buffers.
   */
  uint64_t released;
  /**
   * Damaged. Strips: one does not fit into the buffer, or the buffer not into its memory; a
   * handler gets those before it all the same. Images: the image does not fit into its
   * frame, which no handler gets, or its header reads all ones, which a handler gets.
   */
  uint64_t malformed;

  /**
   * Times the device failed instead of handing out a frame: no frame went with it. The
   * thread tries again after 10 ms, then after longer pauses of up to a second.
   */
  uint64_t dequeue_errors;

  /**
   * Frame ids read: of the images, or of the single strips, that are whole. All ids below
   * are of these, whether a handler got them or not.
   */
  uint64_t ids_seen;
  /**
   * Places where an id was not the one after the id before. ResetFrameID() and
   * SetCollectMode(), which sends the ids of one stream to the other, make none.
   */
  uint64_t id_gaps;
  /**
   * Ids left out in those places: images or strips that were made and never seen here,
   * those that could not be read for damage among them.
   */
  uint64_t ids_missing;
  /**
   * Ids that cannot come next: not above the one before, or ahead of it by more than
   * 2^32. An old frame that came again, a header that was not written. After two such
   * that follow each other the count goes on from there.
   */
  uint64_t ids_out_of_order;

  /** Calls of the handler that have returned. */
  uint64_t callbacks;
  /** Time spent in them altogether, in nanoseconds. */
  uint64_t callback_total_ns;
  /** callback_total_ns / callbacks, rounded down; 0 without any. */
  uint64_t callback_mean_ns;
  /**
   * The longest of them, in nanoseconds. A handler that takes longer than the frames'
   * distance times the number of buffers (10 for images, 18 for strips) loses frames.
   */
  uint64_t callback_max_ns;
};

/**
 * Takes a snapshot of a stream's counters. All of them are of the same moment.
 *
 * @param stream  one of enum tessaline_stream
 * @param out     receives the counters
 * @return 0; -1, with an ERROR in the log and nothing written, for another stream and for
 *         a null pointer.
 *
 * The capture thread is not held up by it. Threads: any, handlers included.
 */
int TessalineGetCaptureStatistics(unsigned int stream, struct tessaline_capture_statistics* out);

/**
 * Sets a stream's counters to 0. The frame that is in a handler meanwhile belongs to the
 * time before.
 *
 * @param stream  one of enum tessaline_stream
 * @return 0; -1, with an ERROR in the log, for another stream.
 *
 * The capture thread is not held up by it. Threads: any, handlers included.
 */
int TessalineResetCaptureStatistics(unsigned int stream);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
