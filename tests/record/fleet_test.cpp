// Files of several sensors: written, interrupted, continued, and read sensor by sensor.

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <numeric>

#include "BagFixture.h"
#include "record/BagCut.h"
#include "record/BagReader.h"
#include "record/FleetFile.h"
#include "record/RecordingFile.h"

namespace {

using namespace record_test;  // NOLINT(google-build-using-namespace)
using namespace tool;         // NOLINT(google-build-using-namespace)
using ring::Kind;
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
  // In another process, which does not return from it.
  template <typename Call>
  static pid_t Fork(Call call) {
    const pid_t child = fork();
    if (child != 0) return child;
    _exit(TextOf(call) == "no failure" ? 0 : 1);
  }
  static void Kill(pid_t child) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
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

// A writer that is killed at any moment, again and again, and goes on where it was.
TEST_F(Fleet, OfAKilledWriterHasEverythingOnce) {
  std::uint64_t synced = 0;
  unsigned useful = 0;
  for (unsigned round = 0; useful < 12; ++round) {
    ASSERT_LT(round, 300u) << "too slow a machine";
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = Fork([&] {
      FleetFile file(path_);
      for (std::uint64_t id = Position(file, "a") + 1;; ++id) {
        // Larger than what SQLite keeps in memory, so that it is in the file before a sync.
        WriteStrip(file, "a", id, 3000);
        WriteStrip(file, "b", id, 10);
        file.SetPosition("a", "a1", id);
        file.SetPosition("b", "a1", id);
        if (id % 23 != 0) continue;
        file.Sync();
        if (write(ends[1], &id, sizeof id) < 0) _exit(1);
      }
    });
    close(ends[1]);
    usleep(static_cast<useconds_t>(2'000 + 2'300 * (round % 40)));
    Kill(child);
    const std::uint64_t before = synced;
    while (read(ends[0], &synced, sizeof synced) > 0) {
    }
    close(ends[0]);
    useful += synced > before;
  }
  std::uint64_t position = 0;
  {
    FleetFile file(path_);
    position = Position(file, "a");
    EXPECT_EQ(Position(file, "b"), position);
    file.Close();
  }
  EXPECT_GE(position, synced);
  std::vector<std::uint64_t> all(position);
  std::iota(all.begin(), all.end(), 1);
  EXPECT_EQ(Ids("a"), all);
  EXPECT_EQ(Ids("b"), all);
}

TEST_F(Fleet, OfAWriterThatWasKilledWhenItBeganIsContinued) {
  unsigned begun = 0;
  for (unsigned round = 0; round < 60; ++round) {
    std::filesystem::remove(path_);
    const pid_t child = Fork([&] {
      FleetFile file(path_);
      pause();
    });
    usleep(round * 150);
    Kill(child);
    begun += std::filesystem::exists(path_);
    EXPECT_EQ(TextOfOpening(), "no failure") << round;
  }
  EXPECT_GE(begun, 10u);
}

TEST_F(Fleet, MayBeginAsAnEmptyFile) {
  SetBytes("");
  FleetFile file(path_);
  WriteStrip(file, "a", 1);
  file.Close();
  EXPECT_THAT(Ids("a"), ElementsAre(1));
}

TEST_F(Fleet, HasOneWriter) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t child = Fork([&] {
    FleetFile file(path_);
    if (write(ends[1], "x", 1) != 1) _exit(1);
    pause();
  });
  char ready = 0;
  ASSERT_EQ(read(ends[0], &ready, 1), 1);
  EXPECT_THAT(TextOfOpening(), EndsWith("another program is writing it"));
  Kill(child);
  FleetFile file(path_);
  EXPECT_THAT(TextOfOpening(), EndsWith("another program is writing it"));
  WriteStrip(file, "a", 1);
  file.Close();
  EXPECT_THAT(Ids("a"), ElementsAre(1));
}

TEST_F(Fleet, IsNotContinuedWhileItIsRead) {
  {
    FleetFile file(path_);
    for (std::uint64_t id = 1; id < 5; ++id) WriteStrip(file, "a", id);
    file.Close();
  }
  {
    BagReader reader(path_);
    reader.Next();
    EXPECT_THAT(TextOfOpening(), EndsWith("another program writes or reads it"));
  }
  EXPECT_EQ(TextOfOpening(), "no failure");
}

