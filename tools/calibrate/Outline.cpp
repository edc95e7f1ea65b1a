#include "calibrate/Outline.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>

#include "Failure.h"

namespace tool::calibrate {
namespace {

using Samples = std::vector<Sample>;

[[noreturn]] void Refuse(
    const View& view, const std::string& what,
    const char* next = "does the laser line lie across the whole target, without other objects?") {
  throw Failure(ExitCode::kUsage, fmt::format("{}: {}", view.name, what), next);
}

// A straight line through samples, by least squares.
struct Line {
  double column = 0;  // its middle
  double row = 0;
  double slope = 0;
  double rms = 0;

  double At(double c) const { return row + slope * (c - column); }
};

Line Fit(const Samples& samples, std::size_t begin, std::size_t end) {
  Line line;
  const auto n = static_cast<double>(end - begin);
  for (std::size_t i = begin; i < end; ++i) {
    line.column += samples[i].column / n;
    line.row += samples[i].row / n;
  }
  double across = 0;
  double along = 0;
  for (std::size_t i = begin; i < end; ++i) {
    const double c = samples[i].column - line.column;
    across += c * c;
    along += c * (samples[i].row - line.row);
  }
  if (across > 0) line.slope = along / across;
  double squares = 0;
  for (std::size_t i = begin; i < end; ++i) {
    const double off = samples[i].row - line.At(samples[i].column);
    squares += off * off;
  }
  line.rms = std::sqrt(squares / n);
  return line;
}

// How wide a window is to see a facet and not the noise: the same part of every sensor.
std::size_t WindowOf(const Samples& samples) {
  constexpr std::size_t kWindows = 160;
  return std::max<std::size_t>(samples.size() / kWindows, 4);
}

// --- Sawtooth ------------------------------------------------------------------------------

// Where the slope changes its sign.
std::vector<std::size_t> Turns(const Samples& samples, std::size_t window) {
  std::vector<std::size_t> turns;
  double before = 0;
  for (std::size_t i = window; i + window < samples.size(); ++i) {
    const double slope = Fit(samples, i - window, i + window + 1).slope;
    if (before * slope < 0) turns.push_back(i);
    if (slope != 0) before = slope;
  }
  return turns;
}

// A vertex rounds off within a window; a facet that is not several of them long is noise.
Outline TakeSawtoothApart(const View& view, const Target& target, double middle_column) {
  const Samples& samples = view.samples;
  const std::size_t window = WindowOf(samples);
  struct Tooth {
    std::size_t begin, end;
    Line line;
  };
  std::vector<Tooth> sides;
  std::vector<std::size_t> bounds = Turns(samples, window);
  bounds.insert(bounds.begin(), 0);
  bounds.push_back(samples.size());
  for (std::size_t i = 0; i + 1 < bounds.size(); ++i) {
    const std::size_t begin = bounds[i] + window;
    if (bounds[i + 1] < begin + 3 * window) continue;
    const std::size_t end = bounds[i + 1] - window;
    sides.push_back({begin, end, Fit(samples, begin, end)});
    const std::size_t n = sides.size();
    if (n > 1 && sides[n - 1].line.slope * sides[n - 2].line.slope >= 0) {
      Refuse(view, "this is not a sawtooth");
    }
  }
  if (sides.size() < 4) Refuse(view, "a sawtooth shows at least four of its sides");

  // Heights grow where rows get smaller. The valley that is nearest to the middle is s = 0.
  std::size_t right_of_valley = 0;
  double nearest = HUGE_VAL;
  std::vector<double> vertices;
  for (std::size_t i = 1; i < sides.size(); ++i) {
    const Line& left = sides[i - 1].line;
    const Line& right = sides[i].line;
    vertices.push_back(
        (right.row - left.row - right.slope * right.column + left.slope * left.column) /
        (left.slope - right.slope));
    const double away = std::abs(vertices.back() - middle_column);
    if (right.slope < 0 && away < nearest) {
      nearest = away;
      right_of_valley = i;
    }
  }
  Outline outline;
  for (std::size_t i = 0; i < sides.size(); ++i) {
    const std::size_t facet = target.middle + i - right_of_valley;
    outline.pieces.push_back({facet, sides[i].begin, sides[i].end});
    if (i == 0) continue;
    const double column = vertices[i - 1];
    outline.corners.push_back({column, sides[i].line.At(column), target.facets[facet].begin});
  }
  return outline;
}

// --- Stairs --------------------------------------------------------------------------------

double MiddleRow(const Samples& samples, std::size_t begin, std::size_t end) {
  std::vector<double> rows;
  for (std::size_t i = begin; i < end; ++i) rows.push_back(samples[i].row);
  const auto middle = rows.begin() + static_cast<std::ptrdiff_t>(rows.size() / 2);
  std::nth_element(rows.begin(), middle, rows.end());
  return *middle;
}

// A run of samples on one tread.
struct Tread {
  std::size_t begin, end;
  Line line;
};

struct Seen {
  std::vector<Tread> treads;
  double least_step = 0;  // rows
};

// Where the row changes by much more than along a tread.
Seen SeeTreads(const Samples& samples, std::size_t window) {
  std::vector<double> jumps(samples.size());
  double largest = 0;
  for (std::size_t i = window; i + window <= samples.size(); ++i) {
    jumps[i] = std::abs(MiddleRow(samples, i, i + window) - MiddleRow(samples, i - window, i));
    largest = std::max(largest, jumps[i]);
  }
  Seen seen{.treads = {}, .least_step = largest * kSmallestStep};
  auto& treads = seen.treads;
  std::size_t begin = 0;
  for (std::size_t i = 0; i <= samples.size(); ++i) {
    const bool jump = i == samples.size() || jumps[i] > seen.least_step;
    if (!jump) continue;
    // A short run is the wall between two treads.
    if (i >= begin + 3 * window) treads.push_back({begin, i, Fit(samples, begin, i)});
    begin = i + 1;
  }
  // As far as the samples follow the line.
  for (Tread& tread : treads) {
    const double near = 1 + 4 * tread.line.rms;
    const auto follows = [&](std::size_t i) {
      return std::abs(samples[i].row - tread.line.At(samples[i].column)) < near;
    };
    while (tread.begin > 0 && follows(tread.begin - 1)) --tread.begin;
    while (tread.end < samples.size() && follows(tread.end)) ++tread.end;
    while (tread.begin + 1 < tread.end && !follows(tread.begin)) ++tread.begin;
    while (tread.begin + 1 < tread.end && !follows(tread.end - 1)) --tread.end;
  }
  return seen;
}

// Steps for people, from left to right.
std::string Named(const std::vector<bool>& up) {
  constexpr std::size_t kMost = 12;
  std::string names;
  for (std::size_t i = 0; i < up.size() && i < kMost; ++i) {
    names += fmt::format("{}{}", i == 0 ? "" : ", ", up[i] ? "up" : "down");
  }
  if (up.size() > kMost) names += ", ...";
  return names.empty() ? "none" : names;
}

Outline TakeStairsApart(const View& view, const Target& target) {
  const Samples& samples = view.samples;
  const std::size_t window = WindowOf(samples);
  const auto [treads, least_step] = SeeTreads(samples, window);

  // What the steps are: up where rows get smaller.
  std::vector<bool> up;
  for (std::size_t i = 1; i < treads.size(); ++i) {
    const double between = samples[treads[i].begin].column;
    up.push_back(treads[i].line.At(between) < treads[i - 1].line.At(between));
  }
  // Which run of the target's treads that is.
  std::vector<bool> wanted;
  for (std::size_t i = 1; i < target.facets.size(); ++i) {
    wanted.push_back(target.facets[i].begin.y() > target.facets[i - 1].begin.y());
  }
  const auto at = std::search(wanted.begin(), wanted.end(), up.begin(), up.end());
  if (up.size() < 2 || at == wanted.end()) {
    Refuse(view,
           fmt::format("the steps seen are {}, and those of the target {}; a change by less than "
                       "{:.0f} rows is no step",
                       Named(up), Named(wanted), least_step),
           "what is beside the target counts, too: cover it, or describe it as treads; no step may "
           "be smaller than a third of the largest");
  }
  if (std::search(at + 1, wanted.end(), up.begin(), up.end()) != wanted.end()) {
    Refuse(view, "the visible treads could be several of the target's");
  }

  Outline outline;
  outline.corners_are_measured = true;
  const auto first = static_cast<std::size_t>(at - wanted.begin());
  // Light from the edges falls beside them.
  const std::size_t margin = std::max<std::size_t>(window / 2, 2);
  for (std::size_t i = 0; i < treads.size(); ++i) {
    const auto& [begin, end, line] = treads[i];
    if (end < begin + 4 * margin) Refuse(view, "a tread is too narrow");
    outline.pieces.push_back({first + i, begin + margin, end - margin});
    const Facet& facet = target.facets[first + i];
    // Only the upper tread is seen up to the edge: the lower one may lie in its shadow.
    if (i > 0 && up[i - 1]) {
      const double column = samples[begin].column - 0.5;
      outline.corners.push_back({column, line.At(column), facet.begin});
    }
    if (i < up.size() && !up[i]) {
      const double column = samples[end - 1].column + 0.5;
      outline.corners.push_back({column, line.At(column), facet.end});
    }
  }
  return outline;
}

}  // namespace

Outline TakeApart(const View& view, const Target& target, double middle_column) {
  constexpr std::size_t kFewest = 50;
  if (view.samples.size() < kFewest) {
    Refuse(view, fmt::format("{} columns show the line, which are too few", view.samples.size()));
  }
  switch (target.kind) {
    case Target::Kind::kSawtooth:
      return TakeSawtoothApart(view, target, middle_column);
    case Target::Kind::kStairs:
      return TakeStairsApart(view, target);
    case Target::Kind::kPlane:
      break;
  }
  return {{{0, 0, view.samples.size()}}, {}, false};
}

}  // namespace tool::calibrate
