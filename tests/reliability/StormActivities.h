#pragma once

#include <algorithm>
#include <array>
#include <string_view>

namespace tessaline_test {

// What an application does when it is interrupted, and how this may change its end. Everything else
// is the same for all.
struct StormActivity {
  std::string_view name;
  // The interrupted thread may be inside malloc(). Code that exit() runs may need the same lock,
  // and then only the thread that guards the end gets the process out of it.
  bool takes_heap = false;
  // Threads other than the interrupted one set registers and continue after the FPGA has stopped.
  bool others_set_registers = false;
  // The handlers wait for a lock that the interrupted thread holds: one image handler and one strip
  // handler cannot return.
  int handlers_at_work = 0;
  // Some of the calls are refused and report it.
  bool changes_settings = false;
  // Two threads are interrupted at once.
  bool twice = false;
  // The process ignores SIGINT while a child of system() runs, so the user presses Ctrl-C again.
  bool deaf_at_times = false;
};

inline constexpr std::array kStormActivities{
    StormActivity{.name = "idle"},
    StormActivity{.name = "strips"},
    StormActivity{.name = "images"},
    StormActivity{.name = "registers", .others_set_registers = true},
    StormActivity{.name = "handlers", .others_set_registers = true},
    StormActivity{.name = "locks", .handlers_at_work = 2},
    StormActivity{.name = "notifiers", .takes_heap = true},
    StormActivity{.name = "settings", .takes_heap = true, .changes_settings = true},
    StormActivity{.name = "heap", .takes_heap = true, .others_set_registers = true},
    StormActivity{.name = "timer", .takes_heap = true, .changes_settings = true},
    StormActivity{.name = "children",
                  .takes_heap = true,
                  .others_set_registers = true,
                  .deaf_at_times = true},
    StormActivity{.name = "twice", .others_set_registers = true, .twice = true},
};

inline const StormActivity& ActivityNamed(std::string_view name) {
  return *std::ranges::find(kStormActivities, name, &StormActivity::name);
}

}  // namespace tessaline_test
