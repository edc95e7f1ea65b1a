#include "RecordingCursor.h"

#include <sqlite3.h>
#include <time.h>
#include <unistd.h>

#include <cstring>

#include "Failure.h"
#include "RecordedMessages.h"
#include "WithoutGil.h"

namespace py = pybind11;

namespace python {

namespace {

// Steps of SQLite, some microseconds together unless they read from a disk.
constexpr int kStepsBetweenLooks = 1000;
constexpr std::int64_t kLookPeriodNs = 50'000'000;

std::int64_t Now() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return now.tv_sec * 1'000'000'000ll + now.tv_nsec;
}

}  // namespace

RecordingCursor::RecordingCursor(const std::string& path, const std::string& sensor)
    : owner_(getpid()) {
  const WithoutGil release;
  reader_ = std::make_unique<tool::BagReader>(path, tool::Database::Mode::kRead, sensor);
  sqlite3_progress_handler(reader_->database().handle(), kStepsBetweenLooks, &OnProgress, this);
}

// In a forked child, closing would end the parent's locks.
RecordingCursor::~RecordingCursor() {
  if (getpid() == owner_) return;
  static_cast<void>(query_.release());
  static_cast<void>(reader_.release());
}

int RecordingCursor::OnProgress(void* object) {
  auto& cursor = *static_cast<RecordingCursor*>(object);
  // Python looks at signals on this thread alone.
  if (gettid() != getpid() || Now() < cursor.next_look_ns_) return 0;
  cursor.next_look_ns_ = Now() + kLookPeriodNs;
  const py::gil_scoped_acquire acquire;
  cursor.interrupted_ = PyErr_CheckSignals() != 0;
  return cursor.interrupted_ ? 1 : 0;
}

template <typename Call>
auto RecordingCursor::Do(Call call) {
  if (getpid() != owner_) {
    throw tool::Failure(tool::ExitCode::kFile,
                        "the recording belongs to the process that opened it, not to this child",
                        "open it anew with tessaline.Recording(...)");
  }
  const WithoutGil release;
  const std::lock_guard lock(mutex_);
  interrupted_ = false;
  try {
    return call();
  } catch (const tool::Failure&) {
    if (!interrupted_) throw;
    const py::gil_scoped_acquire acquire;
    throw py::error_already_set();
  }
}

py::object RecordingCursor::Stamps() {
  const auto stamps = Do([this] { return tool::StampsOf(*reader_); });
  if (!stamps) return py::none();
  return py::make_tuple(stamps->first, stamps->last);
}

std::vector<std::int64_t> RecordingCursor::Counts() {
  const auto counts = Do([this] { return tool::CountMessages(*reader_); });
  return {counts.begin(), counts.end()};
}

void RecordingCursor::Select(const std::vector<std::size_t>& numbers, std::int64_t first_ns,
                             std::int64_t last_ns) {
  std::vector<tool::Topic> topics;
  for (const std::size_t number : numbers) topics.push_back(TopicOf(number));
  Do([&] {
    query_ =
        std::make_unique<tool::BagQuery>(*reader_, topics, tool::StampRange{first_ns, last_ns});
  });
}

py::object RecordingCursor::Next() {
  return Do([this]() -> py::object {
    const auto message = query_ ? query_->Next() : std::nullopt;
    py::object row;
    char* copy = nullptr;
    {
      const py::gil_scoped_acquire acquire;
      if (!message) return py::none();
      py::bytes cdr(nullptr, message->cdr.size());
      copy = PyBytes_AS_STRING(cdr.ptr());
      row = py::make_tuple(message->id, static_cast<std::size_t>(message->topic), message->stamp_ns,
                           std::move(cdr));
    }
    if (!message->cdr.empty()) std::memcpy(copy, message->cdr.data(), message->cdr.size());
    return row;
  });
}

std::vector<std::string> SensorsOfRecording(const std::string& path) {
  const WithoutGil release;
  return tool::SensorsOf(path);
}

}  // namespace python
