#include <map>

#include "Application.h"
#include "Failure.h"
#include "Tracer.h"
#include "commands/Commands.h"

namespace tool {
namespace {

constexpr About kTraceAbout{
    "trace", "Runs another sub-command and shows its register traffic by name", Touches::kSets,
    "Listens to the library's log at its lowest level. Prints one line per access, with register "
    "and address, below the functions that made it; --summary counts accesses instead. The "
    "sub-command does what it always does: its own help says what it touches. The trace exits with "
    "the sub-command's status. Options of the trace, including --virtual and --model, come before "
    "the sub-command.",
    "  tessaline trace --virtual K3610 trigger --mode encoder --spacing 10\n"
    "  tessaline trace --summary --virtual K3610 info --start"};

class TraceCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddCommand(parent, kTraceAbout, common);
    app_->add_flag("--summary", summary_, "Only count the reads and writes of each register");
    app_->add_flag("--registers", only_registers_, "Leave out the names of functions");
    app_->prefix_command();
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    std::vector<std::string> rest = app_->remaining();
    const char* const example = "for example \"tessaline trace --virtual K3610 info\"";
    if (rest.empty() || rest.front() == kTraceAbout.name) {
      throw Failure(ExitCode::kUsage, "which sub-command should be traced?", example);
    }
    for (const std::string& word : rest) {
      for (const char* option : {"--model", "--virtual", "--optics", "--scene"}) {
        if (!word.starts_with(option)) continue;
        throw Failure(ExitCode::kUsage, fmt::format("give {} before the sub-command", option),
                      example);
      }
    }
    // The library's threads and its log use it to the end of the process.
    auto* const tracer = new Tracer(session.model());
    tracer->Listen();
    CommonOptions options = session.options();
    const ExitCode result = Application::RunNested(std::move(rest), options);
    if (result != ExitCode::kUsage) Show(session, tracer->Lines());
    return result;
  }

 private:
  struct Counts {
    unsigned reads = 0;
    unsigned writes = 0;
  };

  void Show(Session& session, const std::vector<Tracer::Line>& lines) const {
    std::map<std::string, Counts> registers;
    Json accesses = Json::array();
    for (const Tracer::Line& line : lines) {
      if (!line.access) {
        if (!summary_ && !only_registers_) session.Print("{}\n", line.text);
        continue;
      }
      Counts& counts = registers[line.text];
      ++(line.write ? counts.writes : counts.reads);
      if (summary_) continue;
      session.Print("  {}  0x{:08x}  {}\n", line.write ? "write" : "read ", line.address,
                    line.text);
      accesses.push_back({{"access", line.write ? "write" : "read"},
                          {"address", line.address},
                          {"register", line.text}});
    }
    Json totals = Json::array();
    if (summary_) session.Print("{:<44}{:>8}{:>8}\n", "REGISTER", "READS", "WRITES");
    Counts all;
    for (const auto& [name, counts] : registers) {
      if (summary_) session.Print("{:<44}{:>8}{:>8}\n", name, counts.reads, counts.writes);
      totals.push_back({{"register", name}, {"reads", counts.reads}, {"writes", counts.writes}});
      all.reads += counts.reads;
      all.writes += counts.writes;
    }
    session.Print("{} reads, {} writes of {} registers\n", all.reads, all.writes, registers.size());
    Json json{{"reads", all.reads}, {"writes", all.writes}, {"registers", std::move(totals)}};
    if (!summary_) json["accesses"] = std::move(accesses);
    session.Emit(json);
  }

  CLI::App* app_ = nullptr;
  bool summary_ = false;
  bool only_registers_ = false;
};

}  // namespace

std::unique_ptr<Command> MakeTraceCommand() { return std::make_unique<TraceCommand>(); }

}  // namespace tool
