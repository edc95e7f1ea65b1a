// Reads recordings that are mostly whole: with messages of any bytes, and any bytes at any place of
// the file. Whatever the file says, nothing larger than the largest message is allocated: see the
// limit that the target is run with.
#include <fuzzer/FuzzedDataProvider.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Failure.h"
#include "record/BagReader.h"
#include "record/BagWriter.h"
#include "support/Require.h"

namespace {

using tessaline_fuzz::Require;
using namespace tool;  // NOLINT(google-build-using-namespace)

std::string path;
std::string whole;  // the bytes of a small recording
sqlite3* database;  // in memory, for changed ones

void Sql(sqlite3* handle, const char* sql) {
  Require(sqlite3_exec(handle, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql);
}

void Remove() { unlink(path.c_str()); }

template <typename Message>
void WriteSmall(BagWriter& writer) {
  static constexpr std::byte kData[5]{};
  Message message;
  message.stamp_ns = 1;
  if constexpr (requires { message.data; }) message.data = kData;
  if constexpr (requires { message.name; }) message.name = "name";
  if constexpr (requires { message.fields; }) message.fields = {{"x", 0, 7, 1}, {"y", 4, 7, 1}};
  writer.Write(Message::kTopic, 1, Encode(message));
}

// The recording's messages and the bytes that came of them.
template <typename... Messages>
struct Kinds {
  static_assert(sizeof...(Messages) == kTopics.size());

  static void Write(BagWriter& writer) { (WriteSmall<Messages>(writer), ...); }

  static void Decode(const StoredMessage& stored) { (DecodeIf<Messages>(stored), ...); }

 private:
  // Of a point's field, without its name: a length, an offset, a type and a count.
  static constexpr std::size_t kLeastFieldBytes = 13;

  static std::size_t Bytes(const StripsMessage& m) { return m.data.size(); }
  static std::size_t Bytes(const ImageMessage& m) { return m.data.size(); }
  static std::size_t Bytes(const EventMessage& m) { return m.name.size(); }
  static std::size_t Bytes(const DeviceMessage& m) { return m.json.size(); }
  static std::size_t Bytes(const LogMessage& m) {
    return m.name.size() + m.msg.size() + m.file.size() + m.function.size();
  }
  static std::size_t Bytes(const PointsMessage& m) {
    std::size_t bytes = m.frame_id.size() + m.data.size();
    for (const auto& field : m.fields) bytes += kLeastFieldBytes + field.name.size();
    return bytes;
  }
  static std::size_t Bytes(const PictureMessage& m) {
    return m.frame_id.size() + m.encoding.size() + m.data.size();
  }
  static std::size_t Bytes(const GapMessage& m) { return m.reason.size() + m.run.size(); }
  template <typename Message>
  static std::size_t Bytes(const Message&) {
    return 0;
  }

  template <typename Message>
  static void DecodeIf(const StoredMessage& stored) {
    if (stored.topic != Message::kTopic) return;
    try {
      // A block of exactly its size: the address sanitizer sees a byte too many.
      const Cdr exact(stored.cdr.begin(), stored.cdr.end());
      const auto message = tool::Decode<Message>(exact);
      Require(Bytes(message) < stored.cdr.size(), "a message holds what its bytes hold");
      // Whatever was read can be written, and is then read as the same.
      const Cdr again = Encode(message);
      Require(Encode(tool::Decode<Message>(again)) == again, "coding loses nothing");
    } catch (const Failure& failure) {
      Require(*failure.what() != '\0', "there is a reason");
    }
  }
};

using AllKinds =
    Kinds<StripsMessage, ImageMessage, RegisterMessage, EventMessage, LossesMessage, ClockMessage,
          LogMessage, DeviceMessage, PointsMessage, PictureMessage, GapMessage>;

// The recording with a message of these bytes more, on any topic.
void AddMessage(FuzzedDataProvider& input) {
  sqlite3_stmt* insert = nullptr;
  sqlite3_prepare_v2(database, "INSERT INTO messages(topic_id, timestamp, data) VALUES(?, ?, ?)",
                     -1, &insert, nullptr);
  sqlite3_bind_int64(insert, 1, input.ConsumeIntegralInRange(0, 20));
  sqlite3_bind_int64(insert, 2, input.ConsumeIntegral<std::int64_t>());
  // Most with the encapsulation that all of ours have.
  std::string bytes = input.ConsumeBool() ? std::string("\0\1\0\0", 4) : std::string();
  bytes += input.ConsumeRandomLengthString(500);
  sqlite3_bind_blob(insert, 3, bytes.data(), static_cast<int>(bytes.size()), SQLITE_STATIC);
  sqlite3_step(insert);
  sqlite3_finalize(insert);
}

std::string AnyRecording(FuzzedDataProvider& input) {
  auto* copy = static_cast<unsigned char*>(sqlite3_malloc64(whole.size()));
  memcpy(copy, whole.data(), whole.size());
  sqlite3_deserialize(database, "main", copy, static_cast<sqlite3_int64>(whole.size()),
                      static_cast<sqlite3_int64>(whole.size()),
                      SQLITE_DESERIALIZE_FREEONCLOSE | SQLITE_DESERIALIZE_RESIZEABLE);
  while (input.ConsumeBool()) AddMessage(input);
  sqlite3_int64 size = 0;
  const auto* bytes = reinterpret_cast<const char*>(
      sqlite3_serialize(database, "main", &size, SQLITE_SERIALIZE_NOCOPY));
  std::string file(bytes, static_cast<std::size_t>(size));
  while (input.remaining_bytes() > 0 && input.ConsumeBool()) {
    const auto at = input.ConsumeIntegralInRange<std::size_t>(0, file.size());
    const std::string patch = input.ConsumeRandomLengthString(40);
    file.replace(at, std::min(patch.size(), file.size() - at), patch);
  }
  if (input.ConsumeBool()) file.resize(input.ConsumeIntegralInRange<std::size_t>(0, file.size()));
  return file;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  path = "/dev/shm/recording-fuzz-" + std::to_string(getpid()) + ".db3";
  std::atexit(Remove);
  BagWriter writer(path);
  AllKinds::Write(writer);
  writer.Close();
  sqlite3* handle = nullptr;
  sqlite3_open(path.c_str(), &handle);
  // In small pages, more of it can change.
  Sql(handle, "PRAGMA page_size = 512; VACUUM");
  sqlite3_close(handle);
  std::ifstream file(path, std::ios::binary);
  whole.assign(std::istreambuf_iterator<char>(file), {});
  Require(sqlite3_open(":memory:", &database) == SQLITE_OK, "a database in memory");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const std::string bytes = AnyRecording(input);
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
  try {
    BagReader reader(path);
    while (const auto message = reader.Next()) AllKinds::Decode(*message);
  } catch (const Failure& failure) {
    Require(*failure.what() != '\0', "there is a reason");
  }
  return 0;
}
