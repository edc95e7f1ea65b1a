#include "record/front/AppRecorder.h"

#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>

#include "record/front/Library.h"
#include "record/front/Variables.h"
#include "tessaline/capture_statistics.h"
#include "tessaline/fpga.h"
#include "tessaline/frames.h"
#include "tessaline/trigger.h"

namespace tool {
namespace {

namespace fpga = VeltranoSDK::fpga;
using ring::Kind;
using ring::Record;

AppRecorder* recorder;

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kLossesEvery = kSecond / 10;

std::int64_t Ns(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return now.tv_sec * kSecond + now.tv_nsec;
}

std::int64_t HostNs() { return Ns(CLOCK_REALTIME); }

// Whether it is time; then the next time is set. One of several threads gets true.
bool IsDue(std::atomic<std::int64_t>& next, std::int64_t now, std::int64_t period) {
  std::int64_t due = next;
  return now >= due && next.compare_exchange_strong(due, now + period);
}

template <typename Handler, typename... Arguments>
void Call(const std::atomic<tessaline_event_handler>& handler, Arguments... arguments) {
  const tessaline_event_handler known = handler;
  if (known != nullptr) reinterpret_cast<Handler>(known)(arguments...);
}

std::span<const std::byte> Bytes(std::string_view text) {
  return std::as_bytes(std::span(text.data(), text.size()));
}

std::string CommandLine() {
  std::ifstream file("/proc/self/cmdline");
  std::string line(std::istreambuf_iterator<char>(file), {});
  if (!line.empty()) line.pop_back();
  std::replace(line.begin(), line.end(), '\0', ' ');
  return line;
}

}  // namespace

AppRecorder* AppRecorder::FromEnvironment() {
  const char* const path = getenv(kRingVariable);
  const char* const what = getenv(kWhatVariable);
  if (path == nullptr || what == nullptr) return nullptr;
  auto ring = ring::RecordRing::Open(path);
  if (ring && ring->Claim()) {
    ring->WriteOff();  // of an application that was here before, if there was one
    return recorder = new AppRecorder(std::move(*ring), what);
  }
  fprintf(stderr, "tessaline record: %s (pid %d) is not recorded: %s\n",
          program_invocation_short_name, getpid(),
          ring ? "another process is" : "the recorder has ended");
  return nullptr;
}

// By the number of the event.
const std::array<tessaline_event_handler, 4> AppRecorder::kOurs{
    reinterpret_cast<tessaline_event_handler>(&OnImage),
    reinterpret_cast<tessaline_event_handler>(&OnStrips),
    reinterpret_cast<tessaline_event_handler>(&OnTrigger),
    &OnDaArrived,
};

AppRecorder::AppRecorder(ring::RecordRing ring, std::string_view what)
    : ring_(std::move(ring)),
      strips_(what.find("strips") != what.npos),
      images_(what.find("images") != what.npos),
      registers_wanted_(what.find("registers") != what.npos) {}

void AppRecorder::OnModel(const char* model, int library_version) {
  model_ = model;
  const std::string json = nlohmann::json{
      {"model", model_},
      {"program", CommandLine()},
      {"pid", getpid()},
      {"library",
       library_version}}.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  ring_.Put({Kind::kDevice, HostNs(), 0, 0, Bytes(json)});
  const auto* const product = VeltranoSDK::products::FindProduct(model_);
  if (product != nullptr && registers_wanted_) registers_.Watch(*product, &OnRegister);
  if (std::exchange(listens_to_log_, true)) return;
  LibraryFunction<decltype(log_add_callback)>("log_add_callback")(&OnLogLine, nullptr,
                                                                  TESSALINE_LOG_INFO);
}

tessaline_event_handler AppRecorder::Wrap(int type, tessaline_event_handler handler) {
  // Without one, the library counts frames as released, which must stay so.
  if (type < 0 || type >= static_cast<int>(kOurs.size()) || handler == nullptr) return handler;
  handlers_[type] = handler;
  return kOurs[type];
}

void AppRecorder::OnStarted() {
  if (registers_wanted_) ReadAllRegisters();
  TellFpgaVersion();
  TellClock();
}

void AppRecorder::TellFpgaVersion() {
  static auto* const read = LibraryFunction<decltype(fpga_read_addr)>("fpga_read_addr");
  const auto* const product = VeltranoSDK::products::FindProduct(model_);
  if (product == nullptr) return;
  constexpr fpga::Register kVersion = fpga::kReg.FPGA_VERSION;
  const auto& bases = product->family.board.processor.regions;
  const unsigned value = read(fpga::BaseAddress(kVersion.block, bases), kVersion.Index());
  char json[32];
  snprintf(json, sizeof json, R"({"fpga": "0x%08x"})", value);
  ring_.Put({Kind::kDevice, HostNs(), 0, 0, Bytes(json)});
}

// The watch looks at a whole block when one of its words is read.
void AppRecorder::ReadAllRegisters() {
  static auto* const read = LibraryFunction<decltype(fpga_read_addr)>("fpga_read_addr");
  const auto* const product = VeltranoSDK::products::FindProduct(model_);
  if (product == nullptr) return;
  for (std::size_t i = 0; i < fpga::kBlockCount; ++i) {
    const auto block = static_cast<fpga::Block>(i);
    const auto* const reg =
        std::find_if(fpga::kAllRegisters.begin(), fpga::kAllRegisters.end(),
                     [&](const fpga::Register& known) { return known.block == block; });
    if (reg == fpga::kAllRegisters.end()) continue;
    read(fpga::BaseAddress(block, product->family.board.processor.regions), reg->Index());
  }
}

void AppRecorder::OnStrips(unsigned strips, unsigned bytes, void* data) {
  const std::int64_t now = HostNs();
  if (recorder->strips_) {
    recorder->ring_.Put(
        {Kind::kStrips, now, strips, 0, {static_cast<const std::byte*>(data), bytes}});
  }
  recorder->TellState(now);
  Call<tessaline_frame_handler>(recorder->handlers_[TESSALINE_EVENT_STRIP], strips, bytes, data);
}

void AppRecorder::OnImage(unsigned width, unsigned height, void* pixels) {
  const std::int64_t now = HostNs();
  const std::size_t bytes = std::size_t{width} * height + sizeof(tessaline_image_header);
  if (recorder->images_) {
    recorder->ring_.Put(
        {Kind::kImage, now, width, height, {static_cast<const std::byte*>(pixels), bytes}});
  }
  recorder->TellState(now);
  Call<tessaline_frame_handler>(recorder->handlers_[TESSALINE_EVENT_IMAGE], width, height, pixels);
}

void AppRecorder::OnTrigger(unsigned level) {
  recorder->ring_.Put({Kind::kTrigger, HostNs(), level, 0, {}});
  Call<tessaline_trigger_handler>(recorder->handlers_[TESSALINE_EVENT_EXTERNAL_TRIGGER], level);
}

void AppRecorder::OnDaArrived() {
  recorder->ring_.Put({Kind::kDaArrived, HostNs(), 0, 0, {}});
  Call<tessaline_event_handler>(recorder->handlers_[TESSALINE_EVENT_DA_ARRIVED]);
}

void AppRecorder::OnRegister(std::uint64_t address, std::uint32_t value) {
  recorder->ring_.Put({Kind::kRegister, HostNs(), address, value, {}});
}

void AppRecorder::OnLogLine(log_Event* event) {
  char text[1024];
  const std::size_t file = std::min(strlen(event->file), sizeof text / 2);
  memcpy(text, event->file, file);
  text[file] = '\0';
  const std::size_t room = sizeof text - file - 1;
  const int written = vsnprintf(text + file + 1, room, event->fmt, event->ap);
  const std::size_t bytes = std::min(static_cast<std::size_t>(std::max(written, 0)), room - 1);
  recorder->ring_.Put({Kind::kLog, HostNs(), static_cast<std::uint64_t>(event->level),
                       static_cast<std::uint64_t>(event->line), Bytes({text, file + 1 + bytes})});
}

void AppRecorder::TellState(std::int64_t now) {
  const std::int64_t running = Ns(CLOCK_MONOTONIC);  // the host's clock may be set
  if (IsDue(next_clock_ns_, running, kSecond)) TellClock();
  if (IsDue(next_losses_ns_, running, kLossesEvery)) TellLosses(now);
}

void AppRecorder::TellClock() {
  static auto* const timer = LibraryFunction<decltype(GetTimerCounter)>("GetTimerCounter");
  const std::int64_t before = HostNs();
  const std::uint64_t ticks = timer();
  const std::int64_t after = HostNs();
  ring_.Put({Kind::kClock,
             before + (after - before) / 2,
             ticks,
             static_cast<std::uint64_t>(std::max<std::int64_t>(after - before, 0)),
             {}});
}

void AppRecorder::TellLosses(std::int64_t now) {
  static auto* const statistics =
      LibraryFunction<decltype(TessalineGetCaptureStatistics)>("TessalineGetCaptureStatistics");
  std::uint64_t lost = 0;
  for (const unsigned stream : {TESSALINE_STREAM_IMAGES, TESSALINE_STREAM_STRIPS}) {
    tessaline_capture_statistics seen{};
    if (statistics(stream, &seen) == 0) lost += seen.ids_missing;
  }
  if (told_lost_.exchange(lost) != lost) ring_.Put({Kind::kLost, now, lost, 0, {}});
}

}  // namespace tool
