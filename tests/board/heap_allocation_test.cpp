// The board's calls take nothing from the process's heap. This program replaces the C library's
// allocation functions.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <linux/spi/spidev.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/mman.h>

#include <array>
#include <cstdlib>
#include <functional>
#include <string>

#include "BoardFixture.h"
#include "VideoClient.h"

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);
}

namespace {

// True on the thread that counts. Constant initialisation is needed, because the first allocation
// comes before this program's own code.
constinit thread_local bool counting = false;
constinit thread_local int calls = 0;

void Count() { calls += counting ? 1 : 0; }

}  // namespace

#pragma GCC visibility push(default)
extern "C" {
void* malloc(std::size_t size) {
  Count();
  return __libc_malloc(size);
}
void* calloc(std::size_t number, std::size_t size) {
  Count();
  return __libc_calloc(number, size);
}
void* realloc(void* memory, std::size_t size) {
  Count();
  return __libc_realloc(memory, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
  Count();
  return __libc_memalign(alignment, size);
}
void free(void* memory) {
  Count();
  __libc_free(memory);
}
}
#pragma GCC visibility pop

namespace board_test {
namespace {

namespace fpga = VeltranoSDK::fpga;

// Runs `act` and counts the calls.
template <typename Act>
int Calls(Act act) {
  calls = 0;
  counting = true;
  act();
  counting = false;
  return calls;
}

bool ChangeRegister(const fpga::Register& reg) {
  const int memory = open("/dev/mem", O_RDWR);
  void* const block = mmap(nullptr, 255, PROT_READ | PROT_WRITE, MAP_SHARED, memory,
                           fpga::BaseAddress(reg.block, fpga::kZynqRegions));
  if (block == MAP_FAILED) return false;
  auto& word = static_cast<volatile std::uint32_t*>(block)[reg.Index()];
  word = word + 1;
  return munmap(block, 255) == 0 && close(memory) == 0;
}

bool UseGpio() {
  for (const char* file : {"/sys/class/gpio/export", "/sys/class/gpio/unexport"}) {
    const int fd = open(file, O_WRONLY);
    if (write(fd, "921", 3) != 3 || close(fd) != 0) return false;
  }
  return open("/sys/class/gpio/gpio921/value", O_RDWR) == -1;
}

bool UseSpi() {
  const int fd = open("/dev/spidev1.0", O_RDWR);
  std::array<std::uint8_t, 3> bytes{0xDA, 0xA0, 0x80};
  spi_ioc_transfer transfer{};
  transfer.tx_buf = reinterpret_cast<std::uintptr_t>(bytes.data());
  transfer.rx_buf = transfer.tx_buf;
  transfer.len = bytes.size();
  return ioctl(fd, SPI_IOC_MESSAGE(1), &transfer) == 3 && close(fd) == 0;
}

bool UseVideo() {
  const int fd = open("/dev/video1", O_RDWR);
  int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  v4l2_requestbuffers request{};
  request.count = 4;
  request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  request.memory = V4L2_MEMORY_MMAP;
  if (ioctl(fd, VIDIOC_REQBUFS, &request) != 0) return false;
  v4l2_buffer buffer = VideoClient::Buffer(0);
  pollfd set{fd, POLLIN, 0};
  return ioctl(fd, VIDIOC_QBUF, &buffer) == 0 && ioctl(fd, VIDIOC_STREAMON, &type) == 0 &&
         poll(&set, 1, 1) == 0 && ioctl(fd, VIDIOC_STREAMOFF, &type) == 0 && close(fd) == 0;
}

bool UseDescriptors() {
  const int fd = open("/dev/uio0", O_RDWR | O_NONBLOCK);
  const int other = dup(fd);
  std::uint32_t count = 0;
  return read(other, &count, sizeof count) == -1 && close(fd) == 0 && usleep(1000) == 0 &&
         close_range(static_cast<unsigned>(other), static_cast<unsigned>(other), 0) == 0;
}

class Allocations : public BoardTest {
 protected:
  void SetUp() override {
    Select("K3820");
    // Start a stream here, because the first one starts a thread, which a handler must not do.
    ASSERT_TRUE(UseVideo());
  }
};

TEST_F(Allocations, ArePartOfNoCall) {
  tessaline_board_fault("*", "*", 0, 0, TESSALINE_BOARD_CALLED);
  const auto change_register = [] { return ChangeRegister(fpga::kReg.TRI_SPACING); };
  for (const std::function<bool()>& use :
       {std::function<bool()>(change_register), std::function<bool()>(UseGpio),
        std::function<bool()>(UseSpi), std::function<bool()>(UseVideo),
        std::function<bool()>(UseDescriptors)}) {
    for (int round = 0; round < 500; ++round) {
      bool works = false;
      ASSERT_EQ(Calls([&] { works = use(); }), 0);
      ASSERT_TRUE(works);
    }
  }
  tessaline_board_clear_faults();
}

TEST_F(Allocations, ArePartOfWhatIsHandedOut) {
  char* text = nullptr;
  EXPECT_EQ(Calls([&] { text = tessaline_board_transcript(TESSALINE_BOARD_TEXT); }), 1);
  EXPECT_EQ(Calls([&] { free(text); }), 1);
}

// Otherwise the process and its other libraries would use the board's heap.
TEST_F(Allocations, OfTheBoardAreNobodyElses) {
  for (const char* name : {"_Znwm", "_ZdlPv", "_ZdlPvm", "_ZNSsC1Ev"}) {
    Dl_info library{};
    ASSERT_NE(dladdr(dlsym(RTLD_DEFAULT, name), &library), 0) << name;
    EXPECT_EQ(std::string(library.dli_fname).find("tessaline-board"), std::string::npos) << name;
  }
}

}  // namespace
}  // namespace board_test