TEST_F(Fleet, ContinuesNoOtherFile) {
  const auto refused = [this](const char* what) {
    const std::string before = Bytes();
    EXPECT_THAT(TextOfOpening(), EndsWith("already exists, and is no recording of several sensors"))
        << what;
    EXPECT_TRUE(Bytes() == before) << what;
    std::filesystem::remove(path_);
  };
  SetBytes("this is a text, and a long one, which is no database at all");
  refused("a text");
  Sql("CREATE TABLE messages(a)");
  refused("a database");
  Sql("PRAGMA user_version = 3");
  refused("a database without tables");
  BagWriter(path_).Close();
  refused("a recording of one sensor");
  for (const char* sql :
       {"CREATE TRIGGER t AFTER INSERT ON messages BEGIN DELETE FROM messages; END",
        "CREATE INDEX i ON messages(length(hex(data)))", "CREATE VIEW v AS SELECT 1",
        "CREATE TABLE other(a)", "DROP TABLE tessaline_positions",
        "UPDATE tessaline SET value = '3' WHERE key = 'version'"}) {
    FleetFile(path_).Close();
    Sql(sql);
    refused(sql);
  }
  EXPECT_THAT(TextOf([this] { FleetFile file(folder_); }), EndsWith("Is a directory"));
  EXPECT_THAT(TextOf([this] { FleetFile file(folder_ / "none" / "a.db3"); }),
              EndsWith("No such file or directory"));
}

TEST_F(Fleet, IsNotReadWithoutASensorIfItHasSeveral) {
  FleetFile file(path_);
  WriteStrip(file, "line3.left", 1);
  WriteStrip(file, "line3.right", 2);
  file.Close();
  EXPECT_THAT(TextOf([this] { BagReader reader(path_); }),
              EndsWith("is of several sensors: line3.left, line3.right"));
  EXPECT_THAT(TextOf([this] { BagReader reader(path_, Database::Mode::kRead, "line3"); }),
              EndsWith("has no sensor \"line3\""));
}

TEST_F(Fleet, OfOneSensorNeedsNoName) {
  FleetFile file(path_);
  WriteStrip(file, "belt", 7);
  file.Close();
  EXPECT_THAT(Ids(""), ElementsAre(7));
  EXPECT_EQ(BagReader(path_).sensor(), "belt");
}

TEST_F(Fleet, TakesNoBadNames) {
  FleetFile file(path_);
  for (const std::string& name :
       {std::string(), std::string("."), std::string("a."), std::string(".a"), std::string("a..b"),
        std::string("a b"), std::string("a/b"), std::string("\xc3\xa4"), std::string("a\n"),
        std::string(129, 'a')}) {
    EXPECT_THAT(TextOf([&] { WriteStrip(file, name, 1); }), HasSubstr("is no name of a sensor"));
    EXPECT_THAT(TextOf([&] { file.SetPosition(name, "a1", 1); }),
                HasSubstr("is no name of a sensor"));
  }
  for (const std::string& run : {std::string(), std::string("a b"), std::string(65, 'a')}) {
    EXPECT_THAT(TextOf([&] { file.SetPosition("a", run, 1); }), HasSubstr("no position"));
  }
  WriteStrip(file, std::string(128, 'a'), 1);
  file.Close();
  EXPECT_THAT(SensorsOf(path_), ElementsAre(std::string(128, 'a')));
}

TEST_F(Fleet, HasSoManySensorsAndNoMore) {
  FleetFile file(path_);
  for (unsigned i = 0; i < BagTopics::kMostSensors; ++i) WriteStrip(file, std::to_string(i), i);
  EXPECT_THAT(TextOf([&] { WriteStrip(file, "more", 1); }), EndsWith("more than 256 sensors"));
  file.Close();
  EXPECT_EQ(SensorsOf(path_).size(), BagTopics::kMostSensors);
  EXPECT_THAT(Ids("200"), ElementsAre(200));
}

TEST_F(Fleet, PositionsNeverGoBack) {
  FleetFile file(path_);
  file.SetPosition("a", "a1", 9);
  file.SetPosition("a", "a1", 4);
  file.SetPosition("a", "b2", 3);
  file.Sync();
  file.SetPosition("a", "a1", 5);
  file.Close();
  FleetFile again(path_);
  EXPECT_EQ(Position(again, "a"), 9u);
  EXPECT_EQ(again.positions().at({"a", "b2"}), 3u);
}

TEST_F(Fleet, OfHostilePositionsIsRefused) {
  for (const char* row : {"'a b', 'a1', 1", "'a', '', 1", "'a', 'a1', -1", "'a', 'a1', x'00'"}) {
    std::filesystem::remove(path_);
    FleetFile(path_).Close();
    Sql(std::string("INSERT INTO tessaline_positions VALUES(") + row + ")");
    EXPECT_THAT(TextOfOpening(), row == std::string("'a', 'a1', x'00'")
                                     ? std::string("no failure")
                                     : path_.string() + ": it is damaged: a position is none")
        << row;
  }
}

