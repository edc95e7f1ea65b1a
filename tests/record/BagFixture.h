#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "Failure.h"
#include "record/BagWriter.h"
#include "record/Messages.h"
#include "tessaline/frames.h"

namespace record_test {

inline constexpr std::int64_t kStart = 1'700'000'000'000'000'000;
inline constexpr std::int64_t kMs = 1'000'000;

// The text of the Failure that the call ends with.
inline std::string TextOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const tool::Failure& failure) {
    return failure.what();
  }
  return "no failure";
}

template <typename Record>
void Append(std::vector<std::byte>& bytes, const Record& record) {
  const auto* begin = reinterpret_cast<const std::byte*>(&record);
  bytes.insert(bytes.end(), begin, begin + sizeof record);
}

// The bytes of one strip of full points; point i lies in column i and has the row and peak given.
inline void AppendStrip(std::vector<std::byte>& bytes, std::uint64_t id, std::uint64_t points,
                        unsigned row = 100, std::uint8_t peak = 77) {
  // 1000 frames a second.
  Append(bytes, tessaline_strip_header{id, id * 50'000, id * 10, points});
  for (std::uint64_t i = 0; i < points; ++i) {
    Append(bytes, tessaline_full_point{static_cast<std::uint16_t>(i), peak, 3,
                                       row * TESSALINE_FULL_ROW_STEPS});
  }
}

inline std::vector<std::byte> ImageBytes(std::uint64_t id, unsigned width, unsigned height) {
  std::vector<std::byte> bytes(std::size_t{width} * height, std::byte{42});
  Append(bytes, tessaline_image_header{id, id * 50'000, id * 10, 0});
  return bytes;
}

// A folder with a recording to write.
class BagFolderTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string folder = (std::filesystem::temp_directory_path() / "bag-XXXXXX").string();
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    folder_ = folder;
    path_ = folder_ / "run.db3";
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  template <typename Message>
  static void Put(tool::BagWriter& writer, const Message& message) {
    writer.Write(Message::kTopic, message.stamp_ns, tool::Encode(message));
  }
  // A buffer of `strips` strips from `first_id` on, at so many milliseconds after the start.
  static void PutStrips(tool::BagWriter& writer, std::int64_t ms, std::uint64_t first_id,
                        unsigned strips, unsigned points = 50) {
    std::vector<std::byte> bytes;
    for (unsigned i = 0; i < strips; ++i) AppendStrip(bytes, first_id + i, points);
    tool::StripsMessage message;
    message.stamp_ns = kStart + ms * kMs;
    message.strips = strips;
    message.point_bytes = 8;
    message.data = bytes;
    Put(writer, message);
  }
  static void PutImage(tool::BagWriter& writer, std::int64_t ms, std::uint64_t id) {
    const auto bytes = ImageBytes(id, 16, 8);
    Put(writer, tool::ImageMessage{kStart + ms * kMs, 16, 8, bytes});
  }
  static void PutDevice(tool::BagWriter& writer, std::int64_t ms, const std::string& json) {
    Put(writer, tool::DeviceMessage{kStart + ms * kMs, json});
  }

  void Sql(const std::string& text) const {
    sqlite3* handle = nullptr;
    ASSERT_EQ(sqlite3_open(path_.c_str(), &handle), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(handle, text.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
        << sqlite3_errmsg(handle);
    sqlite3_close(handle);
  }
  std::string Bytes() const {
    std::ifstream file(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  void SetBytes(const std::string& bytes) const {
    std::ofstream(path_, std::ios::binary | std::ios::trunc) << bytes;
  }

  std::filesystem::path folder_, path_;
};

}  // namespace record_test
