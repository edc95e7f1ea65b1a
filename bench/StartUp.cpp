// Wall time of the start-up against the pauses in it that the hardware needs, slept
// for real, and the size of the library.

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>

#include "Application.h"
#include "OwnProcess.h"
#include "tessaline/board.h"
#include "tessaline/tessaline.h"

namespace bench {

namespace {

// Of everything slept in the transcript. Once the capture threads have opened their
// devices, sleeps of 10 us are those of waiting for them: no pause of the hardware's.
double PausesInTranscript() {
  const std::unique_ptr<char, void (*)(void*)> text(
      tessaline_board_transcript(TESSALINE_BOARD_TEXT), std::free);
  std::istringstream lines(text.get());
  bool capturing = false;
  double microseconds = 0;
  for (std::string line; std::getline(lines, line);) {
    capturing = capturing || line.rfind("video", 0) == 0;
    double slept = 0;
    if (std::sscanf(line.c_str(), "sleep %lf", &slept) != 1) continue;
    if (!capturing || slept != 10) microseconds += slept;
  }
  return microseconds * 1000;
}

struct StartUp {
  double wall;
  double pauses;
};

StartUp Measure(const char* model, bool sleep) {
  tessaline_board_select(model);
  tessaline_board_set_sleep_factor(sleep ? 1 : 0);
  GetLibVersion(model);
  log_set_quiet(true);
  tessaline_board_transcript_clear();
  const auto start = Clock::now();
  if (RegisterHardwareInit() != 0) std::exit(1);
  const double wall = Nanoseconds(Clock::now() - start);
  return {wall, PausesInTranscript()};
}

}  // namespace

void PrintStartUpRows(const Options& options) {
  for (const char* model : {"K3610", "K3710", "K3820", "K3920", "K4010"}) {
    const int rounds = options.quick ? 1 : (model == std::string("K4010") ? 2 : 7);
    Comparison times;
    for (int round = 0; round < rounds; ++round) {
      const StartUp start_up = InOwnProcess([=] { return Measure(model, !options.quick); });
      times.AddRound(start_up.wall, start_up.pauses);
    }
    CompareTimes(std::string("start-up of a ") + model + " / its pauses", times, Goal::AtMost(1.02))
        .Print();
  }
}

void PrintSizeRow() {
  struct stat status {};
  if (stat(STRIPPED_LIBRARY, &status) != 0) {
    std::perror(STRIPPED_LIBRARY);
    std::exit(1);
  }
  Figure("size of the stripped library",
         Number(static_cast<double>(status.st_size) / 1000, 0) + " kB")
      .Print();
}

}  // namespace bench
