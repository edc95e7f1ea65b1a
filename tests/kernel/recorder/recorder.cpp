// Loaded with LD_PRELOAD. Records the library's requests to the kernel and their results in the
// file RECORDER_FILE, in the format of the virtual board's transcript. The address of a register
// access comes from the library's TRACE line before it. An atomic change logs all its lines before
// its first access. The value is what the register holds when the mapping ends.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <linux/videodev2.h>
#include <stdarg.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <string>

#include "tessaline/log.h"
#include "tessaline/register_map.h"

namespace {

using namespace VeltranoSDK::fpga;

template <typename Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

constexpr int kDescriptors = 1024;
std::array<std::string, kDescriptors>& names = *new std::array<std::string, kDescriptors>;
std::mutex& mutex = *new std::mutex;

std::string NodeName(int fd) {
  const std::lock_guard lock(mutex);
  return fd >= 0 && fd < kDescriptors ? names[fd] : "";
}

void Record(const std::string& device, std::string what, bool failed) {
  static FILE* file = fopen(getenv("RECORDER_FILE"), "w");
  const int error = errno;
  if (failed) what += std::string(" failed: ") + strerrorname_np(error);
  const std::lock_guard lock(mutex);
  fprintf(file, "%s %s\n", device.c_str(), what.c_str());
  fflush(file);
  errno = error;
}

// The virtual board's name of the device. Empty if the path is not a device of the board.
std::string DeviceOf(const std::string& path) {
  const auto after = [&](const char* prefix) {
    return path.starts_with(prefix) ? path.substr(strlen(prefix)) : "";
  };
  if (const auto line = after("/sys/class/gpio/"); !line.empty()) return "gpio " + line;
  if (const auto bus = after("/dev/spidev"); !bus.empty()) return "spi" + bus;
  for (const char* device : {"/dev/i2c-", "/dev/video", "/dev/udmabuf", "/dev/mem", "/dev/uio"}) {
    if (path.starts_with(device)) return path.substr(strlen("/dev/"));
  }
  return "";
}

std::string Hex(const std::uint8_t* bytes, std::size_t size) {
  std::string text;
  char byte[4];
  for (std::size_t i = 0; i < size; ++i) {
    snprintf(byte, sizeof byte, " %02x", bytes[i]);
    text += byte;
  }
  return text;
}

std::string Messages(const i2c_rdwr_ioctl_data& data) {
  std::string text = "I2C_RDWR";
  for (unsigned i = 0; i < data.nmsgs; ++i) {
    const i2c_msg& message = data.msgs[i];
    char start[16];
    snprintf(start, sizeof start, "%s %s 0x%02x", i == 0 ? "" : ";",
             message.flags & I2C_M_RD ? "r" : "w", message.addr);
    text += start + Hex(message.buf, message.len);
  }
  return text;
}

std::string Transfer(const spi_ioc_transfer& transfer) {
  return "tx" + Hex(reinterpret_cast<const std::uint8_t*>(transfer.tx_buf), transfer.len) + " rx" +
         Hex(reinterpret_cast<const std::uint8_t*>(transfer.rx_buf), transfer.len);
}

std::string Format(const char* request, const v4l2_format& format) {
  return std::string(request) + ' ' + std::to_string(format.fmt.pix.width) + 'x' +
         std::to_string(format.fmt.pix.height) + " GREY";
}

// Describes a request. Called after it, so that the text includes the answers.
std::string Request(unsigned long request, void* argument) {
  const auto number = [&](const char* name, unsigned value) {
    return std::string(name) + ' ' + std::to_string(value);
  };
  switch (static_cast<std::uint32_t>(request)) {
    case I2C_RETRIES:
      return number("I2C_RETRIES",
                    static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(argument)));
    case I2C_RDWR:
      return Messages(*static_cast<i2c_rdwr_ioctl_data*>(argument));
    case SPI_IOC_WR_MODE:
      return number("SPI_IOC_WR_MODE", *static_cast<std::uint8_t*>(argument));
    case SPI_IOC_RD_MODE:
      return number("SPI_IOC_RD_MODE", *static_cast<std::uint8_t*>(argument));
    case SPI_IOC_WR_LSB_FIRST:
      return number("SPI_IOC_WR_LSB_FIRST", *static_cast<std::uint8_t*>(argument));
    case SPI_IOC_RD_LSB_FIRST:
      return number("SPI_IOC_RD_LSB_FIRST", *static_cast<std::uint8_t*>(argument));
    case SPI_IOC_WR_BITS_PER_WORD:
      return number("SPI_IOC_WR_BITS_PER_WORD", *static_cast<std::uint8_t*>(argument));
    case SPI_IOC_RD_BITS_PER_WORD:
      return number("SPI_IOC_RD_BITS_PER_WORD", *static_cast<std::uint8_t*>(argument));
    case SPI_IOC_WR_MAX_SPEED_HZ:
      return number("SPI_IOC_WR_MAX_SPEED_HZ", *static_cast<std::uint32_t*>(argument));
    case SPI_IOC_RD_MAX_SPEED_HZ:
      return number("SPI_IOC_RD_MAX_SPEED_HZ", *static_cast<std::uint32_t*>(argument));
    case static_cast<std::uint32_t>(SPI_IOC_MESSAGE(1)):
      return Transfer(*static_cast<spi_ioc_transfer*>(argument));
    case VIDIOC_QUERYCAP:
      return "VIDIOC_QUERYCAP";
    case VIDIOC_TRY_FMT:
      return Format("VIDIOC_TRY_FMT", *static_cast<v4l2_format*>(argument));
    case VIDIOC_S_FMT:
      return Format("VIDIOC_S_FMT", *static_cast<v4l2_format*>(argument));
    case VIDIOC_REQBUFS: {
      const auto& buffers = *static_cast<v4l2_requestbuffers*>(argument);
      return std::string("VIDIOC_REQBUFS ") +
             (buffers.memory == V4L2_MEMORY_MMAP ? "MMAP" : "USERPTR");
    }
    case VIDIOC_QUERYBUF:
      return number("VIDIOC_QUERYBUF", static_cast<v4l2_buffer*>(argument)->index);
    case VIDIOC_QBUF:
      return number("VIDIOC_QBUF", static_cast<v4l2_buffer*>(argument)->index);
    case VIDIOC_DQBUF:
      return "VIDIOC_DQBUF";
    case VIDIOC_STREAMON:
      return "VIDIOC_STREAMON";
    default:
      return "ioctl " + std::to_string(request);
  }
}

