// What is counted in a recording, and what hostile notes of a device may not do.

#include "record/Contents.h"

#include <gmock/gmock.h>

#include "BagFixture.h"
#include "record/BagCheck.h"

namespace {

using namespace record_test;  // NOLINT(google-build-using-namespace)
using namespace tool;         // NOLINT(google-build-using-namespace)
using testing::HasSubstr;

bool Never() { return false; }

TEST(Frames, TellTheirGaps) {
  FrameCount frames;
  for (const std::uint64_t id : {1, 2, 3, 6, 7, 9}) frames.Add(id, id * 50'000);
  EXPECT_EQ(frames.frames(), 6u);
  EXPECT_EQ(frames.lowest(), 1u);
  EXPECT_EQ(frames.highest(), 9u);
  EXPECT_EQ(frames.missing(), 3u);
  EXPECT_EQ(frames.gaps(), 2u);
  ASSERT_EQ(frames.first_gaps().size(), 2u);
  EXPECT_EQ(frames.first_gaps()[0].first, 4u);
  EXPECT_EQ(frames.first_gaps()[0].last, 5u);
  EXPECT_EQ(frames.first_gaps()[1].first, 8u);
  EXPECT_NEAR(frames.Rate(), 1000, 1e-9);
}

TEST(Frames, MayCountAnew) {
  FrameCount frames;
  for (const std::uint64_t id : {7, 8, 1, 2}) frames.Add(id, 100);
  EXPECT_EQ(frames.restarts(), 1u);
  EXPECT_EQ(frames.missing(), 0u);
  EXPECT_EQ(frames.lowest(), 1u);
  EXPECT_EQ(frames.highest(), 8u);
}

TEST(Frames, OfHugeIdsDoNotOverflow) {
  FrameCount frames;
  for (int i = 0; i < 100; ++i) {
    frames.Add(0, 5);
    frames.Add(UINT64_MAX, 4);
  }
  EXPECT_EQ(frames.missing(), UINT64_MAX);
  EXPECT_EQ(frames.gaps(), 100u);
  EXPECT_EQ(frames.first_gaps().size(), FrameCount::kMostGaps);
  EXPECT_EQ(frames.clock_steps(), 100u);
  EXPECT_EQ(frames.Rate(), 0);
}

TEST(DeviceNotes, AddUp) {
  DeviceNotes notes;
  notes.Add(R"({"model": "K3610", "pid": 3})");
  notes.Add(R"({"pid": 4, "recipe": {"gain": 2}})");
  EXPECT_EQ(notes.Text("model"), "K3610");
  EXPECT_EQ(notes.Text("pid"), std::nullopt);
  EXPECT_EQ(notes.all()["pid"], 4);
  EXPECT_EQ(notes.Object("recipe")->at("gain"), 2);
  EXPECT_EQ(notes.Object("calibration"), std::nullopt);
}

// A sensor that has started often has said it often.
TEST(DeviceNotes, CountByWhatIsKeptOfThem) {
  DeviceNotes notes;
  for (int run = 0; run < 1000; ++run) {
    notes.Add("{\"eeprom\": \"" + std::string(1000, 'f') + "\", \"pid\": " + std::to_string(run) +
              "}");
  }
  EXPECT_EQ(notes.all()["pid"], 999);
}

TEST(DeviceNotes, ThatAreHostileAreRefused) {
  DeviceNotes notes;
  notes.Add(R"({"model": "K3610"})");
  for (const char* text : {"", "[]", "3", "{\"a\": ", "{\"a\": \"\xff\"}"}) {
    EXPECT_THAT(TextOf([&] { notes.Add(text); }), HasSubstr("is no JSON object")) << text;
  }
  EXPECT_THAT(TextOf([&] { notes.Add("{\"a\":" + std::string(200'000, '[')); }),
              HasSubstr("nested too deeply"));
  EXPECT_THAT(
      TextOf([&] {
        for (int i = 0; i < 3; ++i) {
          notes.Add("{\"" + std::to_string(i) + "\": \"" + std::string(100'000, 'x') + "\"}");
        }
      }),
      HasSubstr("more than 256 KiB"));
  EXPECT_EQ(notes.Text("model"), "K3610");
}

class BagContents : public BagFolderTest {};

TEST_F(BagContents, AreCounted) {
  {
    BagWriter writer(path_);
    PutDevice(writer, 0, R"({"model": "K3610"})");
    PutStrips(writer, 10, 1, 10);
    PutStrips(writer, 20, 13, 8);
    PutImage(writer, 30, 5);
    Put(writer, EventMessage{kStart + 40 * kMs, "external_trigger", 1});
    Put(writer, EventMessage{kStart + 41 * kMs, "external_trigger", 0});
    Put(writer, LogMessage{kStart + 50 * kMs, 40, "app", "wrong", "", "", 0});
    Put(writer, LogMessage{kStart + 51 * kMs, 30, "app", "odd", "", "", 0});
    Put(writer, LossesMessage{kStart + 60 * kMs, 2, 0, 1});
    Put(writer, RegisterMessage{kStart + 500 * kMs, 0x43C0'0000, 1});
    writer.Close();
  }
  const BagFindings findings = ReadBag(path_, Never);
  EXPECT_TRUE(findings.closed);
  EXPECT_FALSE(findings.damaged());
  const Contents& contents = findings.contents;
  EXPECT_EQ(contents.Of(Topic::kStrips).count, 2u);
  EXPECT_GT(contents.Of(Topic::kStrips).bytes, 18u * 50 * 8);
  EXPECT_EQ(contents.span().from_ns, kStart);
  EXPECT_NEAR(contents.span().Seconds(), 0.5, 1e-9);
  EXPECT_EQ(contents.strips().frames(), 18u);
  EXPECT_EQ(contents.strips().missing(), 2u);
  EXPECT_NEAR(contents.strips().Rate(), 1000, 1e-9);
  EXPECT_EQ(contents.images().frames(), 1u);
  EXPECT_EQ(contents.image_width(), 16u);
  EXPECT_EQ(contents.events().at("external_trigger"), 2u);
  EXPECT_EQ(contents.log_errors(), 1u);
  EXPECT_EQ(contents.losses().frames_by_device, 2u);
  EXPECT_EQ(contents.losses().messages_by_recorder, 1u);
  EXPECT_EQ(contents.device().Text("model"), "K3610");
  EXPECT_TRUE(contents.HasPointsOf(8));
  EXPECT_FALSE(contents.HasPointsOf(2));
}

TEST_F(BagContents, OfManyEventNamesStaySmall) {
  {
    BagWriter writer(path_);
    for (int i = 0; i < 1000; ++i) {
      Put(writer, EventMessage{kStart, std::string(1000, 'e') + std::to_string(i), 1});
      Put(writer, EventMessage{kStart, std::to_string(i), 1});
    }
    writer.Close();
  }
  const auto events = ReadBag(path_, Never).contents.events();
  EXPECT_EQ(events.size(), Contents::kMostEventNames + 1);
  EXPECT_EQ(events.at(std::string(64, 'e')), 1000u);
  EXPECT_EQ(events.at("others"), 1000 - Contents::kMostEventNames + 1);
}

TEST_F(BagContents, MayBeNone) {
  BagWriter(path_.string()).Close();
  const BagFindings findings = ReadBag(path_, Never);
  EXPECT_FALSE(findings.damaged());
  EXPECT_FALSE(findings.contents.span().from_ns);
  EXPECT_EQ(findings.contents.span().Seconds(), 0);
}

TEST_F(BagContents, AreNotReadToTheEndWhenAskedToStop) {
  {
    BagWriter writer(path_);
    PutStrips(writer, 0, 1, 1);
    writer.Close();
  }
  EXPECT_THAT(TextOf([&] { ReadBag(path_, [] { return true; }); }),
              HasSubstr("not read to the end"));
}

}  // namespace
