#pragma once

#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "tessaline/log.h"

namespace tessaline_test {

// The ERROR messages of the process from construction on, "file: message" each.
// One a process: sinks cannot be removed.
class LoggedErrors {
 public:
  LoggedErrors() {
    log_set_quiet(true);
    log_add_callback(&Remember, this, LOG_ERROR);
  }

  std::vector<std::string> lines() const {
    const std::lock_guard lock(mutex_);
    return lines_;
  }

 private:
  static void Remember(log_Event* ev) {
    auto* self = static_cast<LoggedErrors*>(ev->udata);
    char text[512];
    vsnprintf(text, sizeof text, ev->fmt, ev->ap);
    const std::lock_guard lock(self->mutex_);
    self->lines_.push_back(std::string(ev->file) + ": " + text);
  }

  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

}  // namespace tessaline_test
