// What crosses the queue between handlers and the disk.

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <thread>
#include <vector>

#include "Failure.h"
#include "record/BagReader.h"
#include "record/WriteQueue.h"

namespace {

using namespace tool;  // NOLINT(google-build-using-namespace)
using namespace std::chrono_literals;

class Queue : public testing::Test {
 protected:
  void SetUp() override {
    std::string folder = (std::filesystem::temp_directory_path() / "queue-XXXXXX").string();
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    folder_ = folder;
    path_ = folder_ / "run.db3";
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  static StripsMessage Strips(std::int64_t stamp, std::uint32_t strips,
                              const std::vector<std::byte>& data) {
    StripsMessage message;
    message.stamp_ns = stamp;
    message.strips = strips;
    message.data = data;
    return message;
  }

  std::vector<LossesMessage> Losses() const {
    BagReader reader(path_);
    std::vector<LossesMessage> losses;
    while (const auto message = reader.Next()) {
      if (message->topic == Topic::kLosses) losses.push_back(message->As<LossesMessage>());
    }
    return losses;
  }

  std::filesystem::path folder_, path_;
};

TEST_F(Queue, WritesWhatSeveralThreadsPutInTheirOrder) {
  BagWriter writer(path_);
  WriteQueue queue(writer, {});
  std::vector<std::thread> threads;
  for (std::uint64_t thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, thread] {
      for (std::uint32_t i = 0; i < 500; ++i) {
        RegisterMessage message;
        message.address = thread;
        message.value = i;
        EXPECT_TRUE(queue.Put(message));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  queue.Finish();
  EXPECT_EQ(queue.counts().written, 2000u);

  BagReader reader(path_);
  EXPECT_TRUE(reader.closed());
  std::vector<std::uint32_t> next(4);
  while (const auto message = reader.Next()) {
    const auto value = message->As<RegisterMessage>();
    EXPECT_EQ(value.value, next.at(value.address)++);
  }
  EXPECT_EQ(next, std::vector<std::uint32_t>(4, 500));
}

TEST_F(Queue, CountsWhatFindsNoRoom) {
  BagWriter writer(path_);
  WriteQueue queue(writer, {.most_bytes = 100'000, .sync_period = 10s});
  const std::vector<std::byte> data(90'000);
  std::uint64_t refused = 0;
  for (int i = 0; i < 300; ++i) refused += queue.Put(Strips(i, 7, data)) ? 0 : 7;
  EXPECT_GT(refused, 0u);
  EXPECT_EQ(queue.counts().dropped_frames, refused);
  queue.Finish();
  const auto losses = Losses();
  ASSERT_EQ(losses.size(), 1u);
  EXPECT_EQ(losses[0].frames_by_recorder, refused);
  EXPECT_EQ(losses[0].frames_by_device, 0u);
}

TEST_F(Queue, TakesOneMessageThatIsLargerThanItsRoom) {
  BagWriter writer(path_);
  WriteQueue queue(writer, {.most_bytes = 10});
  EXPECT_TRUE(queue.Put(Strips(1, 1, std::vector<std::byte>(5000))));
  queue.Finish();
  EXPECT_EQ(queue.counts().written, 1u);
}

TEST_F(Queue, TellsLossesOfTheDeviceWhenTheyGrow) {
  BagWriter writer(path_);
  WriteQueue queue(writer, {.sync_period = 20ms});
  for (const std::uint64_t lost : {3u, 3u, 5u}) {
    queue.SetLostByDevice(lost);
    std::this_thread::sleep_for(100ms);
  }
  queue.Finish();
  const auto losses = Losses();
  ASSERT_EQ(losses.size(), 2u);
  EXPECT_EQ(losses[0].frames_by_device, 3u);
  EXPECT_EQ(losses[1].frames_by_device, 5u);
}

TEST_F(Queue, SyncsWithinItsPeriod) {
  BagWriter writer(path_);
  WriteQueue queue(writer, {.sync_period = 20ms});
  queue.Put(Strips(1, 1, std::vector<std::byte>(100)));
  for (int i = 0; i < 500 && writer.syncs() < 2; ++i) std::this_thread::sleep_for(10ms);
  EXPECT_GE(writer.syncs(), 2u);
}

TEST_F(Queue, AFullDiskEndsItWithTheReason) {
  signal(SIGXFSZ, SIG_IGN);
  BagWriter writer(path_);
  const rlimit before_limit{.rlim_cur = 1'000'000, .rlim_max = RLIM_INFINITY};
  rlimit whole{};
  getrlimit(RLIMIT_FSIZE, &whole);
  setrlimit(RLIMIT_FSIZE, &before_limit);
  WriteQueue queue(writer, {.sync_period = 5ms});
  const std::vector<std::byte> data(200'000);
  for (int i = 0; i < 1000 && !queue.failed(); ++i) {
    queue.Put(Strips(i, 1, data));
    std::this_thread::sleep_for(1ms);
  }
  EXPECT_TRUE(queue.failed());
  EXPECT_FALSE(queue.Put(Strips(0, 1, data)));
  EXPECT_THROW(queue.Finish(), Failure);
  setrlimit(RLIMIT_FSIZE, &whole);
}

}  // namespace
