// Writes a recording with messages of every kind, one with frames as a bag with standard messages,
// and what they hold as JSON: for a reader that shares no code with us.
//   record_sample FOLDER    run.db3, run.json, frames.db3, bag/, bag.json
#include <fmt/format.h>

#include <cstdio>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

#include "Failure.h"
#include "record/BagFolder.h"
#include "record/BagWriter.h"
#include "record/Messages.h"
#include "tessaline/frames.h"

namespace {

using namespace tool;  // NOLINT(google-build-using-namespace)
using nlohmann::json;

std::vector<std::byte> Noise(std::size_t size) {
  std::mt19937 random(static_cast<unsigned>(size));
  std::vector<std::byte> bytes(size);
  for (std::byte& byte : bytes) byte = static_cast<std::byte>(random());
  return bytes;
}

// Numbers of 64 bits are texts there, because JavaScript's own are doubles.
std::string Text(std::uint64_t number) { return std::to_string(number); }

std::string Text(std::span<const std::byte> data) {
  std::string text;
  for (const std::byte byte : data) text += fmt::format("{:02x}", static_cast<unsigned>(byte));
  return text;
}

// What a reader should find.
class Expected {
 public:
  // `fields`: those of the message's definition, without the stamp.
  template <typename Message>
  void Add(const Message& message, json fields) {
    constexpr std::int64_t kNsPerSecond = 1'000'000'000;
    const json stamp = {{"sec", message.stamp_ns / kNsPerSecond},
                        {"nanosec", message.stamp_ns % kNsPerSecond}};
    if constexpr (requires { message.frame_id; }) {
      fields["header"] = {{"stamp", stamp}, {"frame_id", message.frame_id}};
    } else {
      fields["stamp"] = stamp;
    }
    const TopicEntry& entry = EntryOf(Message::kTopic);
    messages_.push_back({{"topic", entry.name},
                         {"type", entry.type},
                         {"timestamp", std::to_string(message.stamp_ns)},
                         {"message", std::move(fields)}});
  }
  const json& messages() const { return messages_; }
  void Save(const std::string& path) const { std::ofstream(path) << messages_; }

 private:
  json messages_ = json::array();
};

class Sample {
 public:
  explicit Sample(const std::string& path) : writer_(path) {}

  template <typename Message>
  void Add(Message message, json fields) {
    // The last nanosecond of a second, and the first.
    stamp_ns_ += 1 + (expected_.messages().size() % 2) * 999'999'999;
    message.stamp_ns = stamp_ns_;
    writer_.Write(Message::kTopic, message.stamp_ns, Encode(message));
    expected_.Add(message, std::move(fields));
  }

  const Expected& Close() {
    writer_.Close();
    return expected_;
  }

