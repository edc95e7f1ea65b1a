// What waits keeps its order, through memory, file and memory, and nothing is lost without a gap.

#include "fleet/Backlog.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>

#include "Accounting.h"
#include "Fixture.h"

namespace {

using namespace fleet_test;   // NOLINT(google-build-using-namespace)
using namespace tool::fleet;  // NOLINT(google-build-using-namespace)
using std::chrono::milliseconds;

constexpr std::uint64_t kKb = 1024;

// A publisher's side: makes records, takes messages, some of which come back, and are done in
// order, as the sender does it.
class Feeder {
 public:
  Feeder(Backlog::Settings settings, std::string run, unsigned seed)
      : backlog_(std::in_place, std::move(settings)), run_(std::move(run)), random_(seed) {}

  void Put() {
    std::vector<Packet> record;
    const std::uint64_t parts = random_() % 4 == 0 ? 1 + random_() % 3 : 1;
    for (std::uint64_t part = 1; part <= parts; ++part) {
      const std::uint64_t id = ++sequence_;
      record.push_back(StripsPacket(run_, id, id, id, random_() % 5000));
      record.back().header.part = part;
      record.back().header.parts = parts;
    }
    backlog_->Put(std::move(record));
  }
  // Takes some; the oldest of what is on its way arrives.
  bool Take(std::size_t most) {
    bool any = false;
    for (std::size_t i = 0; i < most; ++i) {
      auto taken = backlog_->Take(milliseconds(0));
      if (!taken) break;
      any = true;
      under_way_.push_back(std::move(*taken));
    }
    return any;
  }
  void Arrive(std::size_t most) {
    for (; most > 0 && !under_way_.empty(); --most) {
      const Backlog::Taken taken = std::move(under_way_.front());
      under_way_.pop_front();
      accounting_.Take(taken.packet);
      if (taken.row == 0) continue;
      const auto next =
          std::ranges::find_if(under_way_, [](const auto& other) { return other.row != 0; });
      backlog_->DoneBefore(next == under_way_.end() ? taken.row + 1 : next->row);
    }
  }
  void GiveBack() {
    for (; !under_way_.empty(); under_way_.pop_back()) {
      backlog_->PutBack(std::move(under_way_.back()));
    }
  }
  void TakeAll() {
    while (Take(10)) Arrive(10);
    Arrive(under_way_.size());
  }
  // Another process with the same file.
  void Restart(Backlog::Settings settings, const std::string& run) {
    GiveBack();
    EXPECT_TRUE(backlog_->SaveAll());
    EXPECT_EQ(backlog_->counts().memory_bytes, 0U);
    backlog_.reset();
    backlog_.emplace(std::move(settings));
    run_ = run;
    sequence_ = 0;
  }
  void Work(int rounds) {
    for (int i = 0; i < rounds; ++i) {
      switch (random_() % 8) {
        case 0:
          Take(1 + random_() % 20);
          break;
        case 1:
          Arrive(1 + random_() % 20);
          break;
        case 2:
          if (random_() % 4 == 0) GiveBack();
          break;
        default:
          Put();
      }
      // At times, the server takes all, or nothing for long.
      if (random_() % 200 == 0) TakeAll();
    }
  }
  void ExpectAccounted(const std::string& run, std::uint64_t sequence) {
    EXPECT_EQ(accounting_.Of(run).last, sequence) << run;
    EXPECT_EQ(accounting_.Of(run).came + accounting_.Of(run).named, sequence);
    EXPECT_EQ(accounting_.Of(run).frames, sequence);
  }

  Backlog& backlog() { return *backlog_; }
  Accounting& accounting() { return accounting_; }
  std::uint64_t sequence() const { return sequence_; }

