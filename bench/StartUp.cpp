// Compares the wall time of a start-up with the time to sleep only the pauses that the hardware
// needs. Also measures the size of the library.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "Application.h"
#include "OwnProcess.h"
#include "Pauses.h"
#include "tessaline/board.h"
#include "tessaline/tessaline.h"
#include "thread/PromptSleeps.h"

namespace bench {

namespace {

// The product with the longest pauses: its start-up sleeps for five seconds.
constexpr std::string_view kSlowest = "K4010";

std::string Transcript() {
  const std::unique_ptr<char, void (*)(void*)> text(
      tessaline_board_transcript(TESSALINE_BOARD_TEXT), std::free);
  return text.get();
}

// 0 if the capture driver provides the memory of the strips.
std::size_t DmaBytesIn(const std::string& transcript) {
  constexpr std::string_view kMapping = "udmabuf0 mmap ";
  const std::size_t at = transcript.find(kMapping);
  if (at == std::string::npos) return 0;
  return std::strtoul(transcript.c_str() + at + kMapping.size(), nullptr, 10);
}

// On a real board, the driver allocates the DMA area when it is loaded, before any application
// runs. The virtual board allocates it on first touch.
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

std::size_t DeviceCallsIn(const std::string& transcript) {
  std::istringstream lines(transcript);
  std::size_t calls = 0;
  for (std::string line; std::getline(lines, line);) calls += line.rfind("sleep ", 0) != 0;
  return calls;
}

void StartUp(Pauses& pauses) {
  const PauseRecorder recorder(pauses);
  if (RegisterHardwareInit() != 0) std::exit(1);
}

double ProcessNanoseconds(const rusage& usage) {
  const auto of = [](const timeval& time) {
    return 1e9 * static_cast<double>(time.tv_sec) + 1e3 * static_cast<double>(time.tv_usec);
  };
  return of(usage.ru_utime) + of(usage.ru_stime);
}

// What a start-up needs from the board, counted in a transcript.
struct Demand {
  std::size_t dma_bytes;
  std::size_t device_calls;
  Pauses pauses;
};

Demand MeasureDemand(const char* model, bool sleep) {
  PlugIn(model, sleep);
  tessaline_board_transcript_clear();
  Demand demand{};
  StartUp(demand.pauses);
  const std::string transcript = Transcript();
  demand.dma_bytes = DmaBytesIn(transcript);
  demand.device_calls = DeviceCallsIn(transcript);
  return demand;
}

struct Run {
  double wall;
  double processor_time;
  double page_faults;
  Pauses pauses;
};

template <typename Function>
Run Measure(Function run) {
  Run result{};
  rusage before{};
  rusage after{};
  getrusage(RUSAGE_SELF, &before);
  const auto start = Clock::now();
  run(result.pauses);
  result.wall = Nanoseconds(Clock::now() - start);
  getrusage(RUSAGE_SELF, &after);
  result.processor_time = ProcessNanoseconds(after) - ProcessNanoseconds(before);
  result.page_faults = static_cast<double>(after.ru_minflt - before.ru_minflt);
  return result;
}

// Runs without a transcript, because writing one is not part of a start-up.
Run MeasureStartUp(const char* model, bool sleep, std::size_t dma_bytes) {
  PlugIn(model, sleep);
  tessaline_board_transcript_enable(0);
  TouchDmaArea(dma_bytes);
  return Measure(StartUp);
}

void Sleep(unsigned microseconds) {
  const timespec time{static_cast<time_t>(microseconds / 1'000'000),
                      static_cast<long>(microseconds % 1'000'000) * 1000};
  clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr);
}

// Sleeps the same pauses just as promptly, with nothing in between.
Run MeasureBareSleeps(const char* model, bool sleep, const Pauses& demanded) {
  PlugIn(model, sleep);
  tessaline_board_transcript_enable(0);
  return Measure([&](Pauses& pauses) {
    const PauseRecorder recorder(pauses);
    const VeltranoSDK::PromptSleeps prompt_sleeps;
    for (std::size_t i = 0; i < demanded.count; ++i) Sleep(demanded.microseconds[i]);
  });
}

}  // namespace

