#include "RecordingWriter.h"

#include <unistd.h>

#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "Bytes.h"
#include "Failure.h"
#include "RecordedMessages.h"
#include "WithoutGil.h"

namespace py = pybind11;

namespace python {

RecordingWriter::RecordingWriter(const std::string& path) : path_(path), owner_(getpid()) {
  const WithoutGil release;
  writer_ = std::make_unique<tool::BagWriter>(path);
}

// In a forked child, closing would take back what the parent is about to write.
RecordingWriter::~RecordingWriter() {
  if (getpid() != owner_) static_cast<void>(writer_.release());
}

template <typename Call>
void RecordingWriter::Do(Call call) {
  if (getpid() != owner_) {
    throw tool::Failure(tool::ExitCode::kFile,
                        path_ + " is written by the process that created it, not by this child",
                        "write in one process");
  }
  const WithoutGil release;
  const std::lock_guard lock(mutex_);
  if (failure_) std::rethrow_exception(failure_);
  if (!writer_) {
    throw tool::Failure(tool::ExitCode::kFile, path_ + " is closed", "write before close()");
  }
  try {
    call();
  } catch (...) {
    failure_ = std::current_exception();
    // The file ends where it was synced last.
    writer_.reset();
    throw;
  }
}

void RecordingWriter::Put(std::size_t number, std::int64_t stamp_ns, const py::tuple& fields) {
  const tool::Topic topic = TopicOf(number);
  std::optional<Bytes> memory;
  const AnyMessage message = FromPython(topic, stamp_ns, fields, memory);
  Do([&] {
    writer_->Write(topic, stamp_ns, EncodeAny(message));
    unsynced_ = true;
  });
}

void RecordingWriter::PutCoded(std::size_t number, std::int64_t stamp_ns, const py::bytes& cdr) {
  const tool::Topic topic = TopicOf(number);
  const auto bytes = std::as_bytes(std::span(std::string_view(cdr)));
  Do([&] {
    writer_->Write(topic, stamp_ns, bytes);
    unsynced_ = true;
  });
}

void RecordingWriter::Sync() {
  Do([this] {
    if (std::exchange(unsynced_, false)) writer_->Sync();
  });
}

void RecordingWriter::Close() {
  if (getpid() != owner_) return;
  const WithoutGil release;
  const std::lock_guard lock(mutex_);
  if (failure_) std::rethrow_exception(failure_);
  if (const auto writer = std::exchange(writer_, nullptr)) writer->Close();
}

}  // namespace python
