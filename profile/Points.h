#pragma once

#include <cstddef>

#include "tessaline/profile.h"

namespace profile {

// Whether a frame can lie on a sensor like that.
bool IsPossible(const tessaline_geometry& geometry);

// Whether a layout has points of so many bytes.
bool IsLayout(std::size_t point_bytes);

// Reads points of that layout into the profile's arrays.
void ReadPoints(const unsigned char* bytes, std::size_t count, std::size_t point_bytes,
                const tessaline_geometry& geometry, const tessaline_profile& profile);

}  // namespace profile
