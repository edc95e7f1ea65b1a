// Other threads always read a complete record while one thread publishes it repeatedly.
#include "thread/Published.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

namespace {

using Record = std::array<std::uint64_t, 16>;
using VeltranoSDK::Utility::Published;

Record AllOf(std::uint64_t number) {
  Record record;
  record.fill(number);
  return record;
}

TEST(Published, IsZeroAtFirstAndThenTheLastRecord) {
  Published<Record> published;
  EXPECT_EQ(published.Read(), AllOf(0));
  published.Publish(AllOf(7));
  published.Publish(AllOf(9));
  EXPECT_EQ(published.Read(), AllOf(9));
}

TEST(Published, IsNeverReadTornNorGoesBack) {
  // On one processor the readers could finish before the writer runs once. So they continue until
  // the writer has overtaken them often enough to reveal a torn record.
  constexpr int kReads = 20000;
  constexpr int kChanges = 50;
  Published<Record> published;
  std::atomic<bool> done{false};
  std::thread writer([&] {
    for (std::uint64_t number = 1; !done; ++number) published.Publish(AllOf(number));
  });
  std::vector<std::thread> readers;
  for (int i = 0; i < 2; ++i) {
    readers.emplace_back([&] {
      std::uint64_t last = 0;
      int changes = 0;
      for (int reads = 0; reads < kReads || changes < kChanges; ++reads) {
        const Record record = published.Read();
        if (record != AllOf(record[0]) || record[0] < last) {
          ADD_FAILURE() << "torn or old: " << ::testing::PrintToString(record) << " after " << last;
          return;
        }
        changes += record[0] != last;
        last = record[0];
      }
    });
  }
  for (std::thread& reader : readers) reader.join();
  done = true;
  writer.join();
}

}  // namespace
