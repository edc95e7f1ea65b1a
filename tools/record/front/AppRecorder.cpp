#include "record/front/AppRecorder.h"

#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "Failure.h"
#include "tessaline/capture_statistics.h"
#include "tessaline/frames.h"

namespace tool {
namespace {

AppRecorder* recorder;

std::int64_t HostNs() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return now.tv_sec * 1'000'000'000ll + now.tv_nsec;
}

void Complain(const Failure& failure) {
  fprintf(stderr, "tessaline record: %s%s%s\n", failure.what(), failure.next().empty() ? "" : "; ",
          failure.next().c_str());
}

template <typename Handler, typename... Arguments>
void Call(const std::atomic<tessaline_event_handler>& handler, Arguments... arguments) {
  const tessaline_event_handler known = handler;
  if (known != nullptr) reinterpret_cast<Handler>(known)(arguments...);
}

// The levels of the log, in those of the message.
constexpr std::uint8_t kLevels[] = {10, 10, 20, 30, 40, 50};

}  // namespace

AppRecorder* AppRecorder::FromEnvironment() {
  const char* path = getenv(kFileVariable);
  if (path == nullptr || *path == '\0') return nullptr;
  try {
    recorder = new AppRecorder(path);
  } catch (const Failure& failure) {
    Complain(failure);
  }
  // A program that this one starts is not recorded into the same file.
  unsetenv(kFileVariable);
  return recorder;
}

// By the number of the event.
const std::array<tessaline_event_handler, 4> AppRecorder::kOurs{
    reinterpret_cast<tessaline_event_handler>(&OnImage),
    reinterpret_cast<tessaline_event_handler>(&OnStrips),
    reinterpret_cast<tessaline_event_handler>(&OnTrigger),
    &OnDaArrived,
};

AppRecorder::AppRecorder(const std::string& path) : writer_(path), queue_(writer_, {}) {}

// After everything else that the process does in exit(): the library's threads still deliver then.
__attribute__((destructor)) void EndRecording() {
  if (recorder != nullptr) recorder->Finish();
}

void AppRecorder::Finish() {
  // A forked child has the file open too, but neither the thread nor the right to write.
  if (getpid() != owner_) return;
  try {
    TellLosses();
    queue_.Finish();
  } catch (const Failure& failure) {
    Complain(failure);
  }
}

void AppRecorder::OnModel(const char* model) {
  if (model == nullptr) return;
  model_ = model;
  const Model known(model_);
  if (known.known()) point_bytes_ = static_cast<std::uint8_t>(known.product().PointBytes());
}

tessaline_event_handler AppRecorder::Wrap(int type, tessaline_event_handler handler) {
  // Without one, the library counts frames as released, which must stay so.
  if (type < 0 || type >= static_cast<int>(kOurs.size()) || handler == nullptr) return handler;
  handlers_[type] = handler;
  return kOurs[type];
}

void AppRecorder::OnStarted() {
  DeviceMessage device;
  device.stamp_ns = HostNs();
  device.json = nlohmann::json{{"model", model_}, {"pid", getpid()}}.dump();
  queue_.Put(device);
  log_add_callback(&OnLogLine, nullptr, TESSALINE_LOG_INFO);
}

void AppRecorder::OnStrips(unsigned strips, unsigned bytes, void* data) {
  StripsMessage message;
  message.stamp_ns = HostNs();
  message.strips = strips;
  message.point_bytes = recorder->point_bytes_;
  message.data = {static_cast<const std::byte*>(data), bytes};
  recorder->queue_.Put(message);
  recorder->TellLosses();
  Call<tessaline_frame_handler>(recorder->handlers_[TESSALINE_EVENT_STRIP], strips, bytes, data);
}

void AppRecorder::OnImage(unsigned width, unsigned height, void* pixels) {
  ImageMessage message;
  message.stamp_ns = HostNs();
  message.width = width;
  message.height = height;
  message.data = {static_cast<const std::byte*>(pixels),
                  std::size_t{width} * height + sizeof(tessaline_image_header)};
  recorder->queue_.Put(message);
  recorder->TellLosses();
  Call<tessaline_frame_handler>(recorder->handlers_[TESSALINE_EVENT_IMAGE], width, height, pixels);
}

void AppRecorder::OnTrigger(unsigned level) {
  recorder->queue_.Put(EventMessage{HostNs(), "external_trigger", level});
  Call<tessaline_trigger_handler>(recorder->handlers_[TESSALINE_EVENT_EXTERNAL_TRIGGER], level);
}

void AppRecorder::OnDaArrived() {
  recorder->queue_.Put(EventMessage{HostNs(), "da_arrived", 0});
  Call<tessaline_event_handler>(recorder->handlers_[TESSALINE_EVENT_DA_ARRIVED]);
}

void AppRecorder::OnLogLine(log_Event* event) {
  char text[1024];
  vsnprintf(text, sizeof text, event->fmt, event->ap);
  LogMessage message;
  message.stamp_ns = HostNs();
  message.level = kLevels[event->level];
  message.name = "libtessaline";
  message.msg = text;
  message.file = event->file;
  message.line = static_cast<std::uint32_t>(event->line);
  recorder->queue_.Put(message);
}

void AppRecorder::TellLosses() {
  std::uint64_t lost = 0;
  for (const int stream : {TESSALINE_STREAM_IMAGES, TESSALINE_STREAM_STRIPS}) {
    tessaline_capture_statistics seen{};
    if (TessalineGetCaptureStatistics(stream, &seen) == 0) lost += seen.ids_missing;
  }
  queue_.SetLostByDevice(lost);
}

}  // namespace tool
