#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

// Runs pairs of benchmarks side by side in one process, interleaved, and prints
// how many times the second the first takes. Times on a shared machine mean
// little; the ratio of two best times in one run does.
struct Ratio {
  std::string what;
  std::string measured;  // names of benchmarks
  std::string against;
};

class BestTimes : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      const double time = run.GetAdjustedRealTime();
      const auto [entry, fresh] = best_.emplace(run.run_name.function_name, time);
      if (!fresh) entry->second = std::min(entry->second, time);
    }
  }

  void Print(const std::vector<Ratio>& ratios) const {
    std::printf("%-52s %12s %12s %8s\n", "", "ns", "against ns", "ratio");
    for (const Ratio& ratio : ratios) {
      const double measured = best_.at(ratio.measured);
      const double against = best_.at(ratio.against);
      std::printf("%-52s %12.0f %12.0f %8.2f\n", ratio.what.c_str(), measured, against,
                  measured / against);
    }
  }

 private:
  std::map<std::string, double> best_;
};
