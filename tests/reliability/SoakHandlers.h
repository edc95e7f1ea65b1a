#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "reliability/FrameRuns.h"

namespace tessaline_test {

// The application's side of the two streams: records every frame id, compares every frame with the
// board's checksum, and sometimes reads registers or is slow.
class SoakHandlers {
 public:
  static void OnImage(unsigned width, unsigned height, void* pixels);
  static void OnStrips(unsigned strips, unsigned bytes, void* data);

  static const FrameRuns& Images() { return images_; }
  static const FrameRuns& Strips() { return strips_; }
  static std::uint64_t Bytes() { return bytes_; }  // compared

  // Complaints about frames, the first few of each kind.
  static std::vector<std::string> Complaints();

 private:
  enum Wrong { kChecksum, kUnknownFrame, kTruncated, kRegister, kWrongKinds };

  static void Compare(std::uint64_t id, const void* data, std::size_t bytes);
  static void Complain(Wrong what, const std::string& text);
  static void BeBusy(unsigned call);

  // Never destroyed: the handlers may run until the process ends.
  static inline FrameRuns& images_ = *new FrameRuns;
  static inline FrameRuns& strips_ = *new FrameRuns;
  static inline std::atomic<std::uint64_t> bytes_{0};
  static inline std::mutex& mutex_ = *new std::mutex;
  static inline std::vector<std::string>& complaints_ = *new std::vector<std::string>;
  static inline std::array<std::uint64_t, kWrongKinds> wrong_{};
};

}  // namespace tessaline_test
