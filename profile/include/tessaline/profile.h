/**
 * @file
 * libtessaline-profile: from strips to profiles, and from rows and columns to millimetres.
 *
 * The library stands by itself: it needs neither libtessaline nor a sensor, so it does the
 * same on the board, on a host and on recorded data. docs/profile.md is the guide; it has
 * the formulas and where they come from.
 *
 * Memory. The caller supplies every array. Nothing is allocated, nothing is kept between
 * calls.
 *
 * Threads. Any function may run on any thread at the same time as any other; two calls must
 * not write to the same records or arrays.
 *
 * Return values. 0 is success, a negative number is a tessaline_profile_result.
 */
#ifndef TESSALINE_PROFILE_H
#define TESSALINE_PROFILE_H

#include <stddef.h>
#include <stdint.h>

#include "tessaline/frames.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** What functions return. */
enum tessaline_profile_result {
  TESSALINE_PROFILE_OK = 0,           /**< done */
  TESSALINE_PROFILE_END = 1,          /**< there is no further strip */
  TESSALINE_PROFILE_ARGUMENT = -1,    /**< a null pointer, or no layout has points of that size */
  TESSALINE_PROFILE_MALFORMED = -2,   /**< the strips and their bytes do not fit each other */
  TESSALINE_PROFILE_CAPACITY = -3,    /**< the strip has more points than the arrays have room */
  TESSALINE_PROFILE_GEOMETRY = -4,    /**< no frame can lie on a sensor like this */
  TESSALINE_PROFILE_CALIBRATION = -5, /**< no head can be calibrated like this */
  TESSALINE_PROFILE_SENSOR = -6,      /**< the calibration is that of another sensor */
  TESSALINE_PROFILE_OUTSIDE = -7      /**< the sensor does not see such a point */
};

/** A result in words, for messages: "the calibration is that of another sensor". Never null. */
const char* tessaline_profile_text(int result);

/* --- From strips to profiles -------------------------------------------------------------- */

/**
 * How a frame lies on the full sensor, at the moment when it is exposed. All numbers are
 * pixels of the full sensor.
 *
 * Positions are in the order in which the sensor is read out: with a flip, column or row 0
 * is the last one of the sensor. In the reduced readout modes every other column or row is
 * left out; some sensors then count the region of interest in the pixels that remain, and
 * first_column and first_row are twice that. docs/profile.md has a table by sensor.
 */
struct tessaline_geometry {
  uint32_t sensor_width;  /**< columns of the full sensor, 1 to 32768 */
  uint32_t sensor_height; /**< rows of the full sensor, 1 to 32768 */
  uint32_t first_column;  /**< where column 0 of the frame lies, below sensor_width */
  uint32_t first_row;     /**< where row 0 of the frame lies, below sensor_height */
  uint32_t column_step;   /**< 1; 2 if every other column is left out; at most 16 */
  uint32_t row_step;      /**< 1; 2 if every other row is left out; at most 16 */
  uint32_t flip_columns;  /**< 0; 1 if columns are read from the last to the first */
  uint32_t flip_rows;     /**< 0; 1 if rows are read from the last to the first */
};

/**
 * A frame that is the full sensor: no offset, steps of 1, no flip.
 *
 * @param sensor_width   columns of the full sensor
 * @param sensor_height  rows of the full sensor
 */
struct tessaline_geometry tessaline_geometry_full(uint32_t sensor_width, uint32_t sensor_height);

/** Where the reading of strips has got to. tessaline_strips_begin() fills it. */
struct tessaline_strips {
  const unsigned char* next; /**< the next strip */
  size_t bytes_left;         /**< from there to the end */
  uint32_t strips_left;      /**< from there to the end */
  uint32_t point_bytes;      /**< of a point: 8, 4 or 2 */
};

/**
 * Begins to read strips, as a strip handler gets them.
 *
 * @param strips       is filled
 * @param data         the first strip; the memory must stay until the last is read. May be
 *                     null when there are no bytes.
 * @param bytes        of all strips together, exactly
 * @param count        of strips
 * @param point_bytes  8, 4 or 2, see docs/strip-format.md
 * @return 0, or TESSALINE_PROFILE_ARGUMENT
 */
int tessaline_strips_begin(struct tessaline_strips* strips, const void* data, size_t bytes,
                           uint32_t count, uint32_t point_bytes);

/** What a point's validity says: bits. Without TESSALINE_VALID there is no point. */
enum tessaline_validity {
  TESSALINE_VALID = 1,        /**< a point of the line */
  TESSALINE_OUTSIDE_FIELD = 2 /**< measured, but the calibration was not seen there */
};

