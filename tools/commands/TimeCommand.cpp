#include <time.h>

#include <chrono>
#include <optional>
#include <string>

#include "Device.h"
#include "Interrupt.h"
#include "Registers.h"
#include "commands/Commands.h"
#include "time/ClockFit.h"
#include "time/ClockSource.h"

namespace tool {
namespace {

constexpr About kTimeAbout{
    "time", "Shows how well the time of strips is known", Touches::kReads,
    "Strips and images are stamped by a counter of the FPGA. This reads the counter for some "
    "seconds, compares it with the host's clock, and asks the kernel and ptp4l how good that clock "
    "is. The sensor is not started, and goes on if it runs.",
    "  tessaline time --virtual K3610\n  tessaline time -t 60 --json --model K3610"};

constexpr std::chrono::milliseconds kBetweenPairs{100};
constexpr std::size_t kPairsOfAMinute = 600;
constexpr int kAttempts = 5;  // the fastest of so many reads counts

std::int64_t HostNow() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

// The counter's words have no latch, so the upper one is read around the lower one. Nothing if it
// changed, or if the host's clock was set meanwhile.
std::optional<ClockPair> ReadPair(const Registers& registers) {
  const std::uint32_t high = registers.Read(fpga::kReg.TIMER_COUNTER_H);
  const std::int64_t before = HostNow();
  const std::uint32_t low = registers.Read(fpga::kReg.TIMER_COUNTER_L);
  const std::int64_t after = HostNow();
  if (registers.Read(fpga::kReg.TIMER_COUNTER_H) != high || after < before) return std::nullopt;
  return ClockPair{before + (after - before) / 2, std::uint64_t{high} << 32 | low,
                   static_cast<std::uint64_t>(after - before)};
}

std::optional<ClockPair> BestPair(const Registers& registers) {
  std::optional<ClockPair> best;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const auto pair = ReadPair(registers);
    if (pair && (!best || pair->uncertainty_ns < best->uncertainty_ns)) best = pair;
  }
  return best;
}

class TimeCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddCommand(parent, kTimeAbout, common);
    app_->add_option("-t,--time", seconds_, "Compare the clocks for this many seconds (5)")
        ->check(NumberIn(0.5, kMostSeconds))
        ->type_name("SECONDS");
    app_->add_option("--ptp-socket", ptp_socket_, "Where ptp4l answers, if not in /var/run")
        ->type_name("PATH");
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    const Device device(session);
    const Registers registers = device.OpenRegisters();
    CatchInterrupts([] {});
    const bool complete = Compare(registers);
    const ClockSource source = ClockSource::Look(ptp_socket_);
    const std::optional<Drift> drift = fit_.CounterDrift();
    if (!drift) {
      if (!complete) return ExitCode::kInterrupted;
      throw Failure(ExitCode::kUnreachable, "the FPGA's counter stands",
                    "\"tessaline check\" tests the board");
    }
    Show(session, source, *drift);
    return complete ? ExitCode::kOk : ExitCode::kInterrupted;
  }

 private:
  using Clock = std::chrono::steady_clock;

  // False if it was interrupted.
  bool Compare(const Registers& registers) {
    const auto end = Clock::now() + std::chrono::duration<double>(seconds_);
    do {
      if (const auto pair = BestPair(registers)) {
        fit_.Add(*pair);
        last_ = *pair;
      }
      if (PauseFor(kBetweenPairs)) return false;
    } while (Clock::now() < end);
    return true;
  }

  void Show(const Session& session, const ClockSource& source, const Drift& drift) const {
    const double stamp_ns = fit_.At(last_.ticks)->uncertainty_ns;
    const auto in_all = [stamp_ns](const std::optional<std::int64_t>& error) -> Json {
      return error ? Json(stamp_ns + static_cast<double>(*error)) : Json(nullptr);
    };
    Json json{{"host_clock", source.AsJson()},
              {"counter",
               {{"ticks", last_.ticks},
                {"host_ns", last_.host_ns},
                {"read_within_ns", last_.uncertainty_ns},
                {"drift_ppm", drift.ppm},
                {"drift_uncertainty_ppm", drift.uncertainty_ppm},
                {"pairs", fit_.length()},
                {"restarts", fit_.restarts()}}},
              {"stamp",
               {{"host_uncertainty_ns", stamp_ns},
                {"likely_error_ns", in_all(source.LikelyErrorNs())},
                {"most_error_ns", in_all(source.MostErrorNs())}}}};
    session.MarkVirtual(json);

    const char* title = "host clock";
    for (const std::string& sentence : source.Sentences()) {
      session.Print("{:<16}{}\n", title, sentence);
      title = "";
    }
    session.Print("{:<16}{:+.3f} ppm against the host clock, known to {:.2g} ppm\n", "counter",
                  drift.ppm, drift.uncertainty_ppm);
    session.Print("{:<16}from {} pairs; reading it took {}{}\n", "", fit_.length(),
                  TimeText(static_cast<double>(last_.uncertainty_ns)),
                  session.live() == nullptr ? "" : ", because the daemon reads it");
    if (fit_.restarts() > 0) {
      session.Print("{:<16}A clock was set meanwhile, {} times.\n", "", fit_.restarts());
    }
    session.Print("{:<16}known to {} on the host clock\n", "a strip's stamp", TimeText(stamp_ns));
    session.Print("{:<16}{}\n", "", InAll(source, json["stamp"]));
    session.Emit(json);
  }

  static std::string InAll(const ClockSource& source, const Json& stamp) {
    if (!source.disciplined()) return "Against other hosts it is NOT KNOWN.";
    const auto text = [&stamp](const char* key) {
      return stamp[key].is_null() ? "not stated" : TimeText(stamp[key].get<double>());
    };
    return fmt::format("in disciplined time: likely {}, at most {}", text("likely_error_ns"),
                       text("most_error_ns"));
  }

  CLI::App* app_ = nullptr;
  double seconds_ = 5;
  std::string ptp_socket_;
  ClockFit fit_{kPairsOfAMinute};
  ClockPair last_;
};

}  // namespace

std::unique_ptr<Command> MakeTimeCommand() { return std::make_unique<TimeCommand>(); }

}  // namespace tool
