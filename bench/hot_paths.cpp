// The per-frame paths and the register access, each against the least that could
// do the job.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "DeviceManager.h"
#include "Devices/CmosSensor.h"
#include "Devices/V4l2Base.h"
#include "Ratio.h"
#include "Runnable/CaptureStripStream.h"
#include "Runnable/ImageReorder.h"
#include "Runnable/StripWalk.h"
#include "tessaline/board.h"
#include "tessaline/fpga.h"
#include "tessaline/register_map.h"
#include "tessaline/startup.h"

namespace {

using VeltranoSDK::StripHeader;
namespace fpga = VeltranoSDK::fpga;
using Clock = std::chrono::steady_clock;

// --- Image reorder against one memcpy of the same bytes ----------------------------------

std::vector<std::byte> NoiseFrame(unsigned width, unsigned height) {
  std::vector<std::byte> frame(std::size_t{width} * (height + 1));
  std::mt19937 random(7);
  for (std::byte& byte : frame) byte = static_cast<std::byte>(random());
  return frame;
}

void Reorder(benchmark::State& state, unsigned width, unsigned height) {
  std::vector<std::byte> frame = NoiseFrame(width, height);
  VeltranoSDK::ReorderScratch scratch;
  const std::uint64_t pixels = std::uint64_t{width} * height;
  for (auto _ : state) {
    VeltranoSDK::ReorderImage(frame.data(), frame.size(), {pixels, pixels}, scratch);
    benchmark::ClobberMemory();
  }
}

void Copy(benchmark::State& state, unsigned width, unsigned height) {
  const std::vector<std::byte> frame = NoiseFrame(width, height);
  std::vector<std::byte> copy(frame.size());
  for (auto _ : state) {
    std::memcpy(copy.data(), frame.data(), frame.size());
    benchmark::ClobberMemory();
  }
}

// What the same result costs with a zeroed work area for every image.
void ReorderThroughWorkArea(benchmark::State& state, unsigned width, unsigned height) {
  std::vector<std::byte> frame = NoiseFrame(width, height);
  const std::size_t quarter = std::size_t{width} * height / 4;
  for (auto _ : state) {
    std::unique_ptr<std::byte[]> work(new std::byte[frame.size()]());
    for (std::size_t group = 0; group < quarter / 16; ++group) {
      for (std::size_t plane = 0; plane < 4; ++plane) {
        std::memcpy(&work[64 * group + 16 * plane], &frame[plane * quarter + 16 * group], 16);
      }
    }
    std::memcpy(&work[4 * quarter], &frame[4 * quarter], 32);
    std::memcpy(frame.data(), work.get(), 4 * quarter + 32);
    benchmark::ClobberMemory();
  }
}

// --- Strip pass against a bare walk of the headers ---------------------------------------

constexpr std::size_t kStripBufferBytes = 655360;
constexpr unsigned kPointsPerStrip = 64;
constexpr std::uint32_t kPointBytes = 8;

std::vector<std::byte> StripBuffer(std::uint32_t strips) {
  std::vector<std::byte> buffer(kStripBufferBytes);
  std::size_t at = 0;
  for (std::uint32_t i = 0; i < strips; ++i) {
    const StripHeader header{i + 1, i, i, kPointsPerStrip};
    std::memcpy(&buffer[at], &header, sizeof header);
    at += sizeof header + std::size_t{kPointBytes} * kPointsPerStrip;
  }
  return buffer;
}

void PutCount(std::byte* buffer, std::uint64_t strips) {
  std::memcpy(buffer + kStripBufferBytes - sizeof strips, &strips, sizeof strips);
}

// Serves one buffer over and over, as fast as it is taken; nothing of the kernel
// or of the virtual board is in the way.
class EndlessDevice : public VeltranoSDK::DevFOps::V4l2Base {
 public:
  EndlessDevice(std::uint32_t strips, std::uint64_t passes)
      : buffer_(StripBuffer(strips)), strips_(strips), passes_(passes) {}

  bool Open(std::string) override { return true; }
  bool SetFmt(unsigned, unsigned) override { return true; }
  bool ReqBufs(unsigned) override { return true; }
  std::byte* DqBuf() override {
    if (served_ == 0) start_ = Clock::now();
    if (served_ == passes_) {
      if (seconds_ == 0) seconds_ = std::chrono::duration<double>(Clock::now() - start_).count();
      return nullptr;
    }
    ++served_;
    PutCount(buffer_.data(), strips_);
    return buffer_.data();
  }
  std::byte* DqBuf(unsigned& index) override {
    index = 0;
    return DqBuf();
  }
  bool QBuf() override { return true; }
  bool QBuf(unsigned) override { return true; }
  bool StreamOn() override { return true; }
  bool StreamOff() override { return true; }
  bool Close() override { return true; }
  void ClearBuf() override {}
  unsigned Index() override { return 0; }
  std::size_t BufferSize() override { return buffer_.size(); }

