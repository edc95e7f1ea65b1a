#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "record/BagTopics.h"
#include "record/Database.h"
#include "record/Messages.h"
#include "record/Schema.h"
#include "record/Topics.h"

namespace tool {

// A message of a recording, not decoded yet. Valid until the next one is read.
struct StoredMessage {
  std::int64_t id = 0;
  Topic topic = Topic::kStrips;
  std::int64_t stamp_ns = 0;
  std::span<const std::byte> cdr;

  template <typename Message>
  Message As() const {
    return Decode<Message>(cdr);
  }
};

// Calls `use` with the message, decoded. Throws Failure if it is damaged.
template <typename Use>
void VisitMessage(const StoredMessage& message, Use use) {
  switch (message.topic) {
    case Topic::kStrips:
      return use(message.As<StripsMessage>());
    case Topic::kImages:
      return use(message.As<ImageMessage>());
    case Topic::kRegisters:
      return use(message.As<RegisterMessage>());
    case Topic::kEvents:
      return use(message.As<EventMessage>());
    case Topic::kLosses:
      return use(message.As<LossesMessage>());
    case Topic::kClock:
      return use(message.As<ClockMessage>());
    case Topic::kLog:
      return use(message.As<LogMessage>());
    case Topic::kDevice:
      return use(message.As<DeviceMessage>());
    case Topic::kPoints:
      return use(message.As<PointsMessage>());
    case Topic::kPicture:
      return use(message.As<PictureMessage>());
    case Topic::kGaps:
      return use(message.As<GapMessage>());
  }
}

// Reads a recording, which may be hostile or damaged. Not for several threads at once.
class BagReader {
 public:
  // Throws Failure if `path` is no recording or a newer one. Messages on topics that are not ours
  // are left out, and so are those of other sensors than `sensor`. It may be empty: then the
  // recording is of one sensor, with a name or without; else it throws Failure and names them.
  // `mode`: kRead; with kSalvage, damage of what is no message counts as if it was not closed.
  explicit BagReader(const std::string& path, Database::Mode mode = Database::Mode::kRead,
                     const std::string& sensor = {});

  // The next message in the order of arrival; none at the end. Throws Damaged where the file is:
  // SkipTo() may get past it.
  std::optional<StoredMessage> Next();

  // Goes on with the first message whose id is larger, forwards or back.
  void SkipTo(std::int64_t id);
  // Up to which id everything has been read or skipped, foreign messages included.
  std::int64_t position() const { return position_; }

  // The sensor whose messages these are; empty in a recording of one without a name.
  const std::string& sensor() const { return sensor_; }
  // Of the file.
  int version() const { return version_; }
  // Whether it was closed properly.
  bool closed() const { return closed_; }
  // Messages later than this may be missing in a recording that was not closed.
  std::int64_t synced_ns() const { return synced_ns_; }
  const Database& database() const { return database_; }
  // By the file's number.
  const BagTopics::Numbers& topics() const { return topics_; }

 private:
  void ReadKeys();
  void ReadTopics(const std::string& sensor);

  Database database_;
  BagTopics::Numbers topics_;
  std::string sensor_;
  std::optional<Statement> messages_;
  std::int64_t position_ = 0;  // SQLite numbers rows from 1
  int version_ = kRecordingVersion;
  bool closed_ = false;
  std::int64_t synced_ns_ = 0;
};

// The sensors of a file, by name; none if it is of one without a name. Throws Failure as a
// BagReader does.
std::vector<std::string> SensorsOf(const std::string& path);

}  // namespace tool
