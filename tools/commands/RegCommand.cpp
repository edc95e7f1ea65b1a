#include <algorithm>
#include <optional>

#include "Device.h"
#include "Failure.h"
#include "OutputFile.h"
#include "RegisterDump.h"
#include "commands/Commands.h"

namespace tool {
namespace {

constexpr About kRegAbout{
    "reg", "Lists, reads, writes and dumps the FPGA's registers", Touches::kReads,
    "Ways to name a register: TRIGGER_CTRL, IMAGE_BLOCK_1.TRIGGER_CTRL (needed where two blocks "
    "have a register of that name), 0x43C10004 or IMAGE_BLOCK_1+0x04. A field: TRIGGER_CTRL.mode. "
    "\"write\" WRITES.",
    "  tessaline reg list TRIGGER --model K3610\n  tessaline reg read TRIGGER_CTRL --virtual "
    "K3610\n"
    "  tessaline reg write TRIGGER_CTRL.mode 1 --dry-run --virtual K3610"};
constexpr About kListAbout{"list", "Lists registers and fields with their addresses",
                           Touches::kNothing, "", "  tessaline reg list EXP --model K3610"};
constexpr About kReadAbout{"read", "Reads registers and decodes their fields", Touches::kMayStart,
                           "", "  tessaline reg read TRIGGER_CTRL TRI_SPACING --model K3610"};
constexpr About kWriteAbout{"write", "Writes a register, or one field of it", Touches::kRegisters,
                            "When a field is written, the register's other bits are read and "
                            "written back.",
                            "  tessaline reg write EXP_TIME_1 200 --model K3610\n"
                            "  tessaline reg write TRIGGER_CTRL.mode 1 --model K3610"};
constexpr About kDumpAbout{
    "dump", "Dumps all registers, or shows how dumps differ", Touches::kMayStart,
    "--diff with two dumps compares them and does not open the board. With one dump it compares "
    "the dump with the board. The exit status is 1 when they differ.",
    "  tessaline reg dump -o before.txt --model K3610\n"
    "  tessaline reg dump --diff before.txt --model K3610\n"
    "  tessaline reg dump --diff before.txt after.txt --model K3610"};

// Sub-commands of "reg" that read the board, started or not.
void AddStart(CLI::App& app, bool& start) {
  app.add_flag("--start", start, "Start the device first");
}

class RegCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddGroup(parent, kRegAbout);
    list_ = &AddCommand(*app_, kListAbout, common);
    list_->add_option("part", filter_, "Only names that contain this")->type_name("TEXT");
    read_ = &AddCommand(*app_, kReadAbout, common);
    read_->add_option("register", names_, "Names or addresses")->type_name("REGISTER")->required();
    AddStart(*read_, start_);
    write_ = &AddCommand(*app_, kWriteAbout, common);
    write_->add_option("register", name_, "Name or address")->type_name("REGISTER")->required();
    write_->add_option("value", value_, "The value, decimal or 0x...")
        ->type_name("VALUE")
        ->required();
    AddStart(*write_, start_);
    dump_ = &AddCommand(*app_, kDumpAbout, common);
    dump_->add_option("-o,--output", output_, "File to write")->type_name("FILE");
    dump_->add_flag("--force", force_, "Overwrite the file if it exists");
    dump_->add_option("--diff", diff_, "One or two dumps to compare")
        ->type_name("FILE")
        ->expected(1, 2);
    AddStart(*dump_, start_);
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    if (list_->parsed()) return List(session, Registers(session.model()));
    const bool compares = dump_->parsed() && diff_.size() == 2;
    const Registers registers = compares ? Registers(session.model()) : RegistersOf(session);
    if (dump_->parsed()) return Dump(session, registers);
    // Names first: a typo does not open the board.
    std::vector<Place> places;
    for (const std::string& name : names_) places.push_back(registers.Find(name));
    if (read_->parsed()) return Read(session, registers, places);
    return Write(session, registers);
  }