 private:
  BagWriter writer_;
  std::int64_t stamp_ns_ = 1'700'000'000'999'999'998;
  Expected expected_;
};

json FieldsOf(const StripsMessage& strips) {
  return {
      {"strips", strips.strips}, {"point_bytes", strips.point_bytes}, {"data", Text(strips.data)}};
}

json FieldsOf(const ImageMessage& image) {
  return {{"width", image.width}, {"height", image.height}, {"data", Text(image.data)}};
}

json FieldsOf(const PointsMessage& points) {
  json fields = json::array();
  for (const auto& field : points.fields) {
    fields.push_back({{"name", field.name},
                      {"offset", field.offset},
                      {"datatype", field.datatype},
                      {"count", field.count}});
  }
  return {{"height", points.height},
          {"width", points.width},
          {"fields", fields},
          {"is_bigendian", points.is_bigendian},
          {"point_step", points.point_step},
          {"row_step", points.row_step},
          {"data", Text(points.data)},
          {"is_dense", points.is_dense}};
}

json FieldsOf(const PictureMessage& picture) {
  return {{"height", picture.height},     {"width", picture.width},
          {"encoding", picture.encoding}, {"is_bigendian", picture.is_bigendian},
          {"step", picture.step},         {"data", Text(picture.data)}};
}

void AddFrames(Sample& sample) {
  for (const std::size_t size : {0, 1, 7, 100'000}) {
    const auto data = Noise(size);
    StripsMessage strips;
    strips.strips = static_cast<std::uint32_t>(size + 3);
    strips.point_bytes = size == 7 ? 2 : 8;
    strips.data = data;
    sample.Add(strips, FieldsOf(strips));
    ImageMessage image;
    image.width = 0xFFFF'FFFF;
    image.height = static_cast<std::uint32_t>(size);
    image.data = data;
    sample.Add(image, FieldsOf(image));
  }
}

void AddNumbers(Sample& sample) {
  constexpr auto kMost = std::numeric_limits<std::uint64_t>::max();
  for (const std::uint64_t number : {std::uint64_t{0}, std::uint64_t{0x43C0'0004}, kMost - 1}) {
    RegisterMessage change;
    change.address = number;
    change.value = static_cast<std::uint32_t>(number);
    sample.Add(change, {{"address", Text(change.address)}, {"value", change.value}});
    LossesMessage losses;
    losses.frames_by_device = number;
    losses.frames_by_recorder = number / 2;
    losses.messages_by_recorder = number / 3;
    sample.Add(losses, {{"frames_by_device", Text(losses.frames_by_device)},
                        {"frames_by_recorder", Text(losses.frames_by_recorder)},
                        {"messages_by_recorder", Text(losses.messages_by_recorder)}});
    ClockMessage clock;
    clock.ticks = number;
    clock.uncertainty_ns = static_cast<std::uint32_t>(number / 5);
    sample.Add(clock, {{"ticks", Text(clock.ticks)}, {"uncertainty_ns", clock.uncertainty_ns}});
  }
}

// Texts of every length that alignment can make a difference to.
void AddTexts(Sample& sample) {
  for (const std::string text : {"", "a", "ab", "abc", "abcd", "lines\nand \"quotes\"", "µm ✓"}) {
    EventMessage event;
    event.name = text;
    event.value = text.size();
    sample.Add(event, {{"name", event.name}, {"value", Text(event.value)}});
    LogMessage log;
    log.level = 40;
    log.name = text;
    log.msg = text + text;
    log.file = "a.cpp";
    log.function = text;
    log.line = 77;
    sample.Add(log, {{"level", log.level},
                     {"name", log.name},
                     {"msg", log.msg},
                     {"file", log.file},
                     {"function", log.function},
                     {"line", log.line}});
    DeviceMessage device;
    device.json = json{{"text", text}}.dump();
    sample.Add(device, {{"json", device.json}});
  }
}

// The number behind two texts and a flag is aligned anew for each length of the texts.
void AddGaps(Sample& sample) {
  for (std::uint64_t number = 0; number < 9; ++number) {
    GapMessage gap;
    gap.reason = std::string(number, 'r');
    gap.run = std::string(number / 2, '6');
    gap.end_known = number % 2 == 0;
    gap.strips_first = number << 40;
    gap.strips_last = number + 1;
    gap.strips_count = number + 2;
    gap.images_first = number + 3;
    gap.images_last = number + 4;
    gap.images_count = number + 5;
    gap.others = number + 6;
    sample.Add(gap, {{"reason", gap.reason},
                     {"run", gap.run},
                     {"end_known", gap.end_known},
                     {"strips_first", Text(gap.strips_first)},
                     {"strips_last", Text(gap.strips_last)},
                     {"strips_count", Text(gap.strips_count)},
                     {"images_first", Text(gap.images_first)},
                     {"images_last", Text(gap.images_last)},
                     {"images_count", Text(gap.images_count)},
                     {"others", Text(gap.others)}});
  }
}

// Standard messages, with names and data of every length that alignment can make a difference to.
void AddStandard(Sample& sample) {
  for (const std::size_t size : {0, 1, 2, 3, 40'000}) {
    const auto data = Noise(size);
    PointsMessage points;
    points.frame_id = std::string(size % 5, 'f');
    points.height = static_cast<std::uint32_t>(size);
    points.width = 0xFFFF'FFFF;
    for (std::uint32_t i = 0; i < size % 7; ++i) {
      points.fields.push_back(
          {std::string(i, 'x'), i * 4, static_cast<std::uint8_t>(1 + i), i + 1});
    }
    points.is_bigendian = size == 1;
    points.point_step = 3;
    points.row_step = 5;
    points.data = data;
    points.is_dense = size != 1;
    sample.Add(points, FieldsOf(points));
    PictureMessage picture;
    picture.frame_id = points.frame_id;
    picture.height = points.height;
    picture.width = 7;
    picture.encoding = std::string(size % 6, 'e');
    picture.is_bigendian = 1;
    picture.step = 9;
    picture.data = data;
    sample.Add(picture, FieldsOf(picture));
  }
}

template <typename Record>
void Append(std::vector<std::byte>& bytes, const Record& record) {
  const auto* begin = reinterpret_cast<const std::byte*>(&record);
  bytes.insert(bytes.end(), begin, begin + sizeof record);
}

// Records a buffer of strips and an image, exports them as a bag, and says what must be in it.
Expected WriteBag(const std::string& recording, const std::string& folder) {
  constexpr std::uint32_t kWidth = 5;
  constexpr std::uint32_t kHeight = 3;
  Expected expected;
  BagWriter writer(recording);
  const auto put = [&](const auto& message) {
    writer.Write(message.kTopic, message.stamp_ns, Encode(message));
    expected.Add(message, FieldsOf(message));
  };
  std::vector<std::byte> strips;
  std::vector<std::byte> cloud;
  for (std::uint64_t i = 1; i <= 3; ++i) {
    Append(strips, tessaline_strip_header{i, i * 50'000, i * 10, i});
    for (std::uint16_t column = 0; column < i; ++column) {
      const auto peak = static_cast<std::uint8_t>(90 + column);
      Append(strips,
             tessaline_full_point{column, peak, 3, (200u + column) * TESSALINE_FULL_ROW_STEPS});
      // Without a calibration: the column, encoder counts since the first strip, minus the row.
      for (const int value :
           {0 + column, static_cast<int>(i - 1) * 10, -(200 + column), 0 + peak}) {
        Append(cloud, static_cast<float>(value));
      }
    }
  }
  put(StripsMessage{1'700'000'000'000'000'001, 3, 8, strips});
  PointsMessage points;
  points.stamp_ns = 1'700'000'000'000'000'001;
  points.frame_id = "tessaline";
  points.width = 1 + 2 + 3;
  points.fields = {{"x", 0, 7, 1}, {"y", 4, 7, 1}, {"z", 8, 7, 1}, {"intensity", 12, 7, 1}};
  points.point_step = 16;
  points.row_step = points.width * points.point_step;
  points.data = cloud;
  expected.Add(points, FieldsOf(points));

  auto image = Noise(kWidth * kHeight);
  Append(image, tessaline_image_header{4, 200'000, 40, 0});
  put(ImageMessage{1'700'000'001'000'000'000, kWidth, kHeight, image});
  PictureMessage picture;
  picture.stamp_ns = 1'700'000'001'000'000'000;
  picture.frame_id = "tessaline";
  picture.height = kHeight;
  picture.width = kWidth;
  picture.encoding = "mono8";
  picture.step = kWidth;
  picture.data = std::span(image).first(kWidth * kHeight);
  expected.Add(picture, FieldsOf(picture));
  writer.Close();
  ExportBagFolder(recording, folder, StandardMessages({}), [] { return false; });
  return expected;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fmt::print(stderr, "usage: record_sample FOLDER\n");
    return 2;
  }
  try {
    const std::string folder = argv[1] + std::string("/");
    Sample sample(folder + "run.db3");
    AddFrames(sample);
    AddNumbers(sample);
    AddTexts(sample);
    AddStandard(sample);
    AddGaps(sample);
    sample.Close().Save(folder + "run.json");
    WriteBag(folder + "frames.db3", folder + "bag").Save(folder + "bag.json");
  } catch (const Failure& failure) {
    fmt::print(stderr, "record_sample: {}\n", failure.what());
    return 1;
  }
  return 0;
}
