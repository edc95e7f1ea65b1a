/**
 * @file
 * Exposure and image sensor.
 *
 * GetLibVersion()'s table says which product has which sensor. Arguments differ from sensor
 * to sensor; each function lists them. A refusal by the sensor is reported in a line on
 * standard output; exceptions are noted.
 *
 * Only the Sony sensors (IMX273, IMX252) acknowledge what is written to them. An access
 * is tried up to ten times, 0.5 ms apart, before the function fails. The others are on an
 * SPI bus: a missing chip goes unnoticed, and functions that program it succeed. A bus
 * failure is reported on standard output ("SpiDev::..."). It fails functions of the
 * e2v Flash 4K, but not those of the GMAX2509 and GSPRINT6502BSI.
 *
 * Calls that may never return: the e2v Flash 4K is polled without a pause until it has
 * applied new settings. If the chip stays busy or can no longer be read, SetROI1(),
 * SetDriveMode() and SetSensingMode() never return and print a line on standard output for
 * every poll. The same goes for RegisterHardwareInit(), which also waits for the chip's
 * clocks. No lock is held meanwhile: functions marked "any" go on working on other
 * threads.
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
 * Sets how many exposures, each with its own time, make up a cycle.
 *
 * @param count  1 to 5
 * @return 0; -1 for another count (no register is touched), when the register cannot
 *         be written, and before start-up.
 *
 * Register: IMAGE_BLOCK_0 EXPOSURE_NUM bits 0-2. Threads: any.
 */
int SetExposureNum(unsigned int count);

/** @return exposures per cycle; all ones before start-up. Threads: any. */
unsigned int GetExposureNum(void);

/**
 * Sets an exposure time.
 *
 * @param index  1 to 5, which exposure of the cycle
 * @param time   microseconds; the FPGA receives it in steps of the sensor, rounded up:
 *
 * | sensor         | a step, in microseconds                                 |
 * |----------------|---------------------------------------------------------|
 * | IMX273         | 3.205387 in drive mode 0x00, 2.936027 in every other    |
 * | IMX252         | 2.936027 in drive mode 0x11, 4.175084 in every other    |
 * | GMAX2509       | 1.5833334                                               |
 * | GSPRINT6502BSI | 1.1333333                                               |
 * | e2v Flash 4K   | 0.06666667; in sensing mode 1 see below                 |
 *
 * @return 0; -1 for another index (an ERROR in the log; no register is touched), and
 *         before start-up.
 *
 * The number of steps is computed once. Set the time again after SetDriveMode() has changed
 * a Sony sensor's step, and after SetSensingMode() of an e2v Flash 4K.
 *
 * While an e2v Flash 4K times the exposure itself (sensing mode 1), the time goes to
 * the sensor, whatever the index, and the FPGA's slot gets 1 us, which only starts the
 * exposure. The sensor counts steps of 0.017 us x K from 0.714 us on. K is the factor of
 * SetHDRParam() (10 after start-up), in position 2 its square. A time above 65535 steps or
 * below one is clamped, with an ERROR in the log. The result is 0 even then, and even when
 * the sensor could not be written.
 *
 * Register: IMAGE_BLOCK_0 EXP_TIME_<index>; register 0x0097 of an e2v Flash 4K in
 * sensing mode 1. Threads: one.
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
 * @param gain  in the sensor's own steps, clamped to its range:
 *
 * | sensor         | gain                                               |
 * |----------------|----------------------------------------------------|
 * | IMX273, IMX252 | 0 to 48, decibels                                  |
 * | GMAX2509       | 1 to 5, levels                                     |
 * | GSPRINT6502BSI | 1 to 4, levels                                     |
 * | e2v Flash 4K   | three levels: 0 and 1, 2 and 3, 4 and above        |
 *
 * @return unlike other setters: 1 for success, 0 when the sensor could not be
 *         written (IMX273, IMX252, e2v Flash 4K), -1 before start-up.
 *
 * The values written for the levels of the GSPRINT6502BSI and the e2v Flash 4K come from
 * the sensor's maker: docs/sensor-tables.md.
 *
 * Registers, of the sensor: 0x3204 and bit 0 of 0x3205 (Sony, tenths of a decibel), 0xB5
 * and 0xB6 (GMAX2509), 0x00A0, 0x00A2, 0x040B, 0x080B, 0x200C and 0x2001
 * (GSPRINT6502BSI). Threads: one.
 */
int SetCmosGain(unsigned int gain);

/* --- High dynamic range ----------------------------------------------------------------- */

