/**
 * @file
 * Choosing the product and starting the device.
 *
 * An application calls GetLibVersion() with its model code, then RegisterEventHandler()
 * for every callback it wants, then RegisterHardwareInit(). After that the rest of the
 * library works.
 *
 * There is no shut-down call. The process ends with exit(), or at SIGINT: the library's
 * handler stops the FPGA, ends the capture threads, releases their devices and exits with
 * status 0, within two seconds.
 */
#ifndef TESSALINE_STARTUP_H
#define TESSALINE_STARTUP_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/**
 * Selects the product, and silences the log below ERROR on standard error (as
 * log_set_level(TESSALINE_LOG_ERROR) does).
 *
 * The first three characters of the code choose the series, and a few words
 * anywhere in it a variant (case matters, the order does not):
 *
 * | code                           | series | sensor         | variant                   |
 * |--------------------------------|--------|----------------|---------------------------|
 * | K3610 .. K3660, other K36...   | 21     | IMX273         |                           |
 * | K3710 .. K3740, other K37...   | 22     | IMX252         |                           |
 * | K37... with ch16               | 22     | IMX252         | 16 channels               |
 * | K37... with ch16, arm_rebuild  | 22     | IMX252         | 16 channels, see below    |
 * | K3820 .. K3860, other K38...   | 23     | GMAX2509       |                           |
 * | K3810, exactly                 | 23     | GMAX2509       | half the rows             |
 * | K3910, K3920, other K39...     | 24     | GSPRINT6502BSI |                           |
 * | K39... with arm_rebuild        | 24     | GSPRINT6502BSI | see below                 |
 * | K4010 .. K4040, other K40...   | 25     | e2v Flash 4K   |                           |
 * | K40... with arm_rebuild        | 25     | e2v Flash 4K   | see below                 |
 *
 * arm_rebuild: the processor reconstructs the points, and strips carry 2 bytes per
 * point; on series 24 and 25, SetBrFlag() and SetContinuousFlag() make them longer.
 *
 * The first code of a known series is final for the process; a later one only
 * changes the stored model text. An unknown code, while no series is selected, is
 * reported in two lines on standard output, and the model text is stored.
 *
 * @param model  model code. NULL raises std::logic_error.
 * @return 41915, the version of this interface, even if the code is unknown.
 *
 * Threads: before any other function of the library, from one thread.
 */
int GetLibVersion(const char* model);

/** What RegisterEventHandler() can report. */
enum tessaline_event {
  TESSALINE_EVENT_IMAGE = 0,            /**< a camera image: tessaline_frame_handler */
  TESSALINE_EVENT_STRIP = 1,            /**< a buffer of strips: tessaline_frame_handler */
  TESSALINE_EVENT_EXTERNAL_TRIGGER = 2, /**< external trigger pulse: tessaline_trigger_handler */
  TESSALINE_EVENT_DA_ARRIVED = 3        /**< the DA value was taken over: tessaline_event_handler */
};

/**
 * Receives images or strips, on the thread that captures them.
 *
 * Images: (width, height, pixels). width x height bytes, one per pixel, are followed by
 * a header of 32 bytes: frame id, time stamp, encoder stamp (three little-endian
 * 64-bit numbers) and 8 bytes without a meaning. Images with time stamp 0 are not
 * delivered, nor are images exposed up to the last SetGlobalControl(0).
 *
 * Strips: (strip count, bytes of all strips, first strip). Each strip is a header of
 * 32 bytes (frame id, time stamp, encoder stamp, point count, as above) and its
 * points; the next one follows without a gap. The count may be 0.
 *
 * The memory is the driver's buffer and goes back to the driver when the handler
 * returns. Copy what you need later. While you hold it, capture has one buffer less.
 */
typedef void (*tessaline_frame_handler)(unsigned int first, unsigned int second, void* data);

/** Receives the level of the trigger input (0 or 1), read after the interrupt. Runs on its own
 *  thread. */
typedef void (*tessaline_trigger_handler)(unsigned int level);

/** The type of a handler for TESSALINE_EVENT_DA_ARRIVED. Cast all others to it. */
typedef void (*tessaline_event_handler)(void);

/**
 * Registers the handler of an event. It replaces the previous one.
 *
 * @param type      one of enum tessaline_event; any other value is ignored
 * @param callback  the handler, cast to tessaline_event_handler. NULL: images are
 *                  dropped and strips counted as released (GetStripReleaseNum());
 *                  for the other two the process ends at the first interrupt, so
 *                  register before SetExtTriggerState(1) and SetDADelayState(1).
 *
 * Threads: before RegisterHardwareInit(), or before the event's notifier is
 * switched on. Do not replace a handler while it may be called.
 *
 * @code
 *   static void on_strips(unsigned int strips, unsigned int bytes, void* data);
 *   ...
 *   RegisterEventHandler(TESSALINE_EVENT_STRIP, (tessaline_event_handler)on_strips);
 * @endcode
 */
void RegisterEventHandler(int type, tessaline_event_handler callback);

/**
 * Sets up the board's devices, puts FPGA and image sensor into a known state and
 * starts the two capture threads. Returns when both threads have set up their
 * devices; there is no time-out. From then on SIGINT ends the process in order.
 *
 * Afterwards: collect mode 1 (images), one exposure per cycle, trigger mode 3,
 * trigger spacing 4000, global control off, laser mode 0, sensor reading all
 * pixels.
 *
 * @return 0, even when the sensor could not be initialised (reported on standard
 *         output). -1 when no model is selected or the device is already started (one
 *         ERROR in the log, nothing else is done), and when the register lock cannot be
 *         initialised ("fpga_contol mutex init failed!" on standard output). -1 with
 *         one ERROR when there is no memory or thread left; you may call it again then.
 *
 * A capture device that cannot be set up does not fail the call: the log says so, and
 * its handler is never called.
 *
 * If the clocks of an e2v Flash 4K never lock, or the chip stays busy, the call never
 * returns and prints a line on standard output for every poll. A bus failure while
 * waiting for the clocks ends the wait.
 *
 * The IMX252 (K37...) tests itself in this call: it triggers one to three images, which
 * reach the image handler. They are dark, because the laser is off.
 *
 * Neither exit() nor SIGINT switches the laser off: call CloseLaser() for that. If the
 * FPGA's registers were ever out of reach (see fpga_read_addr()), SIGINT ends the process
 * without stopping the FPGA. docs/threads-and-signals.md describes what SIGINT waits for
 * and what is cut off after two seconds.
 *
 * Threads: from one thread, once, before anything else touches the FPGA.
 */
int RegisterHardwareInit(void);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
