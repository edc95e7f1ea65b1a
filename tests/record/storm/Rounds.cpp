#include "record/storm/Rounds.h"

#include <fmt/format.h>
#include <sched.h>
#include <signal.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <random>
#include <thread>

#include "Failure.h"
#include "record/storm/Numbered.h"
#include "record/storm/SimulatedDisk.h"

namespace storm {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using tool::BagWriter;
using tool::Failure;

constexpr const char* kFile = "run.db3";

// What the process says that will be killed.
[[noreturn]] void WriteForEver(const std::filesystem::path& path, unsigned seed,
                               milliseconds period, int tell) {
  Progress progress;
  const auto say = [&] {
    if (write(tell, &progress, sizeof progress) != sizeof progress) _exit(1);
  };
  try {
    BagWriter writer(path);
    progress.created = true;
    say();
    auto due = steady_clock::now() + period;
    for (;;) {
      WriteNumbered(writer, seed, progress.written++);
      if (steady_clock::now() < due) continue;
      writer.Sync();
      progress.synced = progress.written;
      say();
      due = steady_clock::now() + period;
    }
  } catch (const Failure& failure) {
    fmt::print(stderr, "{}\n", failure.what());
    _exit(1);
  }
}

// A writer's work on a simulated disk.
struct Plan {
  unsigned seed;
  std::uint32_t messages;
  std::uint32_t per_sync;
};

Plan PlanOf(std::mt19937& random, unsigned seed) {
  // Some have more between two syncs than SQLite's cache holds.
  const bool large = random() % 16 == 0;
  return {.seed = seed,
          .messages = static_cast<std::uint32_t>(large ? 1200 : random() % 60),
          .per_sync = static_cast<std::uint32_t>(large ? 1000 : 1 + random() % 20)};
}

// Returns what was done, and whether it failed. Once it has failed, the writer must refuse.
Progress Work(const std::filesystem::path& path, const Plan& plan, std::string& failure,
              std::optional<std::string>& problem) {
  Progress progress;
  std::optional<BagWriter> writer;
  try {
    writer.emplace(path);
    progress.created = true;
    while (progress.written < plan.messages) {
      WriteNumbered(*writer, plan.seed, progress.written++);
      if (progress.written % plan.per_sync != 0) continue;
      writer->Sync();
      progress.synced = progress.written;
    }
    progress.closing = true;
    writer->Close();
    progress.synced = progress.written;
  } catch (const Failure& error) {
    failure = error.what();
  }
  if (!writer || failure.empty()) return progress;
  const auto require_refusal = [&](const char* what, const auto& call) {
    try {
      call();
      problem = fmt::format("after \"{}\", {} is possible", failure, what);
    } catch (const Failure&) {
    }
  };
  require_refusal("Write", [&] { WriteNumbered(*writer, plan.seed, progress.written + 1); });
  require_refusal("Sync", [&] { writer->Sync(); });
  require_refusal("Close", [&] { writer->Close(); });
  return progress;
}

// How many calls of the disk the whole work takes. Throws Failure if it fails.
std::uint64_t CallsOf(const Plan& plan, const std::filesystem::path& folder) {
  SimulatedDisk disk;
  std::string failure;
  std::optional<std::string> problem;
  const auto path = folder / "rehearsal.db3";
  Work(path, plan, failure, problem);
  std::filesystem::remove(path);
  if (!failure.empty()) throw Failure(tool::ExitCode::kFile, "rehearsal: " + failure);
  return disk.calls();
}

}  // namespace

std::optional<std::string> Kill(const std::filesystem::path& folder, unsigned seed) {
  std::mt19937 random(seed);
  const milliseconds period(50 + random() % 51);
  int ends[2];
  if (pipe(ends) != 0) return "no pipe";
  const pid_t child = fork();
  if (child == 0) WriteForEver(folder / kFile, seed, period, ends[1]);
  close(ends[1]);
  // Some before the first sync.
  std::this_thread::sleep_for(std::chrono::microseconds(random() % 400'000));
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  Progress progress;
  while (read(ends[0], &progress, sizeof progress) == sizeof progress) {
  }
  close(ends[0]);
  if (!WIFSIGNALED(status)) return "the writer ended by itself";
  progress.written = UINT32_MAX;  // unknown: it was writing when it died
  return Problem(folder / kFile, seed, progress);
}

namespace {

// Writes on a simulated disk that is told what happens to it, after which of its calls, and what of
// it is there in the end.
std::optional<std::string> OnSimulatedDisk(
    const std::filesystem::path& folder, unsigned seed,
    const std::function<void(SimulatedDisk&, std::mt19937&, std::uint64_t calls)>& begin,
    const std::function<void(SimulatedDisk&, std::mt19937&, const std::string& failure)>& end) {
  std::mt19937 random(seed);
  const Plan plan = PlanOf(random, seed);
  const std::uint64_t calls = CallsOf(plan, folder);
  Progress progress;
  std::optional<std::string> problem;
  {
    SimulatedDisk disk;
    begin(disk, random, calls);
    std::string failure;
    progress = Work(folder / kFile, plan, failure, problem);
    end(disk, random, failure);
  }
  return problem ? problem : Problem(folder / kFile, seed, progress);
}

}  // namespace

std::optional<std::string> PowerCut(const std::filesystem::path& folder, unsigned seed) {
  return OnSimulatedDisk(
      folder, seed,
      [](SimulatedDisk& disk, std::mt19937& random, std::uint64_t calls) {
        disk.CutAfter(random() % (calls + 1));  // the last one: after the end
      },
      [](SimulatedDisk& disk, std::mt19937& random, const std::string&) {
        disk.SaveAfterCut(random);
      });
}

std::optional<std::string> FullDisk(const std::filesystem::path& folder, unsigned seed) {
  std::optional<std::string> odd;
  const auto problem = OnSimulatedDisk(
      folder, seed,
      [](SimulatedDisk& disk, std::mt19937& random, std::uint64_t calls) {
        disk.FullAfter(random() % calls);
      },
      [&](SimulatedDisk& disk, std::mt19937& random, const std::string& failure) {
        if (!failure.empty() && failure.find("the disk is full") == std::string::npos) {
          odd = fmt::format("it says \"{}\"", failure);
        }
        seed % 2 == 0 ? disk.Save() : disk.SaveAfterCut(random);
      });
  return odd ? odd : problem;
}

std::optional<std::string> SmallDisk(const std::filesystem::path& folder, unsigned seed,
                                     std::string& skipped) {
  std::mt19937 random(seed);
  const std::string size = fmt::format("size={}k", 256 + random() % 20'000);
  // A mount of one's own takes a user of one's own, except for root.
  if (unshare(geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWUSER | CLONE_NEWNS) != 0 ||
      mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("tmpfs", folder.c_str(), "tmpfs", 0, size.c_str()) != 0) {
    skipped = fmt::format("no disk of one's own: {}", strerror(errno));
    return std::nullopt;
  }
  const Plan plan{
      .seed = seed, .messages = 100'000, .per_sync = static_cast<std::uint32_t>(1 + random() % 20)};
  std::string failure;
  std::optional<std::string> problem;
  const Progress progress = Work(folder / kFile, plan, failure, problem);
  if (failure.find("the disk is full") == std::string::npos) {
    return fmt::format("it says \"{}\"", failure);
  }
  if (!progress.created && !std::filesystem::is_empty(folder)) return "something is left of it";
  return problem ? problem : Problem(folder / kFile, seed, progress);
}

}  // namespace storm
