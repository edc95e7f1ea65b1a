#include "reliability/Soak.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "reliability/SoakHandlers.h"
#include "support/Sanitizers.h"
#include "support/Waiting.h"
#include "tessaline/board.h"
#include "tessaline/tessaline.h"

namespace tessaline_test {

namespace {

using std::chrono::milliseconds;

constexpr unsigned kLaps = 40;
constexpr unsigned kImages = 1;  // collect modes
constexpr unsigned kStrips = 0;
constexpr unsigned kTimer = 0;  // trigger modes
constexpr unsigned kExternal = 2;
constexpr auto kBetweenChanges = milliseconds(40);
constexpr auto kLastExposure = milliseconds(50);
constexpr auto kPatience = std::chrono::minutes(1);
constexpr std::uint64_t kImageBuffers = 10;

// The warm-up touches every page of every buffer. Later growth is a few pages of stacks and of the
// heap. In a full run, a leak of six bytes per image exceeds this.
constexpr long kMostKibMore = 512;
// A register access opens the registers, one at a time.
constexpr long kMostDescriptorsMore = 1;

struct Region {
  unsigned x, y, width, height;
};

// All sensors accept these steps. A buffer holds about a thousand strips of the small regions.
constexpr Region kSmall[] = {
    {0, 0, 64, 1080}, {512, 8, 64, 1072}, {128, 0, 64, 1080}, {256, 240, 64, 800}};
constexpr Region kLarge[] = {
    {0, 0, 1408, 1080}, {64, 240, 1024, 640}, {0, 0, 512, 512}, {128, 8, 704, 1000}};
constexpr unsigned kStripsPerBuffer = 1000;
constexpr unsigned kLargeStrips = 2500;  // enough for all buffers, more than once
constexpr unsigned kWarmUpBuffers =
    30;  // few of them are full, because the region changes meanwhile

struct tessaline_board_stream_stats Stats(int stream) {
  struct tessaline_board_stream_stats stats {};
  tessaline_board_stream_stats(stream, &stats);
  return stats;
}

std::uint64_t Produced() { return Stats(0).frames + Stats(1).frames; }

}  // namespace

template <typename Condition>
void Soak::Await(const char* what, Condition condition) {
  if (Eventually(condition, kPatience)) return;
  std::fprintf(stderr, "soak: %s: nothing comes any more\n", what);
  std::_Exit(EXIT_FAILURE);
}

// Uses registers that no other thread here changes.
void Soak::RegisterTraffic(const std::atomic<bool>& over) {
  for (unsigned i = 0; !over; ++i) {
    SetTriSpacing(4000 + i % 100);
    SetOutWidth(i % 2, i);
    GetEncoderCounter();
    GetCallbackLostNum();
    ReallyWait(milliseconds(i % 3));
  }
}

void Soak::WatchOver() {
  ReallyWait(kBetweenChanges);
  gauge_.Sample();
}

// Images are reordered with the region at the time they are handled, so the region must not change
// before then. When strips arrive, the last image has been exposed.
void Soak::SettleImages() {
  const std::uint64_t strips = Stats(1).frames;
  Await("strips behind the images", [strips] { return Stats(1).frames > strips; });
  Await("images on their way",
        [this] { return SoakHandlers::Images().Frames() + dropped_ == Stats(0).delivered; });
}

void Soak::ChangeRegion(bool small) {
  unsigned& changes = small ? small_regions_ : large_regions_;
  const unsigned i = changes++ % 4;
  const Region& region = small ? kSmall[i] : kLarge[i];
  if (SetROI1(region.x, region.y, region.width, region.height) != 0) {
    std::fprintf(stderr, "soak: a region was refused\n");
    std::_Exit(EXIT_FAILURE);
  }
}

// Stops and starts with images on their way. Images that the capture thread has not yet handled are
// dropped because of their time stamp. The first one delivered afterwards comes after them.
void Soak::StopAndGo() {
  const std::uint64_t before = SoakHandlers::Images().Last();
  SetGlobalControl(0);
  const std::uint64_t last = Produced() + 1;  // one may just be exposed
  SetGlobalControl(1);
  Await("images after a stop", [last] { return SoakHandlers::Images().Last() > last; });
  const IdRange stop{before + 1, last};
  for (const IdRange& gap : SoakHandlers::Images().GapsBehind(before)) {
    if (stop.Holds(gap)) dropped_ += gap.Size();
  }
  stops_.push_back(stop);
}

// The triggers stop, and all triggered frames arrive. None may be missing.
void Soak::ComeToRest() {
  SettleImages();
  SetTriMode(kExternal);
  for (std::uint64_t before = ~0ull; before != Stats(1).frames;) {
    before = Stats(1).frames;
    ReallyWait(kLastExposure);
  }
  Await("strips on their way",
        [] { return SoakHandlers::Strips().Frames() + Stats(1).lost == Stats(1).frames; });
}

void Soak::TakeStrips(std::uint64_t until) {
  SetCollectMode(kStrips);
  ++mode_changes_;
  SettleImages();
  for (unsigned i = 0; SoakHandlers::Strips().Frames() < until; ++i) {
    // Large regions are rare, because the board takes a long time for them.
    ChangeRegion(i % 16 != 15);
    for (int pause = 0; pause < 4; ++pause) WatchOver();
  }
}

void Soak::TakeImages(std::uint64_t until) {
  while (SoakHandlers::Images().Frames() < until) {
    ChangeRegion(false);
    SetCollectMode(kImages);
    const std::uint64_t strips = Produced() + 1;  // one may just be exposed
    Await("images", [strips] { return SoakHandlers::Images().Last() > strips; });
    for (int pause = 0; pause < 4; ++pause) WatchOver();
    StopAndGo();
    for (int pause = 0; pause < 4; ++pause) WatchOver();
    SetCollectMode(kStrips);
    mode_changes_ += 2;
    SettleImages();
  }
}

// Uses every page of every buffer and every path once.
void Soak::WarmUp() {
  for (unsigned lap = 1; lap <= std::size(kLarge); ++lap) {
    TakeStrips(kWarmUpBuffers * lap * kStripsPerBuffer);
    TakeImages(40 * lap);
    // Uses the images' large region.
    const std::uint64_t enough = SoakHandlers::Strips().Frames() + kLargeStrips;
    Await("large strips", [enough] { return SoakHandlers::Strips().Frames() > enough; });
  }
}

void Soak::Run() {
  tessaline_board_keep_checksums(1);
  tessaline_board_set_strips_per_buffer(kStripsPerBuffer);
  OpenLaser();
  SetCollectMode(kStrips);
  SetTriMode(kTimer);
  SetGlobalControl(1);
  std::atomic<bool> over = false;
  std::thread traffic(RegisterTraffic, std::cref(over));
  WarmUp();
  gauge_.Start();
  const auto start = std::chrono::steady_clock::now();
  for (unsigned lap = 1; lap <= kLaps; ++lap) {
    TakeStrips(plan_.strips * lap / kLaps);
    TakeImages(plan_.images * lap / kLaps);
    ComeToRest();
    SetGlobalControl(0);
    SetGlobalControl(1);
    SetTriMode(kTimer);
  }
  ComeToRest();
  seconds_ = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  over = true;
  traffic.join();
  WatchOver();
  produced_ = Produced();
  lost_ = Stats(0).lost + Stats(1).lost;
}

bool Soak::Report() const {
  std::vector<std::string> complaints = SoakHandlers::Complaints();
  std::vector<IdRange> runs = SoakHandlers::Images().Runs();
  for (const IdRange& run : SoakHandlers::Strips().Runs()) runs.push_back(run);
  std::uint64_t accounted = 0;
  for (const IdRange& gap : Missing(std::move(runs), produced_, complaints)) {
    const bool at_stop = std::any_of(stops_.begin(), stops_.end(),
                                     [&](const IdRange& stop) { return stop.Holds(gap); });
    if (at_stop && gap.Size() <= kImageBuffers) {
      accounted += gap.Size();
    } else {
      complaints.push_back("frames " + std::to_string(gap.first) + " to " +
                           std::to_string(gap.last) + " are missing");
    }
  }
  const std::uint64_t strips = SoakHandlers::Strips().Frames();
  const std::uint64_t images = SoakHandlers::Images().Frames();
  if (strips < plan_.strips || images < plan_.images) complaints.push_back("too few frames");
  if (lost_ != 0) complaints.push_back(std::to_string(lost_) + " frames found no buffer");
  // The sanitizers keep freed memory for a while.
  if constexpr (!kAddressSanitizer && !kThreadSanitizer) {
    for (auto& complaint : gauge_.Complaints(kMostKibMore, kMostDescriptorsMore)) {
      complaints.push_back(std::move(complaint));
    }
  }

  std::printf("%llu strips, %llu images, %.1f GB compared, %.1f s\n",
              static_cast<unsigned long long>(strips), static_cast<unsigned long long>(images),
              static_cast<double>(SoakHandlers::Bytes()) / 1e9, seconds_);
  std::printf("%u changes of the region, %u of the collect mode\n", small_regions_ + large_regions_,
              mode_changes_);
  std::printf("%llu frame ids; %zu stops dropped %llu images, all other frames were delivered\n",
              static_cast<unsigned long long>(produced_), stops_.size(),
              static_cast<unsigned long long>(accounted));
  gauge_.Print();
  for (const std::string& complaint : complaints) std::printf("WRONG: %s\n", complaint.c_str());
  return complaints.empty();
}

}  // namespace tessaline_test
