// Wall time of the start-up against the pauses in it that the hardware needs, slept
// for real, and the size of the library.

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

#include "Application.h"
#include "OwnProcess.h"
#include "tessaline/board.h"
#include "tessaline/tessaline.h"

namespace bench {

namespace {

// Everything slept in the transcript, in microseconds. Once the capture threads have
// opened their devices, sleeps of 10 us are those of waiting for them: no pause of the
// hardware's.
std::vector<unsigned> PausesInTranscript() {
  const std::unique_ptr<char, void (*)(void*)> text(
      tessaline_board_transcript(TESSALINE_BOARD_TEXT), std::free);
  std::istringstream lines(text.get());
  bool capturing = false;
  std::vector<unsigned> pauses;
  for (std::string line; std::getline(lines, line);) {
    capturing = capturing || line.rfind("video", 0) == 0;
    unsigned slept = 0;
    if (std::sscanf(line.c_str(), "sleep %u", &slept) != 1) continue;
    if (!capturing || slept != 10) pauses.push_back(slept);
  }
  return pauses;
}

struct StartUp {
  double wall;
  double pauses;
  double bare_sleeps;  // wall time of the same pauses with nothing in between
};

StartUp Measure(const char* model, bool sleep) {
  tessaline_board_select(model);
  tessaline_board_set_sleep_factor(sleep ? 1 : 0);
  GetLibVersion(model);
  log_set_quiet(true);
  tessaline_board_transcript_clear();
  auto start = Clock::now();
  if (RegisterHardwareInit() != 0) std::exit(1);
  StartUp result{};
  result.wall = Nanoseconds(Clock::now() - start);

  const std::vector<unsigned> pauses = PausesInTranscript();
  tessaline_board_transcript_enable(0);
  start = Clock::now();
  for (const unsigned pause : pauses) usleep(pause);
  result.bare_sleeps = Nanoseconds(Clock::now() - start);
  result.pauses = 1000.0 * std::accumulate(pauses.begin(), pauses.end(), 0u);
  return result;
}

}  // namespace

void PrintStartUpRows(const Options& options) {
  for (const char* model : {"K3610", "K3710", "K3820", "K3920", "K4010"}) {
    const int rounds = options.quick ? 1 : (model == std::string("K4010") ? 2 : 7);
    Comparison times;
    Samples bare_sleeps;
    for (int round = 0; round < rounds; ++round) {
      const StartUp start_up = InOwnProcess([=] { return Measure(model, !options.quick); });
      times.AddRound(start_up.wall, start_up.pauses);
      bare_sleeps.Add(start_up.bare_sleeps / start_up.pauses);
    }
    Row row = CompareTimes(std::string("start-up of a ") + model + " / its pauses", times,
                           Goal::AtMost(1.02));
    row.plain = Number(bare_sleeps.Median(), 3);
    row.ratio = Spread(times.ratio, 3);
    row.Print();
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
