#pragma once

#include <pybind11/pybind11.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "record/BagQuery.h"

namespace python {

// An open recording, and how far one loop has come in it. Any thread; Ctrl-C ends what takes long.
class RecordingCursor {
 public:
  // Opens the file, without the GIL; `sensor` as of tool::BagReader. Throws tool::Failure.
  RecordingCursor(const std::string& path, const std::string& sensor);
  ~RecordingCursor();
  RecordingCursor(const RecordingCursor&) = delete;
  RecordingCursor& operator=(const RecordingCursor&) = delete;

  const std::string& sensor() const { return reader_->sensor(); }
  bool closed() const { return reader_->closed(); }
  std::int64_t synced_ns() const { return reader_->synced_ns(); }

  // Stamps of the first and the last message, or None. Throws tool::Failure.
  pybind11::object Stamps();
  // Messages of each topic. Goes through the whole file. Throws tool::Failure.
  std::vector<std::int64_t> Counts();

  // Next() gives these from now on, in the order of arrival. Throws tool::Failure.
  void Select(const std::vector<std::size_t>& topics, std::int64_t first_ns, std::int64_t last_ns);
  // The number of the row, that of the topic, the stamp, and the message in CDR; None at the end.
  // Throws tool::Failure; damage inside the message is no matter here.
  pybind11::object Next();

 private:
  // Makes a call without the GIL, while no other thread is in here. Ctrl-C raises
  // KeyboardInterrupt, and the call has failed.
  template <typename Call>
  auto Do(Call call);
  static int OnProgress(void* cursor);

  const pid_t owner_;
  std::mutex mutex_;  // taken without the GIL, or there is a deadlock
  std::unique_ptr<tool::BagReader> reader_;
  std::unique_ptr<tool::BagQuery> query_;
  std::int64_t next_look_ns_ = 0;
  bool interrupted_ = false;
};

// The sensors in a file, by name. Without the GIL while it is read. Throws tool::Failure.
std::vector<std::string> SensorsOfRecording(const std::string& path);

}  // namespace python