 private:
  std::optional<Backlog> backlog_;
  std::string run_;
  std::mt19937_64 random_;
  std::uint64_t sequence_ = 0;
  std::deque<Backlog::Taken> under_way_;
  Accounting accounting_;
};

class Waiting : public FolderTest, public testing::WithParamInterface<bool> {
 protected:
  Backlog::Settings With(std::uint64_t memory, std::uint64_t file_bytes) const {
    return {memory, file_bytes == 0 ? std::string() : path_.string(), file_bytes, GetParam()};
  }
};
INSTANTIATE_TEST_SUITE_P(Drop, Waiting, testing::Bool(), [](const auto& drops_oldest) {
  return drops_oldest.param ? "Oldest" : "Newest";
});

TEST_P(Waiting, InMemoryNothingGoesUnnamed) {
  for (unsigned seed = 0; seed < 40; ++seed) {
    Feeder feeder(With(seed % 5 * 10 * kKb, 0), kRun, seed);
    feeder.Work(600);
    feeder.GiveBack();
    feeder.TakeAll();
    feeder.ExpectAccounted(kRun, feeder.sequence());
    EXPECT_EQ(feeder.backlog().counts().dropped_packets, feeder.accounting().Of(kRun).named);
    EXPECT_EQ(feeder.backlog().counts().packets, 0U);
  }
}

TEST_P(Waiting, InMemoryAndFileNothingGoesUnnamed) {
  for (unsigned seed = 0; seed < 12; ++seed) {
    std::filesystem::remove(path_);
    Feeder feeder(With(seed % 3 * 20 * kKb, (64 + seed * 100) * kKb), kRun, seed);
    feeder.Work(500);
    feeder.GiveBack();
    feeder.TakeAll();
    feeder.ExpectAccounted(kRun, feeder.sequence());
    EXPECT_EQ(feeder.backlog().counts().dropped_packets, feeder.accounting().Of(kRun).named);
    EXPECT_EQ(feeder.backlog().counts().packets, 0U);
    EXPECT_EQ(feeder.backlog().counts().file_bytes, 0U);
    EXPECT_EQ(feeder.backlog().counts().file_error, "");
  }
}

TEST_P(Waiting, TheNextPublisherSendsTheRestFirst) {
  const std::vector<std::string> runs{kRun, kOtherRun, "00000000000000ab", "00000000000000ac"};
  for (unsigned seed = 0; seed < 12; ++seed) {
    std::filesystem::remove(path_);
    const auto settings = With(seed % 3 * 20 * kKb, (200 + seed * 100) * kKb);
    Feeder feeder(settings, runs[0], seed);
    std::vector<std::uint64_t> sequences;
    for (std::size_t i = 1; i <= runs.size(); ++i) {
      feeder.Work(200);
      sequences.push_back(feeder.sequence());
      if (i < runs.size()) feeder.Restart(settings, runs[i]);
    }
    feeder.GiveBack();
    feeder.TakeAll();
    for (std::size_t i = 0; i < runs.size(); ++i) feeder.ExpectAccounted(runs[i], sequences[i]);
  }
}

// A file that may not grow is a full disk.
class FullDisk : public Waiting {
 protected:
  void SetUp() override {
    Waiting::SetUp();
    signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before_), 0);
  }
  void TearDown() override {
    SetFull(false);
    Waiting::TearDown();
  }
  void SetFull(bool full) const {
    rlimit limit = before_;
    if (full) limit.rlim_cur = 64 * kKb;
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  rlimit before_{};
};
INSTANTIATE_TEST_SUITE_P(Drop, FullDisk, testing::Bool());

TEST_P(FullDisk, NothingGoesUnnamedAndTheOrderStays) {
  std::uint64_t refused = 0;
  for (unsigned seed = 0; seed < 12; ++seed) {
    std::filesystem::remove(path_);
    std::mt19937_64 random(seed);
    Feeder feeder(With(30 * kKb, 2000 * kKb), kRun, seed);
    for (int i = 0; i < 30; ++i) {
      SetFull(random() % 2 == 0);
      feeder.Work(20);
      if (random() % 3 == 0) feeder.TakeAll();
      if (!feeder.backlog().counts().file_error.empty()) ++refused;
    }
    SetFull(false);
    feeder.GiveBack();
    feeder.TakeAll();
    feeder.ExpectAccounted(kRun, feeder.sequence());
  }
  EXPECT_GT(refused, 0U);
}

