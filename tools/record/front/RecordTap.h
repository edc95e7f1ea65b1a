#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "ring/RecordRing.h"
#include "tessaline/log.h"
#include "tessaline/products.h"

namespace tool {

// Puts what the library hands over into a ring, as records. Its calls come from any thread, and
// from signal handlers; none of them waits.
class RecordTap {
 public:
  // `what`: "strips images registers", or some of these.
  RecordTap(ring::RecordRing ring, std::string_view what);

  bool wants_registers() const { return registers_; }
  ring::RecordRing& ring() { return ring_; }

  // Facts about the device and the program: a JSON object.
  void Device(std::string_view json);
  void Strips(unsigned strips, unsigned bytes, const void* data);
  void Image(unsigned width, unsigned height, const void* pixels);
  void Trigger(unsigned level);
  void DaArrived();
  void Register(std::uint64_t address, std::uint32_t value);
  void LogLine(log_Event& event);
  void FpgaVersion(const VeltranoSDK::products::Product& product);
  void Clock();
  // From time to time: what the device has lost, and what its clock says.
  void State();

 private:
  void Losses();

  ring::RecordRing ring_;
  const bool strips_, images_, registers_;
  std::atomic<std::int64_t> next_clock_ns_{0};
  std::atomic<std::int64_t> next_losses_ns_{0};
  std::atomic<std::uint64_t> told_lost_{0};
};

}  // namespace tool