/**
 * The laser line of one frame. The caller sets the capacity and the arrays;
 * tessaline_strips_next() fills in the rest. The sensor's width is room enough for a
 * strip, except on K38.., whose frames may be 4800 columns wide.
 */
struct tessaline_profile {
  size_t capacity; /**< points for which each array has room */
  float* column;   /**< of the full sensor; 0 is the centre of its first column */
  float* row;      /**< of the full sensor, with a fraction; NaN where valid is 0 */
  uint8_t* peak;   /**< grey value of the line; 0 if the layout has none. May be null together
                        with width. */
  uint8_t* width;  /**< of the line in pixels; 0 if the layout has none. May be null together
                        with peak. */
  uint8_t* valid;  /**< TESSALINE_VALID, or 0: no line in this column, or not a place on the
                        sensor. */

  size_t point_count;     /**< points in the arrays */
  uint64_t frame_id;      /**< see tessaline_strip_header */
  uint64_t time_stamp;    /**< ticks of 20 ns */
  uint64_t encoder_stamp; /**< counts */
  uint32_t sensor_width;  /**< of the geometry */
  uint32_t sensor_height; /**< of the geometry */
};

/**
 * Reads one strip into a profile.
 *
 * @param strips    moves on to the next strip
 * @param geometry  of the frame, see tessaline_geometry
 * @param profile   is filled; a result other than 0 leaves all of it but point_count
 * @return 0; TESSALINE_PROFILE_END behind the last strip; TESSALINE_PROFILE_MALFORMED when
 *         the next strip does not fit into the bytes, or bytes are left behind the last one
 *         (often the sign of a wrong point size); TESSALINE_PROFILE_CAPACITY, with
 *         point_count telling how much room the strip takes, and the same strip comes again;
 *         TESSALINE_PROFILE_GEOMETRY or TESSALINE_PROFILE_ARGUMENT.
 *
 * Never reads beyond the bytes, whatever they say. Points come in the order in which the
 * FPGA sent them: with flipped columns, columns descend.
 *
 * Rows and columns are single precision: 1/8192 of a pixel or better on sensors of up to
 * 2048 rows.
 */
int tessaline_strips_next(struct tessaline_strips* strips,
                          const struct tessaline_geometry* geometry,
                          struct tessaline_profile* profile);

/* --- From rows and columns to millimetres ------------------------------------------------- */

/** Sizes of arrays. */
enum tessaline_profile_size {
  TESSALINE_FIELD_CORNERS = 8 /**< that a calibration's field may have */
};

/** A pixel of the full sensor. */
struct tessaline_pixel {
  uint16_t column; /**< from 0 */
  uint16_t row;    /**< from 0 */
};

/**
 * How a head sees its laser plane. x lies across, along the laser line; z is the height.
 * From a pixel of the full sensor (column, row) to millimetres:
 *
 *     u = (column - centre_column) / pixels_per_unit
 *     v = (row    - centre_row)    / pixels_per_unit
 *     q = u u + v v,   L = 1 + k1 q + k2 q^2 + k3 q^3         (lens distortion)
 *     U = L u,         V = L v                                (without distortion)
 *     ( x w )   ( plane[0] plane[1] plane[2] ) ( U )
 *     ( z w ) = ( plane[3] plane[4] plane[5] ) ( V )          (projective map)
 *     (   w )   ( plane[6] plane[7] plane[8] ) ( 1 )
 *
 * 1-sigma uncertainties: those of column and row go through the derivatives of this map;
 * that of the calibration itself is added in quadrature.
 *
 * The field is where the calibration was seen to hold: a convex polygon on the sensor.
 * Beyond it x and z are the map's, and their uncertainty is NaN, which means: unknown, the
 * calibration was not seen there. Without a field the uncertainties hold everywhere.
 */
struct tessaline_calibration {
  double sensor_width;    /**< columns of the full sensor that was calibrated */
  double sensor_height;   /**< rows of the full sensor that was calibrated */
  double centre_column;   /**< centre of the distortion, pixels */
  double centre_row;      /**< centre of the distortion, pixels */
  double pixels_per_unit; /**< 1 to 32768; half of the sensor's width keeps all numbers near 1 */
  double distortion[3];   /**< k1, k2, k3 */
  double plane[9];        /**< projective map, row by row; plane[8] is above 0 */
  double column_sigma;    /**< 1-sigma of a point's column, pixels */
  double row_sigma;       /**< 1-sigma of a point's row, pixels */
  double x_sigma;         /**< 1-sigma of the calibration itself across, mm; 0 if not known */
  double z_sigma;         /**< 1-sigma of the calibration itself in height, mm; 0 if not known */
  uint32_t field_corners; /**< 3 to TESSALINE_FIELD_CORNERS; 0: the field is not known */
  struct tessaline_pixel field[TESSALINE_FIELD_CORNERS]; /**< corners of the field, one after
                               the other in either direction; what lies on an edge is inside */
};

