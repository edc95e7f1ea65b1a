/**
 * @file
 * Control interface of the virtual board, libtessaline-board.so.
 *
 * The virtual board stands in front of the C library's file calls. Load it with LD_PRELOAD
 * or link a program with it, and the device nodes of one sensor board exist for that
 * process. This header shows the board from the other side: for tests, and for programs
 * that plant faults.
 *
 * Unless a program calls this interface, the environment sets up the board:
 *   TESSALINE_BOARD             model code; without it nothing is interposed
 *   TESSALINE_BOARD_SLEEP       factor on every sleep of the process; 0 skips them (1)
 *   TESSALINE_BOARD_PACE        "real" (default), or "free": triggers come as fast
 *                               as buffers are returned
 *   TESSALINE_BOARD_STRIPS      strips per strip buffer (10)
 *   TESSALINE_BOARD_OPTICS      "ideal" (default), "real" or "real:SEED", see
 *                               tessaline_board_set_optics()
 *   TESSALINE_BOARD_SCENE       "belt" (default) or a target, see tessaline_board_set_scene()
 *   TESSALINE_BOARD_FAULTS      faults planted at power-up: "call video1 VIDIOC_DQBUF EIO; absent
 *                               eeprom", or "@FILE"; see docs/virtual-board.md
 *   TESSALINE_BOARD_REPLAY      set by "tessaline replay": where recorded frames come from
 *   TESSALINE_BOARD_SHARED      set by "tessaline-board run": the memory of the board that its
 *                               programs share
 *   TESSALINE_BOARD_STATE       folder for what the board keeps without power: EEPROM and
 *                               potentiometer
 *   TESSALINE_BOARD_FOLDERS     set by "tessaline-board run": where the working folders are that
 *                               only the board has
 *   TESSALINE_BOARD_TRANSCRIPT  file that receives the transcript at process exit;
 *                               JSON lines when its name ends in ".json"; other processes that
 *                               inherit it write files beside it, "log.NAME-PID.txt"
 *   TESSALINE_BOARD_STRICT      no program that would be without the board is started
 *
 * Threads: every function may be called from any thread.
 *
 * Null pointers are refused: the function returns what it returns on failure, or does nothing if
 * it returns nothing.
 */
#ifndef TESSALINE_BOARD_H
#define TESSALINE_BOARD_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* --- The board as a whole ------------------------------------------------------------- */

/**
 * Plugs in the board of a product and powers it up: registers, chips, counters
 * and frame streams at their reset values, faults and transcript empty. It is this
 * process's own, also where programs share another one.
 *
 * @param model  model code; its first three characters choose the board, the rest
 *               may choose a variant ("K3810", "...arm_rebuild", "...ch16...")
 * @return 0, or -1 for an unknown model (nothing changes).
 */
int tessaline_board_select(const char* model);

/** Unplugs the board: its device nodes disappear. Open descriptors fail with ENODEV. */
void tessaline_board_unplug(void);

/**
 * Scales the sleeps of the process (usleep, nanosleep, sleep, relative
 * clock_nanosleep). The transcript shows the length asked for.
 *
 * @param factor  1 sleeps as asked, 0 not at all. Time not slept is added to the board's
 *                clock, so its counters advance as if the process had slept.
 */
void tessaline_board_set_sleep_factor(double factor);

/** When timed triggers occur. */
enum tessaline_board_pace {
  TESSALINE_BOARD_REAL_TIME, /**< a trigger per trigger spacing; no free buffer: lost */
  TESSALINE_BOARD_FREE_RUN   /**< a trigger whenever a buffer is free; none is lost */
};
/** Sets when timed triggers occur. */
void tessaline_board_set_pace(enum tessaline_board_pace pace);

/** Strips the FPGA packs into one strip buffer (1 .. what fits); fewer after 50 ms. */
void tessaline_board_set_strips_per_buffer(unsigned strips);

