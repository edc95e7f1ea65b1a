// Wall time of the start-up against the pauses in it that the hardware needs, slept
// for real, and the size of the library.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "Application.h"
#include "OwnProcess.h"
#include "tessaline/board.h"
#include "tessaline/tessaline.h"

namespace bench {

namespace {

std::string Transcript() {
  const std::unique_ptr<char, void (*)(void*)> text(
      tessaline_board_transcript(TESSALINE_BOARD_TEXT), std::free);
  return text.get();
}

// Everything slept in the transcript, in microseconds. Once the capture threads have
// opened their devices, sleeps of 10 us are those of waiting for them: no pause of the
// hardware's.
std::vector<unsigned> PausesIn(const std::string& transcript) {
  std::istringstream lines(transcript);
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

// 0 where the strips' memory is the capture driver's.
std::size_t DmaBytesIn(const std::string& transcript) {
  constexpr std::string_view kMapping = "udmabuf0 mmap ";
  const std::size_t at = transcript.find(kMapping);
  if (at == std::string::npos) return 0;
  return std::strtoul(transcript.c_str() + at + kMapping.size(), nullptr, 10);
}

// The DMA area's memory exists before any application runs: the driver has it from when
// it was loaded. The virtual board's comes into being when it is first touched.
void TouchDmaArea(std::size_t bytes) {
  if (bytes == 0) return;
  const int fd = open("/dev/udmabuf0", O_RDWR);
  void* const area = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (area == MAP_FAILED) {
    std::perror("/dev/udmabuf0");
    std::exit(1);
  }
  std::memset(area, 0, bytes);
  munmap(area, bytes);
  close(fd);
}

void PlugIn(const char* model, bool sleep) {
  tessaline_board_select(model);
  tessaline_board_set_sleep_factor(sleep ? 1 : 0);
  GetLibVersion(model);
  log_set_quiet(true);
}

// What a start-up asks the board for.
struct Demand {
  std::size_t dma_bytes;
  double pauses;       // nanoseconds
  double bare_sleeps;  // wall time of the same pauses with nothing in between
};

Demand MeasureDemand(const char* model, bool sleep) {
  PlugIn(model, sleep);
  tessaline_board_transcript_clear();
  if (RegisterHardwareInit() != 0) std::exit(1);
  const std::string transcript = Transcript();
  tessaline_board_transcript_enable(0);

  const std::vector<unsigned> pauses = PausesIn(transcript);
  Demand demand{};
  demand.dma_bytes = DmaBytesIn(transcript);
  demand.pauses = 1000.0 * std::accumulate(pauses.begin(), pauses.end(), 0u);
  const auto start = Clock::now();
  for (const unsigned pause : pauses) usleep(pause);
  demand.bare_sleeps = Nanoseconds(Clock::now() - start);
  return demand;
}

// Without a transcript: keeping it is no part of a start-up.
double MeasureWall(const char* model, bool sleep, std::size_t dma_bytes) {
  PlugIn(model, sleep);
  tessaline_board_transcript_enable(0);
  TouchDmaArea(dma_bytes);
  const auto start = Clock::now();
  if (RegisterHardwareInit() != 0) std::exit(1);
  return Nanoseconds(Clock::now() - start);
}

}  // namespace

void PrintStartUpRows(const Options& options) {
  const bool sleep = !options.quick;
  constexpr int kDigits = 3;
  for (const char* model : {"K3610", "K3710", "K3820", "K3920", "K4010"}) {
    const int rounds = options.quick ? 1 : (model == std::string("K4010") ? 2 : 7);
    Comparison times;
    Samples bare_sleeps;
    for (int round = 0; round < rounds; ++round) {
      const Demand demand = InOwnProcess([=] { return MeasureDemand(model, sleep); });
      const double wall = InOwnProcess([=] { return MeasureWall(model, sleep, demand.dma_bytes); });
      times.AddRound(wall, demand.pauses);
      bare_sleeps.Add(demand.bare_sleeps / demand.pauses);
    }
    Row row = CompareTimes(std::string("start-up of a ") + model + " / its pauses", times,
                           Goal::AtMost(1.02), kDigits);
    row.plain = Number(bare_sleeps.Median(), kDigits);
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
