// Makes every call into the board fail in turn, each in its own process, and judges the outcome by
// Rules.h. The exit status is 1 if any outcome is wrong.
//
//   fault_matrix [--every N] [--only DEVICE] [--in FUNCTION] [--jobs N] [--all-errors] [--verbose]
//   [MODEL ...]
#include <errno.h>
#include <fmt/format.h>
#include <string.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <list>
#include <map>
#include <memory>
#include <thread>

#include "Calls.h"
#include "FaultRun.h"
#include "Judge.h"
#include "tessaline/board.h"

namespace {

using namespace reliability;

const std::vector<std::string> kAllModels{
    "K3610", "K3710",           "K3710ch16", "K3710ch16arm_rebuild",
    "K3810", "K3820",           "K3920",     "K3920arm_rebuild",
    "K4010", "K4010arm_rebuild"};

constexpr auto kPoll = std::chrono::milliseconds(1);
constexpr double kLongestTour = 120;  // on a machine under load
// Only a thread that waits for the register lock is quiet for this long.
constexpr double kQuietSeconds = 0.3;
// No thread that can still end is quiet for this long.
constexpr double kStuckSeconds = 10;

struct Options {
  std::vector<std::string> models;
  unsigned every = 1;
  unsigned jobs = 0;
  std::string only;
  std::string during;
  bool all_errors = false;
  bool verbose = false;
};

struct Case {
  Failure failure;
  std::unique_ptr<FaultRun> run;
};

std::string ErrorName(int error) {
  return error == TESSALINE_BOARD_SHORT ? "short" : strerrorname_np(error);
}

using Counts = std::array<unsigned, std::size(kVerdictNames)>;

struct Series {
  std::string model;
  std::size_t calls = 0;
  Counts counts{};
};

unsigned Cases(const Counts& counts) {
  unsigned sum = 0;
  for (const unsigned count : counts) sum += count;
  return sum;
}

class Matrix {
 public:
  explicit Matrix(const Options& options) : options_(options) {}

  void Run(const std::string& model) {
    model_ = model;
    const auto start = std::chrono::steady_clock::now();
    reference_ = Survey(model);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    // Allows for parallel runs, and a few seconds for frames that do not arrive.
    patience_ = 8 * took.count() * options_.jobs + 20;

    const auto calls = CallsOf(reference_.events);
    series_.push_back({model, calls.size(), {}});
    if (reference_.ending != Ending::kReturned || calls.empty()) {
      Note({}, {Verdict::kDefect, "the tour fails by itself"}, "");
      return;
    }
    auto failures = FailuresOf(calls, options_.all_errors);
    std::erase_if(failures, [this](const Failure& failure) {
      const Call& call = failure.call;
      return !call.device.starts_with(options_.only) || !call.during.starts_with(options_.during);
    });
    for (std::size_t i = FirstOf(model); i < failures.size(); i += options_.every) {
      while (running_.size() >= options_.jobs) Collect();
      Begin(failures[i]);
    }
    while (!running_.empty()) Collect();
    fmt::print(stderr, "{}: {} cases, {} defects\n", model, Cases(series_.back().counts),
               series_.back().counts[static_cast<std::size_t>(Verdict::kDefect)]);
  }

  // Returns false if there is a defect.
  bool Report() const {
    fmt::print("\n| model | calls | cases |");
    for (const char* name : kVerdictNames) fmt::print(" {} |", name);
    fmt::print("\n|---|---|---|");
    for (std::size_t i = 0; i < std::size(kVerdictNames); ++i) fmt::print("---|");
    Series all{"all", 0, {}};
    for (const Series& one : series_) {
      Print(one);
      all.calls += one.calls;
      for (std::size_t i = 0; i < all.counts.size(); ++i) all.counts[i] += one.counts[i];
    }
    Print(all);
    fmt::print("\n\n| cases | call | why it need not be told, or holds the program |\n");
    fmt::print("|---|---|---|\n");
    for (const auto& [reason, count] : reasons_) {
      fmt::print("| {} | {} | {} |\n", count, reason.first, reason.second);
    }
    return all.counts[static_cast<std::size_t>(Verdict::kDefect)] == 0 && Cases(all.counts) > 0;
  }

