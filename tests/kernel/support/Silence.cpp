#include "support/Silence.h"

#include <filesystem>
#include <string>

#include "support/Files.h"
#include "support/FpgaFrames.h"

namespace kernel_test {

Silence::Silence()
    : images_(0, kK3610.full_width, kK3610.full_height + 1),
      strips_(1, kK3610.strip_width, kK3610.strip_height) {
  for (const unsigned number : {0u, 1u}) LoopedVideo::LosePercent(number, 100);
}

bool ThreadsWaitInPoll(pid_t process, int count) {
  int found = 0;
  std::error_code gone;
  const std::string tasks = "/proc/" + std::to_string(process) + "/task";
  for (const auto& task : std::filesystem::directory_iterator(tasks, gone)) {
    found += ReadFile(task.path() / "wchan").find("poll") != std::string::npos;
  }
  return found >= count;
}

}  // namespace kernel_test