/**
 * Sets through what the camera sees the laser line, from the next frame on.
 *
 * @param optics  "ideal" (after select): linear, exact, without noise. "real:SEED": a head with
 *                perspective, lens distortion, speckle, shadows and missing points; each seed
 *                (0 to 2^64 - 1) is another head, the same one on every machine. "real" is
 *                "real:1".
 * @return 0, or -1 when there is no board or no such optics (nothing changes)
 *
 * docs/virtual-board.md has the formulas.
 */
int tessaline_board_set_optics(const char* optics);

/**
 * Sets what is in front of the sensor, from the next frame on.
 *
 * @param scene  "belt" (after select): the moving belt with its objects. "plane", "sawtooth" or
 *               "stairs": a calibration target, the same everywhere along the movement. It can be
 *               followed by its pose in the laser plane, ",x=MM,z=MM,tilt=DEGREES" in any order:
 *               turned about its origin, then shifted. x and z: -50 to 50, tilt: -15 to 15; 0
 *               when not given.
 * @return 0, or -1 when there is no board or no such scene (nothing changes)
 */
int tessaline_board_set_scene(const char* scene);

/**
 * Recorded frames and events come in the place of those of the scene, as
 * docs/virtual-board.md describes. After select, before software uses the board.
 *
 * @param rings  "IMAGES STRIPS EVENTS STATE SPEED", as in TESSALINE_BOARD_REPLAY: the paths of four
 *               rings, and how much faster than recorded; 0: as fast as frames are taken.
 *               "tessaline replay" fills such rings.
 * @return 0, or -1 when there is no board or a ring is not there (nothing changes)
 */
int tessaline_board_replay(const char* rings);

/* --- Transcript ------------------------------------------------------------------------ */

/** How a transcript is written. */
enum tessaline_board_format {
  TESSALINE_BOARD_TEXT,      /**< one line per event */
  TESSALINE_BOARD_JSON_LINES /**< one object per event, with time and thread */
};

/**
 * Everything that crossed the system-call surface since power-up or the last
 * clear, in order. Text has one line per event, "<device> <operation> <details>", for
 * example "fpga write IMAGE_BLOCK_1 TRI_SPACING = 0x00030d40" or "sleep 1000". It has no
 * times or threads, so two runs compare equal. JSON lines have both.
 *
 * @return the text; the caller frees it with free()
 */
char* tessaline_board_transcript(enum tessaline_board_format format);

/**
 * Writes the transcript to a file, as JSON lines when the name ends in ".json". Does not
 * use the heap, so it also works in a process that is ended in the middle of malloc.
 *
 * @return 0; -1 with errno, EFAULT for a null path
 */
int tessaline_board_transcript_save(const char* path);

/** Empties the transcript. */
void tessaline_board_transcript_clear(void);

/** Stops (0) or resumes (1) recording. For long runs. */
void tessaline_board_transcript_enable(int enable);

/* --- FPGA registers -------------------------------------------------------------------- */

/**
 * Returns a register as the FPGA holds it, without a line in the transcript.
 *
 * @param block   VeltranoSDK::fpga::Block as a number
 * @param offset  byte offset in the block, a multiple of 4 below 0x100
 */
uint32_t tessaline_board_register_get(unsigned block, uint32_t offset);

/** Sets a register from the FPGA's side: no side effect, no transcript line. */
void tessaline_board_register_set(unsigned block, uint32_t offset, uint32_t value);

/* --- Faults ---------------------------------------------------------------------------- */

/** What to use in place of an errno. */
enum tessaline_board_fate {
  /** The call does half of its work: a read or write half the bytes, I2C_RDWR half
      the messages, SPI_IOC_MESSAGE half the bytes of each transfer; any other call is made
      in full. In the transcript: "<device> <operation> cut short". */
  TESSALINE_BOARD_SHORT = -1,
  /** The call is made normally. In the transcript: "<device> <operation> called". Use it to
      list every call that can be made to fail. */
  TESSALINE_BOARD_CALLED = 0
};

