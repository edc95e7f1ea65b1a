// The recorder and the flight recorder, fed by hand.
#include <gmock/gmock.h>

#include "BagFixture.h"
#include "record/BagQuery.h"
#include "record/RingRecorder.h"
#include "tessaline/log.h"

namespace record_test {
namespace {

using namespace std::chrono_literals;
using ring::Kind;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using tool::Topic;

constexpr std::int64_t kSecond = 1000 * kMs;
constexpr std::uint64_t kAddress = 0x43C0'0000;

class Recorder : public BagFolderTest {
 protected:
  // A flight recorder, if it is to keep something from before an incident.
  void Start(std::chrono::nanoseconds before = 0ns, std::chrono::nanoseconds after = 0ns) {
    tool::RingRecorder::Settings settings;
    settings.path = path_;
    settings.device = R"({"recorder": "test"})";
    if (before > 0ns) settings.before = before;
    settings.after = after;
    settings.on_error = true;
    settings.on_trigger = true;
    settings.most_files = 3;
    recorder_.emplace(ring_, settings);
    recorder_->Work(now_);
  }
  void PutStrip(std::uint64_t id, std::int64_t stamp) {
    std::vector<std::byte> bytes;
    AppendStrip(bytes, id, 10);
    ring_.Put({Kind::kStrips, stamp, 1, 0, bytes});
  }
  void PutImage(std::int64_t stamp) {
    std::vector<std::byte> bytes = ImageBytes(1, 1000, 200);
    ring_.Put({Kind::kImage, stamp, 1000, 200, bytes});
  }
  // Works as long as this takes.
  void WorkFor(std::chrono::nanoseconds time) {
    const auto end = now_ + time;
    do {
      recorder_->Work(now_ += 1ms);
    } while (now_ < end);
  }
  static std::vector<std::uint64_t> Ids(const std::string& path) {
    const tool::BagReader reader(path);
    tool::BagQuery strips(reader, {Topic::kStrips});
    std::vector<std::uint64_t> ids;
    while (const auto message = strips.Next()) {
      const auto strip = message->As<tool::StripsMessage>();
      tessaline_strip_header header;
      std::memcpy(&header, strip.data.data(), sizeof header);
      ids.push_back(header.frame_id);
    }
    return ids;
  }
  std::string Numbered(int number) const {
    return (folder_ / ("run-" + std::to_string(number) + ".db3")).string();
  }