/**
 * Selects the sensing mode of the sensors that have one.
 *
 * @param mode  e2v Flash 4K: 1 lets the sensor time the exposure; anything else lets the
 *              FPGA time it, as after start-up. A change reloads the sensor and restores its
 *              settings. GSPRINT6502BSI: 0 plain, 1 high dynamic range; for any other value
 *              the sensor acts as for 1, the FPGA takes bit 0. No effect on the others.
 * @return 0, even when the sensor could not be programmed (reported on standard output;
 *         an e2v Flash 4K that could not be loaded keeps its mode). -1 before start-up.
 *
 * The GSPRINT6502BSI counts its knees in line times. SetCollectMode() changes the line
 * time, so it sets them again while the FPGA's high dynamic range is on.
 *
 * Never returns while an e2v Flash 4K stays busy, see above.
 *
 * Registers, of the GSPRINT6502BSI: IMAGE_BLOCK_0 HDR_CTRL bit 0, and of the sensor bits
 * 0 and 1 of 0x0003, 0x0191, 0x0192, 0x0213, 0x0215, 0x0217, 0x0219 to 0x021E.
 * Threads: one.
 */
int SetSensingMode(unsigned int mode);

/**
 * Sets the high-dynamic-range parameters of the e2v Flash 4K. No effect on other sensors.
 *
 * @param first   position at which the factor bends the response: 0, 1, or 2, where it
 *                acts twice. Any other position is recorded, with an ERROR in the log, and
 *                the sensor stays as it is.
 * @param second  the factor, without a unit, clamped to 5 to 500. 10 after start-up.
 * @return 0, even when the sensor could not be written or does not know the position;
 *         -1 before start-up.
 *
 * In sensing mode 1, set the exposure time again afterwards: its steps depend on the
 * factor. The values written come from the sensor's maker: docs/sensor-tables.md.
 *
 * Threads: one.
 */
int SetHDRParam(unsigned int first, unsigned short second);

/**
 * Splits the exposure of the GSPRINT6502BSI into segments. No effect on other sensors.
 *
 * @param first   first segment as a fraction of exposure 1 (0 to 1)
 * @param second  second segment, likewise; the third is the rest
 * @param third   not used
 *
 * Set the time of exposure 1 first: the segments are computed from its current value, in
 * ticks of 20 ns, and rounded down. Fractions below 0 count as 0. If the two add up to more
 * than 1, the third segment's number wraps around. No result; before start-up the call
 * only logs an ERROR.
 *
 * @code
 *   SetExposureTime(1, 100);     // 5000 ticks
 *   SetHDRParam24(0.5, 0.25, 0); // 2500, 1250 and 1250
 *   SetSensingMode(1);
 * @endcode
 *
 * Registers: IMAGE_BLOCK_0 HDR_CTRL bits 1-31, HDR_SEG2, HDR_SEG3, HDR_GAP,
 * HDR_TOTAL. Threads: one.
 */
void SetHDRParam24(double first, double second, double third);

/**
 * Switches continuous acquisition of the GSPRINT6502BSI. No effect on other sensors. Not
 * to be confused with SetContinuousFlag(), which is about the layout of strips.
 *
 * @param continuous  written unchanged: 0 off, 1 on
 *
 * No result; before start-up the call only logs an ERROR.
 *
 * Register: REBUILD_BLOCK_4 FPGA_CONTINUOUS. Threads: any.
 */
void SetFpgaContinuous(unsigned int continuous);

/* --- Readout ---------------------------------------------------------------------------- */

