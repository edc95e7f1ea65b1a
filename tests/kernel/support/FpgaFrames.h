#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "support/LoopedVideo.h"
#include "tessaline/frames.h"

namespace kernel_test {

// What capture needs to know about a product.
struct Product {
  const char* model;
  unsigned full_width, full_height;
  unsigned width, height;  // of the region after start-up
  unsigned strip_width, strip_height;
};

inline constexpr Product kK3610{"K3610", 1456, 1088, 1456, 1088, 1024, 640};
inline constexpr Product kK3710{"K3710", 2064, 1544, 2048, 1536, 1024, 640};
inline constexpr Product kK3810{"K3810", 4200, 1024, 4200, 1024, 2048, 640};
inline constexpr Product kK3820{"K3820", 4200, 2048, 4200, 1024, 2048, 640};
inline constexpr Product kK3920{"K3920", 2048, 1152, 2048, 1152, 1024, 640};
inline constexpr Product kK4010{"K4010", 4096, 1080, 4096, 1080, 8192, 2048};

// Images and strips as the FPGA writes them, sent into the kernel's video loop.
namespace frames {

// The image in natural order, as an application receives it.
std::vector<std::byte> Image(unsigned width, unsigned height);

// Sends that image; ids and time stamps count from 1.
void SendImages(LoopedVideo& video, const Product& product);

// `strips` of `points` points each; the first 16 bits of a point are its number.
std::vector<std::byte> Strips(unsigned strips, unsigned points);

// Sends these; frame ids continue from buffer to buffer.
void SendStrips(LoopedVideo& video, const Product& product, unsigned strips, unsigned points);

}  // namespace frames
}  // namespace kernel_test
