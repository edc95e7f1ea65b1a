// Writes a recording with messages of every kind, and what they hold as JSON: for a reader that
// shares no code with us.
//   record_sample RUN.db3 EXPECTED.json
#include <fmt/format.h>

#include <cstdio>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

#include "Failure.h"
#include "record/BagWriter.h"
#include "record/Messages.h"

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

class Sample {
 public:
  explicit Sample(const char* path) : writer_(path) {}

  // `fields`: those of the message's definition, without the stamp.
  template <typename Message>
  void Add(Message message, json fields) {
    // The last nanosecond of a second, and the first.
    stamp_ns_ += 1 + (expected_.size() % 2) * 999'999'999;
    message.stamp_ns = stamp_ns_;
    writer_.Write(Message::kTopic, message.stamp_ns, Encode(message));
    fields["stamp"] = {{"sec", stamp_ns_ / 1'000'000'000}, {"nanosec", stamp_ns_ % 1'000'000'000}};
    expected_.push_back({{"topic", EntryOf(Message::kTopic).name},
                         {"type", EntryOf(Message::kTopic).type},
                         {"timestamp", std::to_string(stamp_ns_)},
                         {"message", std::move(fields)}});
  }

  json Close() {
    writer_.Close();
    return std::move(expected_);
  }

 private:
  BagWriter writer_;
  std::int64_t stamp_ns_ = 1'700'000'000'999'999'998;
  json expected_ = json::array();
};

void AddFrames(Sample& sample) {
  for (const std::size_t size : {0, 1, 7, 100'000}) {
    const auto data = Noise(size);
    StripsMessage strips;
    strips.strips = static_cast<std::uint32_t>(size + 3);
    strips.point_bytes = size == 7 ? 2 : 8;
    strips.data = data;
    sample.Add(strips, {{"strips", strips.strips},
                        {"point_bytes", strips.point_bytes},
                        {"data", Text(strips.data)}});
    ImageMessage image;
    image.width = 0xFFFF'FFFF;
    image.height = static_cast<std::uint32_t>(size);
    image.data = data;
    sample.Add(image,
               {{"width", image.width}, {"height", image.height}, {"data", Text(image.data)}});
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

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    fmt::print(stderr, "usage: record_sample RUN.db3 EXPECTED.json\n");
    return 2;
  }
  try {
    Sample sample(argv[1]);
    AddFrames(sample);
    AddNumbers(sample);
    AddTexts(sample);
    std::ofstream(argv[2]) << sample.Close();
  } catch (const Failure& failure) {
    fmt::print(stderr, "record_sample: {}\n", failure.what());
    return 1;
  }
  return 0;
}
