/**
 * @file
 * Exposure and image sensor.
 *
 * Which sensor a product carries is in GetLibVersion()'s table. What one sensor
 * cannot do, the others' drivers refuse in one line on the standard output.
 *
 * Return values, behaviour before start-up and the meaning of "Threads" are
 * explained in tessaline.h.
 */
#ifndef TESSALINE_SENSOR_H
#define TESSALINE_SENSOR_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* --- Exposure --------------------------------------------------------------------------- */

/**
 * Sets how many exposures, each with a time of its own, make a cycle.
 *
 * @param count  1 to 5
 * @return 0; -1 for another count (no register is touched), when the register cannot
 *         be written, and before start-up.
 *
 * Register: IMAGE_BLOCK_0 EXPOSURE_NUM bits 0-2. Threads: any.
 */
int SetExposureNum(unsigned int count);

/** @return exposures a cycle; all ones before start-up. Threads: any. */
unsigned int GetExposureNum(void);

/**
 * Sets an exposure time.
 *
 * @param index  1 to 5, which exposure of the cycle
 * @param time   microseconds; the FPGA receives it in steps of the sensor, rounded up
 * @return 0; -1 for another index (an ERROR in the log; no register is touched), and
 *         before start-up.
 *
 * Register: IMAGE_BLOCK_0 EXP_TIME_<index>. Threads: one.
 *
 * @code
 *   SetExposureNum(2);
 *   SetExposureTime(1, 100);  // bright parts
 *   SetExposureTime(2, 800);  // dark parts
 * @endcode
 */
int SetExposureTime(unsigned int index, unsigned int time);

/**
 * Sets the analogue gain.
 *
 * @param gain  in the sensor's own steps; what is out of its range is clamped
 * @return unlike other setters: 1 for success, 0 when the sensor could not be
 *         written, -1 before start-up.
 *
 * Threads: one.
 */
int SetCmosGain(unsigned int gain);

/* --- High dynamic range ----------------------------------------------------------------- */

/**
 * Selects the sensing mode of the sensors that have one.
 *
 * @param mode  e2v Flash 4K: the sensor's mode. GSPRINT6502BSI: 0 plain, 1 high
 *              dynamic range; the sensor takes any other value as 1, the FPGA its
 *              bit 0. Without effect on the others.
 * @return 0, or -1 before start-up.
 *
 * Register: IMAGE_BLOCK_0 HDR_CTRL bit 0. Threads: one.
 */
int SetSensingMode(unsigned int mode);

/**
 * Sets the high-dynamic-range parameters of the e2v Flash 4K. Without effect on
 * other sensors.
 *
 * @return 0, or -1 before start-up.
 *
 * Threads: one.
 */
int SetHDRParam(unsigned int first, unsigned short second);

/**
 * Splits the exposure of the GSPRINT6502BSI into segments. Without effect on other
 * sensors.
 *
 * @param first   first segment as a fraction of exposure 1 (0 to 1)
 * @param second  second segment, likewise; the third is the rest
 * @param third   not used
 *
 * Set the exposure time before: the segments are computed from it, in ticks.
 *
 * Registers: IMAGE_BLOCK_0 HDR_CTRL bits 1-31, HDR_SEG2, HDR_SEG3, HDR_GAP,
 * HDR_TOTAL. Threads: one.
 */
void SetHDRParam24(double first, double second, double third);

/**
 * Switches continuous acquisition of the GSPRINT6502BSI. Without effect on other
 * sensors. SetContinuousFlag() is another matter: the layout of strips.
 *
 * @param continuous  written as it is
 *
 * Register: REBUILD_BLOCK_4 FPGA_CONTINUOUS. Threads: any.
 */
void SetFpgaContinuous(unsigned int continuous);

/* --- Readout ---------------------------------------------------------------------------- */

/**
 * Selects how the sensor is read. Stops and re-programs it.
 *
 * @param mode  0x00 every pixel; 0x11 half the width and half the height; 0x22 a
 *              second reduced readout of the IMX252 and IMX273. 0x00 and 0x11 set the
 *              region of interest to the whole (or halved) image, its offsets stay.
 * @return 0; -1 for a mode the sensor does not know, when it cannot be programmed,
 *         and before start-up. The mode and region are recorded even then.
 *
 * Threads: one.
 */
int SetDriveMode(unsigned int mode);

/** @return the mode last asked for; all ones before start-up. Threads: any. */
unsigned int GetDriveMode(void);

/**
 * Sets the region of interest.
 *
 * @param x, y           first column and row
 * @param width, height  size in pixels; which steps and limits hold depends on the sensor
 * @return 0; -1 when the sensor refuses (told on the standard output) or cannot be
 *         programmed, and before start-up. The region is recorded even then. The
 *         IMX273 returns 0 also when its crop registers could not be written; its
 *         text on the standard output tells.
 *
 * Images delivered from the next one on have the new size. Threads: one.
 */
int SetROI1(unsigned int x, unsigned int y, unsigned int width, unsigned int height);

/**
 * Selects the direction in which the sensor is read.
 *
 * @param direction  0 normal, 1 rows reversed, 2 columns reversed, 3 both
 * @return 0; -1 for a direction the e2v Flash 4K does not know, when the sensor
 *         cannot be programmed, and before start-up. The Sony sensors take any value
 *         as it is: keep to 0 to 3.
 *
 * Threads: one. The encoder's reverse mode is SetReverseMode_io().
 */
int SetReverseMode(unsigned int direction);

/** @return width of the region of interest; all ones before start-up. Threads: any. */
unsigned int GetImageWidth(void);

/** @return height of the region of interest; all ones before start-up. Threads: any. */
unsigned int GetImageHeight(void);

/**
 * @return the sensor's full size: width in the upper 16 bits, height in the lower;
 *         all ones before start-up. Threads: any.
 */
unsigned int GetCmosMaxDrive(void);

/**
 * @return the constant from which an application works out the highest frame rate
 *         of the current readout, packed by the sensor's driver; all ones before
 *         start-up. Threads: one.
 */
unsigned int TransferMaxFrameValue(void);

/**
 * Asks the sensor for its temperature. The code itself is not returned.
 *
 * @return -1 when the sensor reports code 0 (a sensor without a thermometer), and
 *         before start-up; else 0. Also 0 when the sensor does not answer: that is
 *         told on the standard output.
 *
 * Threads: one.
 */
int GetSensorTemp(void);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
