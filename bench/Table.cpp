#include "Table.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace bench {

namespace {

constexpr std::array kWidths{58, 11, 11, 22, 9, 7, 6};

void PrintLine(const std::array<std::string, kWidths.size()>& cells) {
  for (std::size_t i = 0; i < cells.size(); ++i) {
    std::printf("| %-*s ", kWidths[i], cells[i].c_str());
  }
  std::puts("|");
  std::fflush(stdout);
}

Row Compare(std::string what, const Comparison& values, Goal goal, int digits, std::string library,
            std::string bare) {
  Row row{std::move(what),
          std::move(library),
          std::move(bare),
          Spread(values.ratio, digits),
          {},
          {},
          {}};
  row.goal = goal.Text();
  if (goal.kind != Goal::Kind::kNone) {
    row.verdict = goal.IsMet(values.ratio.Median()) ? "met" : "missed";
  }
  return row;
}

}  // namespace

bool Goal::IsMet(double value_reached) const {
  return kind == Kind::kAtLeast ? value_reached >= value : value_reached <= value;
}

std::string Goal::Text() const {
  if (kind == Kind::kNone) return {};
  char text[32];
  std::snprintf(text, sizeof text, "%s %g", kind == Kind::kAtMost ? "<=" : ">=", value);
  return text;
}

void Row::Print() const { PrintLine({what, library, bare, ratio, plain, goal, verdict}); }

void PrintHeading() {
  PrintLine({"", "library", "bare", "ratio (p10 .. p90)", "plain way", "goal", ""});
  for (const int width : kWidths) std::printf("|%s", std::string(width + 2, '-').c_str());
  std::puts("|");
}

std::string Number(double value, int digits) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", digits, value);
  return text;
}

std::string Time(double nanoseconds) {
  if (nanoseconds >= 1e9) return Number(nanoseconds / 1e9, 3) + " s";
  if (nanoseconds >= 1e6) return Number(nanoseconds / 1e6, 2) + " ms";
  if (nanoseconds >= 1e3) return Number(nanoseconds / 1e3, nanoseconds >= 1e5 ? 0 : 2) + " us";
  return Number(nanoseconds, 0) + " ns";
}

std::string Spread(const Samples& ratio, int digits) {
  return Number(ratio.Median(), digits) + " (" + Number(ratio.Quantile(0.1), digits) + " .. " +
         Number(ratio.Quantile(0.9), digits) + ")";
}

Row CompareTimes(std::string what, const Comparison& times, Goal goal, int digits) {
  return Compare(std::move(what), times, goal, digits, Time(times.library.Median()),
                 Time(times.bare.Median()));
}

Row CompareRates(std::string what, const Comparison& per_second, Goal goal, const char* unit) {
  return Compare(std::move(what), per_second, goal, kRatioDigits,
                 Number(per_second.library.Median(), 0) + unit,
                 Number(per_second.bare.Median(), 0) + unit);
}

Row Figure(std::string what, std::string value, std::string bare) {
  return {std::move(what), std::move(value), std::move(bare), {}, {}, {}, {}};
}

Options ReadOptions(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "--quick") {
      options.quick = true;
    } else if (argument == "--growth") {
      options.growth = true;
    } else if (argument == "--profile") {
      options.profile = true;
    } else {
      std::fprintf(stderr, "usage: %s [--quick] [--growth | --profile]\n", argv[0]);
      std::exit(2);
    }
  }
  return options;
}

}  // namespace bench
