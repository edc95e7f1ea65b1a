#include "record/front/RecordTap.h"

#include <stdio.h>
#include <time.h>

#include <algorithm>
#include <cstring>

#include "record/front/Library.h"
#include "tessaline/capture_statistics.h"
#include "tessaline/fpga.h"
#include "tessaline/frames.h"
#include "tessaline/register_map.h"
#include "tessaline/trigger.h"

namespace tool {
namespace {

namespace fpga = VeltranoSDK::fpga;
using ring::Kind;

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

std::span<const std::byte> Bytes(std::string_view text) {
  return std::as_bytes(std::span(text.data(), text.size()));
}

}  // namespace

RecordTap::RecordTap(ring::RecordRing ring, std::string_view what)
    : ring_(std::move(ring)),
      strips_(what.find("strips") != what.npos),
      images_(what.find("images") != what.npos),
      registers_(what.find("registers") != what.npos) {}

void RecordTap::Device(std::string_view json) {
  ring_.Put({Kind::kDevice, HostNs(), 0, 0, Bytes(json)});
}

void RecordTap::Strips(unsigned strips, unsigned bytes, const void* data) {
  if (!strips_) return;
  ring_.Put({Kind::kStrips, HostNs(), strips, 0, {static_cast<const std::byte*>(data), bytes}});
}

void RecordTap::Image(unsigned width, unsigned height, const void* pixels) {
  if (!images_) return;
  const std::size_t bytes = std::size_t{width} * height + sizeof(tessaline_image_header);
  ring_.Put(
      {Kind::kImage, HostNs(), width, height, {static_cast<const std::byte*>(pixels), bytes}});
}

void RecordTap::Trigger(unsigned level) { ring_.Put({Kind::kTrigger, HostNs(), level, 0, {}}); }

void RecordTap::DaArrived() { ring_.Put({Kind::kDaArrived, HostNs(), 0, 0, {}}); }

void RecordTap::Register(std::uint64_t address, std::uint32_t value) {
  ring_.Put({Kind::kRegister, HostNs(), address, value, {}});
}

void RecordTap::LogLine(log_Event& event) {
  char text[1024];
  const std::size_t file = std::min(strlen(event.file), sizeof text / 2);
  memcpy(text, event.file, file);
  text[file] = '\0';
  const std::size_t room = sizeof text - file - 1;
  va_list arguments;
  va_copy(arguments, event.ap);
  const int written = vsnprintf(text + file + 1, room, event.fmt, arguments);
  va_end(arguments);
  const std::size_t bytes = std::min(static_cast<std::size_t>(std::max(written, 0)), room - 1);
  ring_.Put({Kind::kLog, HostNs(), static_cast<std::uint64_t>(event.level),
             static_cast<std::uint64_t>(event.line), Bytes({text, file + 1 + bytes})});
}

void RecordTap::FpgaVersion(const VeltranoSDK::products::Product& product) {
  static auto* const read = LibraryFunction<decltype(fpga_read_addr)>("fpga_read_addr");
  constexpr fpga::Register kVersion = fpga::kReg.FPGA_VERSION;
  const auto& bases = product.family.board.processor.regions;
  const unsigned value = read(fpga::BaseAddress(kVersion.block, bases), kVersion.Index());
  char json[32];
  snprintf(json, sizeof json, R"({"fpga": "0x%08x"})", value);
  Device(json);
}

void RecordTap::State() {
  const std::int64_t running = Ns(CLOCK_MONOTONIC);  // the host's clock may be set
  if (IsDue(next_clock_ns_, running, kSecond)) Clock();
  if (IsDue(next_losses_ns_, running, kLossesEvery)) Losses();
}

void RecordTap::Clock() {
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

void RecordTap::Losses() {
  static auto* const statistics =
      LibraryFunction<decltype(TessalineGetCaptureStatistics)>("TessalineGetCaptureStatistics");
  std::uint64_t lost = 0;
  for (const unsigned stream : {TESSALINE_STREAM_IMAGES, TESSALINE_STREAM_STRIPS}) {
    tessaline_capture_statistics seen{};
    if (statistics(stream, &seen) == 0) lost += seen.ids_missing;
  }
  if (told_lost_.exchange(lost) != lost) ring_.Put({Kind::kLost, HostNs(), lost, 0, {}});
}

}  // namespace tool