// The register accesses that this thread will make next, and the mapping for the first of them.
struct Access {
  bool writes;
  std::uint32_t address;
};
thread_local std::deque<Access> accesses;
thread_local void* mapping = nullptr;

void OnLogLine(log_Event* event) {
  const bool reads = strcmp(event->fmt, "fpga_read_addr: %lx") == 0;
  if (!reads && strcmp(event->fmt, "fpga_write_addr: %lx") != 0) return;
  va_list arguments;
  va_copy(arguments, event->ap);
  accesses.push_back({!reads, static_cast<std::uint32_t>(va_arg(arguments, unsigned long))});
  va_end(arguments);
}

__attribute__((constructor)) void Listen() {
  if (auto* add =
          reinterpret_cast<decltype(&log_add_callback)>(dlsym(RTLD_DEFAULT, "log_add_callback"))) {
    add(OnLogLine, nullptr, TESSALINE_LOG_TRACE);
  }
}

void RecordAccess() {
  if (accesses.empty()) return Record("fpga", "an access that nobody has announced", false);
  const Access access = accesses.front();
  accesses.pop_front();
  const std::uint32_t base = access.address & ~(kBlockBytes - 1);
  const std::uint32_t offset = access.address & (kBlockBytes - 1);
  const std::uint32_t value = static_cast<volatile std::uint32_t*>(mapping)[offset / 4];
  for (const RegionBases& family : {kZynqRegions, kZynqMpRegions}) {
    for (unsigned i = 0; i < kBlockCount; ++i) {
      const auto block = static_cast<Block>(i);
      if (BaseAddress(block, family) != base) continue;
      const auto* reg = FindRegister(block, offset);
      char text[128];
      snprintf(text, sizeof text, "%s %s %s = 0x%08x", access.writes ? "write" : "read",
               Info(block).name.data(), reg ? std::string(reg->name.View()).c_str() : "?", value);
      Record("fpga", text, false);
      return;
    }
  }
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = flags & O_CREAT ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  static auto* const next = Next<int(const char*, int, ...)>("open");
  const int fd = next(path, flags, mode);
  if (fd >= 0 && fd < kDescriptors) {
    const std::lock_guard lock(mutex);
    names[fd] = DeviceOf(path);
  }
  return fd;
}

