/**
 * @file
 * The FPGA's image-processing pipeline: corrections, enhancement, filters.
 *
 * Every function writes one field of one register and returns 0; -1 when the register
 * cannot be written, and before start-up. Values are 8-bit grey values or counts. Keep to
 * the ranges given: a value that does not fit spills into the next field. Other bits are
 * dropped only where "bit 0 counts" is said. "Threads: any" holds for all of them, as
 * explained in tessaline.h.
 *
 * Start-up of series 24 switches all filters off and sets erosion threshold 10 and count 8.
 * On the other series the pipeline keeps the FPGA's power-up values.
 */
#ifndef TESSALINE_IMAGE_PROCESSING_H
#define TESSALINE_IMAGE_PROCESSING_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* --- Corrections ------------------------------------------------------------------------ */

/**
 * Switches binning.
 *
 * @param enable  0 off, 1 on; bit 0 counts
 * @return 0 or -1
 *
 * Register: REBUILD_BLOCK_4 ISP_CTRL bit 2; bits 8-31 are cleared.
 */
int SetBinEnable(unsigned int enable);

/**
 * Switches hot-pixel correction.
 *
 * @param enable  0 off, 1 on; bit 0 counts
 * @return 0 or -1
 *
 * Register: REBUILD_BLOCK_4 ISP_CTRL bit 3; bits 8-31 are cleared.
 */
int SetHotpixelEnable(unsigned int enable);

/**
 * Sets the optical-black offset.
 *
 * @param offset  written unchanged
 * @return 0 or -1
 *
 * Register: REBUILD_BLOCK_4 OB_OFFSET.
 */
int SetObOffset(unsigned int offset);

/**
 * Sets the upper brightness threshold.
 *
 * @param threshold  0 to 255
 * @return 0 or -1
 *
 * Register: REBUILD_BLOCK_4 BRI_THRES bits 0-7; bits 16-31 are cleared.
 */
int SetBriThresMax(unsigned int threshold);

/**
 * Sets the lower brightness threshold.
 *
 * @param threshold  0 to 255
 * @return 0 or -1
 *
 * Register: REBUILD_BLOCK_4 BRI_THRES bits 8-15; bits 16-31 are cleared.
 */
int SetBriThresMin(unsigned int threshold);

/* --- Enhancement ------------------------------------------------------------------------ */

/**
 * Switches line enhancement.
 *
 * @param enable  0 or 1
 * @return 0 or -1
 *
 * Register: REBUILD_BLOCK_4 ENHANCE_CTRL bit 0.
 */
int SetEnhanceEnable(unsigned int enable);

/**
 * Sets the highest grey value of pixels to enhance.
 *
 * @param threshold  0 to 255
 * @return 0 or -1
 *
 * Register: REBUILD_BLOCK_4 ENHANCE_CTRL bits 1-8.
 */
int SetEnhanceThresMax(unsigned int threshold);

/**
 * Sets the lowest grey value of pixels to enhance.
 *
 * @param threshold  0 to 255
 * @return 0 or -1
 *
 * Register: REBUILD_BLOCK_4 ENHANCE_CTRL bits 9-16.
 */
int SetEnhanceThresMin(unsigned int threshold);

/**
 * Sets how many neighbours must meet the thresholds.
 *
 * @param count  0 to 15
 * @return 0 or -1
 *
 * Register: REBUILD_BLOCK_4 ENHANCE_CTRL bits 17-20.
 */
int SetEnhanceThresNum(unsigned int count);

/**
 * Sets the gain of the enhancement.
 *
 * @param gain  0 to 7
 * @return 0 or -1
 *
 * Register: REBUILD_BLOCK_4 ENHANCE_CTRL bits 21-23.
 */
int SetEnhanceGain(unsigned int gain);

/* --- Filters ---------------------------------------------------------------------------- */

/**
 * Switches the median filter.
 *
 * @param enable  0 off, 1 on; bit 0 counts
 * @return 0 or -1
 *
 * Register: REBUILD_BLOCK_4 MEDIAN_CTRL bit 0.
 */
int SetMedianFilterEnable(unsigned int enable);

/**
 * Switches the erosion filter.
 *
 * @param enable  0 or 1
 * @return 0 or -1
 *
 * Register: REBUILD_BLOCK_4 EROSION_CTRL bit 0.
 */
int SetErosionFilterEnable(unsigned int enable);

/**
 * Sets the erosion filter's upper grey value.
 *
 * @param threshold  0 to 255
 * @return 0 or -1
 *
 * Register: REBUILD_BLOCK_4 EROSION_CTRL bits 1-8.
 */
int SetErosionThresMax(unsigned int threshold);

/**
 * Sets the erosion filter's lower grey value.
 *
 * @param threshold  0 to 255
 * @return 0 or -1
 *
 * Register: REBUILD_BLOCK_4 EROSION_CTRL bits 9-16.
 */
int SetErosionThresMin(unsigned int threshold);

/**
 * Sets how many neighbours must meet the erosion thresholds.
 *
 * @param count  0 to 15
 * @return 0 or -1
 *
 * Register: REBUILD_BLOCK_4 EROSION_CTRL bits 17-20.
 */
int SetErosionThresNum(unsigned int count);

/**
 * Selects what the erosion filter does with a pixel that fails.
 *
 * @param strategy  0 to 3
 * @return 0 or -1
 *
 * Register: REBUILD_BLOCK_4 EROSION_CTRL bits 21-22.
 */
int SetErosionFilterStrategy(unsigned int strategy);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
