#include "Worker.h"

#include <signal.h>

#include <thread>

namespace py = pybind11;

namespace python {

Worker& Worker::Instance() {
  // Never destroyed: its thread may be in a call that does not return.
  static auto* const worker = new Worker;
  return *worker;
}

namespace {

// Signals are for the threads of Python.
void Spawn(std::function<void()> run) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) sigdelset(&all, fault);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  std::thread(std::move(run)).detach();
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace

Worker::Worker() {
  Spawn([this] { Run(); });
}

void Worker::PostAside(std::function<void()> call) { Spawn(std::move(call)); }

void Worker::Post(std::string name, std::function<void()> call) {
  {
    const std::lock_guard lock(mutex_);
    jobs_.push_back({std::move(name), std::move(call)});
  }
  posted_.notify_one();
}

std::string Worker::Busy() {
  const std::lock_guard lock(mutex_);
  return busy_;
}

void Worker::GiveUp() {
  const std::lock_guard lock(mutex_);
  stuck_ = !busy_.empty();
}

bool Worker::stuck() {
  const std::lock_guard lock(mutex_);
  return stuck_;
}

void Worker::Run() {
  for (;;) {
    std::vector<Job> jobs;
    {
      std::unique_lock lock(mutex_);
      busy_.clear();
      posted_.wait(lock, [this] { return !jobs_.empty(); });
      jobs.swap(jobs_);
    }
    for (const Job& job : jobs) {
      {
        const std::lock_guard lock(mutex_);
        busy_ = job.name;
      }
      job.call();
      const std::lock_guard lock(mutex_);
      busy_.clear();
      stuck_ = false;
    }
  }
}

void Report(const std::vector<Line>& lines) {
  if (lines.empty()) return;
  py::list list;
  for (const Line& line : lines) list.append(py::make_tuple(line.level, line.where, line.text));
  py::module_::import("tessaline._said").attr("take")(list);
}

void LetSignalsThrough() {
  if (PyErr_CheckSignals() != 0) throw py::error_already_set();
}

void ThrowNoAnswer(const char* name) {
  const std::string busy = Worker::Instance().Busy();
  const auto error = py::module_::import("tessaline.errors").attr("DeviceGone");
  std::string what = std::string(name) + " has not returned";
  if (busy != name && !busy.empty())
    what = std::string(name) + " is not called: " + busy + " has not returned";
  PyErr_SetObject(error.ptr(),
                  error(what,
                        "the hardware does not answer: end this process, and look with "
                        "tessaline.check()")
                      .ptr());
  throw py::error_already_set();
}

}  // namespace python
