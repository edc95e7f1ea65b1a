#pragma once

#include <algorithm>
#include <array>
#include <string_view>

namespace tessaline_test {

// What an application may be busy with when it is interrupted, and what that allows its end
// to be. Everything else is the same for all.
struct StormActivity {
  std::string_view name;
  // The interrupted thread may be within malloc(). What exit() runs then may want the same
  // lock, and only the thread that guards the end gets the process out of it.
  bool takes_heap = false;
  // Another thread than the interrupted one does, and goes on behind the FPGA's stop.
  bool others_set_registers = false;
  // The handlers wait for a lock that the interrupted thread holds: one of images and one of
  // strips cannot come back.
  int handlers_at_work = 0;
  // Some of the calls are refused, and say so.
  bool changes_settings = false;
  // Two threads are interrupted at once.
  bool twice = false;
  // system() makes the process deaf to SIGINT for as long as its child runs, so whoever wants
  // an end presses Ctrl-C again.
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
