// Recordings that cannot be read or written, and why.

#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include "BagFixture.h"
#include "Failure.h"
#include "record/BagReader.h"
#include "record/BagWriter.h"

namespace {

using record_test::TextOf;
using testing::AnyOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using namespace tool;  // NOLINT(google-build-using-namespace)
namespace fs = std::filesystem;

constexpr std::size_t kPage = Database::kPageBytes;

// What `call` says in another process, of a user who is not root.
std::string TextOfAnyone(const std::function<void()>& call) {
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  const pid_t child = fork();
  if (child == 0) {
    constexpr uid_t kNobody = 65534;
    if (geteuid() == 0 &&
        (setresgid(kNobody, kNobody, kNobody) != 0 || setresuid(kNobody, kNobody, kNobody) != 0)) {
      _exit(1);
    }
    const std::string text = TextOf(call);
    _exit(write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 1);
  }
  close(ends[1]);
  std::string text(1000, '\0');
  const ssize_t length = read(ends[0], text.data(), text.size());
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  text.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
  return text;
}

unsigned Read(const fs::path& path) {
  BagReader reader(path);
  unsigned count = 0;
  while (const auto message = reader.Next()) {
    message->As<StripsMessage>();
    ++count;
  }
  return count;
}

std::string Bytes(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void Replace(const fs::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

class Recording : public testing::Test {
 protected:
  void SetUp() override {
    std::string folder = (fs::temp_directory_path() / "refused-XXXXXX").string();
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    folder_ = folder;
    chmod(folder.c_str(), 0777);
    path_ = folder_ / "run.db3";
    journal_ = path_.string() + "-journal";
  }
  void TearDown() override {
    chmod(folder_.c_str(), 0777);
    fs::remove_all(folder_);
  }

  static void WriteStrips(BagWriter& writer, unsigned count) {
    const std::vector<std::byte> data(50'000, std::byte{0x5A});
    for (unsigned i = 0; i < count; ++i) {
      StripsMessage strips;
      strips.stamp_ns = i;
      strips.data = data;
      writer.Write(Topic::kStrips, strips.stamp_ns, Encode(strips));
    }
  }

  void Write(unsigned count) const {
    BagWriter writer(path_);
    WriteStrips(writer, count);
    writer.Close();
    chmod(path_.c_str(), 0666);
  }

  // Makes the file one whose writer was interrupted while it changed what was there, with a journal
  // that says what to take back.
  void Interrupt() const {
    sqlite3* handle = nullptr;
    ASSERT_EQ(sqlite3_open(path_.c_str(), &handle), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(handle,
                           "PRAGMA cache_size = 2; BEGIN;"
                           "UPDATE messages SET timestamp = 7 WHERE id BETWEEN 3 AND 8",
                           nullptr, nullptr, nullptr),
              SQLITE_OK);
    const std::string file = Bytes(path_);
    const std::string journal = Bytes(journal_);
    sqlite3_close(handle);
    ASSERT_GT(journal.size(), kPage);
    ASSERT_NE(file, Bytes(path_)) << "nothing to take back";
    Replace(path_, file);
    Replace(journal_, journal);
    chmod(path_.c_str(), 0666);
    chmod(journal_.c_str(), 0666);
  }

  std::string TextOfReading() const {
    return TextOfAnyone([this] { Read(path_); });
  }

  fs::path folder_, path_, journal_;
};

TEST_F(Recording, HasOneWriter) {
  for (int round = 0; round < 20; ++round) {
    const fs::path path = folder_ / std::to_string(round);
    std::atomic<int> writers{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        const std::string text = TextOf([&] {
          BagWriter writer(path);
          WriteStrips(writer, 3);
          writer.Close();
          ++writers;
        });
        EXPECT_THAT(text, AnyOf("no failure", EndsWith("already exists")));
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(writers, 1);
    EXPECT_EQ(Read(path), 3u);
  }
}

TEST_F(Recording, StaysItsWritersWhenTheSameProcessReads) {
  BagWriter writer(path_);
  chmod(path_.c_str(), 0666);
  EXPECT_THAT(TextOf([&] { Read(path_); }), EndsWith("another program is writing it"));
  // Not with a reader: SQLite knows what the process it was forked from has locked.
  EXPECT_EQ(TextOfAnyone([this] {
              const int descriptor = open(path_.c_str(), O_RDWR);
              struct flock bytes {};
              bytes.l_type = F_WRLCK;
              bytes.l_start = 0x4000'0000;  // where SQLite locks a file
              bytes.l_len = 512;
              fcntl(descriptor, F_GETLK, &bytes);
              throw Failure(ExitCode::kFile, bytes.l_type == F_UNLCK ? "not locked" : "locked");
            }),
            "locked");
}

TEST_F(Recording, InAReadOnlyFolderIsNotWritten) {
  chmod(folder_.c_str(), 0555);
  EXPECT_EQ(TextOfAnyone([this] { BagWriter writer(path_); }),
            "cannot create " + path_.string() + ": Permission denied");
}

TEST_F(Recording, ThatCannotBeBegunLeavesNothing) {
  // At the first byte, at the tables, and at the first sync or behind all of it.
  unsigned refused = 0;
  for (rlim_t most = 0; most < 300'000; most += 3'000) {
    const std::string text = TextOfAnyone([&] {
      signal(SIGXFSZ, SIG_IGN);
      const rlimit limit{most, most};
      setrlimit(RLIMIT_FSIZE, &limit);
      BagWriter writer(path_);
    });
    EXPECT_EQ(fs::is_empty(folder_), text != "no failure") << most << " bytes: " << text;
    refused += text != "no failure" ? 1 : 0;
    fs::remove(path_);
    fs::remove(journal_);
  }
  EXPECT_GT(refused, 10u);
}

TEST_F(Recording, InAReadOnlyFolderIsRead) {
  Write(5);
  chmod(path_.c_str(), 0444);
  chmod(folder_.c_str(), 0555);
  EXPECT_EQ(TextOfAnyone([this] {
              if (Read(path_) != 5) throw Failure(ExitCode::kFile, "not five");
            }),
            "no failure");
}

TEST_F(Recording, OfAnInterruptedWriterIsTakenBackToItsLastSync) {
  Write(20);
  const std::string before = Bytes(path_);
  Interrupt();
  EXPECT_EQ(Read(path_), 20u);
  EXPECT_FALSE(fs::exists(journal_));
  EXPECT_TRUE(Bytes(path_) == before);
}

TEST_F(Recording, OfAnInterruptedWriterThatIsReadOnlyIsRefused) {
  Write(20);
  Interrupt();
  chmod(path_.c_str(), 0444);
  EXPECT_THAT(TextOfReading(),
              EndsWith("its writer was interrupted, and nobody may write here to tidy up"));
}

TEST_F(Recording, OfAnInterruptedWriterInAReadOnlyFolderIsRefused) {
  Write(20);
  Interrupt();
  chmod(folder_.c_str(), 0555);
  for (int i = 0; i < 2; ++i) {
    EXPECT_THAT(TextOfReading(),
                EndsWith("its writer was interrupted, and nobody may write here to tidy up"));
  }
  chmod(folder_.c_str(), 0777);
  EXPECT_EQ(Read(path_), 20u);
}

TEST_F(Recording, ThatMayNotBeReadIsRefused) {
  Write(1);
  chmod(path_.c_str(), 0200);
  EXPECT_THAT(TextOfReading(), EndsWith("Permission denied"));
}

TEST_F(Recording, ThatIsAPipeIsRefused) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0666), 0);
  EXPECT_EQ(TextOfReading(), path_.string() + ": this is no recording, and no file");
}

TEST_F(Recording, WithTablesOfOthersIsRefused) {
  Write(1);
  sqlite3* handle = nullptr;
  ASSERT_EQ(sqlite3_open(path_.c_str(), &handle), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(handle,
                         "DROP TABLE messages; CREATE TABLE messages(id INTEGER PRIMARY KEY,"
                         "topic_id INTEGER NOT NULL, timestamp INTEGER NOT NULL,"
                         "data BLOB AS (zeroblob(60000000)))",
                         nullptr, nullptr, nullptr),
            SQLITE_OK);
  sqlite3_close(handle);
  EXPECT_THAT(TextOfReading(), EndsWith("this is no recording"));
}

TEST(Stamps, BeforeTheirOriginComeBack) {
  RegisterMessage message;
  message.stamp_ns = -1'500'000'000;
  EXPECT_EQ(Decode<RegisterMessage>(Encode(message)).stamp_ns, -1'500'000'000);
}

TEST(Stamps, OfMoreThanASecondOfNanosecondsAreRefused) {
  Cdr bytes = Encode(RegisterMessage{});
  bytes[11] = std::byte{0x7F};  // behind the encapsulation and the seconds, the last byte
  EXPECT_THAT(TextOf([&] { Decode<RegisterMessage>(bytes); }), HasSubstr("is damaged"));
}

// In either file: twenty bytes are other ones.
TEST_F(Recording, OfAnInterruptedWriterThatIsDamagedNeverCrashes) {
  Write(20);
  Interrupt();
  const std::string whole = Bytes(path_);
  const std::string journal = Bytes(journal_);
  std::mt19937 random(3);
  unsigned refused = 0;
  for (int round = 0; round < 200; ++round) {
    std::string damaged_file = whole;
    std::string damaged_journal = journal;
    std::string& damaged = round % 2 == 0 ? damaged_file : damaged_journal;
    for (int i = 0; i < 20; ++i) {
      // Most of them where the structure is.
      const std::size_t page = random() % (damaged.size() / kPage) * kPage;
      damaged[page + random() % (i < 18 ? 30 : kPage)] ^= static_cast<char>(1 + random() % 255);
    }
    Replace(path_, damaged_file);
    Replace(journal_, damaged_journal);
    const std::string text = TextOf([this] { Read(path_); });
    if (text == "no failure") continue;
    ++refused;
    EXPECT_THAT(text, AnyOf(StartsWith(path_.string() + ": "), StartsWith("a message of ")));
  }
  EXPECT_GT(refused, 50u);
}

}  // namespace
