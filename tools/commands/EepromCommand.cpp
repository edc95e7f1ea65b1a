#include "EepromStore.h"
#include "Failure.h"
#include "InputFile.h"
#include "OutputFile.h"
#include "commands/Commands.h"

namespace tool {
namespace {

constexpr About kEepromAbout{
    "eeprom", "Dumps, loads and verifies the configuration store", Touches::kReads,
    "The store has 512 bytes; only the application knows what they mean. \"load\" WRITES.",
    "  tessaline eeprom dump --virtual K3610"};
constexpr About kEepromDumpAbout{"dump", "Shows the bytes, or writes them to a file",
                                 Touches::kReads, "", "  tessaline eeprom dump -o board7.bin"};
constexpr About kLoadAbout{
    "load", "Writes a file into the EEPROM and reads it back", Touches::kEeprom,
    "The file has 1 to 512 bytes. They go to the start of the store; the rest is unchanged.",
    "  tessaline eeprom load board7.bin --dry-run\n  tessaline eeprom load board7.bin"};
constexpr About kVerifyAbout{"verify", "Compares the EEPROM with a file", Touches::kReads,
                             "Exit status 1 when they differ.",
                             "  tessaline eeprom verify board7.bin"};

constexpr std::size_t kBytesPerLine = 16;

class EepromCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddGroup(parent, kEepromAbout);
    dump_ = &AddCommand(*app_, kEepromDumpAbout, common);
    dump_->add_option("-o,--output", output_, "File to write, as raw bytes")->type_name("FILE");
    dump_->add_flag("--force", force_, "Overwrite the file if it exists");
    load_ = &AddCommand(*app_, kLoadAbout, common);
    load_->add_option("file", file_, "File with the bytes")->type_name("FILE")->required();
    verify_ = &AddCommand(*app_, kVerifyAbout, common);
    verify_->add_option("file", file_, "File with the bytes")->type_name("FILE")->required();
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    if (dump_->parsed()) return Dump(session);
    const auto wanted = ReadWholeFile(file_);
    if (wanted.empty() || wanted.size() > eeprom::kBytes) {
      throw Failure(ExitCode::kUsage, fmt::format("{} has {} bytes", file_, wanted.size()),
                    "the EEPROM takes 1 to 512");
    }
    return load_->parsed() ? Load(session, wanted) : Compare(session, wanted);
  }

 private:
  ExitCode Dump(Session& session) const {
    const eeprom::Content content = eeprom::Read();
    if (!output_.empty()) {
      if (IsStandardOutput(output_)) LibraryOutput::Instance().KeepUserForData();
      WriteWholeFile(output_, force_, content);
      session.Print("wrote {} bytes to {}\n", content.size(), output_);
      session.Emit({{"file", output_}, {"bytes", content.size()}});
      return ExitCode::kOk;
    }
    for (std::size_t at = 0; at < content.size(); at += kBytesPerLine) {
      std::string digits;
      std::string letters;
      for (std::size_t i = at; i < at + kBytesPerLine; ++i) {
        digits += fmt::format(" {:02x}", content[i]);
        const bool printable = content[i] >= ' ' && content[i] <= '~';
        letters += printable ? static_cast<char>(content[i]) : '.';
      }
      session.Print("{:03x} {}  {}\n", at, digits, letters);
    }
    session.Emit({{"bytes", content}});
    return ExitCode::kOk;
  }

  ExitCode Load(Session& session, const std::vector<std::uint8_t>& wanted) const {
    if (session.options().dry_run) {
      session.Print(
          "would write {} bytes of {} to the start of the EEPROM\n"
          "Nothing was written (--dry-run).\n",
          wanted.size(), file_);
      session.Emit({{"bytes", wanted.size()}, {"dry_run", true}});
      return ExitCode::kOk;
    }
    eeprom::Write(wanted);
    return Compare(session, wanted);
  }

  ExitCode Compare(Session& session, const std::vector<std::uint8_t>& wanted) const {
    const eeprom::Content content = eeprom::Read();
    Json differing = Json::array();
    for (std::size_t i = 0; i < wanted.size(); ++i) {
      if (content[i] == wanted[i]) continue;
      session.Print("0x{:03x}: EEPROM {:02x}, file {:02x}\n", i, content[i], wanted[i]);
      differing.push_back({{"offset", i}, {"eeprom", content[i]}, {"file", wanted[i]}});
    }
    const char* const done = load_->parsed() ? "written and read back" : "compared";
    session.Print("{} bytes {}, {} differ\n", wanted.size(), done, differing.size());
    session.Emit({{"bytes", wanted.size()}, {"differences", differing}});
    return differing.empty() ? ExitCode::kOk : ExitCode::kNegative;
  }

  CLI::App* app_ = nullptr;
  CLI::App* dump_ = nullptr;
  CLI::App* load_ = nullptr;
  CLI::App* verify_ = nullptr;
  std::string output_;
  std::string file_;
  bool force_ = false;
};

}  // namespace

std::unique_ptr<Command> MakeEepromCommand() { return std::make_unique<EepromCommand>(); }

}  // namespace tool
