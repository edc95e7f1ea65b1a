/**
 * @file
 * Choosing the product and starting the device.
 *
 * An application calls, in this order and once each: GetLibVersion() with its
 * model code, RegisterEventHandler() for every callback it wants, then
 * RegisterHardwareInit(). Everything else of the library works from then on.
 *
 * There is no shut-down call. The process ends by exit(), or by SIGINT: the
 * library's handler stops the FPGA, ends the capture threads, releases their
 * devices and leaves with status 0, in two seconds at the most.
 */
#ifndef TESSALINE_STARTUP_H
#define TESSALINE_STARTUP_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/**
 * Selects the product, and silences the log below ERROR on the standard error
 * stream (as log_set_level(TESSALINE_LOG_ERROR) does).
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
 * arm_rebuild: the processor reconstructs the points, and strips carry 2 bytes a
 * point; on series 24 and 25 more with SetBrFlag() and SetContinuousFlag().
 *
 * The first code of a known series is final for the process; a later one only
 * changes the stored model text. A code of no known series, when none is selected
 * yet, is told in two lines on the standard output; the model text is stored.
 *
 * @param model  model code. NULL raises std::logic_error.
 * @return 41915, the version of this interface, whether the code is known or not.
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
 * Images: (width, height, pixels); width x height bytes, one a pixel, followed by
 * 32 bytes of header: frame id, time stamp, encoder stamp (three little-endian
 * 64-bit numbers) and 8 bytes that have no meaning. Images whose time stamp is
 * not beyond that of the last SetGlobalControl(0) do not arrive, nor do those with
 * time stamp 0.
 *
 * Strips: (strip count, bytes of all strips, first strip). Each strip is 32 bytes
 * of header - frame id, time stamp, encoder stamp, point count, as above - and its
 * points; the next one follows without a gap. The count may be 0.
 *
 * The memory is the driver's buffer. It goes back to the driver when the handler
 * returns, so copy what is needed later; and while it is held the capture has one
 * buffer less.
 */
typedef void (*tessaline_frame_handler)(unsigned int first, unsigned int second, void* data);

/** Receives the level of the trigger input (0 or 1), read after the interrupt, on its own thread.
 */
typedef void (*tessaline_trigger_handler)(unsigned int level);

/** Any handler is handed over as this type; one of TESSALINE_EVENT_DA_ARRIVED is of this type. */
typedef void (*tessaline_event_handler)(void);

/**
 * Registers the handler of an event, in place of the one before.
 *
 * @param type      one of enum tessaline_event; any other value is ignored
 * @param callback  the handler, cast to tessaline_event_handler. NULL: images are
 *                  dropped and strips counted as released (GetStripReleaseNum());
 *                  for the other two the process ends at the first interrupt, so
 *                  register before SetExtTriggerState(1) and SetDADelayState(1).
 *
 * Threads: before RegisterHardwareInit(), or before the event's notifier is
 * switched on; a handler must not be replaced while it may be called.
 *
 * @code
 *   static void on_strips(unsigned int strips, unsigned int bytes, void* data);
 *   ...
 *   RegisterEventHandler(TESSALINE_EVENT_STRIP, (tessaline_event_handler)on_strips);
 * @endcode
 */
void RegisterEventHandler(int type, tessaline_event_handler callback);

/**
 * Builds the board's devices, puts FPGA and image sensor into a known state and
 * starts the two capture threads. Returns when both have set up their devices,
 * which takes as long as they need: there is no time-out. From then on SIGINT
 * ends the process in order.
 *
 * Afterwards: collect mode 1 (images), one exposure a cycle, trigger mode 3,
 * trigger spacing 4000, global control off, laser mode 0, sensor reading all
 * pixels.
 *
 * @return 0, also when the sensor could not be initialised (told on the standard
 *         output). -1 when no model is selected or the device is already started (one
 *         ERROR in the log, nothing else is done), and when the register lock cannot be
 *         initialised ("fpga_contol mutex init failed!" on the standard output). -1 with
 *         one ERROR when there is no memory or thread left; it may be called again then.
 *
 * A capture device that cannot be set up does not fail the call: the log says so,
 * and its callback stays silent.
 *
 * An e2v Flash 4K whose clocks never lock, or that stays busy, holds the call for
 * ever, with a line on the standard output for every question; a bus that fails
 * while the clocks are awaited ends it.
 *
 * The IMX252 (K37...) tests itself in this call: one to three images are triggered
 * and reach the image handler, dark ones, as the laser is off.
 *
 * Neither exit() nor SIGINT switches the laser off: call CloseLaser() for that. When
 * the FPGA's registers were once out of reach (see fpga_read_addr()), SIGINT ends the
 * process without stopping the FPGA. docs/threads-and-signals.md tells what SIGINT waits
 * for, and what is cut when two seconds are over.
 *
 * Threads: from one thread, once, before anything else touches the FPGA.
 */
int RegisterHardwareInit(void);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