/**
 * Makes calls fail.
 *
 * @param device     device as the transcript names it ("fpga", "i2c-0", "spi1.0", "video1",
 *                   "gpio", ...), or "*"
 * @param operation  "open", "read", "write", "mmap", "poll", an ioctl's name
 *                   ("VIDIOC_DQBUF", "I2C_RDWR", "SPI_IOC_MESSAGE"), or "*"
 * @param skip       number of matching calls that succeed first
 * @param count      number of calls that then fail; 0: all
 * @param error      errno of the failure, or one of tessaline_board_fate
 */
void tessaline_board_fault(const char* device, const char* operation, unsigned skip, unsigned count,
                           int error);

/** What can go wrong with a frame. */
enum tessaline_board_frame_fault {
  TESSALINE_BOARD_FRAME_LOST,      /**< the frame never arrives, its id is used up */
  TESSALINE_BOARD_FRAME_LATE,      /**< it arrives 100 ms late */
  TESSALINE_BOARD_FRAME_TRUNCATED, /**< only its first half is written */
  TESSALINE_BOARD_FRAME_CORRUPT    /**< strips: the last strip's point count is beyond
                                        the buffer; images: the header is all ones */
};

/** Makes frames go wrong: stream 0 images, 1 strip buffers; skip and count as above. */
void tessaline_board_frame_fault(int stream, enum tessaline_board_frame_fault kind, unsigned skip,
                                 unsigned count);

/**
 * Sets whether the driver of a device implements poll. Without it poll, select and epoll
 * always find the device ready for everything, as with such drivers in the kernel;
 * VIDIOC_DQBUF and read still wait. Holds until the next tessaline_board_select().
 *
 * @param device       as the transcript names it: "video1", "uio0", ...
 * @param implemented  1 (default) or 0
 * @return 0, or -1 when the board has no such device
 */
int tessaline_board_set_poll(const char* device, int implemented);

/** Forgets all faults. */
void tessaline_board_clear_faults(void);

/**
 * Counts the open files of a device, to find descriptors that were left open.
 *
 * @param device  as the transcript names it: "i2c-0", "gpio", "iio", "uio0", ...
 * @return the number; -1 when the board has no such device or does not count its files
 *         (fpga, video)
 */
int tessaline_board_open_files(const char* device);

/* --- Chips ----------------------------------------------------------------------------- */

/**
 * Reads a chip's register or memory byte from the chip's own side.
 *
 * @param chip     "sensor", "pot", "da", "eeprom"
 * @param address  register address; the EEPROM has 512 bytes, the K40's sensor counts
 *                 page x 0x10000 + register
 * @return the value, or -1 when the board has no such chip or address
 */
int tessaline_board_chip_get(const char* chip, unsigned address);

/** Sets a chip's register or memory byte. @return 0, or -1 as for tessaline_board_chip_get() */
int tessaline_board_chip_set(const char* chip, unsigned address, unsigned value);

/** Fits (1) or removes (0) a chip. A missing chip does not answer on its bus: on I2C that is
 *  an error, on SPI it reads as 0. @return 0, or -1 when there is no such chip */
int tessaline_board_chip_present(const char* chip, int present);

/** Level of a GPIO line: 0 or 1; -1 when it is not exported as an output. */
int tessaline_board_gpio_level(unsigned line);

/** Sets the raw value that the temperature file returns. */
void tessaline_board_set_temperature_raw(unsigned raw);

/** Seconds until the armed watchdog bites; negative when it has bitten; -1000 when not armed. */
double tessaline_board_watchdog_left(void);

/* --- Inputs ---------------------------------------------------------------------------- */

/** Drives the external trigger input. A rising edge triggers in trigger mode 2; either
 *  edge raises the external-trigger interrupt when it is enabled. */
void tessaline_board_external_trigger(int level);

/** Reports that the DA converter has applied its value: raises the DA interrupt if enabled. */
void tessaline_board_da_arrived(void);

/** Interrupts raised on /dev/uio0 or /dev/uio1 since power-up. */
unsigned tessaline_board_interrupts(unsigned index);

