/**
 * @file
 * Laser-line (strip) extraction, reconstruction and acquisition.
 *
 * Strips go to the handler of TESSALINE_EVENT_STRIP, see startup.h.
 *
 * Return values, behaviour before start-up and the meaning of "Threads" are
 * explained in tessaline.h.
 */
#ifndef TESSALINE_STRIP_H
#define TESSALINE_STRIP_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* --- What is acquired ------------------------------------------------------------------- */

/**
 * Routes the sensor's data to images or to strips.
 *
 * @param mode  1 images (after start-up), 0 strips
 * @return 0; -1 for another mode ("SetCollectMode error mode error" on standard
 *         output, no register is touched), when a register cannot be written, and
 *         before start-up.
 *
 * Also sets the exposure-count delta (mode 1: 6000, or 10000000 on series 24 and
 * 25; mode 0: 1) and adapts the sensor's line time where the series needs it.
 * Blocks for at least 1 ms.
 *
 * Registers: the stream switches in IMAGE_BLOCK_2 and IMAGE_BLOCK_4, REBUILD_BLOCK_4
 * COLLECT_MODE, IMAGE_BLOCK_0 EXPOSURE_NUM. Threads: one.
 */
int SetCollectMode(unsigned int mode);

/**
 * @return the mode last set, as the library remembers it (no register is read); all
 *         ones before start-up. Threads: any.
 */
unsigned int GetCollectMode(void);

/**
 * Selects which strip data the FPGA sends.
 *
 * @param mode  written unchanged. On series 24 modes 1 and 2 are swapped, because its
 *              FPGA numbers them the other way round.
 * @return 0; -1 when the register cannot be written, and before start-up.
 *
 * Register: REBUILD_BLOCK_4 STRIP_DATA_MODE. Threads: one.
 */
int SetStripDataMode(unsigned int mode);

/**
 * @return the mode as the FPGA holds it: on series 24, 2 after SetStripDataMode(1);
 *         all ones before start-up.
 *
 * Register: REBUILD_BLOCK_4 STRIP_DATA_MODE. Threads: any.
 */
unsigned int GetStripDataMode(void);

/**
 * Selects how strips are written to memory.
 *
 * @param strategy  written unchanged. With 1 a point takes 4 bytes, and the strip
 *                  count is read from the last 4 bytes of the buffer.
 * @return 0; -1 when a register cannot be written, and before start-up.
 *
 * The strip thread follows with the next buffer.
 *
 * Registers: REBUILD_BLOCK_0 STRIP_WRIMEM_STRATEGY, REBUILD_BLOCK_5
 * STRIP_WRIMEM_STRATEGY_WIDTH. Threads: one.
 */
int SetStripWriteMemMode(unsigned int strategy);

/* --- Extraction of the line ------------------------------------------------------------- */

/**
 * Sets the grey value above which a rise counts as the edge of the line.
 *
 * @param threshold  on series 21 the value the FPGA gets; on the others twice that
 *                   (half of it, rounded down, is written). More than 255 is written as
 *                   255.
 * @return 0; -1 when the register cannot be written, and before start-up.
 *
 * Register: REBUILD_BLOCK_1 RIS_THRESHOLD. Threads: any.
 */
int SetRisThresholdValue(unsigned int threshold);

/**
 * @return the FPGA's value, not scaled back; all ones before start-up.
 *
 * Register: REBUILD_BLOCK_1 RIS_THRESHOLD. Threads: any.
 */
unsigned int GetRisThresholdValue(void);

/**
 * Sets the smallest width of a line.
 *
 * @param width  pixels, 1 to 128; what is outside is clamped
 * @return 0; -1 when the register cannot be written, and before start-up.
 *
 * Register: REBUILD_BLOCK_1 STRIP_WIDTH_MIN. Threads: any.
 */
int SetStripWidthMin(unsigned int width);

/**
 * @return the smallest width in pixels; all ones before start-up.
 *
 * Register: REBUILD_BLOCK_1 STRIP_WIDTH_MIN. Threads: any.
 */
unsigned int GetStripWidthMin(void);

/**
 * Sets the largest width of a line.
 *
 * @param width  pixels, 1 to 128; what is outside is clamped
 * @return 0; -1 when the register cannot be written, and before start-up.
 *
 * Register: REBUILD_BLOCK_1 STRIP_WIDTH_MAX. Threads: any.
 */
int SetStripWidthMax(unsigned int width);

/**
 * @return the largest width in pixels; all ones before start-up.
 *
 * Register: REBUILD_BLOCK_1 STRIP_WIDTH_MAX. Threads: any.
 */
unsigned int GetStripWidthMax(void);

/* --- Reconstruction --------------------------------------------------------------------- */