void PrintStartUpRows(const Options& options) {
  const bool sleep = !options.quick;
  constexpr int kDigits = 3;
  for (const std::string_view model : {"K3610", "K3710", "K3820", "K3920", "K4010"}) {
    const int rounds = options.quick ? 1 : (model == kSlowest ? 5 : 15);
    const Demand demand = InOwnProcess([=] { return MeasureDemand(model.data(), sleep); });
    const std::vector<std::function<Run()>> ways{
        [&] {
          return InOwnProcess(
              [&] { return MeasureStartUp(model.data(), sleep, demand.dma_bytes); });
        },
        [&] {
          return InOwnProcess(
              [&] { return MeasureBareSleeps(model.data(), sleep, demand.pauses); });
        }};
    Comparison times;
    Samples bare_sleeps;
    for (int round = 0; round < rounds; ++round) {
      const std::vector<Run> runs = InTurn(round, ways);
      times.AddRound(runs[0].wall, runs[0].pauses.asked);
      bare_sleeps.Add(runs[1].wall / runs[1].pauses.asked);
    }
    Row row = CompareTimes("start-up of a " + std::string(model) + " / its pauses", times,
                           Goal::AtMost(1.02), kDigits);
    row.plain = Number(bare_sleeps.Median(), kDigits);
    row.Print();
  }
}

void PrintStartUpProfile(const Options& options) {
  const bool sleep = !options.quick;
  std::puts(
      "| | wall | pauses | ratio | overslept | waiting for own threads | the rest | processor time "
      "| page faults | pauses | device calls |\n|---|---|---|---|---|---|---|---|---|---|---|");
  constexpr std::array kModels{"K3610", "K3710",           "K3710ch16", "K3710ch16arm_rebuild",
                               "K3810", "K3820",           "K3920",     "K3920arm_rebuild",
                               "K4010", "K4010arm_rebuild"};
  constexpr std::size_t kQuickModels = 1;
  for (std::size_t i = 0; i < (options.quick ? kQuickModels : kModels.size()); ++i) {
    const std::string_view model = kModels[i];
    const int rounds = options.quick ? 1 : (model.substr(0, kSlowest.size()) == kSlowest ? 3 : 7);
    const Demand demand = InOwnProcess([=] { return MeasureDemand(model.data(), sleep); });
    Samples wall, asked, ratio, overslept, waiting, rest, processor_time, page_faults, pauses;
    for (int round = 0; round < rounds; ++round) {
      const Run run =
          InOwnProcess([&] { return MeasureStartUp(model.data(), sleep, demand.dma_bytes); });
      wall.Add(run.wall);
      asked.Add(run.pauses.asked);
      ratio.Add(run.wall / run.pauses.asked);
      overslept.Add(run.pauses.slept - run.pauses.asked);
      waiting.Add(run.pauses.waiting);
      rest.Add(run.wall - run.pauses.slept - run.pauses.waiting);
      processor_time.Add(run.processor_time);
      page_faults.Add(run.page_faults);
      pauses.Add(static_cast<double>(run.pauses.count));
    }
    const auto milliseconds = [](const Samples& samples) {
      return Number(samples.Median() / 1e6, 2) + " ms";
    };
    std::printf("| %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %zu |\n", model.data(),
                milliseconds(wall).c_str(), milliseconds(asked).c_str(),
                Number(ratio.Median(), 3).c_str(), milliseconds(overslept).c_str(),
                milliseconds(waiting).c_str(), milliseconds(rest).c_str(),
                milliseconds(processor_time).c_str(), Number(page_faults.Median(), 0).c_str(),
                Number(pauses.Median(), 0).c_str(), demand.device_calls);
    std::fflush(stdout);
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
