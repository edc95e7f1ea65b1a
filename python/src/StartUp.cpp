#include "StartUp.h"

#include <signal.h>

#include <atomic>
#include <chrono>
#include <future>
#include <string>
#include <thread>

#include "Happenings.h"
#include "Listening.h"
#include "tessaline/tessaline.h"

namespace py = pybind11;

namespace python {

namespace {

using namespace std::chrono_literals;

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

struct Result {
  int value;
  std::vector<Line> lines;
};

// Python keeps its own handling of Ctrl-C: the library's would end the process.
Result StartDevice() {
  Listening listening;
  struct sigaction pythons {};
  sigaction(SIGINT, nullptr, &pythons);
  const int value = RegisterHardwareInit();
  sigaction(SIGINT, &pythons, nullptr);
  return {value, listening.Lines()};
}

// Runs on a thread of its own, because it may never return: an image sensor whose clocks do not
// lock is waited for without an end.
py::object Start(const py::function& still_wanted) {
  RegisterHandlers();
  std::packaged_task<Result()> task(StartDevice);
  std::future<Result> future = task.get_future();
  std::thread(std::move(task)).detach();
  for (;;) {
    {
      const py::gil_scoped_release release;
      if (future.wait_for(50ms) == std::future_status::ready) break;
    }
    if (PyErr_CheckSignals() != 0) throw py::error_already_set();
    if (!still_wanted().cast<bool>()) return py::none();
  }
  const Result result = future.get();
  py::list lines;
  for (const Line& line : result.lines) {
    lines.append(py::make_tuple(line.level, line.where, line.text));
  }
  return py::make_tuple(result.value, lines);
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
  module.def("start", &Start, py::arg("still_wanted"));
}

}  // namespace python
