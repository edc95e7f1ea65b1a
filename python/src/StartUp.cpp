#include "StartUp.h"

#include <signal.h>

#include <chrono>
#include <string>

#include "Happenings.h"
#include "Listening.h"
#include "Worker.h"
#include "tessaline/tessaline.h"

namespace py = pybind11;

namespace python {

namespace {

template <typename Handler>
void Register(tessaline_event event, Handler handler) {
  RegisterEventHandler(event, reinterpret_cast<tessaline_event_handler>(handler));
}

void RegisterHandlers() {
  Register(
      TESSALINE_EVENT_IMAGE, +[](unsigned width, unsigned height, void* pixels) {
        Images().Deliver(width, height, pixels);
      });
  Register(
      TESSALINE_EVENT_STRIP,
      +[](unsigned strips, unsigned bytes, void* data) { Strips().Deliver(strips, bytes, data); });
  Register(
      TESSALINE_EVENT_EXTERNAL_TRIGGER,
      +[](unsigned level) { Happenings::Instance().Add(TriggerPulse{level}); });
  Register(
      TESSALINE_EVENT_DA_ARRIVED, +[] { Happenings::Instance().Add(DaArrived{}); });
}

// Python keeps its own handling of Ctrl-C: the library's would end the process.
int StartDevice() {
  struct sigaction pythons {};
  sigaction(SIGINT, nullptr, &pythons);
  const int result = RegisterHardwareInit();
  sigaction(SIGINT, &pythons, nullptr);
  return result;
}

}  // namespace

Inbox& Images() {
  // Never destroyed: a capture thread may still deliver while the process ends.
  static auto* const inbox = new Inbox(Inbox::Stream::kImages);
  return *inbox;
}

Inbox& Strips() {
  static auto* const inbox = new Inbox(Inbox::Stream::kStrips);
  return *inbox;
}

void DefineStartUp(py::module_& module) {
  module.def("prepare", &Listening::Prepare, py::arg("log_level"));
  module.def("GetLibVersion", [](const std::string& model) {
    const int version = GetLibVersion(model.c_str());
    log_set_level(TESSALINE_LOG_FATAL + 1);
    return version;
  });
  module.def(
      "start",
      [](int milliseconds) {
        RegisterHandlers();
        return Make("RegisterHardwareInit", StartDevice, std::chrono::milliseconds(milliseconds));
      },
      py::arg("milliseconds"));
}

}  // namespace python
