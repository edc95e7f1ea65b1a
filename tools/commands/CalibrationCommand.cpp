#include <algorithm>
#include <span>

#include "Counted.h"
#include "EepromStore.h"
#include "Failure.h"
#include "Measuring.h"
#include "Printable.h"
#include "calibrate/CalibrationFile.h"
#include "calibrate/Field.h"
#include "commands/Commands.h"

namespace tool {
namespace {

using calibrate::FoundBlock;
using calibrate::StoredCalibration;
using State = FoundBlock::State;

constexpr About kCalibrationAbout{
    "calibration", "Shows a head's calibration, or stores it in its EEPROM", Touches::kReads,
    "The calibration lies in bytes 256 to 511 of the EEPROM, with a check sum.",
    "  tessaline calibration show head.cal"};
constexpr About kShowAbout{"show", "Shows a calibration", Touches::kReads,
                           "SOURCE is a file of \"tessaline calibrate\", or eeprom.",
                           "  tessaline calibration show head.cal"};
constexpr About kStoreAbout{
    "store", "Writes a calibration into the EEPROM and reads it back", Touches::kEeprom,
    "From then on \"capture\" measures in millimetres without any option. Bytes 0 to 255 stay as "
    "they are. If the second half of the EEPROM holds something else, it is only overwritten with "
    "--force.",
    "  tessaline calibration store head.cal --dry-run\n  tessaline calibration store head.cal"};

std::span<std::uint8_t> BlockOf(eeprom::Content& content) {
  return std::span(content).subspan(calibrate::kBlockAt, calibrate::kBlockBytes);
}

// Nobody has written there: erased, or never used.
bool IsEmpty(std::span<const std::uint8_t> bytes) {
  return std::ranges::all_of(bytes, [&](std::uint8_t byte) { return byte == bytes[0]; });
}

class CalibrationCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddGroup(parent, kCalibrationAbout);
    show_ = &AddCommand(*app_, kShowAbout, common);
    show_->add_option("source", file_, "The calibration")->type_name("SOURCE")->required();
    store_ = &AddCommand(*app_, kStoreAbout, common);
    store_->add_option("file", file_, "The calibration")->type_name("FILE")->required();
    store_->add_flag("--force", force_, "Overwrite what else is there");
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    return show_->parsed() ? Show(session) : Store(session);
  }

 private:
  ExitCode Show(Session& session) const {
    const StoredCalibration stored =
        file_ == "eeprom" ? FromEeprom() : calibrate::ReadCalibration(file_);
    const tessaline_calibration& c = stored.numbers;
    session.Print("model          {}\n", Printable(stored.model));
    session.Print("sensor         {} x {} pixels\n", c.sensor_width, c.sensor_height);
    session.Print("distortion     {:.6f} {:.6f} {:.6f} about column {:.2f}, row {:.2f}\n",
                  c.distortion[0], c.distortion[1], c.distortion[2], c.centre_column, c.centre_row);
    tessaline_measurement middle{};
    if (tessaline_point_to_mm(&c, c.sensor_width / 2, c.sensor_height / 2, &middle) == 0) {
      session.Print(
          "in the middle  x {:.3f} mm, z {:.3f} mm; {:.2f} um a column, {:.2f} um a row\n",
          middle.x, middle.z, std::abs(middle.x_column) * calibrate::kMicrometres,
          std::abs(middle.z_row) * calibrate::kMicrometres);
    }
    session.Print("1 sigma        row {:.3f} pixels, x {:.2f} um, z {:.2f} um\n", c.row_sigma,
                  c.x_sigma * calibrate::kMicrometres, c.z_sigma * calibrate::kMicrometres);
    session.Print("field          {}{}\n", calibrate::FieldInWords(c),
                  c.field_corners > 0 ? "" : ": uncertainties are stated everywhere");
    Json json = calibrate::ToJson(stored);
    json["field_range"] = calibrate::FieldRange(c);
    session.Emit(json);
    return ExitCode::kOk;
  }

  static StoredCalibration FromEeprom() {
    eeprom::Content content = eeprom::Read();
    const FoundBlock found = calibrate::FromBlock(BlockOf(content));
    if (found.state == State::kSound) return found.stored;
    throw Failure(ExitCode::kNegative, calibrate::Complaint(found),
                  "store one with \"tessaline calibration store FILE\"");
  }

  ExitCode Store(Session& session) const {
    const StoredCalibration stored = calibrate::ReadCalibration(file_);
    RequireSensor(stored.numbers, session.model(), file_);
    const auto block = calibrate::ToBlock(stored);
    const eeprom::Content before = eeprom::Read();
    eeprom::Content content = before;
    const auto place = BlockOf(content);
    const FoundBlock found = calibrate::FromBlock(place);
    const bool is_other = found.state == State::kNone && !IsEmpty(place);
    const std::string old = is_other ? "something else" : Replaced(found);
    if (is_other && !force_) {
      throw Failure(ExitCode::kExists, "the second half of the EEPROM holds something else",
                    "save it with \"tessaline eeprom dump -o FILE\", then give --force");
    }
    std::ranges::copy(block, place.begin());
    const std::size_t pages = eeprom::PagesThatDiffer(before, content);
    Json json{{"file", file_},
              {"bytes", block.size()},
              {"offset", calibrate::kBlockAt},
              {"replaces", old},
              {"written_bytes", pages * eeprom::kPageBytes}};
    if (session.options().dry_run) {
      session.Print(
          "would replace {} in bytes {} to {} of the EEPROM: {} of {} bytes differ\n"
          "Nothing was written (--dry-run).\n",
          old, calibrate::kBlockAt, calibrate::kBlockAt + block.size() - 1, Counted(pages, "page"),
          eeprom::kPageBytes);
      json["dry_run"] = true;
      session.Emit(json);
      return ExitCode::kOk;
    }
    eeprom::WriteChanges(before, content);
    if (eeprom::Read() != content) {
      throw Failure(ExitCode::kNegative, "the EEPROM does not hold what was written");
    }
    session.Print("the calibration of {} is stored in the EEPROM and read back; it replaces {}\n",
                  file_, old);
    session.Emit(json);
    return ExitCode::kOk;
  }

  // What is overwritten, for people.
  static std::string Replaced(const FoundBlock& found) {
    switch (found.state) {
      case State::kNone:
        return "nothing";
      case State::kSound:
        return fmt::format("the calibration of a {}", Printable(found.stored.model));
      case State::kDamaged:
        return "a damaged calibration";
      default:
        return "a calibration of a newer version";
    }
  }

  CLI::App* app_ = nullptr;
  CLI::App* show_ = nullptr;
  CLI::App* store_ = nullptr;
  std::string file_;
  bool force_ = false;
};

}  // namespace

std::unique_ptr<Command> MakeCalibrationCommand() { return std::make_unique<CalibrationCommand>(); }

}  // namespace tool