/**
 * Loads the 21 coefficients of the reconstruction.
 *
 * @param values  21 signed numbers. Each is cut to the width of its register (0 to 8:
 *                23 bits; 9, 10, 12, 13, 15, 16: 29; 11, 14, 17: 26; 18 to 20: 18), and
 *                the array receives the values written.
 * @return 0; -1 for NULL, and before start-up.
 *
 * Prints the numbers on standard output before and after cutting.
 *
 * Registers: REBUILD_BLOCK_5 STRIP_REBUILD_0 .. STRIP_REBUILD_20. Threads: one.
 */
int SetStripRebuildValue(int32_t* values);

/**
 * Sets the range of measured values to keep.
 *
 * @param start, end  the low 26 bits count
 * @return 0, or -1 before start-up.
 *
 * Registers: REBUILD_BLOCK_5 MEASURING_RANGE_START, MEASURING_RANGE_END. Threads: any.
 */
int SetMeasuringRange(unsigned int start, unsigned int end);

/**
 * Tells the reconstruction where on the sensor the region of interest lies.
 *
 * @param x  first column; the low 12 bits count
 * @param y  first row; the low 13 bits count
 * @return 0, or -1 before start-up.
 *
 * Register: REBUILD_BLOCK_5 ROI_OFFSET bits 0-24. Threads: any. See also SetROI1(),
 * which does not do this.
 */
int SetRoiOffset(unsigned int x, unsigned int y);

/**
 * Sets the raster on which reconstructed points are sampled.
 *
 * @param start_x  first position
 * @param step_x   distance between positions
 * @param count_x  number of positions
 * @param fourth, fifth  passed to the FPGA unchanged
 * @return 0; -1 when a register cannot be written (reported on standard output; the
 *         ones after it are not written), and before start-up.
 *
 * Registers: REBUILD_BLOCK_5 RECONSTRUCTION_START_X, RECONSTRUCTION_STEP_X,
 * RECONSTRUCTION_CNT_X, SAMPLE_LINE_PARAM_4, SAMPLE_LINE_PARAM_5. Threads: one.
 */
int SetSampleLightLineParam(int32_t start_x, int32_t step_x, int32_t count_x, int32_t fourth,
                            int32_t fifth);

/* --- Layout of points ------------------------------------------------------------------- */

/**
 * Adds brightness to the points of strips.
 *
 * @param flag  0 off, anything else on
 *
 * The FPGA sends brightness on every product. On arm_rebuild products of series 24 and 25
 * it changes the layout: a point takes 4 bytes with brightness and 2 without (8 with the
 * continuous flag, which takes precedence), and the library counts accordingly.
 *
 * Registers: REBUILD_BLOCK_0 BR_CONT_MODE_A, REBUILD_BLOCK_5 BR_CONT_MODE_B.
 * Threads: one.
 */
void SetBrFlag(unsigned int flag);

/**
 * Switches the continuous layout of strips: 8 bytes per point on arm_rebuild products of
 * series 24 and 25.
 *
 * @param flag  0 off, anything else on; takes precedence over SetBrFlag()
 *
 * Registers: as in SetBrFlag(). Threads: one.
 */
void SetContinuousFlag(unsigned int flag);

/* --- Counters and buffers --------------------------------------------------------------- */

/**
 * Restarts the frame ids (the next frame has the first id again) and zeroes the strip and
 * image buffers.
 *
 * A buffer that a handler holds is left alone: the thread zeroes its stream's buffers when
 * the handler has returned. This call waits up to a second for that, unless it is made
 * from the handler itself.
 *
 * @return 0, or -1 before start-up.
 *
 * Register: REBUILD_BLOCK_4 FRAME_ID_RESET, a pulse of 1 us. Threads: one. Call it while
 * the acquisition is stopped: a frame the FPGA is writing would be half zeroed.
 */
int ResetFrameID(void);

/**
 * @return the FPGA's count of frames lost because no buffer was free; all ones
 *         before start-up.
 *
 * Register: REBUILD_BLOCK_2 CALLBACK_LOST_NUM. Threads: any.
 */
unsigned int GetCallbackLostNum(void);

/**
 * Clears the count of GetCallbackLostNum().
 *
 * @return always -1, although the count is cleared (except before start-up).
 *
 * Register: REBUILD_BLOCK_2 CALLBACK_LOST_RESET, a pulse of 1 us. Threads: any.
 */
int ResetCallbackLostNum(void);

/**
 * @return strips dropped because no strip handler was registered. Threads: any, also
 *         before start-up.
 */
uint64_t GetStripReleaseNum(void);

/** Sets the count of GetStripReleaseNum() to 0. @return 0. Threads: any, also before start-up. */
int ResetStripReleaseNum(void);

/**
 * Returns a strip buffer to the driver by its index.
 *
 * @param index  index of a buffer that was dequeued by index
 * @return 0; -1 when the driver refuses, and before start-up.
 *
 * The strip thread returns every buffer when the handler comes back, so an application
 * that receives strips through the handler does not need this. No exported function
 * dequeues by index: an ordinary application always gets -1, and nothing is touched.
 *
 * Device: /dev/video1. Threads: one.
 */
int QV4l2Buf(unsigned int index);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
