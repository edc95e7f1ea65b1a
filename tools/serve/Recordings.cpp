#include "serve/Recordings.h"

#include <fmt/chrono.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <thread>
#include <utility>

#include "Failure.h"
#include "serve/LogLines.h"
#include "serve/Spawn.h"

namespace tool::serve {
namespace {

constexpr std::chrono::seconds kPatience{10};
constexpr double kMegabyte = 1e6;

double Megabytes(const std::filesystem::path& path) {
  std::error_code error;
  const auto bytes = std::filesystem::file_size(path, error);
  return error ? 0 : static_cast<double>(bytes) / kMegabyte;
}

}  // namespace

Recordings::Recordings(std::string folder, std::string socket)
    : folder_(std::move(folder)), socket_(std::move(socket)) {
  if (folder_.empty()) return;
  std::error_code error;
  std::filesystem::create_directories(folder_, error);
  if (!std::filesystem::is_directory(folder_)) {
    throw Failure(ExitCode::kFile, fmt::format("{} is no folder for recordings", folder_),
                  "give another one with --recordings");
  }
}

void Recordings::End() {
  if (Current().is_null()) return;
  try {
    Stop();
  } catch (const Failure&) {  // it completes its file when the disk lets it
  }
}

Json Recordings::Start() {
  const std::lock_guard lock(mutex_);
  if (!possible()) {
    throw Failure(ExitCode::kNegative, "there is no folder for recordings",
                  "start the daemon with --recordings FOLDER");
  }
  if (Look()) throw Failure(ExitCode::kNegative, fmt::format("{} is being recorded", file_));
  const std::time_t now = std::time(nullptr);
  std::string file = fmt::format("{:%Y%m%d-%H%M%S}.db3", fmt::gmtime(now));
  for (int i = 2; std::filesystem::exists(PathOf(file)); ++i) {
    file = fmt::format("{:%Y%m%d-%H%M%S}-{}.db3", fmt::gmtime(now), i);
  }
  if (report_ >= 0) close(report_);
  report_ = memfd_create("tessaline-report", MFD_CLOEXEC);
  child_ = Spawn({ProgramBeside("tessaline"), "record", "-o", PathOf(file), "--json"},
                 {{"TESSALINE_SOCKET", socket_}}, /*on_board=*/false, /*input=*/-1, report_);
  asked_to_end_ = false;
  failure_ = nullptr;
  file_ = file;
  start_ = Clock::now();
  before_ = Feed::Instance().counts();
  dropped_before_ = Feed::Instance().DroppedByTaps();
  return {{"file", file_}};
}

bool Recordings::Look() {
  int status = 0;
  if (child_ > 0 && waitpid(child_, &status, WNOHANG) == child_) {
    child_ = -1;
    if (!asked_to_end_) Explain(status);
  }
  return child_ > 0;
}

void Recordings::Explain(int status) {
  const std::string reason =
      WIFSIGNALED(status) ? fmt::format("its program was ended by signal {}", WTERMSIG(status))
                          : fmt::format("its program ended with status {}", WEXITSTATUS(status));
  const std::string text =
      fmt::format("the recording {} ended by itself: {}", file_, Report().value("error", reason));
  failure_ = text;
  LogLines::Instance().Note(text);
}

Json Recordings::WhyEnded() {
  const std::lock_guard lock(mutex_);
  Look();
  return failure_;
}

Json Recordings::Stop() {
  const auto running = [this] {
    const std::lock_guard lock(mutex_);
    return Look();
  };
  Json last = Current();
  if (last.is_null()) {
    const Json why = WhyEnded();
    throw Failure(ExitCode::kNegative, "nothing is being recorded",
                  why.is_string() ? why.get<std::string>() : "");
  }
  {
    const std::lock_guard lock(mutex_);
    // A second one would end it in the middle of its file.
    if (Look() && !std::exchange(asked_to_end_, true)) kill(child_, SIGINT);
  }
  const auto end = Clock::now() + kPatience;
  while (running() && Clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  if (running()) {
    throw Failure(ExitCode::kUnreachable, fmt::format("{} is still being written", file_),
                  "the disk is slow; ask again");
  }
  const Json report = Report();
  last["megabytes"] = Megabytes(PathOf(file_));
  last["frames"] = report.value("strips", 0ULL) + report.value("images", 0ULL);
  last["dropped"] = report.value("dropped_frames", 0ULL);
  if (report.contains("error")) last["error"] = report["error"];
  return last;
}

// What the recorder has said at its end.
Json Recordings::Report() const {
  std::string text;
  std::array<char, 4096> part{};
  for (off_t at = 0;; at += static_cast<off_t>(part.size())) {
    const ssize_t got = pread(report_, part.data(), part.size(), at);
    if (got <= 0) break;
    text.append(part.data(), static_cast<std::size_t>(got));
  }
  Json report = Json::parse(text, nullptr, /*allow_exceptions=*/false);
  return report.is_object() ? report : Json::object();
}

Json Recordings::Current() {
  const std::lock_guard lock(mutex_);
  if (!Look()) return nullptr;
  const Feed::Counts now = Feed::Instance().counts();
  return {{"file", file_},
          {"seconds", std::chrono::duration<double>(Clock::now() - start_).count()},
          {"megabytes", Megabytes(PathOf(file_)) + Megabytes(PathOf(file_) + "-wal")},
          {"frames", now.strips + now.images - before_.strips - before_.images},
          {"dropped", Feed::Instance().DroppedByTaps() - dropped_before_}};
}

Json Recordings::List() const {
  std::vector<std::string> names;
  std::error_code error;
  if (possible()) {
    for (const auto& entry : std::filesystem::directory_iterator(folder_, error)) {
      if (entry.path().extension() == ".db3") names.push_back(entry.path().filename());
    }
  }
  std::sort(names.begin(), names.end());
  Json files = Json::array();
  for (const std::string& name : names) {
    files.push_back({{"file", name}, {"megabytes", Megabytes(PathOf(name))}});
  }
  return {{"folder", folder_}, {"files", files}};
}

}  // namespace tool::serve