// What cannot be written takes the position back, too.
TEST_F(Fleet, OnAFullDiskKeepsWhatWasSynced) {
  signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  {
    FleetFile file(path_);
    WriteStrip(file, "a", 1);
    file.SetPosition("a", "a1", 1);
    file.Sync();
    rlimit tight = limit;
    tight.rlim_cur = 1 << 20;
    setrlimit(RLIMIT_FSIZE, &tight);
    const auto fill = [&] {
      for (std::uint64_t id = 2; id < 1000; ++id) {
        WriteStrip(file, "a", id, 3000);
        file.SetPosition("a", "a1", id);
      }
    };
    EXPECT_NE(TextOf(fill), "no failure");
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_THAT(TextOf([&] { file.Sync(); }), HasSubstr("writing it has failed before"));
  }
  FleetFile file(path_);
  EXPECT_EQ(Position(file, "a"), 1u);
  WriteStrip(file, "a", 2);
  file.Close();
  EXPECT_THAT(Ids("a"), ElementsAre(1, 2));
}

TEST_F(Fleet, WithoutItsListOfSensorsIsRefusedAndNotGuessed) {
  {
    FleetFile file(path_);
    WriteStrip(file, "a", 1);
    WriteStrip(file, "b", 2);
    file.Close();
  }
  std::string bytes = Bytes();
  const std::size_t page = bytes.find("/a/tessaline/strips") / Database::kPageBytes;
  bytes.replace(page * Database::kPageBytes, Database::kPageBytes, Database::kPageBytes, '\0');
  SetBytes(bytes);
  EXPECT_THROW(BagReader(path_, Database::Mode::kSalvage), Damaged);
  EXPECT_THROW(SensorsOf(path_), Damaged);
  EXPECT_THAT(TextOfOpening(), EndsWith("it is damaged"));
}

// Where each message ends up that a record of the ring becomes.
TEST_F(Fleet, WritesWhatARecordingOfOneSensorHas) {
  const std::string text = std::string("a.cpp") + '\0' + "a line";
  const auto image = ImageBytes(1, 16, 8);
  const std::string device = R"({"model": "K3610"})";
  const std::vector<ring::Record> records{
      {Kind::kDevice, kStart, 0, 0, std::as_bytes(std::span(device))},
      {Kind::kRegister, kStart, 0x10, 3, {}},
      {Kind::kImage, kStart, 16, 8, image},
      {Kind::kTrigger, kStart, 1, 0, {}},
      {Kind::kDaArrived, kStart, 0, 0, {}},
      {Kind::kClock, kStart, 55, 6, {}},
      {Kind::kLost, kStart, 4, 0, {}},
      {Kind::kLog, kStart, 3, 77, std::as_bytes(std::span(text))}};
  FleetFile fleet(path_);
  RecordingFile plain(folder_ / "plain.db3");
  for (const auto& record : records) {
    fleet.Write("a.b", record);
    plain.Write(record);
  }
  fleet.Close();
  plain.Close();
  const auto all = [](const std::filesystem::path& path) {
    std::vector<std::pair<Topic, std::vector<std::byte>>> messages;
    BagReader reader(path);
    while (const auto message = reader.Next()) {
      messages.emplace_back(message->topic,
                            std::vector<std::byte>(message->cdr.begin(), message->cdr.end()));
    }
    return messages;
  };
  EXPECT_EQ(all(path_).size(), records.size());
  EXPECT_TRUE(all(path_) == all(folder_ / "plain.db3"));
}

TEST_F(Fleet, PartOfASensorIsARecordingOfIts) {
  FleetFile file(path_);
  for (std::uint64_t id = 1; id <= 9; ++id) {
    WriteStrip(file, "left", id);
    WriteStrip(file, "right", 100 + id);
  }
  file.Close();
  const std::filesystem::path part = folder_ / "part.db3";
  BagRange range;
  range.first_id = 103;
  range.last_id = 105;
  const auto never = [] { return false; };
  CutBag({path_.string(), "right"}, part, range, never);
  path_ = part;
  EXPECT_THAT(SensorsOf(path_), IsEmpty());
  EXPECT_THAT(Ids(""), ElementsAre(103, 104, 105));
  EXPECT_EQ(BagReader(path_).version(), 1);
}

}  // namespace