/**
 * Checks that a calibration can be one: all numbers finite and of usual size, the centre
 * within a sensor's size of the sensor, the map invertible, the whole
 * sensor on this side of the horizon, the distortion growing outwards everywhere on the
 * sensor, no negative sigma, the field unknown or a convex area on the sensor.
 *
 * @return 0, TESSALINE_PROFILE_CALIBRATION or TESSALINE_PROFILE_ARGUMENT
 */
int tessaline_calibration_check(const struct tessaline_calibration* calibration);

/** Where tessaline_profile_to_mm() writes: arrays with room for the profile's points. */
struct tessaline_millimetres {
  float* x;       /**< across, mm; NaN where the profile has no point */
  float* z;       /**< height, mm; NaN where the profile has no point */
  float* x_sigma; /**< 1-sigma of x, mm. May be null together with z_sigma. */
  float* z_sigma; /**< 1-sigma of z, mm. May be null together with x_sigma. */
  uint8_t* valid; /**< tessaline_validity: TESSALINE_OUTSIDE_FIELD is added for points outside
                       the calibration's field; their sigmas are NaN. May be null, or the
                       profile's own array. */
};

/**
 * Measures all points of a profile.
 *
 * @param calibration  of this head; it is checked
 * @param profile      from tessaline_strips_next(); only read
 * @param mm           the arrays are filled up to the profile's point_count
 * @return 0; TESSALINE_PROFILE_SENSOR when profile and calibration have full sensors of
 *         different sizes; TESSALINE_PROFILE_CAPACITY when the profile has more points than
 *         its arrays; TESSALINE_PROFILE_CALIBRATION or TESSALINE_PROFILE_ARGUMENT.
 *         Without success no array is touched.
 *
 * Computes in single precision: within 0.05 micrometres of tessaline_point_to_mm() for
 * fields of view up to 100 mm in which x and z are 0 somewhere.
 */
int tessaline_profile_to_mm(const struct tessaline_calibration* calibration,
                            const struct tessaline_profile* profile,
                            const struct tessaline_millimetres* mm);

/** One point in millimetres. */
struct tessaline_measurement {
  double x;        /**< across, mm */
  double z;        /**< height, mm */
  double x_sigma;  /**< 1-sigma of x, mm; NaN outside the calibration's field */
  double z_sigma;  /**< 1-sigma of z, mm; NaN outside the calibration's field */
  double x_column; /**< mm of x per pixel of column */
  double x_row;    /**< mm of x per pixel of row */
  double z_column; /**< mm of z per pixel of column */
  double z_row;    /**< mm of z per pixel of row */
};

/**
 * Measures one point in double precision, with the derivatives. For solvers and for
 * comparison; the calibration is not checked.
 *
 * @param calibration  of this head
 * @param column       of the full sensor
 * @param row          of the full sensor
 * @param point        is filled
 * @return 0; TESSALINE_PROFILE_OUTSIDE beyond the horizon of the map and where a number is not
 *         finite; TESSALINE_PROFILE_ARGUMENT
 */
int tessaline_point_to_mm(const struct tessaline_calibration* calibration, double column,
                          double row, struct tessaline_measurement* point);

/**
 * The other way: where on the full sensor a point of the laser plane is seen.
 *
 * @param calibration  one that tessaline_calibration_check() accepts
 * @param x            across, mm
 * @param z            height, mm
 * @param column       receives the column, within 1e-9 pixels
 * @param row          receives the row, within 1e-9 pixels
 * @return 0; TESSALINE_PROFILE_OUTSIDE when that is not on the sensor (half a pixel around
 *         its outermost pixels' centres is); TESSALINE_PROFILE_ARGUMENT
 */
int tessaline_point_to_pixel(const struct tessaline_calibration* calibration, double x, double z,
                             double* column, double* row);

/* --- Along the movement -------------------------------------------------------------------- */

/**
 * y of a frame by the encoder.
 *
 * @param encoder_stamp  of the frame
 * @param start          the stamp at which y is 0; may be the later one
 * @param mm_per_count   negative if the object moves against the count
 * @return mm
 */
double tessaline_y_by_encoder(uint64_t encoder_stamp, uint64_t start, double mm_per_count);

/**
 * y of a frame by time, at constant speed.
 *
 * @param time_stamp     of the frame, ticks of 20 ns
 * @param start          the stamp at which y is 0; may be the later one
 * @param mm_per_second  the speed; negative if the object moves towards negative y
 * @return mm
 */
double tessaline_y_by_time(uint64_t time_stamp, uint64_t start, double mm_per_second);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