  double Seconds() const { return seconds_; }

 private:
  std::vector<std::byte> buffer_;
  const std::uint32_t strips_;
  const std::uint64_t passes_;
  std::uint64_t served_ = 0;
  Clock::time_point start_;
  std::atomic<double> seconds_{0};
};

void StripPass(benchmark::State& state, std::uint32_t strips) {
  constexpr std::uint64_t kPasses = 2000;
  for (auto _ : state) {
    const auto device = std::make_shared<EndlessDevice>(strips, kPasses);
    VeltranoSDK::DeviceManagerHolder::Instance()->v4l2_buf_ = device;
    const auto thread = std::make_shared<VeltranoSDK::CaptureStripStream>();
    thread->RegisterStripBufCallback(
        [](unsigned, unsigned bytes, void*) { benchmark::DoNotOptimize(bytes); });
    thread->Start();
    while (device->Seconds() == 0) sched_yield();
    thread->Stop();
    state.SetIterationTime(device->Seconds() / kPasses);
  }
}

void BareWalk(benchmark::State& state, std::uint32_t strips) {
  std::vector<std::byte> buffer = StripBuffer(strips);
  for (auto _ : state) {
    PutCount(buffer.data(), strips);
    benchmark::ClobberMemory();
    std::uint32_t count = 0;
    std::memcpy(&count, &buffer[kStripBufferBytes - 8], sizeof count);
    const std::byte* at = buffer.data();
    for (std::uint32_t i = 0; i < count; ++i) {
      StripHeader header;
      std::memcpy(&header, at, sizeof header);
      at += sizeof header + kPointBytes * header.point_count;
    }
    benchmark::DoNotOptimize(at);
    PutCount(buffer.data(), 0);
    benchmark::ClobberMemory();
  }
}

// --- Register access against the bare system calls ----------------------------------------

constexpr std::uint32_t kBlock = fpga::BaseAddress(fpga::Block::kImage1, fpga::kZynqRegions);

void LibraryRead(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(fpga_read_addr(kBlock, fpga::TRI_SPACING.Index()));
  }
}

void BareRead(benchmark::State& state) {
  for (auto _ : state) {
    const int fd = open("/dev/mem", O_RDWR | O_NONBLOCK);
    void* block = mmap(nullptr, 255, PROT_READ | PROT_WRITE, MAP_SHARED, fd, kBlock);
    benchmark::DoNotOptimize(
        static_cast<volatile std::uint32_t*>(block)[fpga::TRI_SPACING.Index()]);
    close(fd);
    munmap(block, 255);
  }
}

constexpr int kRepetitions = 5;

template <typename Function, typename... Args>
benchmark::internal::Benchmark* Register(const std::string& name, Function function, Args... args) {
  return benchmark::RegisterBenchmark(name.c_str(),
                                      [=](benchmark::State& state) { function(state, args...); })
      ->Repetitions(kRepetitions);
}

}  // namespace

int main(int argc, char** argv) {
  tessaline_board_select("K3610");
  tessaline_board_set_sleep_factor(0);
  tessaline_board_transcript_enable(0);
  GetLibVersion("K3610");
  if (!VeltranoSDK::DeviceManagerHolder::Instance()->Init()) return 1;

  std::vector<Ratio> ratios;
  for (const auto& [width, height] : {std::pair{1456u, 1088u}, std::pair{4096u, 1080u}}) {
    const std::string size = std::to_string(width) + "x" + std::to_string(height);
    Register("reorder_" + size, Reorder, width, height);
    Register("copy_" + size, Copy, width, height);
    Register("work_area_" + size, ReorderThroughWorkArea, width, height);
    ratios.push_back({"image reorder " + size + " / memcpy", "reorder_" + size, "copy_" + size});
    ratios.push_back(
        {"  (through a zeroed work area / memcpy)", "work_area_" + size, "copy_" + size});
  }
  for (const std::uint32_t strips : {1u, 100u, 1000u}) {
    const std::string number = std::to_string(strips);
    Register("pass_" + number, StripPass, strips)->Iterations(20)->UseManualTime();
    Register("walk_" + number, BareWalk, strips);
    ratios.push_back(
        {"strip pass, " + number + " strips / bare walk", "pass_" + number, "walk_" + number});
  }
  Register("fpga_read_addr", LibraryRead);
  Register("four_calls", BareRead);
  ratios.push_back({"register read / open+mmap+munmap+close", "fpga_read_addr", "four_calls"});

  std::vector<char*> arguments(argv, argv + argc);
  std::string interleave = "--benchmark_enable_random_interleaving=true";
  arguments.insert(arguments.begin() + 1, interleave.data());
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  BestTimes times;
  benchmark::RunSpecifiedBenchmarks(&times);
  times.Print(ratios);
  return 0;
}
