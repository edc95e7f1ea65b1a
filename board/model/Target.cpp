#include "model/Target.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <numbers>

#include "model/Random.h"

namespace board {
namespace {

constexpr double kMostShift = 50;  // mm
constexpr double kMostTilt = 15;   // degrees
constexpr double kPitch = 8, kToothHeight = 4;
constexpr double kTread = 6;
constexpr std::array<double, 9> kTreads{0, 3, 6, 9, 12, 9, 6, 3, 0};

// Where the target is: turned about its origin, then shifted.
struct Pose {
  double x = 0, z = 0, tilt = 0;

  PlanePoint Place(double s, double h) const {
    const double turn = tilt * std::numbers::pi / 180;
    return {x + s * std::cos(turn) - h * std::sin(turn),
            z + s * std::sin(turn) + h * std::cos(turn)};
  }
};

// The range of s that covers the field in any pose.
constexpr double kReach = 2 * kSurfaceReach;

Surface Plane(const Pose& pose) { return {{{pose.Place(-kReach, 0), pose.Place(kReach, 0)}}, {}}; }

Surface Sawtooth(const Pose& pose) {
  Surface surface;
  const double half = kPitch / 2;
  // Only the teeth in the field.
  const double middle = std::round(-pose.x / kPitch) * kPitch;
  const double end = std::ceil(kSurfaceReach * 1.2 / kPitch) * kPitch;
  for (double s = middle - end; s < middle + end; s += kPitch) {
    const PlanePoint tip = pose.Place(s + half, kToothHeight);
    surface.faces.push_back({pose.Place(s, 0), tip});
    surface.faces.push_back({tip, pose.Place(s + kPitch, 0)});
  }
  return surface;
}

Surface Stairs(const Pose& pose) {
  Surface surface;
  double s = -kTread * kTreads.size() / 2;
  double h = 0;
  surface.faces.push_back({pose.Place(-kReach, 0), pose.Place(s, 0)});
  for (const double tread : kTreads) {
    if (tread != h) surface.faces.push_back({pose.Place(s, h), pose.Place(s, tread), true});
    surface.faces.push_back({pose.Place(s, tread), pose.Place(s + kTread, tread)});
    s += kTread;
    h = tread;
  }
  surface.faces.push_back({pose.Place(s, 0), pose.Place(kReach, 0)});
  return surface;
}

struct Kind {
  std::string_view name;
  Surface (*make)(const Pose&);
};
constexpr std::array kKinds{Kind{"plane", Plane}, Kind{"sawtooth", Sawtooth},
                            Kind{"stairs", Stairs}};

struct Setting {
  std::string_view name;
  double Pose::*value;
  double most;
};
constexpr std::array kSettings{Setting{"x", &Pose::x, kMostShift},
                               Setting{"z", &Pose::z, kMostShift},
                               Setting{"tilt", &Pose::tilt, kMostTilt}};

template <typename Entry, std::size_t Size>
const Entry* Find(const std::array<Entry, Size>& entries, std::string_view name) {
  for (const Entry& entry : entries) {
    if (entry.name == name) return &entry;
  }
  return nullptr;
}

// Returns what is wrong, or an empty text.
std::string Read(std::string_view word, Pose& pose) {
  const std::size_t equals = std::min(word.find('='), word.size());
  const Setting* const setting = Find(kSettings, word.substr(0, equals));
  if (setting == nullptr) {
    return fmt::format("\"{}\" is not x=MM, z=MM or tilt=DEGREES", word);
  }
  const std::string_view number = word.substr(std::min(equals + 1, word.size()));
  double& value = pose.*setting->value;
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
  const bool whole = error == std::errc() && end == number.data() + number.size();
  if (whole && std::abs(value) <= setting->most) return {};
  return fmt::format("{} of \"{}\" is not a number from {} to {}", setting->name, word,
                     -setting->most, setting->most);
}

}  // namespace

std::optional<Target> Target::Parse(std::string_view text, std::string& wrong) {
  std::uint64_t key = 0;
  for (const char c : text) key = Mix(key + static_cast<unsigned char>(c));
  std::size_t comma = text.find(',');
  const std::string_view name = text.substr(0, comma);
  const Kind* const kind = Find(kKinds, name);
  if (kind == nullptr) {
    wrong =
        fmt::format("there is no scene \"{}\"; there are belt, plane, sawtooth and stairs", name);
    return std::nullopt;
  }
  Pose pose;
  while (comma != std::string_view::npos) {
    text.remove_prefix(comma + 1);
    comma = text.find(',');
    wrong = Read(text.substr(0, comma), pose);
    if (!wrong.empty()) return std::nullopt;
  }
  return Target(kind->make(pose), key);
}

}  // namespace board
