#pragma once

#include "Device.h"
#include "check/Findings.h"

namespace tool {

// Takes frames in both collect modes and checks them. With the laser on, also checks that its line
// is visible.
class FrameChecks {
 public:
  FrameChecks(Device& device, const Model& model, Findings& findings)
      : device_(device), model_(model), findings_(findings) {}

  void Images();
  void Strips(bool laser);

 private:
  struct Stream {
    bool images;
    const char* name;    // "images"
    const char* one;     // "image"
    const char* device;  // "/dev/video0"
    const char* source;  // source file in its thread's messages
    unsigned frames;     // how many to check
  };
  // What arrived.
  struct Seen {
    std::uint64_t frames = 0;
    std::uint64_t whole = 0;
    std::uint64_t points = 0;
    bool stamps_grow = true;
    double rate = 0;
  };
  unsigned StripSpacing() const;
  bool LightUp();
  Seen Run(const Stream& stream);
  bool Judge(const Stream& stream, const Seen& seen);
  std::string WhyNothingCame(const Stream& stream) const;

  Device& device_;
  const Model& model_;
  Findings& findings_;
};

}  // namespace tool
