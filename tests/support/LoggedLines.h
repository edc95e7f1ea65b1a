#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tessaline/log.h"

namespace tessaline_test {

// What the library logs from the given level up, as "LEVEL file: text".
class LoggedLines {
 public:
  explicit LoggedLines(int level = LOG_INFO) {
    log_set_quiet(true);
    Store& store = TheStore();
    const std::lock_guard lock(store.mutex);
    store.lines.clear();
    store.level = level;
  }

  static std::vector<std::string> Take() {
    Store& store = TheStore();
    const std::lock_guard lock(store.mutex);
    return std::exchange(store.lines, {});
  }

  static std::size_t Count() {
    Store& store = TheStore();
    const std::lock_guard lock(store.mutex);
    return store.lines.size();
  }

 private:
  struct Store {
    std::mutex mutex;
    std::vector<std::string> lines;
    int level = LOG_FATAL;
  };

  // Sinks cannot be removed, so there is one for the process, never destroyed.
  static Store& TheStore() {
    static Store* const store = [] {
      auto* const made = new Store;
      log_add_callback(Receive, made, LOG_TRACE);
      return made;
    }();
    return *store;
  }

  static void Receive(log_Event* event) {
    auto* const store = static_cast<Store*>(event->udata);
    char text[512];
    vsnprintf(text, sizeof text, event->fmt, event->ap);
    const std::lock_guard lock(store->mutex);
    if (event->level < store->level) return;
    store->lines.push_back(std::string(log_level_string(event->level)) + ' ' + event->file + ": " +
                           text);
  }
};

}  // namespace tessaline_test
