// Files of several sensors: written, interrupted, continued, and read sensor by sensor.

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "BagFixture.h"
#include "record/BagReader.h"
#include "record/BagTables.h"
#include "record/FleetFile.h"

namespace {

using namespace record_test;  // NOLINT(google-build-using-namespace)
using namespace tool;         // NOLINT(google-build-using-namespace)
using ring::Kind;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

class Fleet : public BagFolderTest {
 protected:
  static void WriteStrip(FleetFile& file, const std::string& sensor, std::uint64_t id,
                         unsigned points = 50) {
    std::vector<std::byte> bytes;
    AppendStrip(bytes, id, points);
    file.Write(sensor, {Kind::kStrips, kStart + static_cast<std::int64_t>(id) * kMs, 1, 8, bytes});
  }
  // Ids of the strips, in the order of the file.
  std::vector<std::uint64_t> Ids(const std::string& sensor) const {
    BagReader reader(path_, Database::Mode::kRead, sensor);
    std::vector<std::uint64_t> ids;
    while (const auto message = reader.Next()) {
      if (message->topic != Topic::kStrips) continue;
      tessaline_strip_header header;
      std::memcpy(&header, message->As<StripsMessage>().data.data(), sizeof header);
      ids.push_back(header.frame_id);
    }
    return ids;
  }
  std::uint64_t Position(const FleetFile& file, const std::string& sensor) const {
    const auto found = file.positions().find({sensor, "a1"});
    return found == file.positions().end() ? 0 : found->second;
  }
  std::string TextOfOpening() const {
    return TextOf([this] { FleetFile file(path_); });
  }
};

TEST_F(Fleet, KeepsSensorsApart) {
  FleetFile file(path_);
  for (std::uint64_t id = 1; id <= 5; ++id) {
    WriteStrip(file, "line3.left", id);
    WriteStrip(file, "line3.right", 100 + id);
  }
  GapMessage lost;
  lost.stamp_ns = kStart;
  lost.reason = "ring";
  lost.strips_first = 106;
  file.Write("line3.right", lost);
  EXPECT_EQ(file.CountsOf("line3.left").strips, 5u);
  EXPECT_EQ(file.counts().messages, 11u);
  file.Close();
  EXPECT_THAT(SensorsOf(path_), ElementsAre("line3.left", "line3.right"));
  EXPECT_THAT(Ids("line3.left"), ElementsAre(1, 2, 3, 4, 5));
  EXPECT_THAT(Ids("line3.right"), ElementsAre(101, 102, 103, 104, 105));
  BagReader right(path_, Database::Mode::kRead, "line3.right");
  EXPECT_TRUE(right.closed());
  EXPECT_EQ(right.version(), 2);
  std::optional<GapMessage> gap;
  while (const auto message = right.Next()) {
    if (message->topic == Topic::kGaps) gap = message->As<GapMessage>();
  }
  ASSERT_TRUE(gap);
  EXPECT_EQ(gap->reason, "ring");
  EXPECT_EQ(gap->strips_first, 106u);
}

TEST_F(Fleet, IsContinued) {
  {
    FleetFile file(path_);
    WriteStrip(file, "a", 1);
    file.SetPosition("a", "a1", 7);
    file.Close();
  }
  {
    FleetFile file(path_);
    EXPECT_EQ(Position(file, "a"), 7u);
    WriteStrip(file, "a", 2);
    WriteStrip(file, "b", 10);
    file.SetPosition("a", "a1", 9);
    file.SetPosition("b", "a1", 1);
    file.Sync();
    WriteStrip(file, "a", 3);
    file.SetPosition("a", "a1", 12);
  }
  FleetFile file(path_);
  EXPECT_EQ(Position(file, "a"), 9u);
  EXPECT_EQ(Position(file, "b"), 1u);
  file.Close();
  EXPECT_THAT(Ids("a"), ElementsAre(1, 2));
  EXPECT_THAT(Ids("b"), ElementsAre(10));
}

}  // namespace
