// Scans what passes under the sensor. Takes a few camera images, then several hundred laser-line
// profiles. Writes one camera image and the height map as PNG files.
//
//   scan_demo --model K3610 --profiles 600 --output DIRECTORY
//
// Runs unchanged on a sensor and on the virtual board:
//   TESSALINE_BOARD=K3610 LD_PRELOAD=libtessaline-board.so scan_demo --model K3610
//
// Needs libcli11-dev and libpng-dev:
//   c++ -std=c++20 scan_demo.cpp -ltessaline -lpng -o scan_demo

#include <tessaline/products.h>
#include <tessaline/tessaline.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Laser.h"
#include "Png.h"
#include "Strips.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kImages = 60;
constexpr unsigned kTriggerMicroseconds = 4000;
constexpr unsigned kExposureMicroseconds = 320;
constexpr float kLaserPercent = 50;
constexpr unsigned kGreen = 2;

// Converts a row of the laser line to a height. A real sensor needs a calibration. This is the
// virtual board's geometry: the belt is at 3/4 of the image height, and 20 mm above it is at 1/4.
double HeightOf(double row, unsigned image_height) { return (0.75 - row / image_height) * 40.0; }

// What the two handlers pass to the main thread. They run on the library's threads and must be
// quick, because their buffer must go back to the driver.
struct Results {
  std::mutex mutex;
  unsigned images = 0;
  std::uint64_t last_image_id = 0;
  Picture most_telling;  // the image in which the line bends the most
  unsigned bend = 0;
  std::vector<Profile> profiles;  // the first `wanted`
  unsigned profiles_seen = 0;
  unsigned wanted = 0;
  std::size_t point_bytes = 8;
};
// Never destroyed: the library's threads run until the process ends.
Results& results = *new Results;

// Returns the difference between the highest and the lowest row of the line, in pixels. Returns 0
// if the line does not cross the whole image, as in images taken before the laser was on.
unsigned Bend(unsigned width, unsigned height, const std::uint8_t* pixels) {
  constexpr std::uint8_t kLineAtLeast = 60;
  unsigned top = height;
  unsigned bottom = 0;
  for (unsigned x = 0; x < width; x += 16) {
    unsigned brightest = 0;
    for (unsigned y = 1; y < height; ++y) {
      if (pixels[y * width + x] > pixels[brightest * width + x]) brightest = y;
    }
    if (pixels[brightest * width + x] < kLineAtLeast) return 0;
    top = std::min(top, brightest);
    bottom = std::max(bottom, brightest);
  }
  return bottom - top;
}

void OnImage(unsigned int width, unsigned int height, void* data) {
  const auto* pixels = static_cast<const std::uint8_t*>(data);
  const std::size_t bytes = std::size_t{width} * height;
  const unsigned bend = Bend(width, height, pixels);
  const std::lock_guard lock(results.mutex);
  ++results.images;
  tessaline_image_header header;
  std::memcpy(&header, pixels + bytes, sizeof header);
  results.last_image_id = header.frame_id;
  if (results.most_telling.bytes.empty() || bend > results.bend) {
    results.bend = bend;
    results.most_telling = Picture(width, height, 1);
    std::memcpy(results.most_telling.bytes.data(), pixels, bytes);
  }
}

void OnStrips(unsigned int strips, unsigned int bytes, void* data) {
  auto profiles = ReadStrips(strips, bytes, data, results.point_bytes);
  const std::lock_guard lock(results.mutex);
  results.profiles_seen += static_cast<unsigned>(profiles.size());
  for (auto& profile : profiles) {
    if (results.profiles.size() < results.wanted) results.profiles.push_back(std::move(profile));
  }
}

unsigned Images() {
  const std::lock_guard lock(results.mutex);
  return results.images;
}

unsigned Profiles() {
  const std::lock_guard lock(results.mutex);
  return results.profiles_seen;
}

// Triggers until `count()` has reached `wanted`, and shows progress. Returns the rate per second,
// or a negative number if frames stopped coming.
template <typename Count>
double Acquire(const char* what, unsigned wanted, Count count) {
  constexpr auto kPatience = std::chrono::seconds(5);
  const auto start = Clock::now();
  auto last_arrival = start;
  unsigned seen = 0;
  SetGlobalControl(1);
  while (seen < wanted) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const unsigned now = count();
    if (now != seen) last_arrival = Clock::now();
    if (Clock::now() - last_arrival > kPatience) break;
    seen = now;
    std::printf("\r  %s %4u of %u ", what, std::min(seen, wanted), wanted);
    std::fflush(stdout);
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  SetGlobalControl(0);
  std::printf("\n");
  return seen < wanted ? -1 : seen / seconds;
}

// From blue (low) through green and yellow to red (high).
void Colour(double t, double brightness, std::uint8_t* rgb) {
  const double stops[3] = {1.5 - std::abs(4 * t - 3), 1.5 - std::abs(4 * t - 2),
                           1.5 - std::abs(4 * t - 1)};
  for (int i = 0; i < 3; ++i) {
    const double level = std::clamp(stops[i], 0.0, 1.0) * std::clamp(brightness, 0.0, 1.0);
    rgb[i] = static_cast<std::uint8_t>(std::lround(255 * level));
  }
}

