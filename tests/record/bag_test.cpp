// Recordings written, read, interrupted and damaged.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <vector>

#include "BagFixture.h"
#include "Failure.h"
#include "record/BagReader.h"
#include "record/BagWriter.h"
#include "record/Messages.h"

namespace {

using record_test::TextOf;
using testing::HasSubstr;
using namespace tool;  // NOLINT(google-build-using-namespace)

constexpr std::size_t kPage = Database::kPageBytes;

std::vector<std::byte> Noise(std::size_t size, unsigned seed) {
  std::mt19937_64 random(seed);
  std::vector<std::byte> bytes(size);
  for (std::byte& byte : bytes) byte = static_cast<std::byte>(random());
  return bytes;
}

class Bag : public record_test::BagFolderTest {
 protected:
  // `count` buffers of strips; buffer i is at i milliseconds and has the noise of seed i.
  static void WriteStrips(BagWriter& writer, unsigned count, std::size_t bytes = 30'000) {
    for (unsigned i = 0; i < count; ++i) {
      const auto data = Noise(bytes, i);
      StripsMessage strips;
      strips.stamp_ns = i * 1'000'000;
      strips.strips = i;
      strips.point_bytes = 8;
      strips.data = data;
      writer.Write(Topic::kStrips, strips.stamp_ns, Encode(strips));
    }
  }

  void Write(unsigned count) {
    BagWriter writer(path_);
    WriteStrips(writer, count);
    writer.Close();
  }

  // Checks each, and returns how many there are.
  static unsigned ReadStrips(BagReader& reader, std::size_t bytes = 30'000) {
    unsigned count = 0;
    while (const auto message = reader.Next()) {
      const auto strips = message->As<StripsMessage>();
      EXPECT_EQ(strips.strips, count);
      EXPECT_EQ(strips.stamp_ns, message->stamp_ns);
      EXPECT_TRUE(std::ranges::equal(strips.data, Noise(bytes, count))) << count;
      ++count;
    }
    return count;
  }
};

TEST_F(Bag, HoldsWhatWasWritten) {
  Write(50);
  BagReader reader(path_);
  EXPECT_TRUE(reader.closed());
  EXPECT_EQ(ReadStrips(reader), 50u);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_), {}), 1);
}

TEST(Messages, ComeBackAsTheyWere) {
  LogMessage log;
  log.stamp_ns = 1'700'000'000'123'456'789;
  log.level = 30;
  log.name = "app";
  log.msg = "three words, \n and a newline";
  log.line = 77;
  const auto read = Decode<LogMessage>(Encode(log));
  EXPECT_EQ(read.stamp_ns, log.stamp_ns);
  EXPECT_EQ(read.level, 30);
  EXPECT_EQ(read.name, "app");
  EXPECT_EQ(read.msg, log.msg);
  EXPECT_EQ(read.file, "");
  EXPECT_EQ(read.line, 77u);
}

TEST(Messages, AreCdr) {
  RegisterMessage message;
  message.stamp_ns = 2'000'000'003;
  message.address = 0x43C0'0004;
  message.value = 5;
  const std::vector<int> expected{0, 1, 0,    0,                 // little-endian CDR
                                  2, 0, 0,    0,    3, 0, 0, 0,  // seconds, nanoseconds
                                  4, 0, 0xC0, 0x43, 0, 0, 0, 0, 5, 0, 0, 0};
  std::vector<int> bytes;
  for (const std::byte byte : Encode(message)) bytes.push_back(static_cast<int>(byte));
  EXPECT_EQ(bytes, expected);
}

TEST(Messages, ThatAreCutAreRefused) {
  const auto data = Noise(100, 1);
  StripsMessage strips;
  strips.data = data;
  const Cdr whole = Encode(strips);
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_THAT(TextOf([&] { Decode<StripsMessage>(std::span(whole).first(length)); }),
                HasSubstr("a message of /tessaline/strips is damaged"))
        << length;
  }
}

