// Missing frames, and the gap messages that name them.

#include <gmock/gmock.h>

#include "BagFixture.h"
#include "record/BagCheck.h"
#include "record/FleetFile.h"

namespace {

using namespace record_test;  // NOLINT(google-build-using-namespace)
using namespace tool;         // NOLINT(google-build-using-namespace)

// Frames and gap messages as they come: "1-5" are frames, "!6-7" is a message about these ids, and
// "!6-" one about all from 6 on.
FrameCount Play(const std::string& story) {
  FrameCount frames;
  std::istringstream words(story);
  for (std::string word; words >> word;) {
    const bool gap = word.front() == '!';
    const std::size_t dash = word.find('-');
    const std::uint64_t first = std::stoull(word.substr(gap ? 1 : 0));
    std::optional<std::uint64_t> last;
    if (dash == word.npos) last = first;
    if (dash != word.npos && dash + 1 < word.size()) last = std::stoull(word.substr(dash + 1));
    if (gap) {
      frames.AddNamed(first, last);
    } else {
      for (std::uint64_t id = first; id <= *last; ++id) frames.Add(id, id * 50'000);
    }
  }
  return frames;
}

std::string Unexplained(const FrameCount& frames) {
  std::string text;
  for (const IdRange& ids : frames.FirstUnexplained()) {
    text += (text.empty() ? "" : " ") + std::to_string(ids.first) +
            (ids.first == ids.last ? "" : "-" + std::to_string(ids.last));
  }
  return text;
}

struct Story {
  const char* name;
  const char* story;
  std::uint64_t missing;
  const char* unexplained;
};
class Gaps : public testing::TestWithParam<Story> {};

TEST_P(Gaps, ExplainWhatTheyName) {
  const FrameCount frames = Play(GetParam().story);
  EXPECT_EQ(frames.missing(), GetParam().missing);
  EXPECT_EQ(Unexplained(frames), GetParam().unexplained);
}

INSTANTIATE_TEST_SUITE_P(
    All, Gaps,
    testing::Values(Story{"Without", "1-5 8-9 11", 3, "6-7 10"},
                    Story{"Before", "1-5 !6-7 8-9", 2, ""}, Story{"Behind", "1-5 8 !6-7 9", 2, ""},
                    Story{"MuchLater", "1-5 8 10 12 14-20 !6-7 21", 5, "9 11 13"},
                    Story{"OneForSeveralHoles", "1-5 !6-10 8 11", 4, ""},
                    Story{"SeveralForOneHole", "1-5 !6-7 9-10 !8 11", 3, ""},
                    Story{"SeveralForOneHoleBehind", "1-5 11 !6-7 !9 !10", 5, "8"},
                    Story{"Less", "1-5 !7-8 11", 5, "6 9-10"},
                    Story{"LessBehind", "1-5 11 !7-8", 5, "6 9-10"},
                    Story{"More", "1-5 !4-12 8 9", 2, ""},
                    Story{"OfNothingThatIsMissing", "1-5 !3-4 8", 2, "6-7"},
                    Story{"Once", "1-3 !4 5-9 1-3 5", 2, "4"},
                    Story{"TwiceTheSame", "1-3 !4 5-9 1-3 !4 5", 2, ""},
                    Story{"Backwards", "1-5 !7-6 8", 2, "6-7"},
                    Story{"ToAnEndThatNobodyKnows", "1-5 !6- 9-10 12", 4, "11"},
                    Story{"ToAnEndThatNobodyKnowsBehind", "1-5 9-10 !6- 12", 4, "11"},
                    Story{"ToAnEndFromTheMiddle", "1-5 !7- 9", 3, "6"},
                    // A publisher was killed behind 5, and the next one counts anew.
                    Story{"ToTheEndOfARun", "1-5 !6- 1-3 9", 5, "4-8"},
                    Story{"ToTheEndOfARunBehind", "1-5 1-3 !6- 9", 5, "4-8"},
                    Story{"OfARunBefore", "1-5 !6-8 1-3 9", 5, "4-8"}),
    [](const auto& story) { return std::string(story.param.name); });

TEST(Gaps, TakeNoMoreMemoryThanSome) {
  FrameCount frames;
  for (std::uint64_t id = 1; id < 100'000; id += 2) frames.Add(id, id);
  EXPECT_EQ(frames.FirstUnexplained().size(), GapMatch::kMostTold);
  EXPECT_EQ(frames.FirstUnexplained().front().first, 2u);
  EXPECT_EQ(frames.unexplained(), 49'999u);
  for (std::uint64_t id = 200'000; id < 300'000; id += 2) frames.AddNamed(id, id);
  EXPECT_EQ(frames.unexplained(), 49'999u);
}

class GapsInAFile : public BagFolderTest {
 protected:
  static void WriteStrips(FleetFile& file, const std::string& sensor,
                          const std::vector<std::uint64_t>& ids) {
    for (const std::uint64_t id : ids) {
      std::vector<std::byte> bytes;
      AppendStrip(bytes, id, 3);
      file.Write(sensor, {ring::Kind::kStrips, kStart, 1, 8, bytes});
    }
  }
  static GapMessage Lost(std::uint64_t first, std::uint64_t last) {
    GapMessage gap;
    gap.stamp_ns = kStart;
    gap.reason = "store";
    gap.run = "6f1c";
    gap.strips_first = first;
    gap.strips_last = last;
    gap.strips_count = last - first + 1;
    return gap;
  }
  BagFindings Check(const std::string& sensor) const {
    return ReadBag({path_.string(), sensor}, [] { return false; });
  }
};

TEST_F(GapsInAFile, AreThoseOfTheirSensor) {
  FleetFile file(path_);
  WriteStrips(file, "a", {1, 2, 5});
  WriteStrips(file, "b", {1, 2, 5});
  file.Write("a", Lost(3, 4));
  file.Close();
  EXPECT_EQ(Check("a").Unexplained(), 0u);
  EXPECT_EQ(Check("a").contents.strips().missing(), 2u);
  EXPECT_EQ(Check("a").contents.first_gaps().at(0).reason, "store");
  EXPECT_EQ(Check("b").Unexplained(), 2u);
  EXPECT_FALSE(Check("b").damaged());
}

TEST_F(GapsInAFile, OfImagesDoNotExplainStrips) {
  FleetFile file(path_);
  WriteStrips(file, "a", {1, 3});
  for (const std::uint64_t id : {1, 3}) {
    const auto image = ImageBytes(id, 16, 8);
    file.Write("a", {ring::Kind::kImage, kStart, 16, 8, image});
  }
  GapMessage gap;
  gap.stamp_ns = kStart;
  gap.images_first = gap.images_last = 2;
  gap.images_count = 1;
  file.Write("a", gap);
  file.Close();
  EXPECT_EQ(Check("a").contents.strips().unexplained(), 1u);
  EXPECT_EQ(Check("a").contents.images().unexplained(), 0u);
}

}  // namespace
