#pragma once

#include <pybind11/pybind11.h>

#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <string>

#include "record/BagWriter.h"

namespace python {

// A recording that is being written. Any thread. When writing has failed, all that follows fails
// for the same reason, and the recording ends where it was synced last.
class RecordingWriter {
 public:
  // Creates the file, without the GIL. Throws tool::Failure.
  explicit RecordingWriter(const std::string& path);
  ~RecordingWriter();
  RecordingWriter(const RecordingWriter&) = delete;
  RecordingWriter& operator=(const RecordingWriter&) = delete;

  // Appends a message: its fields behind the stamp, as FromPython() takes them, or its CDR. Throws
  // tool::Failure.
  void Put(std::size_t topic, std::int64_t stamp_ns, const pybind11::tuple& fields);
  void PutCoded(std::size_t topic, std::int64_t stamp_ns, const pybind11::bytes& cdr);
  // When it returns, what was written survives a power cut. Throws tool::Failure.
  void Sync();
  // Ends it properly. A second time it does nothing, and neither in a forked child. Throws
  // tool::Failure, also for what failed before.
  void Close();

 private:
  // Makes a call without the GIL, while no other thread is in here.
  template <typename Call>
  void Do(Call call);

  const std::string path_;
  const pid_t owner_;
  std::mutex mutex_;  // taken without the GIL, or there is a deadlock
  std::unique_ptr<tool::BagWriter> writer_;
  bool unsynced_ = false;
  std::exception_ptr failure_;
};

}  // namespace python
