// Parts of recordings, by time and by frame.

#include <gmock/gmock.h>

#include "BagFixture.h"
#include "record/BagCut.h"
#include "record/BagReader.h"
#include "record/BagTime.h"
#include "record/StripWalk.h"

namespace {

using namespace record_test;  // NOLINT(google-build-using-namespace)
using namespace tool;         // NOLINT(google-build-using-namespace)
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

bool Never() { return false; }

class Cut : public BagFolderTest {
 protected:
  void SetUp() override {
    BagFolderTest::SetUp();
    part_ = folder_ / "part.db3";
    BagWriter writer(path_);
    PutDevice(writer, 0, R"({"model": "K3610", "pid": 1})");
    Put(writer, RegisterMessage{kStart, 0x10, 1});
    Put(writer, RegisterMessage{kStart, 0x20, 2});
    for (unsigned i = 0; i < 10; ++i) {
      if (i == 3) Put(writer, RegisterMessage{kStart + 35 * kMs, 0x10, 7});
      if (i == 3) PutDevice(writer, 36, R"({"pid": 2})");
      if (i == 6) Put(writer, RegisterMessage{kStart + 65 * kMs, 0x20, 9});
      PutStrips(writer, 10 + i * 10, i * 10 + 1, 10);
      Put(writer, EventMessage{kStart + (12 + i * 10) * kMs, "event", i});
    }
    writer.Close();
  }

  struct Content {
    std::vector<std::uint64_t> ids, events;
    std::vector<std::pair<std::uint64_t, std::uint32_t>> registers;
    DeviceNotes device;
    std::int64_t first_ns = 0, last_ns = 0;
  };
  Content Part() const {
    Content content;
    BagReader reader(part_);
    EXPECT_TRUE(reader.closed());
    while (const auto message = reader.Next()) {
      if (content.first_ns == 0) content.first_ns = message->stamp_ns;
      content.last_ns = message->stamp_ns;
      if (message->topic == Topic::kStrips) {
        EXPECT_TRUE(WalkStrips(message->As<StripsMessage>(),
                               [&](const auto& header, std::span<const std::byte> bytes) {
                                 std::vector<std::byte> whole;
                                 AppendStrip(whole, header.frame_id, 50);
                                 EXPECT_TRUE(std::ranges::equal(bytes, whole));
                                 content.ids.push_back(header.frame_id);
                               }));
      } else if (message->topic == Topic::kEvents) {
        content.events.push_back(message->As<EventMessage>().value);
      } else if (message->topic == Topic::kRegisters) {
        const auto value = message->As<RegisterMessage>();
        content.registers.emplace_back(value.address, value.value);
      } else if (message->topic == Topic::kDevice) {
        content.device.Add(message->As<DeviceMessage>().json);
      }
    }
    return content;
  }
  std::ptrdiff_t Files() const {
    return std::distance(std::filesystem::directory_iterator(folder_), {});
  }