/**
 * Selects how the sensor is read.
 *
 * @param mode  0x00 every pixel; 0x11 half the width and half the height; 0x22 a
 *              second reduced readout of the IMX273 and IMX252.
 * @return 0; -1 for a mode the sensor does not know, when it cannot be programmed, when
 *         it refuses the region, and before start-up. The mode and the region's new size
 *         are recorded even then.
 *
 * 0x00 sets the recorded region of interest (GetImageWidth(), GetImageHeight()) to the
 * full size, 0x11 to half of it in both directions; the recorded offsets stay. What comes
 * out depends on the sensor:
 *
 * | sensor         | mode | image                                                        |
 * |----------------|------|--------------------------------------------------------------|
 * | IMX273         | 0x00 | the whole image, whatever the offsets                        |
 * | IMX273         | 0x11 | 728 x 544, whatever the offsets                              |
 * | IMX273         | 0x22 | the same, and recorded. SetROI1() is refused                 |
 * | IMX252         | 0x00 | region 8, 4, 2048 x 1536; recorded, offsets included         |
 * | IMX252         | 0x11 | region 8, 4, 2048 x 768; recorded, offsets included          |
 * | IMX252         | 0x22 | as 0x11                                                      |
 * | GMAX2509       | 0x00 | the whole image, whatever the offsets                        |
 * | GMAX2509       | 0x11 | half of both (K3810: half the width). SetROI1() is refused   |
 * | GSPRINT6502BSI | 0x00 | the whole image, whatever the offsets                        |
 * | GSPRINT6502BSI | 0x11 | half of both, in an image that keeps its size, see below     |
 * | e2v Flash 4K   | 0x00 | the whole image, at the recorded offsets, see below          |
 * | e2v Flash 4K   | 0x11 | fails, see below                                             |
 *
 * e2v Flash 4K: the recorded region goes to the sensor last, and the rules of SetROI1()
 * hold for it. So 0x11 always returns -1, with the sensor already in reduced readout: half
 * of its 1080 rows is 540, which is not a multiple of 8. A SetROI1() of valid size then
 * works. Mode 0x00 fails in the same way while a recorded offset is not 0, because the
 * whole image does not fit behind it. Never returns while the sensor stays busy, see above.
 *
 * @code
 *   SetDriveMode(0x11);           // e2v Flash 4K: -1, and halved readout
 *   SetROI1(0, 0, 2048, 536);     // 0
 * @endcode
 *
 * GSPRINT6502BSI: in 0x11 the sensor accepts no region, not even the one of this mode. It
 * logs an ERROR, and the result is 0. The FPGA's image keeps its size, so images, which are
 * delivered as 1024 x 576, are not what the FPGA wrote.
 *
 * Blocks: IMX273 at least 106 ms, IMX252 at least 210 ms, the others some milliseconds. A
 * Sony sensor that fails midway stays in standby until a mode is set successfully.
 *
 * Registers: REBUILD_BLOCK_5 ROI_OFFSET bits 25-31 (0x11 also clears the offsets of
 * SetRoiOffset(), except on the IMX252 and K3810), except on the e2v Flash 4K; IMAGE_BLOCK_0
 * SENSOR_TIMING and CMOS_TIMING_CTRL (Sony); and those of SetROI1(). Of the sensor: 0x300D,
 * 0x3300 and others in standby (Sony), 0x12 (GMAX2509), 0x0110, 0x0111 and 0x0196
 * (GSPRINT6502BSI), 0x0031 (e2v Flash 4K). Threads: one.
 */
int SetDriveMode(unsigned int mode);

/**
 * @return the mode last asked for, even if it was refused; all ones before start-up.
 *         Threads: any.
 */
unsigned int GetDriveMode(void);

/**
 * Sets the region of interest.
 *
 * @param x, y           first column and row, in pixels
 * @param width, height  size in pixels
 *
 * What each sensor accepts:
 *
 * - IMX273: x + width up to 1456, y + height up to 1088; in drive mode 0x11 up to 728
 *   and 544; nothing in 0x22. Height 0 switches cropping off.
 * - IMX252: anything; it has 2064 x 1544 pixels. Unless it has 16 channels, x should be at
 *   least 8 and y at least 4.
 * - GMAX2509: x and width in steps of 28, width at least 560, x + width up to 4200, in
 *   drive mode 0x00. y and height are not checked.
 * - GSPRINT6502BSI: x and width in steps of 32, x + width up to 2048, height in steps of
 *   2, in drive mode 0x00. y is not checked; the sensor has 1152 rows.
 * - e2v Flash 4K: x and width in steps of 64, width at least 64, x + width up to 4096; y
 *   and height in steps of 8, height at least 8, y + height up to 1080.
 *
 * @return 0; -1 when the sensor refuses (no register is touched) or cannot be
 *         programmed, and before start-up. The region is recorded even then. The IMX273
 *         returns 0 even when its crop registers could not be written; only the text on
 *         standard output reports it.
 *
 * A refusal is reported on standard output. Exceptions: the GSPRINT6502BSI refuses bad
 * numbers silently, and the wrong drive mode with an ERROR in the log. The IMX252 reports x
 * and y that are too small, but accepts them.
 *
 * From the next image on, images have the new size. Blocks 100 ms on the IMX252. Never
 * returns while an e2v Flash 4K stays busy, see above.
 *
 * Registers: REBUILD_BLOCK_1 STRIP_IMAGE_WIDTH, STRIP_IMAGE_HEIGHT, IMAGE_BLOCK_0 EXP_DELAY;
 * except on the Sony sensors REBUILD_BLOCK_4 ISP_WIDTH (from x), ISP_HEIGHT (from the
 * width, on the GSPRINT6502BSI also the height), ISP_CTRL bits 0-1; on the GMAX2509 and
 * GSPRINT6502BSI IMAGE_BLOCK_1 IMG_FILTER_WIDTH, IMG_FILTER_HEIGHT, IMG_FILTER_THRS; on the
 * GSPRINT6502BSI, the e2v Flash 4K and the IMX252 of a model with ch16 and arm_rebuild
 * REBUILD_BLOCK_6 STRIP_SELECTOR_IMAGE_WIDTH. Of the sensor: 0x3310 to 0x3317, 0x3010 and 0x3011
 * (Sony), 0x13 to 0x16 (GMAX2509), 0x00B2, 0x00B3, 0x0130, 0x0131, 0x0140 and 0x0141
 * (GSPRINT6502BSI), 0x0024, 0x0025, 0x0034 and 0x0035 (e2v Flash 4K). Threads: one.
 */
