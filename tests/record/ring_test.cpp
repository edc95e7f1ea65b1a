// Records between two processes: whole or not at all, whatever happens to the one that writes.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "ring/RecordRing.h"

namespace ring {
namespace {

using ::testing::ElementsAre;

constexpr std::size_t kRoom = 64 << 10;  // the least a ring has
constexpr std::size_t kHeader = 64 << 10;

RecordRing Make(std::size_t bytes = kRoom) { return std::move(*RecordRing::Create(bytes)); }

std::vector<std::byte> Payload(std::size_t bytes, unsigned value) {
  return std::vector<std::byte>(bytes, static_cast<std::byte>(value));
}

bool Equal(std::span<const std::byte> seen, const std::vector<std::byte>& wanted) {
  return std::ranges::equal(seen, wanted);
}

// The ring's memory, to damage it.
class Memory {
 public:
  explicit Memory(const RecordRing& ring) : bytes_(kHeader + ring.Bytes()) {
    const int descriptor = open(ring.Path().c_str(), O_RDWR | O_CLOEXEC);
    void* const memory =
        mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, /*offset=*/0);
    close(descriptor);
    words_ = static_cast<std::uint64_t*>(memory);
  }
  ~Memory() { munmap(words_, bytes_); }
  Memory(const Memory&) = delete;
  Memory& operator=(const Memory&) = delete;

  // At a byte of the header, or of the records.
  std::uint64_t& Header(std::size_t at) { return words_[at / 8]; }
  std::uint64_t& Data(std::size_t at) { return words_[(kHeader + at) / 8]; }

