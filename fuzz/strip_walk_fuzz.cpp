// Compares the walk over packed strips with a byte-by-byte walk, for any bytes, any count and any
// point size.
#include <fuzzer/FuzzedDataProvider.h>

#include <memory>
#include <vector>

#include "Runnable/StripWalk.h"
#include "support/Require.h"
#include "support/StripReference.h"

namespace {

using tessaline_fuzz::Require;
using tessaline_fuzz::StripReference;
using namespace VeltranoSDK;  // NOLINT(google-build-using-namespace)

std::vector<StripHeader> visited;

bool Same(const StripHeader& a, const StripHeader& b) {
  return a.frame_id == b.frame_id && a.time_stamp == b.time_stamp &&
         a.encoder_stamp == b.encoder_stamp && a.point_count == b.point_count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const auto count = input.ConsumeIntegral<std::uint32_t>();
  constexpr std::uint32_t kPoints[] = {2, 4, 8, 0, 1, 0xFFFFFFFF};
  const std::uint32_t point = input.ConsumeBool() ? input.PickValueInArray(kPoints)
                                                  : input.ConsumeIntegral<std::uint32_t>();
  const bool shifted = input.ConsumeBool();
  const auto bytes = input.ConsumeRemainingBytes<std::uint8_t>();

  // The block has exactly this size. Every other time it starts at an odd address.
  const auto block = std::make_unique<std::byte[]>(bytes.size() + shifted);
  std::byte* const buffer = block.get() + shifted;
  std::copy(bytes.begin(), bytes.end(), reinterpret_cast<std::uint8_t*>(buffer));

  const StripReference expected(bytes.data(), bytes.size(), count, point);
  visited.clear();
  const StripWalk walk =
      WalkStrips(buffer, bytes.size(), count, point, [](unsigned index, const StripHeader& strip) {
        visited.push_back(strip);
        Require(index == visited.size(), "strips are numbered from 1");
      });
  Require(walk.strips == expected.strips.size(), "as many strips");
  Require(walk.bytes == expected.bytes, "as many bytes");
  Require(walk.complete == expected.complete, "a strip that does not fit is reported");
  Require(walk.last_frame_id == expected.LastFrame(), "last frame");
  Require(std::equal(visited.begin(), visited.end(), expected.strips.begin(), expected.strips.end(),
                     Same),
          "the visitor gets every whole strip");
  Require(std::equal(bytes.begin(), bytes.end(), reinterpret_cast<std::uint8_t*>(buffer)),
          "the buffer is only read");

  const StripWalk unvisited = WalkStrips(buffer, bytes.size(), count, point);
  Require(unvisited.strips == walk.strips && unvisited.bytes == walk.bytes &&
              unvisited.complete == walk.complete,
          "a visitor changes nothing");
  return 0;
}
