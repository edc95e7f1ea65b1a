#include "model/FrameEngine.h"

#include <unistd.h>

#include <algorithm>

#include "Clock.h"
#include "Faults.h"
#include "RealCalls.h"
#include "memory/BoardMemory.h"
#include "model/ImageFrame.h"
#include "model/Player.h"
#include "model/Scene.h"

namespace board {
namespace {

namespace fpga = VeltranoSDK::fpga;

constexpr std::int64_t kNsPerMs = 1'000'000;
constexpr std::int64_t kFlushAfterNs = 50 * kNsPerMs;
constexpr std::int64_t kLateNs = 100 * kNsPerMs;
// A machine this far behind does not catch up, so these triggers are lost.
constexpr std::int64_t kHopelessNs = 250 * kNsPerMs;
constexpr std::int64_t kNever = -1;

enum TimerMode : unsigned { kTimer = 0, kEncoder = 1, kExternal = 2, kTimerDefault = 3 };
constexpr std::uint32_t kHalfReadout = 2;  // of ISP_CTRL
constexpr std::uint32_t kBothTimings =
    fpga::kField.timing_first.Mask() | fpga::kField.timing_second.Mask();

// With the laser at half power, a white surface reaches this grey value per
// microsecond of exposure.
constexpr double kGreyPerMicrosecond = 1.1;

void ReallySleep(std::int64_t nanoseconds) {
  const timespec request = ToTimespec(nanoseconds);
  real::Nanosleep(&request, nullptr);
}

}  // namespace

FrameEngine::FrameEngine(BoardMemory& memory, EngineWiring wiring)
    : wiring_(std::move(wiring)), shared_(memory.IsShared()), state_(memory.Place<State>()) {
  wiring_.images->SetListener([this] { Attend(); });
  wiring_.strips->SetListener([this] { Attend(); });
}

void FrameEngine::Play(std::unique_ptr<Replay> replay,
                       std::function<void(const ring::Record&)> on_event) {
  wiring_.fpga->replay = replay.get();
  for (CaptureQueue* const queue : {wiring_.images, wiring_.strips}) {
    queue->SetTakenListener([this] { Wake(); });
  }
  player_ = std::make_unique<Player>(std::move(replay), wiring_, image_counters_, strip_counters_,
                                     std::move(on_event));
}

FrameEngine::~FrameEngine() {
  stop_ = true;
  state_.bell.Ring();
  if (running_) pthread_join(thread_, nullptr);
}

void FrameEngine::EnsureRunning() {
  // A second caller does not wait for the thread's start, which uses the process's heap.
  if (running_.exchange(true)) return;
  sigset_t all;
  sigset_t before;
  sigfillset(&all);  // only the application's threads handle signals
  pthread_sigmask(SIG_SETMASK, &all, &before);
  if (pthread_create(&thread_, nullptr, Main, this) != 0) running_ = false;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void FrameEngine::UnlockAfterFork(bool child) {
  // The thread does not exist in the child; the next stream or trigger starts another.
  if (child) running_ = false;
  if (child && player_ != nullptr) player_->Forked();
  mutex_.unlock();
}

void* FrameEngine::Main(void* self) {
  auto* engine = static_cast<FrameEngine*>(self);
  while (!engine->stop_) {
    const std::uint32_t seen = engine->state_.bell.Count();
    const std::int64_t wait = engine->Work();
    if (!engine->stop_ && wait != 0) engine->state_.bell.Wait(seen, wait);
  }
  return nullptr;
}

void FrameEngine::Attend() {
  if (wiring_.images->Streaming() || wiring_.strips->Streaming()) EnsureRunning();
  state_.bell.Ring();
}

void FrameEngine::SoftwareTrigger() {
  ++state_.software_triggers;
  Attend();
}

void FrameEngine::ExternalEdge() {
  ++state_.external_edges;
  Attend();
}

void FrameEngine::SetPace(tessaline_board_pace pace) {
  pace_ = pace;
  state_.bell.Ring();
}

void FrameEngine::SetStripsPerBuffer(unsigned strips) { strips_per_buffer_ = std::max(1u, strips); }

std::shared_ptr<const View> FrameEngine::GetView() const {
  const std::lock_guard lock(view_mutex_);
  return view_;
}

void FrameEngine::SetView(View view) {
  auto next = std::make_shared<const View>(std::move(view));
  const std::lock_guard lock(view_mutex_);
  view_.swap(next);
}

void FrameEngine::SetHead(std::optional<Head> head) { SetView({head, GetView()->target}); }

void FrameEngine::SetTarget(std::optional<Target> target) {
  SetView({GetView()->head, std::move(target)});
}

struct tessaline_board_stream_stats FrameEngine::Stats(int stream) const {
  const StreamCounters& counters = stream == 0 ? image_counters_ : strip_counters_;
  return {counters.frames, counters.delivered, counters.lost, counters.buffers};
}

bool FrameEngine::Armed(const SensorState& sensor) const {
  const FpgaModel& fpga = *wiring_.fpga;
  return fpga.Get(fpga::kField.global_control) != 0 && sensor.streaming &&
         (fpga.Get(fpga::kReg.CMOS_TIMING_CTRL) & kBothTimings) == kBothTimings &&
         fpga.Get(fpga::kField.cmos_reset) != 0;
}

std::int64_t FrameEngine::SpacingNs() const {
  const FpgaModel& fpga = *wiring_.fpga;
  const double spacing = fpga.Get(fpga::kReg.TRI_SPACING);
  switch (fpga.Get(fpga::kField.trigger_mode)) {
    case kTimer:
    case kTimerDefault:
      return static_cast<std::int64_t>(spacing * fpga::kNanosecondsPerTick);
    case kEncoder:
      return static_cast<std::int64_t>(spacing / scene::kCountsPerSecond * 1e9);
    default:
      return 0;
  }
}

// Door control lets timed triggers through only while the external input is high.
bool FrameEngine::GateOpen() const {
  const FpgaModel& fpga = *wiring_.fpga;
  return fpga.Get(fpga::kField.door_control) == 0 ||
         fpga.Get(fpga::kField.trigger_mode) >= kExternal ||
         fpga.Get(fpga::kField.external_trigger_level) != 0;
}

bool FrameEngine::IsOurs() {
  if (!shared_) return true;
  const bool strips_first = wiring_.fpga->CommittedRoute() == Route::kStrips;
  const CaptureQueue* const first = strips_first ? wiring_.strips : wiring_.images;
  const CaptureQueue* const second = strips_first ? wiring_.images : wiring_.strips;
  for (const CaptureQueue* const queue : {first, second}) {
    if (queue->StreamsElsewhere()) return false;
    if (!queue->Streaming()) continue;
    if (const pid_t self = getpid(); state_.worker.exchange(self) != self) {
      // Triggers that came while nobody took frames are gone.
      state_.software_triggers = 0;
      state_.external_edges = 0;
    }
    return true;
  }
  return state_.worker == getpid();
}

std::int64_t FrameEngine::Work() {
  const std::lock_guard lock(mutex_);
  if (wiring_.sensor == nullptr) return kNever;
  if (player_ != nullptr) {
    const SensorState sensor = wiring_.sensor->State();
    return player_->Work(Armed(sensor), sensor);
  }
  std::int64_t wait = kNever;
  if (IsOurs()) {
    wait = Triggers();
  } else {
    next_due_ns_ = -1;
  }
  if (pending_.Empty()) return wait;
  // At this pace no frame is lost. Strips wait for a buffer, and its arrival rings the bell.
  if (pace_ == TESSALINE_BOARD_FREE_RUN && wiring_.strips->IsShort()) return wait;
  const std::int64_t until_flush = pending_since_ns_ + kFlushAfterNs - MonotonicNs();
  if (until_flush <= 0) {
    FlushStrips();
    return wait;
  }
  return Sooner(wait, until_flush);
}

// Makes the frames that are due. Returns as Work().
std::int64_t FrameEngine::Triggers() {
  const unsigned edges = state_.external_edges.exchange(0);
  // The acquisition may be running again already, so the old due time must not be used.
  if (state_.timer_restarts.exchange(false)) next_due_ns_ = -1;
  if (!Armed(wiring_.sensor->State())) {
    state_.software_triggers = 0;
    next_due_ns_ = -1;
    return kNever;
  }
  if (wiring_.fpga->Get(fpga::kField.trigger_mode) == kExternal) {
    for (unsigned i = 0; i < edges; ++i) Trigger(NowNs());
  }
  std::int64_t wait = kNever;
  if (unsigned waiting = state_.software_triggers; waiting > 0) {
    // A software trigger waits until the sensor has read out the previous frame.
    const std::int64_t early = sensor_ready_ns_ - NowNs();
    if (early > 0 && pace_ == TESSALINE_BOARD_REAL_TIME) {
      wait = early;
    } else {
      if (early > 0) AdvanceNs(early);
      // If the triggers are discarded at this moment, this one still fires.
      state_.software_triggers.compare_exchange_strong(waiting, waiting - 1);
      Trigger(NowNs());
      if (state_.software_triggers > 0) return 0;
    }
  }
  return Sooner(wait, TimedTriggers(NowNs()));
}

std::int64_t FrameEngine::TimedTriggers(std::int64_t now) {
  const std::int64_t spacing = SpacingNs();
  if (spacing <= 0 || !GateOpen()) {
    next_due_ns_ = -1;
    return kNever;
  }
  if (next_due_ns_ < 0) next_due_ns_ = now;
  if (pace_ == TESSALINE_BOARD_FREE_RUN) {
    const Route route = wiring_.fpga->CommittedRoute();
    const CaptureQueue& target = route == Route::kImages ? *wiring_.images : *wiring_.strips;
    if (route == Route::kNone || !target.HasFree()) return kNever;
    if (next_due_ns_ > now) AdvanceNs(next_due_ns_ - now);
    // Use the route read above. The switches may change now, and route nowhere meanwhile.
    Trigger(next_due_ns_, route);
    next_due_ns_ += spacing;
    return 0;
  }
  if (now - next_due_ns_ > kHopelessNs) {
    const std::int64_t missed = (now - next_due_ns_) / spacing;
    wiring_.fpga->Add(fpga::kReg.XTRIG_LOST_STA, static_cast<std::uint32_t>(missed));
    next_due_ns_ += missed * spacing;
  }
  if (next_due_ns_ > now) return next_due_ns_ - now;
  Trigger(next_due_ns_);
  next_due_ns_ += spacing;
  return 0;
}

void FrameEngine::Trigger(std::int64_t time_ns, Route route) {
  FpgaModel& fpga = *wiring_.fpga;
  // The sensor is still reading out the previous frame.
  if (time_ns < sensor_ready_ns_) {
    fpga.Add(fpga::kReg.XTRIG_LOST_STA, 1);
    return;
  }
  const Exposure exposure = Expose(time_ns);
  switch (route) {
    case Route::kImages:
      return SendImage(exposure);
    case Route::kStrips:
      return AddStrip(exposure);
    case Route::kNone:
      return;
  }
}

SensorState AsReceived(const FpgaModel& fpga, SensorState sensor) {
  if (sensor.fpga.crops) {
    sensor.crop_x += fpga.Get(fpga::kReg.ISP_WIDTH) * sensor.fpga.block_pixels * sensor.column_step;
  }
  if (sensor.fpga.halves && fpga.Get(fpga::kField.isp_readout_mode) == kHalfReadout) {
    sensor.column_step *= 2;
  }
  return sensor;
}

ImageSize SizeOf(const FpgaModel& fpga, const SensorState& sensor) {
  ImageSize size{
      fpga.Get(fpga::kReg.STRIP_IMAGE_WIDTH) / sensor.fpga.block_units * sensor.fpga.block_pixels,
      fpga.Get(fpga::kReg.STRIP_IMAGE_HEIGHT)};
  // A height of 0 switches the region off, so the sensor reads out everything.
  if (size.width == 0) size.width = sensor.full_width / sensor.column_step;
  if (size.height == 0) size.height = sensor.full_height / sensor.row_step;
  return size;
}

Exposure FrameEngine::Expose(std::int64_t time_ns) {
  const FpgaModel& fpga = *wiring_.fpga;
  const SensorState sensor = AsReceived(fpga, wiring_.sensor->State());
  const std::uint64_t id = ++state_.frame_id;
  sensor_ready_ns_ =
      time_ns + static_cast<std::int64_t>(sensor.frame_lines * sensor.line_time_us * 1000);

  // With several exposures per cycle, the slots take turns.
  const unsigned slots = std::clamp(fpga.Get(fpga::kField.exposure_count), 1u, 5u);
  fpga::Register slot = fpga::kReg.EXP_TIME_1;
  slot.offset += 4 * static_cast<std::uint32_t>((id - 1) % slots);
  const double microseconds = fpga.Get(slot) * sensor.exposure_unit_us;

  Exposure exposure{};
  exposure.frame_id = id;
  exposure.time_stamp = static_cast<std::uint64_t>(time_ns) / fpga::kNanosecondsPerTick;
  exposure.encoder_stamp = scene::EncoderCount(time_ns);
  exposure.belt_y = scene::BeltPosition(time_ns);
  exposure.light = 2 * wiring_.laser_power() * kGreyPerMicrosecond * microseconds * sensor.gain;
  exposure.sensor = sensor;
  const ImageSize size = SizeOf(fpga, sensor);
  exposure.width = size.width;
  exposure.height = size.height;
  exposure.view = GetView();
  return exposure;
}

void FrameEngine::SendImage(const Exposure& exposure) {
  ++image_counters_.frames;
  const FrameFault fault = FrameFaultFor(0);
  const auto fill = fault == FrameFault::kLost ? std::nullopt : wiring_.images->Begin();
  if (!fill) {
    ++image_counters_.lost;
    return;
  }
  const std::size_t full_pixels = std::size_t{fill->width} * (fill->height - 1);
  std::size_t used = WriteImage(exposure, full_pixels, fill->memory);
  if (used > 0 && checksums_.Wanted()) {
    TakeImage(exposure, full_pixels, fill->memory, image_);
    checksums_.Note(exposure.frame_id, Checksum(image_));
  }
  if (fault == FrameFault::kLate) ReallySleep(kLateNs);
  if (fault == FrameFault::kTruncated) {
    used /= 2;
    std::fill(fill->memory.begin() + static_cast<std::ptrdiff_t>(used), fill->memory.end(), 0);
  } else if (fault == FrameFault::kCorrupt && used >= 32) {
    std::fill_n(fill->memory.begin() + static_cast<std::ptrdiff_t>(used - 32), 32, 0xFF);
  }
  // The driver counts the whole buffer, also what follows the header in the last row.
  const bool whole = used > 0 && fault != FrameFault::kTruncated;
  wiring_.images->Finish(*fill, whole ? fill->memory.size() : used);
  ++image_counters_.delivered;
  ++image_counters_.buffers;
}

void FrameEngine::AddStrip(const Exposure& exposure) {
  ++strip_counters_.frames;
  const StripSettings settings = SettingsOf(*wiring_.fpga, wiring_.points);
  const std::size_t room = wiring_.strips->FormatBytes();
  if (!pending_.Empty() &&
      (!(pending_.Settings() == settings) || !pending_.Fits(exposure.width, room))) {
    FlushStrips();
  }
  if (pending_.Empty()) {
    pending_.Start(settings);
    pending_since_ns_ = MonotonicNs();
  }
  pending_.Append(exposure);
  if (checksums_.Wanted()) checksums_.Note(exposure.frame_id, Checksum(pending_.LastStrip()));
  if (pending_.Count() >= strips_per_buffer_) FlushStrips();
}

void FrameEngine::LoseStrips(std::uint32_t strips) {
  strip_counters_.lost += strips;
  wiring_.fpga->Add(fpga::kReg.CALLBACK_LOST_NUM, strips);
}

void FrameEngine::FlushStrips() {
  const std::uint32_t strips = pending_.Count();
  const FrameFault fault = FrameFaultFor(1);
  if (fault == FrameFault::kCorrupt) pending_.CorruptLastStrip();
  const auto fill = fault == FrameFault::kLost ? std::nullopt : wiring_.strips->Begin();
  if (!fill) {
    LoseStrips(strips);
  } else {
    if (fault == FrameFault::kLate) ReallySleep(kLateNs);
    std::size_t used = fill->memory.size();
    if (!pending_.Deliver(fill->memory)) used = 0;
    if (fault == FrameFault::kTruncated) {
      // The count was not written, so the strips in the buffer do not count.
      used = pending_.Bytes() / 2;
      std::fill(fill->memory.begin() + static_cast<std::ptrdiff_t>(used), fill->memory.end(), 0);
    }
    wiring_.strips->Finish(*fill, used);
    strip_counters_.delivered += strips;
    ++strip_counters_.buffers;
  }
  pending_.Start(pending_.Settings());
}

}  // namespace board