TEST_F(Bag, IsNeverOverwritten) {
  Write(3);
  EXPECT_THAT(TextOf([&] { BagWriter writer(path_); }), HasSubstr("already exists"));
  BagReader reader(path_);
  EXPECT_EQ(ReadStrips(reader), 3u);
}

TEST_F(Bag, IsNotReadByOthersWhileItIsWritten) {
  BagWriter writer(path_);
  EXPECT_THAT(TextOf([&] { BagReader reader(path_); }), HasSubstr("another program is writing it"));
}

TEST_F(Bag, OfAKilledWriterHasWhatWasSynced) {
  for (int round = 0; round < 20; ++round) {
    std::filesystem::remove(path_);
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    const pid_t child = fork();
    if (child == 0) {
      BagWriter writer(path_);
      for (unsigned i = 0;; ++i) {
        const auto data = Noise(30'000, i);
        StripsMessage strips;
        strips.stamp_ns = i * 1'000'000;
        strips.strips = i;
        strips.data = data;
        writer.Write(Topic::kStrips, strips.stamp_ns, Encode(strips));
        if (i % 7 != 6) continue;
        writer.Sync();
        const unsigned synced = i + 1;
        if (write(pipe_ends[1], &synced, sizeof synced) < 0) _exit(1);
      }
    }
    close(pipe_ends[1]);
    usleep(static_cast<useconds_t>(5'000 + 1'700 * round));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    unsigned synced = 0;
    while (read(pipe_ends[0], &synced, sizeof synced) > 0) {
    }
    close(pipe_ends[0]);
    if (synced == 0) continue;
    BagReader reader(path_);
    EXPECT_FALSE(reader.closed());
    const unsigned found = ReadStrips(reader);
    EXPECT_GE(found, synced);
    EXPECT_LE(found, synced + 7);
  }
}

TEST_F(Bag, OfOthersIsRefused) {
  std::ofstream(path_) << "this is a text, and a long one, which is no database at all";
  EXPECT_THAT(TextOf([&] { BagReader reader(path_); }), HasSubstr("this is no recording"));
  std::filesystem::remove(path_);
  Sql("CREATE TABLE messages(a)");
  EXPECT_THAT(TextOf([&] { BagReader reader(path_); }), HasSubstr("this is no recording"));
  EXPECT_THAT(TextOf([&] { BagReader reader(folder_ / "none"); }),
              HasSubstr("No such file or directory"));
  EXPECT_THAT(TextOf([&] { BagReader reader(folder_); }), HasSubstr(folder_.string()));
}

TEST_F(Bag, OfTheFutureIsRefused) {
  Write(1);
  Sql("UPDATE tessaline SET value = '3' WHERE key = 'version'");
  EXPECT_THAT(TextOf([&] { BagReader reader(path_); }),
              HasSubstr("a recording of version 3, this program reads 1 and 2"));
}

TEST_F(Bag, ThatWouldRunSomethingIsRefused) {
  Write(1);
  Sql("ALTER TABLE messages RENAME TO m; CREATE VIEW messages AS SELECT * FROM m");
  EXPECT_THAT(TextOf([&] { BagReader reader(path_); }), HasSubstr("this is no recording"));
}

TEST_F(Bag, WithFlippedBitsNeverCrashes) {
  Write(20);
  std::ifstream file(path_, std::ios::binary);
  const std::string whole{std::istreambuf_iterator<char>(file), {}};
  std::mt19937 random(1);
  for (int round = 0; round < 300; ++round) {
    std::string damaged = whole;
    for (int i = 0; i < 20; ++i) {
      // Most of them where the structure is.
      const std::size_t page = random() % (damaged.size() / kPage) * kPage;
      damaged[page + random() % (i % 2 == 0 ? 200 : kPage)] ^= static_cast<char>(random());
    }
    if (round % 10 == 0) damaged.resize(random() % damaged.size());
    std::ofstream(path_, std::ios::binary | std::ios::trunc) << damaged;
    TextOf([&] {
      BagReader reader(path_);
      while (const auto message = reader.Next()) {
        if (message->topic == Topic::kStrips) message->As<StripsMessage>();
      }
    });
  }
}

}  // namespace
