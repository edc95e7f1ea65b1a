#include "reliability/ShutdownOrder.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string_view>

#include "reliability/StormMarks.h"

namespace tessaline_test {

namespace {

struct Event {
  int thread;
  std::string text;  // "<device> <what>"
};

constexpr std::string_view kMaster = "fpga write IMAGE_BLOCK_1 MASTER_CTRL = ";
constexpr std::string_view kTrigger = "fpga write IMAGE_BLOCK_1 TRIGGER_CTRL = ";
constexpr std::string_view kZero = "0x00000000";

// The board's transcript line for a mark.
std::string Left(const char* mark) { return "gpio open " + std::string(mark) + " failed: ENOENT"; }

std::vector<std::string> OrderedShutdown() {
  return {std::string(kMaster).append(kZero), std::string(kTrigger).append(kZero),
          Left(mark::kImagesAsked),           Left(mark::kStripsAsked),
          "video0 VIDIOC_STREAMOFF",          "video1 VIDIOC_STREAMOFF"};
}

std::vector<Event> ReadTranscript(const std::string& path) {
  std::vector<Event> events;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with('{')) {
      events.push_back({-1, line});
      continue;
    }
    const auto json = nlohmann::json::parse(line);
    events.push_back({json["thread"].get<int>(),
                      json["device"].get<std::string>() + ' ' + json["event"].get<std::string>()});
  }
  return events;
}

using Place = std::vector<Event>::const_iterator;

Place Find(Place from, Place to, std::string_view text) {
  return std::find_if(from, to, [&](const Event& event) { return event.text == text; });
}

std::ptrdiff_t Count(Place from, Place to, std::string_view start) {
  return std::count_if(from, to, [&](const Event& event) { return event.text.starts_with(start); });
}

std::string Listed(const std::vector<std::string>& lines) {
  std::string list;
  for (const std::string& line : lines) list += "\n      " + line;
  return list;
}

}  // namespace

std::vector<std::string> ComplaintsAboutShutdown(const std::string& transcript_path,
                                                 int handlers_at_work) {
  const std::vector<Event> events = ReadTranscript(transcript_path);
  const auto end = events.end();
  if (events.empty()) return {"there is no transcript"};
  const auto start = Find(events.begin(), end, OrderedShutdown().front());
  if (start == end) return {"the FPGA was not stopped"};

  std::vector<std::string> complaints;
  const auto expect = [&](bool fine, std::string what) {
    if (!fine) complaints.push_back(std::move(what));
  };

  std::vector<std::string> done;
  for (auto event = start; event != end; ++event) {
    if (event->thread == start->thread) done.push_back(event->text);
  }
  expect(done == OrderedShutdown(), "another shutdown:" + Listed(done));
  expect(Count(events.begin(), end, kMaster) == 1, "the FPGA was stopped more than once");
  const auto late = std::find_if(start, end, [&](const Event& event) {
    return event.thread != start->thread && event.text.starts_with("fpga write ");
  });
  if (late != end) complaints.push_back("another thread's write behind the stop: " + late->text);

  for (const std::string device : {"video0", "video1"}) {
    const auto off = Find(start, end, device + " VIDIOC_STREAMOFF");
    expect(off != end && Count(off + 1, end, device + ' ') == 0,
           device + " was used after its stream was off");
    expect(Count(events.begin(), end, device + " VIDIOC_STREAMOFF") == 1,
           device + " was not switched off once");
  }

  expect(Count(events.begin(), end, Left(mark::kHandlerTooLate)) == 0,
         "a handler was called after its thread was asked to end");
  const auto released = Find(start, end, "video0 VIDIOC_STREAMOFF");
  expect(Count(events.begin(), end, Left(mark::kHandlerBegins)) -
                 Count(events.begin(), released, Left(mark::kHandlerEnds)) <=
             handlers_at_work,
         "a handler had not come back when its buffers were released");
  expect(events.back().thread >= 0, "the transcript is not complete: " + events.back().text);
  return complaints;
}

}  // namespace tessaline_test
