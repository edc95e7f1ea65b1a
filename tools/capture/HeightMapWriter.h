#pragma once

#include "OutputFile.h"
#include "capture/FrameWriter.h"

namespace tool {

// The surface seen from above, as a PNG picture: profiles from top to bottom, spaced by the
// encoder. The colour shows the height, blue to red; light from the side shows edges; the
// brightness of the line shows what is printed on the surface.
class HeightMapWriter : public FrameWriter {
 public:
  // Everything is kept in memory: 5 KiB per profile, and a sensor has half a GiB. A process that
  // runs out of memory is killed halfway, with the laser on.
  static constexpr std::size_t kMostProfiles = 40'000;

  explicit HeightMapWriter(const WriterSettings& settings);
  void Write(const Frame& frame) override;
  void Finish() override;
  std::vector<std::string> Files() const override {
    return frames_ == 0 ? std::vector<std::string>() : std::vector{settings_.path};
  }
  std::size_t Frames() const override { return frames_; }

 private:
  struct Profile {
    std::uint64_t encoder_stamp;
    std::vector<float> heights;  // one per pixel across
    std::vector<std::uint8_t> peaks;
  };
  std::vector<std::uint8_t> Draw(unsigned& height) const;
  std::pair<double, double> Range() const;

  WriterSettings settings_;
  WholeFile file_;
  unsigned width_;  // of the picture
  std::vector<Profile> profiles_;
  std::size_t frames_ = 0;
};

}  // namespace tool