// The scene from above, at 0.1 mm per pixel. Profiles run from top to bottom, spaced by the
// movement of the belt. The colour shows the height, light from the side shows edges and curvature,
// and the brightness of the laser line shows what is printed on the surface.
Picture HeightMap(const std::vector<Profile>& profiles, unsigned width, unsigned height) {
  constexpr unsigned kMapWidth = 728;
  constexpr unsigned kCountsPerPixel = 10;
  constexpr double kMaxHeight = 12;
  constexpr double kUnknown = -1000;
  const std::uint64_t start = profiles.front().encoder_stamp;
  const auto row_of = [&](const Profile& profile) {
    return static_cast<unsigned>((profile.encoder_stamp - start) / kCountsPerPixel);
  };
  Picture map(kMapWidth, row_of(profiles.back()) + 1, 3);
  std::vector<double> heights(kMapWidth + 1);
  std::vector<double> light(kMapWidth + 1);
  std::vector<double> before;
  for (std::size_t i = 0; i < profiles.size(); ++i) {
    std::fill(heights.begin(), heights.end(), kUnknown);
    for (const Point& point : profiles[i].points) {
      if (point.column >= width) continue;
      const unsigned x = point.column * kMapWidth / width;
      heights[x] = HeightOf(point.row, height);
      light[x] = 0.5 + 0.4 * point.peak / 255;
    }
    if (before.empty()) before = heights;
    const unsigned end = i + 1 < profiles.size() ? row_of(profiles[i + 1]) : map.height;
    for (unsigned x = 0; x < kMapWidth; ++x) {
      const double z = heights[x];
      if (z == kUnknown) continue;
      const double slope = (heights[x + 1] - z) + (z - before[x]);
      const double brightness = light[x] + std::clamp(slope, -0.4, 0.4);
      for (unsigned y = row_of(profiles[i]); y < std::min(end, map.height); ++y) {
        Colour(std::clamp(z / kMaxHeight, 0.0, 1.0) * 0.9 + 0.05, brightness, map.At(x, y));
      }
    }
    before = heights;
  }
  return map;
}

int Run(const std::string& model, const std::string& directory) {
  std::printf("libtessaline interface %d, model %s\n", GetLibVersion(model.c_str()), model.c_str());
  RegisterEventHandler(TESSALINE_EVENT_IMAGE, reinterpret_cast<tessaline_event_handler>(OnImage));
  RegisterEventHandler(TESSALINE_EVENT_STRIP, reinterpret_cast<tessaline_event_handler>(OnStrips));
  if (RegisterHardwareInit() != 0) {
    std::fprintf(stderr, "scan_demo: the sensor did not start; see the messages above\n");
    return EXIT_FAILURE;
  }
  // Some products use only part of their rows at first.
  const unsigned full_size = GetCmosMaxDrive();
  SetROI1(0, 0, full_size >> 16, full_size & 0xFFFF);
  const unsigned width = GetImageWidth();
  const unsigned height = GetImageHeight();
  std::printf("started: %u x %u pixels, CPU %.1f degrees C\n", width, height,
              static_cast<double>(GetCpuTemp()));

  LedControl(kGreen);
  SetLaserPower(kLaserPercent);
  SetExposureTime(1, kExposureMicroseconds);
  SetTriMode(0);
  SetTriSpacing(kTriggerMicroseconds);
  laser_on();

  std::printf("camera images (collect mode 1)\n");
  SetCollectMode(1);
  const double image_rate = Acquire("images", kImages, Images);
  std::printf("laser-line profiles (collect mode 0)\n");
  SetCollectMode(0);
  ResetFrameID();
  ResetCallbackLostNum();
  const double profile_rate = Acquire("profiles", results.wanted, Profiles);
  laser_off();
  LedControl(0);
  if (image_rate < 0 || profile_rate < 0) {
    std::fprintf(stderr, "scan_demo: no more frames came\n");
    return EXIT_FAILURE;
  }

  const std::lock_guard lock(results.mutex);
  std::printf("images    %6.1f per second, last frame id %llu\n", image_rate,
              static_cast<unsigned long long>(results.last_image_id));
  std::printf("profiles  %6.1f per second, frame ids %llu to %llu, %u lost\n", profile_rate,
              static_cast<unsigned long long>(results.profiles.front().frame_id),
              static_cast<unsigned long long>(results.profiles.back().frame_id),
              GetCallbackLostNum());
  std::printf("encoder   %llu to %llu counts; CPU %.1f degrees C\n",
              static_cast<unsigned long long>(results.profiles.front().encoder_stamp),
              static_cast<unsigned long long>(results.profiles.back().encoder_stamp),
              static_cast<double>(GetCpuTemp()));

  const std::string image_name = directory + "/camera_image.png";
  const std::string map_name = directory + "/height_map.png";
  if (!WritePng(results.most_telling, image_name.c_str()) ||
      !WritePng(HeightMap(results.profiles, width, height), map_name.c_str())) {
    return EXIT_FAILURE;
  }
  std::printf("wrote %s and %s\n", image_name.c_str(), map_name.c_str());
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Scans what passes under the sensor and draws it.", "scan_demo");
  std::string model = "K3610";
  std::string directory = ".";
  results.wanted = 600;
  app.add_option("--model", model, "model code of the product")->capture_default_str();
  app.add_option("--profiles", results.wanted, "number of laser-line profiles")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  app.add_option("--output", directory, "directory for the pictures")
      ->check(CLI::ExistingDirectory)
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  if (const auto* const product = VeltranoSDK::products::FindProduct(model)) {
    results.point_bytes = product->PointBytes();
  }
  return Run(model, directory);
}
