#include <cstring>

#include "Points.h"

using profile::IsLayout;
using profile::IsPossible;
using profile::ReadPoints;

struct tessaline_geometry tessaline_geometry_full(uint32_t sensor_width, uint32_t sensor_height) {
  return {sensor_width, sensor_height, 0, 0, 1, 1, 0, 0};
}

int tessaline_strips_begin(struct tessaline_strips* strips, const void* data, size_t bytes,
                           uint32_t count, uint32_t point_bytes) {
  if (strips == nullptr || (data == nullptr && bytes != 0) || !IsLayout(point_bytes)) {
    return TESSALINE_PROFILE_ARGUMENT;
  }
  *strips = {static_cast<const unsigned char*>(data), bytes, count, point_bytes};
  return TESSALINE_PROFILE_OK;
}

int tessaline_strips_next(struct tessaline_strips* strips,
                          const struct tessaline_geometry* geometry,
                          struct tessaline_profile* profile) {
  if (strips == nullptr || geometry == nullptr || profile == nullptr ||
      !IsLayout(strips->point_bytes)) {
    return TESSALINE_PROFILE_ARGUMENT;
  }
  profile->point_count = 0;
  if (!IsPossible(*geometry)) return TESSALINE_PROFILE_GEOMETRY;
  if (strips->strips_left == 0) {
    return strips->bytes_left == 0 ? TESSALINE_PROFILE_END : TESSALINE_PROFILE_MALFORMED;
  }

  tessaline_strip_header header;
  if (strips->bytes_left < sizeof header) return TESSALINE_PROFILE_MALFORMED;
  std::memcpy(&header, strips->next, sizeof header);
  const std::size_t left = strips->bytes_left - sizeof header;
  if (header.point_count > left / strips->point_bytes) return TESSALINE_PROFILE_MALFORMED;
  const auto points = static_cast<std::size_t>(header.point_count);
  if (points > profile->capacity) {
    profile->point_count = points;
    return TESSALINE_PROFILE_CAPACITY;
  }
  const bool arrays =
      profile->column != nullptr && profile->row != nullptr && profile->valid != nullptr;
  const bool looks_in_pairs = (profile->peak == nullptr) == (profile->width == nullptr);
  if ((points > 0 && !arrays) || !looks_in_pairs) return TESSALINE_PROFILE_ARGUMENT;

  ReadPoints(strips->next + sizeof header, points, strips->point_bytes, *geometry, *profile);
  profile->point_count = points;
  profile->frame_id = header.frame_id;
  profile->time_stamp = header.time_stamp;
  profile->encoder_stamp = header.encoder_stamp;
  profile->sensor_width = geometry->sensor_width;
  profile->sensor_height = geometry->sensor_height;
  const std::size_t bytes = sizeof header + points * strips->point_bytes;
  strips->next += bytes;
  strips->bytes_left -= bytes;
  --strips->strips_left;
  return TESSALINE_PROFILE_OK;
}
