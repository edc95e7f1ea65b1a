#pragma once

#include <optional>

#include "OutputFile.h"
#include "capture/FrameWriter.h"
#include "capture/Legend.h"

namespace tool {

// The surface seen from above, as a PNG picture: profiles from top to bottom, spaced by the
// encoder. The colour shows the height, blue to red; light from the side shows edges; the
// brightness of the line shows what is printed on the surface. A legend is below.
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
  struct Rows {
    std::vector<unsigned> first;  // of each profile
    bool to_scale;                // as many millimetres down as across
  };
  std::optional<Legend::Heights> Range() const;  // none if nothing was seen
  double UnitsPerPixel() const;                  // millimetres or columns, across
  Rows PlaceProfiles() const;
  void DrawMap(Canvas& picture, const Rows& rows, const Legend::Heights& range) const;

  WriterSettings settings_;
  WholeFile file_;
  unsigned width_;  // of the map
  std::vector<Profile> profiles_;
  std::size_t frames_ = 0;
};

}  // namespace tool
