#include "record/ReplayRings.h"

#include <fmt/format.h>

#include <cstddef>
#include <utility>

#include "Failure.h"

namespace tool {
namespace {

constexpr std::size_t kFrameBytes = std::size_t{48} << 20;
constexpr std::size_t kEventBytes = std::size_t{2} << 20;

ring::RecordRing MakeRing(std::size_t bytes) {
  auto ring = ring::RecordRing::Create(bytes);
  if (ring) return std::move(*ring);
  throw Failure(ExitCode::kFile, "there is no memory for the frames that are read ahead");
}

}  // namespace

ReplayRings::ReplayRings()
    : images(MakeRing(kFrameBytes)),
      strips(MakeRing(kFrameBytes)),
      events(MakeRing(kEventBytes)),
      state(MakeRing(kEventBytes)) {}

std::string ReplayRings::Paths() const {
  return fmt::format("{} {} {} {}", images.Path(), strips.Path(), events.Path(), state.Path());
}

ReplayRings::Variables ReplayRings::VariablesFor(const std::string& model, double speed) const {
  return {{"TESSALINE_BOARD", model},
          {"TESSALINE_BOARD_REPLAY", fmt::format("{} {}", Paths(), speed)}};
}

}  // namespace tool
