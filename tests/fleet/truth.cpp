// The witness of the fleet's proof: an application that notes every frame that its handler gets.
//   truth LOG [--model K3610] [--spacing MICROSECONDS] [--images]
//
// The log has one record a delivery: four letters, a count, and so many pairs of frame id and check
// sum. It is only appended to, with one write() each, so what it has survives any end of this
// process. The publisher has a frame before the handler does: it may know of one delivery more than
// the log, never less.
#include <fcntl.h>
#include <time.h>
#include <unistd.h>
#include <zlib.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tessaline/frames.h"
#include "tessaline/tessaline.h"

namespace {

struct Head {
  std::array<char, 4> what;
  std::uint32_t count;
};

struct Entry {
  std::uint64_t number;
  std::uint64_t check;
};

int log_file = -1;

void Note(std::array<char, 4> what, const std::vector<Entry>& entries) {
  const Head head{what, static_cast<std::uint32_t>(entries.size())};
  std::vector<std::byte> bytes(sizeof head + entries.size() * sizeof(Entry));
  std::memcpy(bytes.data(), &head, sizeof head);
  std::memcpy(bytes.data() + sizeof head, entries.data(), entries.size() * sizeof(Entry));
  if (write(log_file, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
    std::perror("truth: the log");
    _exit(1);  // a witness that forgets is worse than none
  }
}

std::uint64_t CheckSum(const unsigned char* bytes, std::size_t size) {
  return crc32_z(0, bytes, size);
}

void OnStrips(unsigned strips, unsigned /*bytes*/, void* data) {
  const auto* at = static_cast<const unsigned char*>(data);
  std::vector<Entry> entries;
  for (unsigned i = 0; i < strips; ++i) {
    tessaline_strip_header strip;
    std::memcpy(&strip, at, sizeof strip);
    const std::size_t size = sizeof strip + strip.point_count * sizeof(tessaline_full_point);
    entries.push_back({strip.frame_id, CheckSum(at, size)});
    at += size;
  }
  Note({'S', 'T', 'R', 'P'}, entries);
}

void OnImage(unsigned width, unsigned height, void* pixels) {
  const auto* const bytes = static_cast<const unsigned char*>(pixels);
  const std::size_t size = std::size_t{width} * height;
  tessaline_image_header image;
  std::memcpy(&image, bytes + size, sizeof image);
  Note({'I', 'M', 'A', 'G'}, {{image.frame_id, CheckSum(bytes, size + sizeof image)}});
}

std::uint64_t NowNs() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 +
         static_cast<std::uint64_t>(now.tv_nsec);
}

}  // namespace

int main(int argc, char** argv) {
  std::string log;
  std::string model = "K3610";
  unsigned spacing_us = 50'000;
  bool images = false;
  CLI::App app("Notes every frame that its handler gets");
  app.add_option("log", log, "File to append to")->required();
  app.add_option("--model", model, "One with points of 8 bytes");
  app.add_option("--spacing", spacing_us, "Microseconds between frames");
  app.add_flag("--images", images, "Take images, not strips");
  CLI11_PARSE(app, argc, argv);

  log_file = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (log_file < 0) {
    std::perror(log.c_str());
    return 1;
  }
  Note({'B', 'O', 'R', 'N'}, {{static_cast<std::uint64_t>(getpid()), NowNs()}});

  GetLibVersion(model.c_str());
  RegisterEventHandler(TESSALINE_EVENT_STRIP, reinterpret_cast<tessaline_event_handler>(&OnStrips));
  RegisterEventHandler(TESSALINE_EVENT_IMAGE, reinterpret_cast<tessaline_event_handler>(&OnImage));
  if (RegisterHardwareInit() != 0) {
    std::fprintf(stderr, "truth: %s cannot be started\n", model.c_str());
    return 1;
  }
  ResetFrameID();
  SetCollectMode(images ? 1 : 0);
  SetTriMode(0);
  SetTriSpacing(spacing_us);
  OpenLaser();
  SetGlobalControl(1);
  for (;;) pause();  // until SIGINT, which the library handles
}
