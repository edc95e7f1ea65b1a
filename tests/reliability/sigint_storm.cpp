// Interrupts an application at random moments, again and again, and checks that it always ends
// correctly. Prints a table. Fails if any run does not end correctly. The column "cut" counts the
// runs in which exit() was too slow and the thread that guards the end ended the process. A correct
// end of this kind is no failure if the interrupted thread used the heap.
#include <stdlib.h>
#include <sys/prctl.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "reliability/InterruptedRun.h"
#include "support/Sanitizers.h"

namespace {

using tessaline_test::ActivityNamed;
using tessaline_test::InterruptedEnd;
using tessaline_test::InterruptedRun;
using tessaline_test::Interruption;

using tessaline_test::kStormActivities;

std::vector<std::string> AllActivities() {
  std::vector<std::string> names;
  for (const auto& activity : kStormActivities) names.emplace_back(activity.name);
  return names;
}

const std::vector<std::string> kModels = {
    "K3610", "K3710",           "K3710ch16", "K3710ch16arm_rebuild",
    "K3810", "K3820",           "K3920",     "K3920arm_rebuild",
    "K4010", "K4010arm_rebuild"};

struct Options {
  unsigned runs = 1000;
  std::uint64_t seed = std::random_device{}();
  unsigned within_ms = 200;
  // The library's two seconds start at its handler's first statement. Before that, the virtual
  // board finishes the current call. After an ordinary end it writes its transcript of some ten
  // thousand lines, on a machine that may be busy.
  double most_seconds = 2.5;
  std::string application;
  std::vector<std::string> activities = AllActivities();
  std::vector<std::string> models = kModels;
};

struct Row {
  std::vector<double> seconds;
  unsigned cut_short = 0;
  unsigned failures = 0;
};

double Quantile(std::vector<double> values, double quantile) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const double last = static_cast<double>(values.size() - 1);
  return values[static_cast<std::size_t>(last * quantile + 0.5)];
}

void PrintRow(const std::string& name, const Row& row) {
  const auto ms = [&](double quantile) { return 1000 * Quantile(row.seconds, quantile); };
  std::printf("%-11s %6zu %8.1f %8.1f %8.1f %6u %9u\n", name.c_str(), row.seconds.size(), ms(0.5),
              ms(0.99), ms(1), row.cut_short, row.failures);
}

void Report(unsigned run, const Interruption& what, const InterruptedEnd& end) {
  std::printf("run %u: %s, %s, interrupted after %.1f ms%s\n", run, what.model.c_str(),
              std::string(what.activity.name).c_str(),
              static_cast<double>(what.after.count()) / 1000, end.cut_short ? ", cut short" : "");
  for (const std::string& complaint : end.complaints) std::printf("    %s\n", complaint.c_str());
  std::fflush(stdout);
}

// Goes through all pairs, with similar ones as far apart as possible. So even a few runs cover as
// many models and activities as possible.
std::pair<std::string, std::string> ModelAndActivity(const Options& options, std::size_t run) {
  const std::size_t models = options.models.size();
  const std::size_t activities = options.activities.size();
  const std::size_t model = run + run / std::lcm(models, activities);
  return {options.models[model % models], options.activities[run % activities]};
}

// Keeps the files of failed runs and removes all others.
bool Storm(const Options& options) {
  namespace fs = std::filesystem;
  std::string pattern = (fs::temp_directory_path() / "sigint-storm-XXXXXX").string();
  const fs::path root = mkdtemp(pattern.data());
  std::mt19937_64 random(options.seed);
  std::uniform_int_distribution<unsigned> moment(0, options.within_ms * 1000);
  std::map<std::string, Row> rows;
  Row all;
  for (unsigned run = 0; run < options.runs; ++run) {
    const auto [model, activity] = ModelAndActivity(options, run);
    const Interruption what{model, ActivityNamed(activity),
                            std::chrono::microseconds(moment(random))};
    const fs::path directory = root / std::to_string(run);
    fs::create_directory(directory);
    const InterruptedEnd end =
        InterruptedRun(options.application, directory, options.most_seconds).Run(what);
    for (Row* row : {&rows[activity], &all}) {
      row->seconds.push_back(end.seconds);
      if (end.cut_short) ++row->cut_short;
      if (!end.complaints.empty()) ++row->failures;
    }
    if (end.complaints.empty()) {
      fs::remove_all(directory);
    } else {
      Report(run, what, end);
    }
  }
  std::printf("%-11s %6s %8s %8s %8s %6s %9s\n", "activity", "runs", "p50 ms", "p99 ms", "max ms",
              "cut", "failures");
  for (const std::string& activity : options.activities) PrintRow(activity, rows[activity]);
  PrintRow("all", all);
  if (all.failures == 0) {
    fs::remove_all(root);
  } else {
    std::printf("outputs and transcripts of failed runs: %s\n", root.c_str());
  }
  return all.failures == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if constexpr (tessaline_test::kThreadSanitizer) {
    std::printf(
        "skipped: the thread sanitizer runs signal handlers with SIGSEGV blocked, by which the "
        "virtual board sees register accesses\n");
    return 77;
  }
  CLI::App app("Interrupts applications at random moments.", "sigint_storm");
  Options options;
  app.add_option("runs", options.runs, "number of runs")->capture_default_str();
  app.add_option("--seed", options.seed, "seed for the random moments (printed)");
  app.add_option("--within", options.within_ms, "latest moment, ms")->capture_default_str();
  app.add_option("--most", options.most_seconds, "longest time to the end, s")
      ->capture_default_str();
  app.add_option("--application", options.application, "the program to interrupt")->required();
  app.add_option("--activity", options.activities, "only these activities")
      ->check(CLI::IsMember(AllActivities()));
  app.add_option("--model", options.models, "only these models");
  CLI11_PARSE(app, argc, argv);
  std::printf("%u runs, seed %llu\n", options.runs, static_cast<unsigned long long>(options.seed));
  std::fflush(stdout);
  prctl(PR_SET_CHILD_SUBREAPER, 1);  // the applications' children are checked too
  return Storm(options) ? EXIT_SUCCESS : EXIT_FAILURE;
}
