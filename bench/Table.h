#pragma once

#include <array>
#include <string>

#include "Samples.h"

namespace bench {

// How long to measure, and what to print.
struct Options {
  bool quick = false;    // measures just enough to print every row; the figures mean nothing
  bool growth = false;   // prints series over sizes instead of the table
  bool profile = false;  // prints where a start-up spends its time instead of the table
};

// A goal for a ratio or a number. A figure without a goal is for information only.
struct Goal {
  enum class Kind { kNone, kAtMost, kAtLeast };
  Kind kind = Kind::kNone;
  double value = 0;

  static Goal AtMost(double value) { return {Kind::kAtMost, value}; }
  static Goal AtLeast(double value) { return {Kind::kAtLeast, value}; }

  // Compares the value as measured, not as rounded for display.
  bool IsMet(double value_reached) const;
  std::string Text() const;
};

// One row of the table that scripts/bench prints. The table is Markdown, padded so that it is
// readable in a terminal too.
struct Row {
  std::string what;
  std::string library;
  std::string bare;
  std::string ratio;
  std::string plain;
  std::string goal;
  std::string verdict;

  void Print() const;
};

void PrintHeading();

std::string Time(double nanoseconds);
std::string Number(double value, int digits);

// "1.02 (0.98 .. 1.11)": the median, and the 10th and 90th percentiles.
inline constexpr int kRatioDigits = 2;
std::string Spread(const Samples& ratio, int digits);

Row CompareTimes(std::string what, const Comparison& times, Goal goal = {},
                 int digits = kRatioDigits);
Row CompareRates(std::string what, const Comparison& per_second, Goal goal = {},
                 const char* unit = " /s");
Row Figure(std::string what, std::string value, std::string bare = {});

// Reads --quick, --growth and --profile. Any other option ends the process.
Options ReadOptions(int argc, char** argv);

}  // namespace bench
