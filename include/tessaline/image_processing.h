/**
 * @file
 * The FPGA's image-processing pipeline: corrections, enhancement, filters.
 *
 * Every function writes one field of one register and returns 0; -1 when the
 * register cannot be written, and before start-up. Values are grey values of 8
 * bits or counts; one that does not fit its field spills into the next, so keep to
 * the ranges given (only where bit 0 is said to count, the others are dropped).
 * "Threads: any" holds throughout, as explained in tessaline.h.
 *
 * Series 24 starts with all filters off, erosion threshold 10 and count 8; on the
 * other series the pipeline is as the FPGA starts.
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
 * Switches the correction of hot pixels.
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
 * @param offset  written as it is
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
 * Switches the enhancement of the line.
 *
 * @param enable  0 or 1
 * @return 0 or -1
 *
 * Register: REBUILD_BLOCK_4 ENHANCE_CTRL bit 0.
 */
int SetEnhanceEnable(unsigned int enable);

/**
 * Sets the upper grey value of the pixels enhanced.
 *
 * @param threshold  0 to 255
 * @return 0 or -1
 *
 * Register: REBUILD_BLOCK_4 ENHANCE_CTRL bits 1-8.
 */
int SetEnhanceThresMax(unsigned int threshold);

/**
 * Sets the lower grey value of the pixels enhanced.
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