TEST_P(FullDisk, OfARealFileSystem) {
  const std::string folder = folder_ / "small";
  std::filesystem::create_directory(folder);
  if (mount("none", folder.c_str(), "tmpfs", 0, "size=512k") != 0) {
    GTEST_SKIP() << "no file system may be mounted here: " << strerror(errno);
  }
  {
    Backlog::Settings settings = With(20 * kKb, 100'000 * kKb);
    settings.file = folder + "/left.store";
    Feeder feeder(settings, kRun, 1);
    std::string error;
    for (int i = 0; i < 20; ++i) {
      for (int put = 0; put < 30; ++put) feeder.Put();
      const std::string now = feeder.backlog().counts().file_error;
      if (!now.empty()) error = now;
      if (i % 5 == 4) feeder.TakeAll();
    }
    EXPECT_THAT(error, testing::HasSubstr("full"));
    feeder.GiveBack();
    feeder.TakeAll();
    feeder.ExpectAccounted(kRun, feeder.sequence());
    EXPECT_GT(feeder.accounting().Of(kRun).named, 0U);
  }
  umount(folder.c_str());
}

// Killed in the middle of anything: what was in the file is all there, in order.
TEST_P(Waiting, AKilledPublisherLeavesWhatIsInTheFile) {
  for (unsigned seed = 0; seed < 8; ++seed) {
    std::filesystem::remove(path_);
    std::filesystem::remove(path_.string() + "-wal");
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    const pid_t child = fork();
    if (child == 0) {
      // Everything goes to the file at once; how far that is, goes to the parent.
      Backlog backlog({0, path_.string(), 1'000'000 * kKb, GetParam()});
      backlog.Put({StripsPacket(kRun, 1, 1, 1)});
      for (std::uint64_t sequence = 2;; ++sequence) {
        backlog.Put({StripsPacket(kRun, sequence, sequence, sequence, sequence * 37 % 4000)});
        if (write(pipe_ends[1], &sequence, sizeof sequence) < 0) _exit(1);
      }
    }
    close(pipe_ends[1]);
    std::uint64_t safe = 0, next = 0;
    const std::uint64_t enough = 20 + seed * 37;
    while (safe < enough && read(pipe_ends[0], &next, sizeof next) == sizeof next) safe = next;
    kill(child, SIGKILL);
    while (read(pipe_ends[0], &next, sizeof next) == sizeof next) safe = next;
    close(pipe_ends[0]);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);

    Backlog backlog({1000 * kKb, path_.string(), 1'000'000 * kKb, GetParam()});
    backlog.Put({StripsPacket(kOtherRun, 1, 1, 1)});
    Accounting accounting;
    while (auto taken = backlog.Take(milliseconds(0))) accounting.Take(taken->packet);
    EXPECT_GE(accounting.Of(kRun).last, safe);
    EXPECT_LE(accounting.Of(kRun).last, safe + 1);
    EXPECT_EQ(accounting.Of(kOtherRun).last, 1U);
  }
}

// A million log lines are not 40 MB, because each has headers.
TEST_P(Waiting, SmallMessagesCountWithAllTheyTake) {
  Backlog backlog(With(100 * kKb, 0));
  for (std::uint64_t sequence = 1; sequence <= 5000; ++sequence) {
    backlog.Put({TextPacket(kRun, sequence, Kind::kLog, "{}")});
  }
  const Backlog::Counts counts = backlog.counts();
  EXPECT_LE((counts.packets - 1) * sizeof(Packet), 100 * kKb);
  EXPECT_GT(counts.packets, 100U);
}

TEST_P(Waiting, ARecordThatIsLargerThanEverythingIsKeptOrNamed) {
  for (const std::uint64_t file_bytes : {std::uint64_t{0}, 50 * kKb}) {
    std::filesystem::remove(path_);
    Feeder feeder(With(10 * kKb, file_bytes), kRun, 3);
    feeder.Put();
    feeder.backlog().Put({StripsPacket(kOtherRun, 1, 1, 1, 200 * kKb)});
    feeder.backlog().Put({StripsPacket(kOtherRun, 2, 2, 2, 10)});
    feeder.TakeAll();
    feeder.ExpectAccounted(kRun, feeder.sequence());
    feeder.ExpectAccounted(kOtherRun, 2);
  }
}

TEST(Waits, WithoutAFileCannotBeSaved) {
  Backlog backlog({100 * kKb, "", 0, false});
  backlog.Put({StripsPacket(kRun, 1, 1, 1)});
  EXPECT_FALSE(backlog.SaveAll());
  EXPECT_EQ(backlog.counts().packets, 1U);
}

TEST(Waits, ForNothingInVainOnlyForTheTimeGiven) {
  Backlog backlog({100 * kKb, "", 0, false});
  backlog.Put({});
  EXPECT_FALSE(backlog.Take(milliseconds(5)));
}

}  // namespace
