/**
 * @file
 * What strips and images consist of in memory: records without gaps, for C11 and C++20.
 *
 * A strip handler gets strips one behind the other: a tessaline_strip_header, and
 * point_count points of one of three layouts. The layout depends on the FPGA build; these
 * are the virtual board's, and docs/strip-format.md says which product sends which. An image
 * handler gets the pixels, one byte each, and directly behind them a tessaline_image_header.
 *
 * All numbers are little-endian, like the processors that the library runs on. Points of 2
 * and 4 bytes leave the next header at any even address, so copy a record out of the buffer:
 *
 *     struct tessaline_strip_header strip;
 *     memcpy(&strip, bytes, sizeof strip);
 *
 * This header declares no function; it goes with libtessaline, with libtessaline-profile,
 * which takes strips apart, and with neither.
 */
#ifndef TESSALINE_FRAMES_H
#define TESSALINE_FRAMES_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

/** Numbers of the formats. */
enum tessaline_frame_number {
  TESSALINE_NANOSECONDS_PER_TICK = 20, /**< of time stamps */
  TESSALINE_FULL_ROW_STEPS = 65536,    /**< steps per pixel of tessaline_full_point */
  TESSALINE_SHORT_ROW_STEPS = 32,      /**< the same of the other two layouts */
  TESSALINE_NO_LINE = 0xFFFF           /**< as a row: this column has no line */
};

/** In front of the points of a strip. 32 bytes. */
struct tessaline_strip_header {
  uint64_t frame_id;      /**< byte 0: counted by the FPGA from 1; ResetFrameID() restarts it */
  uint64_t time_stamp;    /**< byte 8: ticks of 20 ns, as GetTimerCounter() */
  uint64_t encoder_stamp; /**< byte 16: counts, as GetEncoderCounter() */
  uint64_t point_count;   /**< byte 24: points that follow */
};

/** A point of 8 bytes. Columns without a line have none. */
struct tessaline_full_point {
  uint16_t column; /**< byte 0: of the region of interest, from 0 */
  uint8_t peak;    /**< byte 2: grey value of the line */
  uint8_t width;   /**< byte 3: pixels of the line above the threshold */
  uint32_t row;    /**< byte 4: of the region of interest, 1/65536 pixels */
};

/** A point of 4 bytes. Columns without a line have none. */
struct tessaline_short_point {
  uint16_t column; /**< byte 0: of the region of interest, from 0 */
  uint16_t row;    /**< byte 2: of the region of interest, 1/32 pixels */
};

/** A point of 2 bytes: one for every column of the region of interest, in turn. */
struct tessaline_row_point {
  uint16_t row; /**< byte 0: 1/32 pixels; TESSALINE_NO_LINE: none in this column */
};

/** Directly behind the width x height pixels of an image. 32 bytes. */
struct tessaline_image_header {
  uint64_t frame_id;      /**< byte 0: counted by the FPGA from 1; ResetFrameID() restarts it */
  uint64_t time_stamp;    /**< byte 8: ticks of 20 ns, as GetTimerCounter() */
  uint64_t encoder_stamp; /**< byte 16: counts, as GetEncoderCounter() */
  uint64_t reserved;      /**< byte 24: no meaning */
};

static_assert(sizeof(struct tessaline_strip_header) == 32, "as the FPGA writes it");
static_assert(offsetof(struct tessaline_strip_header, frame_id) == 0, "as the FPGA writes it");
static_assert(offsetof(struct tessaline_strip_header, time_stamp) == 8, "as the FPGA writes it");
static_assert(offsetof(struct tessaline_strip_header, encoder_stamp) == 16,
              "as the FPGA writes it");
static_assert(offsetof(struct tessaline_strip_header, point_count) == 24, "as the FPGA writes it");
static_assert(sizeof(struct tessaline_full_point) == 8, "without gaps");
static_assert(offsetof(struct tessaline_full_point, column) == 0, "without gaps");
static_assert(offsetof(struct tessaline_full_point, peak) == 2, "without gaps");
static_assert(offsetof(struct tessaline_full_point, width) == 3, "without gaps");
static_assert(offsetof(struct tessaline_full_point, row) == 4, "without gaps");
static_assert(sizeof(struct tessaline_short_point) == 4, "without gaps");
static_assert(offsetof(struct tessaline_short_point, column) == 0, "without gaps");
static_assert(offsetof(struct tessaline_short_point, row) == 2, "without gaps");
static_assert(sizeof(struct tessaline_row_point) == 2, "without gaps");
static_assert(sizeof(struct tessaline_image_header) == 32, "as the FPGA writes it");
static_assert(offsetof(struct tessaline_image_header, frame_id) == 0, "as the FPGA writes it");
static_assert(offsetof(struct tessaline_image_header, time_stamp) == 8, "as the FPGA writes it");
static_assert(offsetof(struct tessaline_image_header, encoder_stamp) == 16,
              "as the FPGA writes it");
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the records are copied as they are");

#endif