 private:
  ExitCode List(Session& session, const Registers& registers) const {
    Session::LeaveOutBoard();
    std::string part = filter_;
    std::transform(part.begin(), part.end(), part.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    Json list = Json::array();
    for (const fpga::Register& reg : registers.All()) {
      if (FullName(reg).find(part) == std::string::npos) continue;
      session.Print("0x{:08x}  {}\n", registers.AddressOf(reg), FullName(reg));
      Json fields = Json::array();
      for (const fpga::Field* field : registers.FieldsOf(reg)) {
        const unsigned last = field->shift + field->width - 1;
        session.Print("              {:<20} {}\n", field->name.View(),
                      field->width == 1 ? fmt::format("bit {}", field->shift)
                                        : fmt::format("bits {}-{}", field->shift, last));
        fields.push_back(
            {{"name", field->name.View()}, {"shift", field->shift}, {"width", field->width}});
      }
      list.push_back({{"block", fpga::Info(reg.block).name},
                      {"name", reg.name.View()},
                      {"address", registers.AddressOf(reg)},
                      {"fields", std::move(fields)}});
    }
    if (list.empty()) {
      throw Failure(ExitCode::kUsage, fmt::format("no register name contains \"{}\"", filter_),
                    "\"tessaline reg list\" lists them all");
    }
    session.Emit(list);
    return ExitCode::kOk;
  }

  ExitCode Read(Session& session, const Registers& registers, const std::vector<Place>& places) {
    Device device(session);
    if (!device.Open(start_)) return ExitCode::kOk;
    Json list = Json::array();
    for (const Place& place : places) {
      const std::uint32_t word = registers.Read(place.reg);
      Json json = registers.AsJson(place.reg, word);
      if (place.field != nullptr) {
        session.Print("{}.{} = {}\n", FullName(place.reg), place.field->name.View(),
                      place.field->Of(word));
        json["field"] = place.field->name.View();
        json["field_value"] = place.field->Of(word);
      } else {
        session.Print("{} = 0x{:08x}  {}\n", FullName(place.reg), word,
                      registers.Decoded(place.reg, word));
      }
      session.MarkVirtual(json);
      list.push_back(std::move(json));
    }
    session.Emit(list);
    return ExitCode::kOk;
  }

  ExitCode Write(Session& session, const Registers& registers) {
    const Place place = registers.Find(name_);
    const std::uint32_t value = ParseWord(value_);
    if (place.field != nullptr && value > place.field->LowMask()) {
      throw Failure(
          ExitCode::kUsage,
          fmt::format("{} does not fit into {}.{}", value, FullName(place.reg),
                      place.field->name.View()),
          fmt::format("it has {} bits: at most {}", place.field->width, place.field->LowMask()));
    }
    const bool rehearsal = session.options().dry_run;
    Json json{{"block", fpga::Info(place.reg.block).name},
              {"name", place.reg.name.View()},
              {"address", registers.AddressOf(place.reg)},
              {"dry_run", rehearsal}};
    if (rehearsal && place.field == nullptr) {
      session.Print("would write 0x{:08x} to {} (0x{:08x}): {}\nNothing was written (--dry-run).\n",
                    value, FullName(place.reg), registers.AddressOf(place.reg),
                    registers.Decoded(place.reg, value));
      json["value"] = value;
      session.Emit(json);
      return ExitCode::kOk;
    }
    if (session.live() != nullptr) {
      throw Failure(
          ExitCode::kNegative,
          fmt::format("{} has the sensor, and only reads registers", session.live()->Name()),
          "set it up with exposure, roi, trigger and the like, or add --direct");
    }
    Device device(session);
    device.Open(start_ && !rehearsal);
    const std::uint32_t before = registers.Read(place.reg);
    const std::uint32_t word = place.field == nullptr ? value : place.field->In(before, value);
    json["before"] = before;
    json["value"] = word;
    if (rehearsal) {
      session.Print(
          "would write 0x{:08x} to {} (0x{:08x}), which holds 0x{:08x}: {}\n"
          "Nothing was written (--dry-run).\n",
          word, FullName(place.reg), registers.AddressOf(place.reg), before,
          registers.Decoded(place.reg, word));
      session.Emit(json);
      return ExitCode::kOk;
    }
    registers.Write(place.reg, word);
    const std::uint32_t after = registers.Read(place.reg);
    json["after"] = after;
    session.Print("{}: 0x{:08x} -> wrote 0x{:08x}, reads 0x{:08x}  {}\n", FullName(place.reg),
                  before, word, after, registers.Decoded(place.reg, after));
    if (after != word) {
      session.Note(
          "The register does not read back as written: it may be read-only, a pulse, or have bits "
          "that the FPGA sets.");
    }
    session.Emit(json);
    return ExitCode::kOk;
  }

  ExitCode Dump(Session& session, const Registers& registers) {
    if (diff_.size() == 2) {
      Session::LeaveOutBoard();
      return Compare(session, registers, RegisterDump::Load(diff_[0]),
                     RegisterDump::Load(diff_[1]));
    }
    RegisterDump before;
    if (!diff_.empty()) before = RegisterDump::Load(diff_.front());
    Device device(session);
    if (!device.Open(start_)) return ExitCode::kOk;
    const RegisterDump now = RegisterDump::Take(registers);
    if (!diff_.empty()) return Compare(session, registers, before, now);
    if (output_.empty()) {
      session.Print("{}", now.AsText(registers));
      session.Emit(now.AsJson(registers));
      return ExitCode::kOk;
    }
    Json json = now.AsJson(registers);
    session.MarkVirtual(json);
    const std::string text =
        session.json() ? json.dump(2) + '\n' : session.BoardLine() + now.AsText(registers);
    if (IsStandardOutput(output_)) LibraryOutput::Instance().KeepUserForData();
    WriteWholeFile(output_, force_,
                   {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    session.Print("wrote {} registers to {}\n", now.entries.size(), output_);
    session.Emit({{"file", output_}, {"registers", now.entries.size()}});
    return ExitCode::kOk;
  }

  static ExitCode Compare(Session& session, const Registers& registers, const RegisterDump& before,
                          const RegisterDump& after) {
    Json list = Json::array();
    const auto value_in = [](const RegisterDump& dump, const RegisterDump::Entry& like) {
      const auto found = std::find_if(
          dump.entries.begin(), dump.entries.end(),
          [&](const auto& entry) { return entry.block == like.block && entry.name == like.name; });
      return found == dump.entries.end() ? std::optional<std::uint32_t>() : found->value;
    };
    const auto tell = [&](const RegisterDump::Entry& entry, std::optional<std::uint32_t> first,
                          std::optional<std::uint32_t> second) {
      const Place place = registers.Find(entry.block + "." + entry.name);
      const auto text = [&](std::optional<std::uint32_t> value) {
        return value ? fmt::format("0x{:08x}  {}", *value, registers.Decoded(place.reg, *value))
                     : std::string("not in the dump");
      };
      const auto json = [&](std::optional<std::uint32_t> value) {
        return value ? registers.AsJson(place.reg, *value) : Json(nullptr);
      };
      session.Print("{}\n  - {}\n  + {}\n", FullName(place.reg), text(first), text(second));
      list.push_back({{"block", entry.block},
                      {"name", entry.name},
                      {"before", json(first)},
                      {"after", json(second)}});
    };
    for (const auto& entry : before.entries) {
      const auto second = value_in(after, entry);
      if (second != entry.value) tell(entry, entry.value, second);
    }
    for (const auto& entry : after.entries) {
      if (!value_in(before, entry)) tell(entry, std::nullopt, entry.value);
    }
    session.Print("{} of {} registers differ\n", list.size(), before.entries.size());
    session.Emit({{"differences", list}});
    return list.empty() ? ExitCode::kOk : ExitCode::kNegative;
  }

  CLI::App* app_ = nullptr;
  CLI::App* list_ = nullptr;
  CLI::App* read_ = nullptr;
  CLI::App* write_ = nullptr;
  CLI::App* dump_ = nullptr;
  std::string filter_;
  std::vector<std::string> names_;
  std::string name_;
  std::string value_;
  std::string output_;
  std::vector<std::string> diff_;
  bool force_ = false;
  bool start_ = false;
};

}  // namespace

std::unique_ptr<Command> MakeRegCommand() { return std::make_unique<RegCommand>(); }

}  // namespace tool
