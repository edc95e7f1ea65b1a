// Interrupts writers of recordings at random moments, and looks at what they leave behind.
//   recording_storm [ROUNDS] [--seed N]
#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <filesystem>
#include <functional>
#include <random>
#include <string>

#include "record/storm/FleetRounds.h"
#include "record/storm/Rounds.h"

namespace {

constexpr int kSkipped = 77;

struct Kind {
  const char* name;
  std::function<std::optional<std::string>(const std::filesystem::path&, unsigned, std::string&)>
      round;
  unsigned good = 0, bad = 0, skipped = 0;
};

// In a process of its own, so that a crash is a finding like any other. Returns its exit code.
int RunApart(const Kind& kind, unsigned seed) {
  std::string folder = (std::filesystem::temp_directory_path() / "storm-XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) return 1;
  const pid_t child = fork();
  if (child == 0) {
    std::string skipped;
    std::optional<std::string> problem;
    try {
      problem = kind.round(folder, seed, skipped);
    } catch (const std::exception& error) {
      problem = error.what();
    }
    if (problem) fmt::print("{}, seed {}: {}\n", kind.name, seed, *problem);
    if (!skipped.empty()) fmt::print("{}, skipped: {}\n", kind.name, skipped);
    fflush(stdout);
    _exit(problem ? 1 : skipped.empty() ? 0 : kSkipped);
  }
  int status = 0;
  waitpid(child, &status, 0);
  std::filesystem::remove_all(folder);
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  fmt::print("{}, seed {}: signal {}\n", kind.name, seed, WTERMSIG(status));
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  unsigned rounds = 200;
  unsigned seed = std::random_device()();
  CLI::App app("Interrupts writers of recordings and looks at what they leave behind.");
  app.add_option("rounds", rounds);
  app.add_option("--seed", seed, "of the first round; the others follow");
  CLI11_PARSE(app, argc, argv);

  const auto simple = [](auto* round) {
    return [round](const std::filesystem::path& folder, unsigned number, std::string&) {
      return round(folder, number);
    };
  };
  std::array kinds{Kind{"kill -9", simple(storm::Kill)}, Kind{"power cut", simple(storm::PowerCut)},
                   Kind{"full disk, simulated", simple(storm::FullDisk)},
                   Kind{"full disk", storm::SmallDisk},
                   Kind{"sensors, power cut", simple(storm::FleetPowerCut)}};
  fmt::print("{} rounds, --seed {}\n", rounds, seed);
  fflush(stdout);
  for (unsigned i = 0; i < rounds; ++i) {
    Kind& kind = kinds[i % kinds.size()];
    const int result = RunApart(kind, seed + i);
    ++(result == 0 ? kind.good : result == kSkipped ? kind.skipped : kind.bad);
  }
  bool good = true;
  for (const Kind& kind : kinds) {
    fmt::print("{:20}  {:4} whole, {} not, {} skipped\n", kind.name, kind.good, kind.bad,
               kind.skipped);
    good = good && kind.bad == 0;
  }
  return good ? 0 : 1;
}