  std::filesystem::path part_;
};

TEST_F(Cut, ByTimeStandsByItself) {
  const BagCutResult result = CutBag(
      path_, part_, {kStart + 50 * kMs, kStart + 72 * kMs, std::nullopt, std::nullopt}, Never);
  const Content part = Part();
  ASSERT_EQ(part.ids.size(), 30u);
  EXPECT_EQ(part.ids.front(), 41u);
  EXPECT_EQ(part.ids.back(), 70u);
  EXPECT_THAT(part.events, ElementsAre(4, 5, 6));
  // The last value of each before the part, then the change in it.
  EXPECT_THAT(part.registers, ElementsAre(Pair(0x10, 7), Pair(0x20, 2), Pair(0x20, 9)));
  EXPECT_EQ(part.device.Text("model"), "K3610");
  EXPECT_EQ(part.device.all()["pid"], 2);
  EXPECT_EQ(part.first_ns, kStart + 50 * kMs);
  EXPECT_EQ(part.last_ns, kStart + 72 * kMs);
  EXPECT_EQ(result.contents.strips().frames(), 30u);
  EXPECT_EQ(result.damaged, 0u);
}

TEST_F(Cut, ByIdsTrimsBuffers) {
  CutBag(path_, part_, {std::nullopt, std::nullopt, 38, 52}, Never);
  const Content part = Part();
  ASSERT_EQ(part.ids.size(), 15u);
  EXPECT_EQ(part.ids.front(), 38u);
  EXPECT_EQ(part.ids.back(), 52u);
  EXPECT_THAT(part.events, ElementsAre(3, 4));
  EXPECT_THAT(part.registers, ElementsAre(Pair(0x10, 7), Pair(0x20, 2)));
  EXPECT_EQ(part.first_ns, kStart + 40 * kMs);
  EXPECT_EQ(part.last_ns, kStart + 60 * kMs);
}

TEST_F(Cut, ByIdAndTimeIsBoth) {
  CutBag(path_, part_, {kStart + 45 * kMs, std::nullopt, std::nullopt, 45}, Never);
  EXPECT_THAT(Part().ids, ElementsAre(41, 42, 43, 44, 45));
}

TEST_F(Cut, OfAllHasAll) {
  CutBag(path_, part_, {}, Never);
  EXPECT_EQ(Part().ids.size(), 100u);
  EXPECT_EQ(Part().registers.size(), 4u);
}

// Of threads, the later one may have written first.
TEST_F(Cut, KeepsValuesThatCameLate) {
  Sql("DELETE FROM messages WHERE topic_id = 3");
  std::filesystem::rename(path_, folder_ / "old.db3");
  {
    BagWriter writer(path_);
    PutStrips(writer, 50, 1, 1);
    Put(writer, RegisterMessage{kStart + 49 * kMs, 0x30, 5});
    PutStrips(writer, 60, 2, 1);
    writer.Close();
  }
  CutBag(path_, part_, {kStart + 50 * kMs, std::nullopt, std::nullopt, std::nullopt}, Never);
  EXPECT_THAT(Part().registers, ElementsAre(Pair(0x30, 5)));
}

TEST_F(Cut, OfNothingMakesNothing) {
  EXPECT_THAT(TextOf([&] {
                CutBag(path_, part_, {std::nullopt, std::nullopt, 500, 600}, Never);
              }),
              HasSubstr("nothing of it is in this range"));
  EXPECT_EQ(Files(), 1);
}

TEST_F(Cut, ThatIsStoppedLeavesNothing) {
  int asked = 0;
  EXPECT_THAT(TextOf([&] { CutBag(path_, part_, {}, [&] { return ++asked > 30; }); }),
              HasSubstr("not cut"));
  EXPECT_EQ(Files(), 1);
}

TEST_F(Cut, NeverOverwrites) {
  std::ofstream(part_) << "mine";
  EXPECT_THAT(TextOf([&] { CutBag(path_, part_, {}, Never); }), HasSubstr("already exists"));
  EXPECT_THAT(TextOf([&] { CutBag(path_, path_, {}, Never); }), HasSubstr("already exists"));
  EXPECT_EQ(std::filesystem::file_size(part_), 4u);
}

TEST_F(Cut, LeavesOutWhatIsDamaged) {
  Sql("UPDATE messages SET data = substr(data, 1, 60) WHERE topic_id = 1 AND timestamp = " +
      std::to_string(kStart + 40 * kMs));
  EXPECT_EQ(CutBag(path_, part_, {}, Never).damaged, 1u);
  EXPECT_EQ(Part().ids.size(), 90u);
}

TEST_F(Cut, OfMoreRegistersThanADeviceHasIsRefused) {
  std::filesystem::remove(path_);
  {
    BagWriter writer(path_);
    for (std::uint64_t i = 0; i < 66'000; ++i) Put(writer, RegisterMessage{kStart, i, 0});
    PutStrips(writer, 10, 1, 1);
    writer.Close();
  }
  EXPECT_THAT(TextOf([&] {
                CutBag(path_, part_, {std::nullopt, std::nullopt, 1, std::nullopt}, Never);
              }),
              HasSubstr("more registers than a device has"));
  EXPECT_EQ(Files(), 1);
}

TEST(Moments, AreReadAndWritten) {
  EXPECT_EQ(MomentOf("2.5", kStart), kStart + 2'500 * kMs);
  EXPECT_EQ(MomentOf("-1", kStart), kStart - 1'000 * kMs);
  EXPECT_EQ(MomentOf("@1700000000.25", 5), kStart + 250 * kMs);
  EXPECT_EQ(MomentOf("2023-11-14T22:13:20Z", 5), kStart);
  EXPECT_EQ(MomentOf("2023-11-14T22:13:20.125Z", 5), kStart + 125 * kMs);
  EXPECT_EQ(TextOfMoment(kStart + 125 * kMs), "2023-11-14T22:13:20.125Z");
  for (const char* text : {"", "x", "1s", "nan", "inf", "1e300", "@", "2023-11-14T22:13", "@9e9",
                           "2023-11-14T22:13:20x", "2023-11-14T22:13:20.5.5Z"}) {
    EXPECT_THAT(TextOf([&] { MomentOf(text, kStart); }), HasSubstr("is no time")) << text;
  }
}

TEST(Moments, WithoutAZoneAreLocal) {
  setenv("TZ", "EET-2", 1);  // two hours east
  tzset();
  EXPECT_EQ(MomentOf("2023-11-15T00:13:20", 5), kStart);
}

}  // namespace
