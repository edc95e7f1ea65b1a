#pragma once

#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "tessaline/log.h"

namespace tessaline_test {

// The ERROR messages of the process from construction on, "file: message" each.
class LoggedErrors {
 public:
  LoggedErrors() {
    log_set_quiet(true);
    log_add_callback(&Remember, &kept_, LOG_ERROR);
  }

  std::vector<std::string> lines() const {
    const std::lock_guard lock(kept_.mutex);
    return kept_.lines;
  }

 private:
  struct Kept {
    std::mutex mutex;
    std::vector<std::string> lines;
  };

  static void Remember(log_Event* ev) {
    auto* kept = static_cast<Kept*>(ev->udata);
    char text[512];
    vsnprintf(text, sizeof text, ev->fmt, ev->ap);
    const std::lock_guard lock(kept->mutex);
    kept->lines.push_back(std::string(ev->file) + ": " + text);
  }

  // Sinks cannot be removed, and threads may log to the very end: never destroyed.
  Kept& kept_ = *new Kept;
};

}  // namespace tessaline_test
