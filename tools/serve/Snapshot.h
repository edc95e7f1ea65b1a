#pragma once

#include <string>

#include "serve/PictureMaker.h"

namespace tool::serve {

// The image, or the profile drawn as a curve, as the bytes of a PNG file.
std::string SnapshotPng(const PictureMaker::Newest& newest);
// The profile's points as "tessaline capture" writes them.
std::string SnapshotCsv(const PictureMaker::Newest& newest);

}  // namespace tool::serve