/* --- Streams and scene: the truth to compare results with -------------------------------- */

/** What became of a stream's frames on the board's side since power-up. */
struct tessaline_board_stream_stats {
  uint64_t frames;    /**< images, or strips, the FPGA produced */
  uint64_t delivered; /**< of these, written into a buffer */
  uint64_t lost;      /**< no buffer was queued */
  uint64_t buffers;   /**< buffers handed to the driver's done queue */
};
/** Reads a stream's counters. stream 0: images, 1: strips. */
void tessaline_board_stream_stats(int stream, struct tessaline_board_stream_stats* out);

/**
 * Starts (1) or stops (0) keeping checksums of the last 65536 frames. They are taken before
 * planted frame faults, so a faulty frame does not match its checksum.
 */
void tessaline_board_keep_checksums(int enable);

/**
 * Looks up the checksum of a frame, as tessaline_board_checksum() makes it: for an image
 * over its pixels in natural order and the 32 bytes behind them, for a strip over its header
 * and points.
 *
 * @return 0, or -1 when there is no such frame, or no checksum of it (any more)
 */
int tessaline_board_frame_checksum(uint64_t frame_id, uint64_t* checksum);

/** The same checksum of any bytes; 0 for a null pointer. */
uint64_t tessaline_board_checksum(const void* data, size_t bytes);

/** Height of the scene in mm at (x across, y along the movement), both in mm. */
double tessaline_board_scene_height(double x_mm, double y_mm);

/** Row of the laser line on the full sensor for a height, in pixels; see docs/virtual-board.md. */
double tessaline_board_scene_row(double height_mm);

/** Where across the scene a column of the full sensor looks, in mm. */
double tessaline_board_scene_x(double column);

/** Encoder counts per mm of movement. */
double tessaline_board_scene_counts_per_mm(void);

/**
 * What a pixel of the full sensor sees in the laser plane, through the board's optics.
 *
 * @param column  of the full sensor, 0 at the centre of the first; may have a fraction
 * @param row     likewise
 * @param x_mm    receives the place across
 * @param z_mm    receives the height
 * @return 0, or -1 when there is no board or the result is not finite
 *
 * The functions named tessaline_board_scene_... are those of the ideal optics.
 */
int tessaline_board_point_to_mm(double column, double row, double* x_mm, double* z_mm);

/**
 * The same for the head of a seed on a sensor of any size. Needs no board.
 *
 * @param seed           as in "real:SEED"
 * @param sensor_width   columns of the full sensor, 16 to 32768
 * @param sensor_height  rows of the full sensor, 16 to 32768
 * @param column         of the full sensor
 * @param row            of the full sensor
 * @param x_mm           receives the place across
 * @param z_mm           receives the height
 * @return 0, or -1 when there is no such sensor or the result is not finite
 */
int tessaline_board_head_to_mm(uint64_t seed, unsigned sensor_width, unsigned sensor_height,
                               double column, double row, double* x_mm, double* z_mm);

/**
 * The laser line that the head of a seed sees on the full sensor. It is bright and not
 * saturated. Needs no board.
 *
 * @param seed           as in "real:SEED"
 * @param sensor_width   columns of the full sensor, 16 to 32768
 * @param sensor_height  rows of the full sensor, 16 to 32768
 * @param scene          as for tessaline_board_set_scene(); "belt" is the belt without objects
 * @param frame_id       frames of different ids, like different scenes, have different noise
 * @param noise          factor on the row's noise; 1 is that of the board's frames. 0: no noise,
 *                       and no points missing at random
 * @param rows           receives the line's row in each column; NaN where there is no point
 * @param columns        how many columns to compute, from column 0 on
 * @return 0, or -1 when there is no such sensor or scene, or the noise is negative or not finite
 */
int tessaline_board_head_line(uint64_t seed, unsigned sensor_width, unsigned sensor_height,
                              const char* scene, uint64_t frame_id, double noise, float* rows,
                              unsigned columns);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
