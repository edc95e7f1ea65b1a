#include "VirtualBoard.h"

#include <dlfcn.h>
#include <fmt/core.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "Failure.h"
#include "Models.h"
#include "Preload.h"

namespace tool {
namespace {

constexpr const char* kModel = "TESSALINE_BOARD";
constexpr const char* kOptics = "TESSALINE_BOARD_OPTICS";
constexpr const char* kScene = "TESSALINE_BOARD_SCENE";
constexpr const char* kMark = "TESSALINE_TOOL_STARTED_ANEW";

bool BoardIsLoaded() { return dlsym(RTLD_DEFAULT, "tessaline_board_select") != nullptr; }

void StartAnew(char** argv) {
  if (!BoardIsLoaded()) {
    setenv("LD_PRELOAD", InFrontOf(FindLibrary(kBoardLibrary)).c_str(), 1);
  }
  setenv(kMark, "1", 1);
  execv("/proc/self/exe", argv);
  throw Failure(ExitCode::kUnreachable,
                fmt::format("cannot start with the virtual board: {}", strerror(errno)));
}

// Puts a value into the environment, unless it is empty. Returns whether that changes anything.
bool Change(const char* name, const std::string& value) {
  if (value.empty() || Environment(name) == value) return false;
  setenv(name, value.c_str(), 1);
  return true;
}

// The whole text as a number.
template <typename Number>
bool Parse(std::string_view text, Number& number) {
  const char* const last = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), last, number);
  return error == std::errc() && end == last;
}

// One part of a target's pose, such as "tilt=2".
bool IsPose(std::string_view text) {
  struct Limit {
    std::string_view start;
    double most;
  };
  for (const auto& [start, most] : {Limit{"x=", 50}, Limit{"z=", 50}, Limit{"tilt=", 15}}) {
    double number = 0;
    if (text.starts_with(start) && Parse(text.substr(start.size()), number)) {
      return std::abs(number) <= most;
    }
  }
  return false;
}

bool IsScene(std::string_view text) {
  if (text == "belt") return true;
  std::size_t comma = text.find(',');
  const std::string_view target = text.substr(0, comma);
  if (target != "plane" && target != "sawtooth" && target != "stairs") return false;
  while (comma != std::string_view::npos) {
    text.remove_prefix(comma + 1);
    comma = text.find(',');
    if (!IsPose(text.substr(0, comma))) return false;
  }
  return true;
}

}  // namespace

std::string Environment(const char* name) {
  const char* const value = getenv(name);
  return value == nullptr ? "" : value;
}

std::string WrongOptics(const std::string& text) {
  constexpr std::string_view kSeeded = "real:";
  std::uint64_t seed = 0;
  const bool seeded =
      text.starts_with(kSeeded) && Parse(std::string_view(text).substr(kSeeded.size()), seed);
  if (seeded || text == "ideal" || text == "real") return {};
  return fmt::format("there are no optics \"{}\"; there are ideal, real and real:SEED", text);
}

std::string WrongScene(const std::string& text) {
  if (IsScene(text)) return {};
  return fmt::format(
      "there is no scene \"{}\"; there are belt, and plane, sawtooth and stairs, which may be "
      "followed by ,x=MM,z=MM,tilt=DEGREES: x and z from -50 to 50, tilt from -15 to 15",
      text);
}

bool VirtualOpticsAreIdeal() {
  const std::string optics = Environment(kOptics);
  return optics.empty() || optics == "ideal";
}

void PlugInVirtualBoard(const VirtualBoard& wanted, char** argv) {
  const std::string before = Environment(kModel);
  const std::string& model = wanted.model.empty() ? before : wanted.model;
  if (model.empty()) {
    if (wanted.optics.empty() && wanted.scene.empty()) return;
    throw Failure(ExitCode::kUsage, "--optics and --scene are those of a virtual board",
                  "add --virtual CODE");
  }
  Model(model).Require();
  const bool other_optics = Change(kOptics, wanted.optics);
  const bool other_scene = Change(kScene, wanted.scene);
  if (BoardIsLoaded() && model == before && !other_optics && !other_scene) return;
  setenv(kModel, model.c_str(), 1);
  if (getenv(kMark) != nullptr) {
    throw Failure(ExitCode::kUnreachable, "the virtual board cannot be loaded into this program");
  }
  StartAnew(argv);
}

}  // namespace tool