int SetROI1(unsigned int x, unsigned int y, unsigned int width, unsigned int height);

/**
 * Selects the direction in which the sensor is read.
 *
 * @param direction  0 normal, 1 rows reversed, 2 columns reversed, 3 both
 * @return 0; -1 for a direction the sensor refuses, when it cannot be programmed, and
 *         before start-up. The direction is recorded even then.
 *
 * | sensor         | directions                                                     |
 * |----------------|----------------------------------------------------------------|
 * | IMX273, IMX252 | any value, unchecked: keep to 0 to 3                           |
 * | GMAX2509       | 0 to 3; all but 2 move the first row back to the whole image's |
 * | GSPRINT6502BSI | any value; flips nothing                                       |
 * | e2v Flash 4K   | 0 and 1; returns 0 even when the sensor cannot be read         |
 *
 * Registers, of the sensor: 0x300E (Sony), 0x01, 0xDE, 0x13 and 0x14 (GMAX2509), 0x0023
 * (e2v Flash 4K). Threads: one. For the encoder's reverse mode see SetReverseMode_io().
 */
int SetReverseMode(unsigned int direction);

/**
 * @return width in pixels of the recorded region of interest, even if the sensor refused
 *         it; all ones before start-up. Threads: any.
 */
unsigned int GetImageWidth(void);

/** @return height in pixels, as GetImageWidth(). Threads: any. */
unsigned int GetImageHeight(void);

/**
 * @return the sensor's full size in pixels: width in the upper 16 bits, height in the
 *         lower; all ones before start-up. Threads: any.
 *
 * IMX273 1456 x 1088, IMX252 2064 x 1544, GMAX2509 4200 x 2048 (K3810: 4200 x 1024),
 * GSPRINT6502BSI 2048 x 1152, e2v Flash 4K 4096 x 1080.
 */
unsigned int GetCmosMaxDrive(void);

/**
 * @return the constant from which an application calculates the highest frame rate of the
 *         current readout, packed by the sensor's driver; all ones before start-up.
 *         Threads: one.
 *
 * | sensor                | drive mode | value                                       |
 * |-----------------------|------------|---------------------------------------------|
 * | IMX273                | 0x00, 0x22 | 0x00EE2A11                                  |
 * | IMX273                | 0x11       | 0x00DA2A11                                  |
 * | IMX273                | others     | 0x2A11, and a line on standard output       |
 * | IMX252, 8 channels    | 0x00, 0x22 | 0x0136260D                                  |
 * | IMX252, 8 channels    | 0x11       | 0x00DA260D                                  |
 * | IMX252, 16 channels   | all three  | 0x00D9260D                                  |
 * | IMX252                | others     | all ones, and a line on standard output     |
 * | GMAX2509              | all        | 0x00981508                                  |
 * | GSPRINT6502BSI        | all        | 0x0136260D                                  |
 * | e2v Flash 4K          | all        | 0x0136260D                                  |
 */
unsigned int TransferMaxFrameValue(void);

/**
 * Asks the sensor for its temperature code. The code itself is not returned.
 *
 * @return -1 when the code is 0, and before start-up; else 0. The e2v Flash 4K has no
 *         thermometer: always -1. A Sony sensor that does not answer: 0, reported on
 *         standard output. A GMAX2509 or GSPRINT6502BSI whose bus fails: -1, because the
 *         code then reads as 0.
 *
 * Registers, of the sensor: 0x301D to 0x301F (Sony), 0xC0 and 0xC1 (GMAX2509), 0x2500 and
 * 0x2501 (GSPRINT6502BSI). Threads: one.
 */
int GetSensorTemp(void);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