  std::chrono::steady_clock::time_point now_ = std::chrono::steady_clock::now() + 1s;
  ring::RecordRing ring_ = std::move(*ring::RecordRing::Create(1 << 20));
  std::optional<tool::RingRecorder> recorder_;
};

TEST_F(Recorder, WritesEverythingIntoOneFile) {
  Start();
  PutStrip(1, kStart);
  recorder_->Work(now_);
  PutStrip(2, kStart + 1);
  recorder_->Incident("nothing for this one");
  recorder_->Finish(/*crashed=*/true);
  EXPECT_THAT(Ids(path_), ElementsAre(1, 2));
  EXPECT_THAT(recorder_->totals().files, ElementsAre(path_));
  EXPECT_EQ(recorder_->totals().written.strips, 2u);
  EXPECT_TRUE(tool::BagReader(path_).closed());
}

TEST_F(Recorder, CountsInTheFileWhatTheRingDropped) {
  Start();
  for (unsigned i = 0; i < 10; ++i) PutImage(kStart + i);
  EXPECT_EQ(recorder_->totals().dropped_frames, 5u);
  recorder_->Finish(false);
  const tool::BagReader reader(path_);
  tool::BagQuery losses(reader, {Topic::kLosses});
  const auto message = losses.Next();
  ASSERT_TRUE(message);
  EXPECT_EQ(message->As<tool::LossesMessage>().frames_by_recorder, 5u);
  EXPECT_FALSE(losses.Next());
}

TEST_F(Recorder, AFlightRecorderWritesNothingIfNothingHappens) {
  Start(1s);
  for (unsigned i = 0; i < 50; ++i) PutStrip(i, kStart + i);
  WorkFor(10ms);
  recorder_->Finish(/*crashed=*/false);
  EXPECT_TRUE(recorder_->totals().files.empty());
  EXPECT_TRUE(std::filesystem::is_empty(folder_));
}

// What came before, and after, is in the file, but not all of it.
TEST_F(Recorder, AFlightRecorderWritesWhatWasAroundAnIncident) {
  Start(300ms, 50ms);
  PutStrip(1, kStart);
  WorkFor(400ms);
  PutStrip(2, kStart + kSecond);
  WorkFor(10ms);
  recorder_->Incident("a test");
  recorder_->Work(now_);
  EXPECT_EQ(recorder_->totals().written.strips, 1u) << "not written at once";
  PutStrip(3, kStart + 2 * kSecond);
  WorkFor(100ms);
  PutStrip(4, kStart + 3 * kSecond);
  recorder_->Finish(false);
  EXPECT_THAT(Ids(path_), ElementsAre(2, 3));
  EXPECT_EQ(recorder_->totals().first_incident, "a test");
}

// The state is that of the first frame, and has its stamp: a replay wants it then.
TEST_F(Recorder, AFlightRecordersFileBeginsWithTheState) {
  Start(200ms, 1s);
  const std::string model = R"({"model": "K3610"})";
  const auto text = std::as_bytes(std::span(model));
  ring_.Put({Kind::kDevice, kStart, 0, 0, text});
  ring_.Put({Kind::kRegister, kStart, kAddress, 5, {}});
  ring_.Put({Kind::kRegister, kStart + 1, kAddress, 6, {}});
  WorkFor(300ms);
  PutStrip(1, kStart + kSecond);
  ring_.Put({Kind::kRegister, kStart + kSecond + 1, kAddress, 7, {}});
  PutStrip(2, kStart + 2 * kSecond);
  WorkFor(10ms);
  recorder_->Incident("a test");
  recorder_->Finish(false);

  const tool::BagReader reader(path_);
  tool::BagQuery all(reader, {Topic::kDevice, Topic::kRegisters, Topic::kStrips});
  std::vector<std::string> seen;
  while (const auto message = all.Next()) {
    const std::int64_t since = message->stamp_ns - kStart - kSecond;
    if (message->topic == Topic::kDevice) seen.push_back(message->As<tool::DeviceMessage>().json);
    if (message->topic == Topic::kStrips) seen.push_back("strips");
    if (message->topic == Topic::kRegisters) {
      seen.push_back(std::to_string(message->As<tool::RegisterMessage>().value));
    }
    seen.back() += " " + std::to_string(since);
  }
  EXPECT_THAT(seen, ElementsAre(R"({"recorder": "test"} 0)", model + " 0", "6 0", "strips 0", "7 1",
                                "strips 1000000000"));
}

TEST_F(Recorder, ErrorsLossesTriggersAndCrashesAreIncidents) {
  Start(1s, 1ms);
  PutStrip(1, kStart);
  const std::string line("file.cpp\0went wrong", 19);
  const auto text = std::as_bytes(std::span(line));
  // Every start has one: the driver refuses a format.
  ring_.Put({Kind::kLog, kStart, TESSALINE_LOG_ERROR, 1, text});
  ring_.Put({Kind::kClock, kStart, 1, 1, {}});  // the device has been started
  ring_.Put({Kind::kLog, kStart, TESSALINE_LOG_WARN, 1, text});
  WorkFor(5ms);
  EXPECT_TRUE(recorder_->totals().files.empty());
  ring_.Put({Kind::kLog, kStart, TESSALINE_LOG_ERROR, 1, text});
  WorkFor(20ms);
  EXPECT_EQ(recorder_->totals().first_incident, "an error in the log");
  ring_.Put({Kind::kTrigger, kStart, 1, 0, {}});
  WorkFor(20ms);
  ring_.Put({Kind::kLost, kStart, 3, 0, {}});
  WorkFor(20ms);
  EXPECT_THAT(recorder_->totals().files, ElementsAre(path_, Numbered(2), Numbered(3)));
  EXPECT_EQ(recorder_->totals().lost_by_device, 3u);
  recorder_->Finish(/*crashed=*/true);
  EXPECT_EQ(recorder_->totals().incidents_without_file, 1u);
}

TEST_F(Recorder, ACrashIsAnIncident) {
  Start(1s, 1s);
  PutStrip(1, kStart);
  recorder_->Work(now_);
  recorder_->Finish(/*crashed=*/true);
  EXPECT_THAT(Ids(path_), ElementsAre(1));
}

TEST_F(Recorder, AnIncidentDuringAnotherIsInTheSameFile) {
  Start(1s, 100ms);
  recorder_->Incident("the first");
  WorkFor(60ms);
  recorder_->Incident("the second");
  WorkFor(60ms);
  PutStrip(1, kStart);
  recorder_->Finish(false);
  EXPECT_THAT(recorder_->totals().files, ElementsAre(path_));
  EXPECT_THAT(Ids(path_), ElementsAre(1));
}

// Somebody sets the host's clock, in either direction: what came just before is still there, and
// the file comes to an end.
class ClockSet : public Recorder, public testing::WithParamInterface<std::int64_t> {};

TEST_P(ClockSet, ChangesNothingForAFlightRecorder) {
  Start(1s, 50ms);
  PutStrip(1, kStart);
  WorkFor(5ms);
  PutStrip(2, kStart + GetParam());
  WorkFor(5ms);
  recorder_->Incident("a test");
  WorkFor(5ms);
  PutStrip(3, kStart + GetParam() + 1);
  WorkFor(100ms);
  PutStrip(4, kStart + GetParam() + 2);
  recorder_->Finish(false);
  EXPECT_THAT(Ids(path_), ElementsAre(1, 2, 3));
}
INSTANTIATE_TEST_SUITE_P(ByAnHour, ClockSet, testing::Values(-3600 * kSecond, 3600 * kSecond));

// Rather less from before an incident than a frame lost.
TEST_F(Recorder, AFlightRecorderLeavesRoomForWhatComes) {
  Start(100s, 1s);
  for (unsigned i = 0; i < 40; ++i) {
    PutImage(kStart + i);
    recorder_->Work(now_);
  }
  EXPECT_EQ(recorder_->totals().dropped_frames, 0u);
  recorder_->Incident("a test");
  recorder_->Finish(false);
  EXPECT_EQ(recorder_->totals().written.images, 3u);
}

TEST_F(Recorder, AnExistingFileOfAnIncidentIsNotOverwritten) {
  Start(1s, 1ms);
  std::ofstream(path_) << "mine";
  EXPECT_THAT(TextOf([&] { recorder_->Incident("a test"); }), EndsWith("already exists"));
  EXPECT_EQ(std::filesystem::file_size(path_), 4u);
}

}  // namespace
}  // namespace record_test
