/* A program in C11 that is linked with libtessaline-profile alone: from a strip to millimetres. */
#include <math.h>
#include <stdio.h>
#include <string.h>
#include <tessaline/profile.h>

enum { kPoints = 3 };

static const struct tessaline_calibration kHead = {
    .sensor_width = 1456,
    .sensor_height = 1088,
    .centre_column = 728,
    .centre_row = 544,
    .pixels_per_unit = 728,
    .plane = {36.4, 0, 0, 0, -26.7647, 10, 0, 0, 1},
    .row_sigma = 0.02,
};

static int failures = 0;

static void Expect(int holds, const char* what) {
  if (holds) return;
  fprintf(stderr, "not so: %s\n", what);
  ++failures;
}

int main(void) {
  const struct tessaline_strip_header header = {7, 50000000, 5000, kPoints};
  const struct tessaline_full_point points[kPoints] = {
      {728, 200, 4, 544u * TESSALINE_FULL_ROW_STEPS},
      {1092, 200, 4, 272u * TESSALINE_FULL_ROW_STEPS},
      {1, 2, 3, 4000u * TESSALINE_FULL_ROW_STEPS}};
  unsigned char bytes[sizeof header + sizeof points];
  float column[kPoints], row[kPoints], x[kPoints], z[kPoints];
  uint8_t valid[kPoints];
  struct tessaline_profile profile = {
      .capacity = kPoints, .column = column, .row = row, .valid = valid};
  const struct tessaline_millimetres mm = {.x = x, .z = z};
  const struct tessaline_geometry geometry = tessaline_geometry_full(1456, 1088);
  struct tessaline_strips strips;
  memcpy(bytes, &header, sizeof header);
  memcpy(bytes + sizeof header, points, sizeof points);

  Expect(tessaline_strips_begin(&strips, bytes, sizeof bytes, 1,
                                sizeof(struct tessaline_full_point)) == 0,
         "the strips begin");
  Expect(tessaline_strips_next(&strips, &geometry, &profile) == 0, "there is one");
  Expect(profile.frame_id == 7 && profile.point_count == kPoints, "it is the one");
  Expect(valid[0] == 1 && valid[1] == 1 && valid[2] == 0, "two of its points are on the sensor");
  Expect(tessaline_profile_to_mm(&kHead, &profile, &mm) == 0, "it is measured");
  Expect(fabsf(x[0]) < 1e-5f && fabsf(z[0] - 10) < 1e-5f, "the middle");
  Expect(fabsf(x[1] - 18.2f) < 1e-4f && fabsf(z[1] - 20) < 1e-4f, "right of it, and higher");
  Expect(isnan(x[2]) && isnan(z[2]), "nothing where there is no point");
  Expect(fabs(tessaline_y_by_time(profile.time_stamp, 0, 50) - 50) < 1e-9, "y by time");
  Expect(fabs(tessaline_y_by_encoder(profile.encoder_stamp, 0, 0.01) - 50) < 1e-9, "y by counts");
  Expect(tessaline_strips_next(&strips, &geometry, &profile) == TESSALINE_PROFILE_END,
         "there is no other");
  if (failures == 0) printf("x %.3f mm, z %.3f mm\n", (double)x[1], (double)z[1]);
  return failures;
}