 private:
  std::size_t bytes_;
  std::uint64_t* words_;
};
constexpr std::size_t kReserved = 64;
constexpr std::size_t kReleased = 128;
// In front of a record.
constexpr std::size_t kBegun = 0;
constexpr std::size_t kWhole = 8;
constexpr std::size_t kPayloadBytes = 16;

// Runs in another process, which ends afterwards; true if the work returns true.
template <typename Work>
bool InAnotherProcess(Work work) {
  const pid_t child = fork();
  if (child == 0) _exit(work() ? 0 : 1);
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// The first numbers of the records that are there.
std::vector<std::uint64_t> Read(RecordRing& ring, bool written_off = false) {
  std::vector<std::uint64_t> numbers;
  while (const auto found = ring.At(ring.First(), written_off)) {
    numbers.push_back(found->record.first);
    ring.Release(found->next);
  }
  return numbers;
}

TEST(Ring, HandsOverWhatWasPut) {
  RecordRing ring = Make();
  const auto payload = Payload(100, 7);
  ASSERT_TRUE(ring.Put({Kind::kStrips, 12, 3, 8, payload}));
  ASSERT_TRUE(ring.Put({Kind::kTrigger, 13, 1, 0, {}}));
  const auto strips = ring.At(ring.First());
  ASSERT_TRUE(strips);
  EXPECT_EQ(strips->record.kind, Kind::kStrips);
  EXPECT_EQ(strips->record.stamp_ns, 12);
  EXPECT_EQ(strips->record.first, 3u);
  EXPECT_EQ(strips->record.second, 8u);
  EXPECT_TRUE(Equal(strips->record.payload, payload));
  const auto trigger = ring.At(strips->next);
  ASSERT_TRUE(trigger);
  EXPECT_EQ(trigger->record.kind, Kind::kTrigger);
  EXPECT_TRUE(trigger->record.payload.empty());
  EXPECT_FALSE(ring.At(trigger->next));
}

TEST(Ring, IsOpenedByItsPathWhileItLives) {
  std::string path;
  {
    RecordRing ring = Make();
    path = ring.Path();
    auto other = RecordRing::Open(path.c_str());
    ASSERT_TRUE(other);
    EXPECT_EQ(other->Bytes(), ring.Bytes());
    other->Put({Kind::kTrigger, 0, 5, 0, {}});
    other->End();
    EXPECT_THAT(Read(ring), ElementsAre(5));
    EXPECT_TRUE(ring.Ended());
  }
  EXPECT_FALSE(RecordRing::Open(path.c_str()));
}

TEST(Ring, ForeignFilesAreNone) {
  EXPECT_FALSE(RecordRing::Open("/dev/zero"));
  EXPECT_FALSE(RecordRing::Open("/tmp"));
  for (const off_t bytes : {0, 1, 4096, 1 << 17, (1 << 17) + 1}) {
    const int descriptor = memfd_create("foreign", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    ASSERT_EQ(ftruncate(descriptor, bytes), 0);
    ASSERT_EQ(fcntl(descriptor, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW), 0);
    EXPECT_FALSE(RecordRing::Open(descriptor)) << bytes;
    close(descriptor);
  }
  EXPECT_FALSE(RecordRing::Create(std::size_t{1} << 50));
  EXPECT_FALSE(RecordRing::Create(0));
}

// Whoever made it could cut off pages that we have mapped.
TEST(Ring, WhatCanShrinkIsNone) {
  const RecordRing ring = Make();
  const std::vector<std::byte> bytes = [&] {
    std::vector<std::byte> all(kHeader + kRoom);
    EXPECT_EQ(pread(ring.Descriptor(), all.data(), all.size(), 0),
              static_cast<ssize_t>(all.size()));
    return all;
  }();
  const int copy = memfd_create("copy", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  ASSERT_EQ(write(copy, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  EXPECT_FALSE(RecordRing::Open(copy));
  ASSERT_EQ(fcntl(copy, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW), 0);
  EXPECT_TRUE(RecordRing::Open(copy));
  // Files on a disk have no seals.
  FILE* const file = tmpfile();
  ASSERT_EQ(fwrite(bytes.data(), 1, bytes.size(), file), bytes.size());
  ASSERT_EQ(fflush(file), 0);
  EXPECT_FALSE(RecordRing::Open(fileno(file)));
  fclose(file);
  close(copy);
}

TEST(Ring, RecordsAtTheEndOfItsMemoryAreInOnePiece) {
  RecordRing ring = Make();
  std::mt19937 random(1);
  for (unsigned i = 0; i < 2000; ++i) {
    const auto payload = Payload(random() % 20'000, i);
    ASSERT_TRUE(ring.Put({Kind::kImage, i, i, 0, payload}));
    const auto found = ring.At(ring.First());
    ASSERT_TRUE(found);
    ASSERT_EQ(found->record.first, i);
    ASSERT_TRUE(Equal(found->record.payload, payload));
    ring.Release(found->next);
  }
  EXPECT_EQ(ring.UsedBytes(), 0u);
}

TEST(Ring, CountsWhatItHasNoRoomFor) {
  RecordRing ring = Make();
  const auto whole = Payload(kRoom - 64, 1);
  EXPECT_TRUE(ring.HasRoom(whole.size()));
  EXPECT_FALSE(ring.HasRoom(whole.size() + 1));
  EXPECT_TRUE(ring.Put({Kind::kStrips, 0, 30, 8, whole}));
  EXPECT_FALSE(ring.HasRoom(0));
  EXPECT_FALSE(ring.Put({Kind::kStrips, 0, 30, 8, whole}));
  EXPECT_FALSE(ring.Put({Kind::kImage, 0, 640, 480, {}}));
  EXPECT_FALSE(ring.Put({Kind::kRegister, 0, 1, 2, {}}));
  EXPECT_EQ(ring.DroppedFrames(), 31u);
  EXPECT_EQ(ring.DroppedRecords(), 1u);
  EXPECT_THAT(Read(ring), ElementsAre(30));
  EXPECT_TRUE(ring.Put({Kind::kTrigger, 0, 6, 0, {}}));
  EXPECT_THAT(Read(ring), ElementsAre(6));
}

// Each thread's records come in order and whole, and none is missing but those counted.
TEST(Ring, SeveralThreadsWriteAtOnce) {
  constexpr unsigned kThreads = 4;
  constexpr unsigned kRecords = 20'000;
  RecordRing ring = Make();
  std::atomic<unsigned> running{kThreads};
  std::vector<std::thread> threads;
  for (unsigned thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      std::mt19937 random(thread);
      for (unsigned i = 0; i < kRecords; ++i) {
        const auto payload = Payload(random() % 500, thread * 50 + i);
        if (!ring.HasRoom(payload.size())) std::this_thread::yield();
        ring.Put({Kind::kRegister, 0, thread, i, payload});
      }
      --running;
    });
  }
  std::vector<std::int64_t> last(kThreads, -1);
  std::uint64_t seen = 0;
  bool wrong = false;
  for (bool more = true; more;) {
    more = running > 0;
    while (const auto found = ring.At(ring.First())) {
      const Record& record = found->record;
      const auto number = static_cast<std::int64_t>(record.second);
      const auto value = static_cast<unsigned>(record.first * 50 + record.second);
      wrong |= record.first >= kThreads || number <= last.at(record.first) ||
               !Equal(record.payload, Payload(record.payload.size(), value));
      last.at(record.first) = number;
      ++seen;
      ring.Release(found->next);
    }
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_FALSE(wrong);
  EXPECT_EQ(seen + ring.DroppedRecords(), kThreads * kRecords);
  EXPECT_GT(seen, 10 * ring.Bytes() / 600) << "the memory was not used again and again";
}

// A process that dies at a random moment leaves whole records, in order, and no other.
TEST(Ring, AWriterThatIsKilledLeavesWholeRecords) {
  for (unsigned round = 0; round < 40; ++round) {
    RecordRing ring = Make(8 << 20);
    const auto payload = Payload(100'000, round);
    const pid_t child = fork();
    if (child == 0) {
      for (unsigned i = 0;; ++i) ring.Put({Kind::kImage, 0, i, 0, payload});
    }
    while (ring.UsedBytes() == 0) std::this_thread::yield();
    // Later than the first, earlier than the last.
    std::this_thread::sleep_for(std::chrono::microseconds(20 * round));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    const std::size_t used = ring.UsedBytes();
    std::uint64_t next = 0;
    while (const auto found = ring.At(ring.First(), /*written_off=*/true)) {
      ASSERT_EQ(found->record.first, next++);
      ASSERT_TRUE(Equal(found->record.payload, payload));
      ring.Release(found->next);
    }
    const std::size_t each = 64 + (100'000 + 63) / 64 * 64;
    ASSERT_LE(used / each - next, 1u);  // the one in the making
  }
}

// As two threads leave it that are killed: one before its record has a length, one after.
class UnfinishedRecords : public testing::Test {
 protected:
  void SetUp() override {
    const auto payload = Payload(200, 1);
    for (unsigned i = 0; i < 5; ++i) ring_.Put({Kind::kRegister, 0, i, 0, payload});
    const auto first = ring_.At(0);
    Memory memory(ring_);
    memory.Data(first->next + kBegun) = 0;
    memory.Data(first->next + kWhole) = 0;
    const auto third = first->next + first->next;
    memory.Data(third + first->next + kWhole) = 0;
  }
  RecordRing ring_ = Make();
};

TEST_F(UnfinishedRecords, HoldUpTheReader) { EXPECT_THAT(Read(ring_), ElementsAre(0)); }

TEST_F(UnfinishedRecords, AreSkippedWhenTheWriterHasEnded) {
  EXPECT_THAT(Read(ring_, /*written_off=*/true), ElementsAre(0, 2, 4));
}

TEST_F(UnfinishedRecords, AreSkippedWhenAnotherWriterComes) {
  ring_.WriteOff();
  ring_.Put({Kind::kRegister, 0, 9, 0, {}});
  EXPECT_THAT(Read(ring_), ElementsAre(0, 2, 4, 9));
}

TEST(Ring, OneLivingProcessIsTheApplication) {
  RecordRing ring = Make();
  EXPECT_TRUE(InAnotherProcess([&] { return ring.Claim() && ring.Claim(); }));
  EXPECT_TRUE(ring.Claim());  // that one has ended
  EXPECT_FALSE(InAnotherProcess([&] { return ring.Claim(); }));
  EXPECT_TRUE(ring.Claim());
}

TEST(Ring, OfManyProcessesOneIsTheApplication) {
  RecordRing ring = Make();
  int go[2];
  ASSERT_EQ(pipe(go), 0);
  std::vector<pid_t> children;
  for (int i = 0; i < 8; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      close(go[1]);
      char wait;
      (void)!read(go[0], &wait, 1);
      const bool mine = ring.Claim();
      ring.Put({Kind::kTrigger, 0, mine, 0, {}});
      pause();
    }
    children.push_back(child);
  }
  close(go[0]);
  close(go[1]);
  std::vector<std::uint64_t> claims;
  while (claims.size() < children.size()) {
    for (const std::uint64_t claim : Read(ring)) claims.push_back(claim);
    std::this_thread::yield();
  }
  for (const pid_t child : children) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
  EXPECT_EQ(std::ranges::count(claims, 1), 1);
}

// Whatever an application has done to the memory, the reader comes to an end inside of it.
TEST(Ring, BelievesNothingThatIsInIt) {
  std::mt19937_64 random(3);
  const auto any = [&]() -> std::uint64_t {
    switch (random() % 4) {
      case 0:
        return random();
      case 1:
        return random() % (2 * kRoom);
      case 2:
        return ~(random() % kRoom);
      default:
        return random() % kRoom / 64 * 64;
    }
  };
  std::uint64_t bytes_read = 0;
  for (int round = 0; round < 2000; ++round) {
    RecordRing ring = Make();
    const auto payload = Payload(100, 1);
    for (unsigned i = 0; i < 8; ++i) ring.Put({Kind::kRegister, 0, i, 0, payload});
    Memory memory(ring);
    const std::uint64_t record = random() % 8 * (64 + 128);
    switch (random() % 4) {
      case 0:
        memory.Header(kReserved) = any();
        break;
      case 1:
        memory.Header(kReleased) = any();
        break;
      case 2:
        memory.Data(record + kPayloadBytes) = any();
        break;
      default:
        memory.Header(kReleased) = memory.Header(kReserved) = any();
        memory.Header(kReserved) += kRoom;
        for (std::size_t at = 0; at < kRoom; at += 64) memory.Data(at) = any();
    }
    auto position = ring.First();
    for (unsigned i = 0; i < 2000; ++i) {
      const auto found = ring.At(position, round % 2 == 0);
      if (!found) break;
      for (const std::byte byte : found->record.payload) bytes_read += static_cast<unsigned>(byte);
      ASSERT_LE(found->record.payload.size(), kRoom);
      position = found->next;
    }
  }
  EXPECT_GT(bytes_read, 0u);
}

}  // namespace
}  // namespace ring
