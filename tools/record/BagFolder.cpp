#include "record/BagFolder.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <system_error>

#include "Failure.h"
#include "record/BagWriter.h"
#include "record/SalvageReader.h"

namespace tool {
namespace {

constexpr int kMetadataVersion = 9;

void MakeFolder(const std::string& folder) {
  if (mkdir(folder.c_str(), 0777) == 0) return;
  if (errno == EEXIST) {
    throw Failure(ExitCode::kExists, fmt::format("{} already exists", folder),
                  "a bag is never overwritten; choose another name");
  }
  throw Failure(ExitCode::kFile, fmt::format("cannot create {}: {}", folder, strerror(errno)),
                "write elsewhere");
}

void WriteText(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  if (!(file << text).flush()) {
    throw Failure(ExitCode::kFile, fmt::format("cannot write {}: {}", path, strerror(errno)),
                  "make room, or write elsewhere");
  }
}

class Exporter {
 public:
  Exporter(const std::string& path, StandardMessages standard)
      : writer_(path), standard_(std::move(standard)) {}

  void Copy(const StoredMessage& message) {
    // Those of the recording may be made otherwise, or be missing.
    if (message.topic == Topic::kPoints || message.topic == Topic::kPicture) return;
    contents_.Add(message);
    writer_.Write(message.topic, message.stamp_ns, message.cdr);
    if (message.topic == Topic::kStrips) {
      standard_.MakePoints(message.As<StripsMessage>(),
                           [&](const Cdr& cdr) { Add(Topic::kPoints, message.stamp_ns, cdr); });
    } else if (message.topic == Topic::kImages) {
      const auto picture = StandardMessages::MakePicture(message.As<ImageMessage>());
      if (picture) Add(Topic::kPicture, message.stamp_ns, *picture);
    }
  }
  Contents Finish() {
    writer_.Close();
    return std::move(contents_);
  }

 private:
  void Add(Topic topic, std::int64_t stamp_ns, const Cdr& cdr) {
    writer_.Write(topic, stamp_ns, cdr);
    contents_.Add({.id = 0, .topic = topic, .stamp_ns = stamp_ns, .cdr = cdr});
  }

  BagWriter writer_;
  StandardMessages standard_;
  Contents contents_;
};

}  // namespace

std::string BagMetadata(const Contents& contents, const std::string& file) {
  // A text in quotes is the same in YAML.
  const std::string name =
      nlohmann::json(file).dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
  const std::int64_t start = contents.span().from_ns.value_or(0);
  const std::int64_t duration = contents.span().from_ns ? contents.span().to_ns - start : 0;
  std::uint64_t messages = 0;
  std::string topics;
  for (const TopicEntry& entry : kTopics) {
    const std::uint64_t count = contents.Of(entry.topic).count;
    messages += count;
    topics += fmt::format(
        "    - topic_metadata:\n"
        "        name: {}\n"
        "        type: {}\n"
        "        serialization_format: cdr\n"
        "        offered_qos_profiles: []\n"
        "        type_description_hash: \"\"\n"
        "      message_count: {}\n",
        entry.name, entry.type, count);
  }
  return fmt::format(
      "rosbag2_bagfile_information:\n"
      "  version: {}\n"
      "  storage_identifier: sqlite3\n"
      "  duration:\n    nanoseconds: {}\n"
      "  starting_time:\n    nanoseconds_since_epoch: {}\n"
      "  message_count: {}\n"
      "  topics_with_message_count:\n{}"
      "  compression_format: \"\"\n"
      "  compression_mode: \"\"\n"
      "  relative_file_paths:\n    - {}\n"
      "  files:\n"
      "    - path: {}\n"
      "      starting_time:\n        nanoseconds_since_epoch: {}\n"
      "      duration:\n        nanoseconds: {}\n"
      "      message_count: {}\n"
      "  custom_data: ~\n"
      "  ros_distro: jazzy\n",
      kMetadataVersion, duration, start, messages, topics, name, name, start, duration, messages);
}

BagFolderResult ExportBagFolder(const BagSource& recording, const std::string& folder,
                                StandardMessages standard, const std::function<bool()>& stop) {
  SalvageReader reader(recording);
  MakeFolder(folder);
  const std::filesystem::path place = std::filesystem::absolute(folder) / "";
  const std::string name = place.parent_path().filename().string() + "_0.db3";
  BagFolderResult result;
  try {
    Exporter exporter(place / name, std::move(standard));
    while (const auto message = reader.Next()) {
      if (stop()) {
        throw Failure(ExitCode::kInterrupted, fmt::format("{}: not written", folder));
      }
      if (IsWhole(*message)) {
        exporter.Copy(*message);
      } else {
        ++result.damaged;
      }
    }
    result.damaged += reader.damaged();
    result.contents = exporter.Finish();
    WriteText(place / "metadata.yaml", BagMetadata(result.contents, name));
  } catch (...) {
    // Nobody else has written here.
    std::error_code ignored;
    std::filesystem::remove_all(place, ignored);
    throw;
  }
  result.files = {place / name, place / "metadata.yaml"};
  return result;
}

}  // namespace tool
