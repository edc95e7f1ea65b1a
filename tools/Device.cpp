#include "Device.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Deadline.h"
#include "DeviceOwner.h"
#include "Failure.h"
#include "Interrupt.h"
#include "Laser.h"
#include "Nodes.h"
#include "live/LiveFrames.h"
#include "tessaline/tessaline.h"
#include "watch/Terminal.h"

namespace tool {
namespace {

constexpr std::array kCaptureNodes{"/dev/video0", "/dev/video1"};
// The slowest product takes 6 seconds.
constexpr std::chrono::seconds kStartLimit{20};

Failure CannotOpen(const Node& node, int error) {
  const bool denied = error == EACCES || error == EPERM;
  return Failure(denied ? ExitCode::kNoPermission : ExitCode::kUnreachable,
                 fmt::format("cannot open {} ({}): {}", node.path, node.purpose, strerror(error)),
                 AdviceFor(node, error));
}

}  // namespace

Device::~Device() {
  LaserOff();
  StopAcquisition();
}

void Device::RequireRegisters() const {
  const Model& model = session_.model();
  if (!IsABoard(model.family())) {
    throw Failure(ExitCode::kUnreachable,
                  fmt::format("this machine is not a {} board: neither {} nor /dev/uio1 is there",
                              model.code(), model.family().board.processor.thermometer.file),
                  fmt::format("run it on the sensor, or try it with --virtual {}", model.code()));
  }
  const Node memory = NodesOf(model.family()).front();
  if (const int error = TryToOpen(memory); error != 0) throw CannotOpen(memory, error);
  GetLibVersion(std::string(model.code()).c_str());
}

void Device::RequireNodes() const {
  for (const Node& node : NodesOf(session_.model().family())) {
    const int error = TryToOpen(node);
    if (error == 0) continue;
    Failure failure = CannotOpen(node, error);
    throw Failure(failure.code(), failure.what(),
                  failure.next() + "; \"tessaline check\" tests everything");
  }
}

void Device::RequireUnused() const {
  if (session_.on_virtual_board()) return;
  for (const char* const node : kCaptureNodes) {
    if (const auto owner = FindOwner(node)) {
      throw Failure(ExitCode::kNegative, fmt::format("{} has {} open", owner->Name(), node),
                    "stop it first: one program at a time can take frames");
    }
  }
}

void Device::Start(tessaline_frame_handler on_image, tessaline_frame_handler on_strips) {
  if (const auto* const sensor = session_.live(); sensor != nullptr && on_strips != nullptr) {
    live_ = true;
    CatchInterrupts([] {});
    // Its thread runs to the end of the process, as the library's do.
    new live::LiveFrames(*sensor, on_image, on_strips);
    return;
  }
  session_.RequireNoDaemon();
  RequireRegisters();
  RequireNodes();
  RequireUnused();
  Launch(on_image, on_strips);
}

Registers RegistersOf(const Session& session) {
  const auto* const sensor = session.live();
  if (sensor == nullptr) return Registers(session.model());
  return Registers(session.model(), [sensor](const fpga::Register& reg) -> std::uint32_t {
    std::string name = FullName(reg);
    std::replace(name.begin(), name.end(), ' ', '.');
    return sensor->Get("/api/v1/registers/" + name)["value"];
  });
}

Registers Device::OpenRegisters() const {
  if (session_.live() == nullptr) RequireRegisters();
  return RegistersOf(session_);
}

bool Device::Open(bool start) {
  if (!start) {
    if (session_.live() == nullptr) RequireRegisters();
    return true;
  }
  if (!session_.options().dry_run) {
    Start();
    return true;
  }
  session_.model();
  session_.Print(
      "would set up the FPGA and the image sensor from scratch ({},\n"
      "{}), then look.\n"
      "Nothing was touched (--dry-run).\n",
      kStart[0].name, kStart[1].name);
  session_.Emit({{"dry_run", true}, {"calls", {kStart[0].name, kStart[1].name}}});
  return false;
}

void Device::Launch(tessaline_frame_handler on_image, tessaline_frame_handler on_strips) {
  RegisterEventHandler(TESSALINE_EVENT_IMAGE, reinterpret_cast<tessaline_event_handler>(on_image));
  RegisterEventHandler(TESSALINE_EVENT_STRIP, reinterpret_cast<tessaline_event_handler>(on_strips));
  const bool screen = IsScreen(STDERR_FILENO);
  if (screen) fprintf(stderr, "starting the %s ...", std::string(session_.model().code()).c_str());
  // An abandoned thread still writes here.
  static int result = 0;
  const bool returned = ReturnsInTime(kStartLimit, [] { result = RegisterHardwareInit(); });
  if (screen) fputs("\r\033[K", stderr);
  if (!returned) {
    throw Failure(ExitCode::kUnreachable,
                  fmt::format("the device has not started after {} s", kStartLimit.count()),
                  "the image sensor does not become ready, or the registers are out of reach: "
                  "\"tessaline check\" shows which");
  }
  if (result != 0) {
    throw Failure(ExitCode::kUnreachable, "the device cannot be started",
                  "\"tessaline check\" shows why; --verbose shows the library's output");
  }
  SetGlobalControl(0);                    // a K37.. whose self-test saw no image is still acquiring
  CatchInterrupts([] { CloseLaser(); });  // the start has installed a handler of its own
  complaints_ = LibraryOutput::Instance().Errors();
}

void Device::LaserOn() {
  laser_on_ = true;  // even if only one of its two lines could be driven
  if (!laser::On()) {
    throw Failure(ExitCode::kNegative, "the laser cannot be switched on",
                  "\"tessaline check\" tests its lines");
  }
}

void Device::LaserOff() {
  if (laser_on_) laser::Off();
  laser_on_ = false;
}

void Device::StartAcquisition() {
  acquiring_ = true;
  SetGlobalControl(1);
}

void Device::StopAcquisition() {
  if (acquiring_) SetGlobalControl(0);
  acquiring_ = false;
}

Step Device::Call(std::string name, void (Device::*method)()) {
  return {std::move(name), "", [this, method] {
            (this->*method)();
            return true;
          }};
}

std::vector<Step> Device::Begin(bool laser) {
  std::vector<Step> steps;
  if (live_) return steps;  // others watch, too
  if (laser) steps.push_back(Call("OpenLaser()", &Device::LaserOn));
  steps.push_back(Call("SetGlobalControl(1)", &Device::StartAcquisition));
  return steps;
}

std::vector<Step> Device::End(bool laser) {
  std::vector<Step> steps;
  if (live_) return steps;
  if (laser) steps.push_back(Call("CloseLaser()", &Device::LaserOff));
  steps.push_back(Call("SetGlobalControl(0)", &Device::StopAcquisition));
  return steps;
}

}  // namespace tool