int close(int fd) {
  static auto* const next = Next<int(int)>("close");
  if (fd >= 0 && fd < kDescriptors) {
    const std::lock_guard lock(mutex);
    names[fd].clear();
  }
  return next(fd);
}

ssize_t write(int fd, const void* buffer, std::size_t size) {
  static auto* const next = Next<ssize_t(int, const void*, std::size_t)>("write");
  const std::string name = NodeName(fd);
  const ssize_t result = next(fd, buffer, size);
  if (name.starts_with("gpio ")) {
    Record("gpio",
           "write " + name.substr(5) + ' ' + std::string(static_cast<const char*>(buffer), size),
           result < 0);
  } else if (name.starts_with("spi")) {
    Record(name, "write" + Hex(static_cast<const std::uint8_t*>(buffer), size), result < 0);
  }
  return result;
}

int ioctl(int fd, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  static auto* const next = Next<int(int, unsigned long, ...)>("ioctl");
  const std::string name = NodeName(fd);
  const unsigned wanted =
      request == VIDIOC_REQBUFS ? static_cast<v4l2_requestbuffers*>(argument)->count : 0;
  const bool format = request == VIDIOC_TRY_FMT || request == VIDIOC_S_FMT;
  const std::string asked = format ? Request(request, argument) : "";
  const int result = next(fd, request, argument);
  if (name.empty()) return result;
  const int error = errno;
  std::string text = Request(request, argument);
  if (format && result == 0 && text != asked) text += " instead of " + asked;
  if (request == VIDIOC_REQBUFS && result == 0) {
    text += ' ' + std::to_string(wanted) + " -> " +
            std::to_string(static_cast<v4l2_requestbuffers*>(argument)->count);
  }
  errno = error;
  Record(name, text, result < 0);
  return result;
}

void* mmap(void* hint, std::size_t size, int protection, int flags, int fd, off_t offset) noexcept {
  static auto* const next = Next<void*(void*, std::size_t, int, int, int, off_t)>("mmap");
  void* const address = next(hint, size, protection, flags, fd, offset);
  const std::string name = fd >= 0 ? NodeName(fd) : "";
  if (name == "mem") {
    mapping = address;
  } else if (name.starts_with("video")) {
    Record(name, "mmap " + std::to_string(size) + " bytes at " + std::to_string(offset),
           address == MAP_FAILED);
  } else if (name.starts_with("udmabuf")) {
    Record(name, "mmap " + std::to_string(size) + " at " + std::to_string(offset),
           address == MAP_FAILED);
  }
  return address;
}

int munmap(void* address, std::size_t size) noexcept {
  static auto* const next = Next<int(void*, std::size_t)>("munmap");
  if (address == mapping && address != nullptr && address != MAP_FAILED) {
    RecordAccess();
    mapping = nullptr;
  }
  return next(address, size);
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* request, timespec* remaining) {
  static auto* const next =
      Next<int(clockid_t, int, const timespec*, timespec*)>("clock_nanosleep");
  if ((flags & TIMER_ABSTIME) == 0) {
    Record("sleep", std::to_string(request->tv_sec * 1'000'000 + request->tv_nsec / 1000), false);
  }
  return next(clock, flags, request, remaining);
}

}  // extern "C"
