#include "reliability/SoakHandlers.h"

#include <cstring>

#include "support/Waiting.h"
#include "tessaline/board.h"
#include "tessaline/tessaline.h"

namespace tessaline_test {

namespace {

constexpr std::uint64_t kExamples = 5;

constexpr unsigned kCallsToARead = 32;
constexpr unsigned kCallsToASlowOne = 250;
constexpr unsigned kLongestMs = 40;

template <typename Header>
Header At(const std::uint8_t* data) {
  Header header;
  std::memcpy(&header, data, sizeof header);
  return header;
}

}  // namespace

void SoakHandlers::Complain(Wrong what, const std::string& text) {
  const std::lock_guard lock(mutex_);
  if (++wrong_[what] <= kExamples) complaints_.push_back(text);
}

std::vector<std::string> SoakHandlers::Complaints() {
  const std::lock_guard lock(mutex_);
  auto complaints = complaints_;
  for (const std::uint64_t count : wrong_) {
    if (count <= kExamples) continue;
    complaints.push_back("and " + std::to_string(count - kExamples) + " more of a kind");
  }
  return complaints;
}

void SoakHandlers::Compare(std::uint64_t id, const void* data, std::size_t bytes) {
  std::uint64_t expected = 0;
  if (tessaline_board_frame_checksum(id, &expected) != 0) {
    return Complain(kUnknownFrame, "the board knows no frame " + std::to_string(id));
  }
  if (tessaline_board_checksum(data, bytes) != expected) {
    Complain(kChecksum, "frame " + std::to_string(id) + " has other bytes than were exposed");
  }
  bytes_ += bytes;
}

void SoakHandlers::BeBusy(unsigned call) {
  if (call % kCallsToARead == 0) {
    constexpr unsigned kFailed = 0xFFFFFFFF;
    if (GetTriSpacing() == kFailed || GetEncoderCounter() == ~std::uint64_t{0}) {
      Complain(kRegister, "a register could not be read");
    }
  }
  if (call % kCallsToASlowOne == 0) {
    ReallyWait(std::chrono::milliseconds(call / kCallsToASlowOne % kLongestMs));
  }
}

void SoakHandlers::OnImage(unsigned width, unsigned height, void* pixels) {
  const auto* image = static_cast<const std::uint8_t*>(pixels);
  const std::size_t size = std::size_t{width} * height;
  const std::uint64_t id = At<tessaline_image_header>(image + size).frame_id;
  Compare(id, image, size + sizeof(tessaline_image_header));
  static unsigned calls = 0;
  BeBusy(++calls);
  images_.Note(id);
}

void SoakHandlers::OnStrips(unsigned strips, unsigned bytes, void* data) {
  const auto* strip = static_cast<const std::uint8_t*>(data);
  const auto* const end = strip + bytes;
  static unsigned calls = 0;
  BeBusy(++calls);
  for (unsigned i = 0; i < strips; ++i) {
    const auto header = At<tessaline_strip_header>(strip);
    const std::size_t size = sizeof header + sizeof(tessaline_full_point) * header.point_count;
    if (header.point_count > bytes || strip + size > end) {
      return Complain(kTruncated, "strip " + std::to_string(i) + " reaches beyond its buffer");
    }
    Compare(header.frame_id, strip, size);
    strips_.Note(header.frame_id);
    strip += size;
  }
  if (strip != end) Complain(kTruncated, "a buffer with more bytes than strips");
}

}  // namespace tessaline_test
