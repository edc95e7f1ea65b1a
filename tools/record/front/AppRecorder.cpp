#include "record/front/AppRecorder.h"

#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>

#include "record/front/Library.h"
#include "record/front/Variables.h"
#include "tessaline/fpga.h"
#include "tessaline/trigger.h"

namespace tool {
namespace {

namespace fpga = VeltranoSDK::fpga;

AppRecorder* recorder;

template <typename Handler, typename... Arguments>
void Call(const std::atomic<tessaline_event_handler>& handler, Arguments... arguments) {
  const tessaline_event_handler known = handler;
  if (known != nullptr) reinterpret_cast<Handler>(known)(arguments...);
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
    : tap_(std::move(ring), what) {}

void AppRecorder::OnModel(const char* model, int library_version) {
  model_ = model;
  const std::string json = nlohmann::json{
      {"model", model_},
      {"program", CommandLine()},
      {"pid", getpid()},
      {"library",
       library_version}}.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  tap_.Device(json);
  const auto* const product = VeltranoSDK::products::FindProduct(model_);
  if (product != nullptr && tap_.wants_registers()) registers_.Watch(*product, &OnRegister);
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
  if (tap_.wants_registers()) ReadAllRegisters();
  if (const auto* const product = VeltranoSDK::products::FindProduct(model_)) {
    tap_.FpgaVersion(*product);
  }
  tap_.Clock();
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
  recorder->tap_.Strips(strips, bytes, data);
  recorder->tap_.State();
  Call<tessaline_frame_handler>(recorder->handlers_[TESSALINE_EVENT_STRIP], strips, bytes, data);
}

void AppRecorder::OnImage(unsigned width, unsigned height, void* pixels) {
  recorder->tap_.Image(width, height, pixels);
  recorder->tap_.State();
  Call<tessaline_frame_handler>(recorder->handlers_[TESSALINE_EVENT_IMAGE], width, height, pixels);
}

void AppRecorder::OnTrigger(unsigned level) {
  recorder->tap_.Trigger(level);
  Call<tessaline_trigger_handler>(recorder->handlers_[TESSALINE_EVENT_EXTERNAL_TRIGGER], level);
}

void AppRecorder::OnDaArrived() {
  recorder->tap_.DaArrived();
  Call<tessaline_event_handler>(recorder->handlers_[TESSALINE_EVENT_DA_ARRIVED]);
}

void AppRecorder::OnRegister(std::uint64_t address, std::uint32_t value) {
  recorder->tap_.Register(address, value);
}

void AppRecorder::OnLogLine(log_Event* event) { recorder->tap_.LogLine(*event); }

}  // namespace tool