 private:
  // Returns the one of several tours that has the fewest events. The others had to wait for
  // something, and made calls that do not occur every time.
  static Outcome Survey(const std::string& model) {
    constexpr int kTours = 3;
    Outcome fewest;
    for (int i = 0; i < kTours; ++i) {
      const auto tour = FaultRun::Survey(model, {kLongestTour, kLongestTour});
      while (!tour->Ended()) std::this_thread::sleep_for(kPoll);
      Outcome outcome = tour->Take();
      if (i == 0 || outcome.events.size() < fewest.events.size()) fewest = std::move(outcome);
    }
    return fewest;
  }

  // Each product's sample starts at a different call, but always at the same one.
  std::size_t FirstOf(const std::string& model) const {
    const auto at = std::ranges::find(kAllModels, model) - kAllModels.begin();
    return options_.every * static_cast<std::size_t>(at) / (kAllModels.size() + 1);
  }

  void Begin(const Failure& failure) {
    const Rule* const rule = RuleFor(model_, failure.call, failure.error);
    const bool must_hang = rule != nullptr && rule->effect == Effect::kHangs;
    const bool must_stop = rule != nullptr && rule->effect == Effect::kStops;
    const FaultRun::Patience patience{
        patience_, must_hang ? kQuietSeconds : (must_stop ? kStuckSeconds : patience_)};
    const Call& call = failure.call;
    running_.push_back(
        {failure,
         std::make_unique<FaultRun>(
             model_, Fault{call.device, call.operation, call.step, call.nth, failure.error},
             patience)});
  }

  void Collect() {
    std::this_thread::sleep_for(kPoll);
    running_.remove_if([this](Case& some) {
      if (!some.run->Ended()) return false;
      const Outcome outcome = some.run->Take();
      const auto& [call, error] = some.failure;
      Note(some.failure, Judge(model_, call, error, reference_, outcome),
           call.step < outcome.results.size() ? outcome.results[call.step] : call.during);
      return true;
    });
  }

  void Note(const Failure& failure, const Judgement& judgement, const std::string& step) {
    ++series_.back().counts[static_cast<std::size_t>(judgement.verdict)];
    const Call& call = failure.call;
    const bool defect = judgement.verdict == Verdict::kDefect;
    const bool told = judgement.verdict == Verdict::kText || judgement.verdict == Verdict::kResult;
    if (!told && !defect) {
      const std::string device =
          call.device.substr(0, call.device.find_last_not_of("-.0123456789") + 1);
      ++reasons_[{device + ' ' + call.operation, judgement.reason}];
    }
    if (!defect && !options_.verbose) return;
    fmt::print("{} {} {}{}{} #{} {} in {}: {}{}\n", model_, call.device, call.operation,
               call.access.empty() ? "" : " for ", call.access, call.nth, ErrorName(failure.error),
               step,
               defect ? "DEFECT: " : kVerdictNames[static_cast<std::size_t>(judgement.verdict)],
               defect ? judgement.reason : "");
    fflush(stdout);
  }

  static void Print(const Series& one) {
    fmt::print("\n| {} | {} | {} |", one.model, one.calls, Cases(one.counts));
    for (const unsigned count : one.counts) fmt::print(" {} |", count);
  }

  const Options& options_;
  std::string model_;
  Outcome reference_;
  double patience_ = 0;
  std::list<Case> running_;
  std::vector<Series> series_;
  std::map<std::pair<std::string, std::string>, unsigned> reasons_;
};

}  // namespace

int main(int argc, char** argv) {
  Options options;
  // Many of the processes only wait for a lock that never becomes free.
  options.jobs = 4 * std::max(1U, std::thread::hardware_concurrency());
  CLI::App app("Makes every call into the virtual board fail in turn.", "fault_matrix");
  app.add_option("models", options.models, "model codes; default: all ten products");
  app.add_option("--every", options.every, "run only every Nth case")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  app.add_option("--jobs", options.jobs, "processes at a time")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  app.add_option("--only", options.only,
                 "only devices whose names start with this: fpga, i2c, ...");
  app.add_option("--in", options.during,
                 "only calls in functions whose names start with this: SetROI1, ..., and SIGINT");
  app.add_flag("--all-errors", options.all_errors, "each call with each error it can have");
  app.add_flag("--verbose", options.verbose, "a line per case, not only for defects");
  CLI11_PARSE(app, argc, argv);
  Matrix matrix(options);
  for (const std::string& model : options.models.empty() ? kAllModels : options.models) {
    matrix.Run(model);
  }
  return matrix.Report() ? EXIT_SUCCESS : EXIT_FAILURE;
}
