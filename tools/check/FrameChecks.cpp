#include "check/FrameChecks.h"

#include <algorithm>

#include "Failure.h"
#include "Interrupt.h"
#include "Region.h"
#include "capture/FrameQueue.h"
#include "capture/FrameReader.h"
#include "tessaline/capture_statistics.h"
#include "tessaline/tessaline.h"

namespace tool {
namespace {

constexpr std::chrono::seconds kFramePatience{3};
// Images are larger, and some sensors read them out slowly.
constexpr unsigned kImageSpacing = 40'000;
constexpr unsigned kExposure = 320;  // microseconds
constexpr float kLaserPercent = 50;

tessaline_capture_statistics StatisticsOf(bool images) {
  tessaline_capture_statistics statistics{};
  TessalineGetCaptureStatistics(images ? TESSALINE_STREAM_IMAGES : TESSALINE_STREAM_STRIPS,
                                &statistics);
  return statistics;
}

}  // namespace

FrameChecks::Seen FrameChecks::Run(const Stream& stream) {
  SetTriMode(0);
  SetTriSpacing(stream.images ? kImageSpacing : StripSpacing());
  SetExposureTime(1, kExposure);
  SetCollectMode(stream.images ? 1 : 0);
  ResetFrameID();
  ResetCallbackLostNum();
  TriggerLostReset();
  TessalineResetCaptureStatistics(stream.images ? TESSALINE_STREAM_IMAGES
                                                : TESSALINE_STREAM_STRIPS);

  using Clock = std::chrono::steady_clock;
  FrameQueue& queue = FrameQueue::Instance();
  queue.Open();
  device_.StartAcquisition();
  const auto start = Clock::now();
  Seen seen;
  const Region sensor = WholeSensor(model_);
  StripReader strips(model_.product().PointBytes(), tessaline_geometry_full(sensor.width, sensor.height));
  std::uint64_t last_stamp = 0;
  const auto look = [&](const Frame& frame) {
    ++seen.frames;
    seen.points += frame.points.size();
    if (frame.time_stamp <= last_stamp) seen.stamps_grow = false;
    last_stamp = frame.time_stamp;
  };
  while (seen.frames < stream.frames && !Interrupted()) {
    const auto delivery = queue.Take(kFramePatience);
    if (!delivery) break;
    if (delivery->is_image != stream.images) continue;
    if (stream.images) {
      look(ReadImage(delivery->first, delivery->second, delivery->bytes));
    } else {
      strips.Read(delivery->first, delivery->bytes, look);
    }
  }
  seen.rate = static_cast<double>(seen.frames) /
              std::chrono::duration<double>(Clock::now() - start).count();
  queue.Close();
  return seen;
}

std::string FrameChecks::WhyNothingCame(const Stream& stream) const {
  std::string set_up;   // what the driver refused before the thread gave up
  std::string dequeue;  // what it says since
  std::string latest;
  bool set_up_failed = false;
  for (const std::string& line : LibraryOutput::Instance().Errors()) {
    if (const std::size_t text = line.find("v4l2 "); text != std::string::npos) {
      if (line.find("VIDIOC_DQBUF") != std::string::npos) dequeue = line.substr(text);
      if (!line.starts_with("Runnable/")) latest = line.substr(text);
    }
    if (!line.starts_with(stream.source)) continue;
    set_up_failed = true;
    set_up = latest;
  }
  const auto statistics = StatisticsOf(stream.images);
  if (set_up_failed) return fmt::format("{} could not be set up: {}", stream.device, set_up);
  if (statistics.dequeue_errors > 0) {
    return fmt::format("{} delivers no frames ({} errors): {}", stream.device,
                       statistics.dequeue_errors, dequeue);
  }
  if (statistics.suppressed > 0 || statistics.malformed > 0) {
    return fmt::format("no whole frame: {} malformed, {} without a time stamp",
                       statistics.malformed, statistics.suppressed);
  }
  return fmt::format("nothing came in {} s", kFramePatience.count());
}

bool FrameChecks::Judge(const Stream& stream, const Seen& seen) {
  const std::string name = stream.name;
  const std::string one = stream.one;
  const auto statistics = StatisticsOf(stream.images);
  if (seen.frames < stream.frames) {
    const std::string came =
        seen.frames == 0 ? "" : fmt::format("{} came, then no more; ", seen.frames);
    findings_.Fail(name + ".arrive", name + " arrive", came + WhyNothingCame(stream),
                   fmt::format("check the driver of {} (dmesg), the memory reserved for its "
                               "buffers, and whether another program is using it (fuser -v {})",
                               stream.device, stream.device));
  } else {
    findings_.Pass(name + ".arrive", name + " arrive",
                   fmt::format("{} in a row, {:.0f}/s", seen.frames, seen.rate));
  }
  if (seen.frames == 0) {
    findings_.Skip(name + ".whole", name + " are whole", "none came");
    findings_.Skip(name + ".ids", one + " ids continuous", "none came");
    return false;
  }

  // Until the acquisition stops, no frame is withheld on purpose.
  const std::uint64_t broken = statistics.malformed + statistics.suppressed;
  if (broken > 0 || !seen.stamps_grow) {
    findings_.Fail(
        name + ".whole", name + " are whole",
        fmt::format("{} malformed, {} without a time stamp{}", statistics.malformed,
                    statistics.suppressed, seen.stamps_grow ? "" : ", time stamps go back"),
        fmt::format("the DMA behind {} does not write whole frames: check that bitstream and "
                    "driver match",
                    stream.device));
  } else {
    findings_.Pass(name + ".whole", name + " are whole", "headers, sizes and time stamps fit");
  }
  if (statistics.ids_missing + statistics.ids_out_of_order > 0) {
    findings_.Fail(name + ".ids", one + " ids continuous",
                   fmt::format("{} ids missing in {} gaps, {} out of order", statistics.ids_missing,
                               statistics.id_gaps, statistics.ids_out_of_order),
                   "frames are lost between FPGA and driver: look for overruns in dmesg and check "
                   "the processor load");
  } else {
    findings_.Pass(name + ".ids", one + " ids continuous",
                   fmt::format("{} ids", statistics.ids_seen));
  }
  return true;
}

// Twice the shortest spacing that the sensor can follow: a check does not test limits.
unsigned FrameChecks::StripSpacing() const { return 2 * model_.family().sensor.trigger_spacing; }

bool FrameChecks::LightUp() {
  SetLaserPower(kLaserPercent);
  try {
    device_.LaserOn();
  } catch (const Failure&) {
    return false;
  }
  return true;
}

void FrameChecks::Images() {
  if (const Region region = UsualRegion(model_); region != StartRegion(model_)) {
    SetROI1(region.x, region.y, region.width, region.height);
  }
  const Stream stream{true, "images", "image", "/dev/video0", "Runnable/CaptureVideoStream.cpp",
                      20};
  const Seen seen = Run(stream);
  Judge(stream, seen);
  device_.StopAcquisition();
}

void FrameChecks::Strips(bool laser) {
  const Stream stream{false, "strips", "strip", "/dev/video1", "Runnable/CaptureStripStream.cpp",
                      100};
  const bool lit = laser && LightUp();
  const Seen seen = Run(stream);
  device_.LaserOff();
  const bool came = Judge(stream, seen);
  const unsigned lost = GetCallbackLostNum();
  const unsigned triggers = GetXtrigLostSta();
  device_.StopAcquisition();

  const std::string title = "no loss at rate";
  if (!came) {
    findings_.Skip("strips.loss", title, "none came");
  } else if (lost + triggers > 0) {
    findings_.Fail(
        "strips.loss", title,
        fmt::format("{} strips found no buffer, {} triggers came too early", lost, triggers),
        "the processor is too slow for this rate: check its load, or trigger less "
        "often");
  } else {
    findings_.Pass("strips.loss", title, fmt::format("a trigger every {} us", StripSpacing()));
  }
  const std::string line = "laser line is seen";
  if (!laser) {
    findings_.NotApplicable("laser.line", line, "the laser stays off without --laser");
  } else if (!lit) {
    findings_.Fail("laser.line", line, "the laser cannot be switched on",
                   "check the laser's lines and power chip first");
  } else if (!came) {
    findings_.Skip("laser.line", line, "no strips came");
  } else if (seen.points == 0) {
    findings_.Fail("laser.line", line, "no point in any profile",
                   "is the laser lit, and is anything in front of the sensor? Try a longer "
                   "exposure with \"tessaline watch\"");
  } else {
    findings_.Pass("laser.line", line,
                   fmt::format("{} points per profile", seen.points / seen.frames));
  }
}

}  // namespace tool
