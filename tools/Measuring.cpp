#include "Measuring.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "Command.h"
#include "EepromStore.h"
#include "Failure.h"
#include "VirtualBoard.h"
#include "calibrate/CalibrationFile.h"

namespace tool {
namespace {

constexpr double kFarthest = 1e6;  // columns and rows
constexpr const char* kCalibration = "--calibration";
constexpr const char* kEeprom = "eeprom";
constexpr const char* kNone = "none";
constexpr double kVirtualCountsPerMm = 100;

// Millimetres per pixel; below 0 if the sensor is mounted the other way round.
CLI::Validator IsScale() {
  return CLI::Validator(
      [](const std::string& text) {
        double number = 0;
        const bool scale = CLI::detail::lexical_cast(text, number) && std::abs(number) >= 1e-6 &&
                           std::abs(number) <= 1e3;
        return scale ? std::string() : text + " is not a number of millimetres per pixel";
      },
      "MILLIMETRES");
}

// Without perspective and distortion: x grows with the columns, z shrinks with the rows.
tessaline_calibration Linear(const Model& model, double mm_per_column, double column_at_zero,
                             double mm_per_row, double row_at_zero) {
  const Region sensor = WholeSensor(model);
  const double unit = sensor.width / 2.0;
  tessaline_calibration c{};
  c.sensor_width = sensor.width;
  c.sensor_height = sensor.height;
  c.centre_column = sensor.width / 2.0;
  c.centre_row = sensor.height / 2.0;
  c.pixels_per_unit = unit;
  c.plane[0] = mm_per_column * unit;
  c.plane[2] = mm_per_column * (c.centre_column - column_at_zero);
  c.plane[4] = -mm_per_row * unit;
  c.plane[5] = mm_per_row * (row_at_zero - c.centre_row);
  c.plane[8] = 1;
  return c;
}

// Of the virtual board's scene with ideal optics, see docs/virtual-board.md.
tessaline_calibration VirtualCalibration(const Model& model) {
  constexpr double kSceneWidth = 72.8;   // mm, across the full sensor
  constexpr double kHeightOfImage = 40;  // mm, from its first row to its last
  constexpr double kBeltAt = 0.75;       // of the image's height
  const Region sensor = WholeSensor(model);
  return Linear(model, kSceneWidth / sensor.width, sensor.width / 2.0,
                kHeightOfImage / sensor.height, kBeltAt * sensor.height);
}

// `asked`: the user wants it, so that there must be one.
std::optional<tessaline_calibration> FromEeprom(const Session& session, bool asked) {
  eeprom::Content content{};
  try {
    content = eeprom::Read();
  } catch (const Failure& failure) {
    if (asked) throw;
    session.Note("no calibration from the EEPROM: {}", failure.what());
    return std::nullopt;
  }
  const auto bytes = std::span(content).subspan(calibrate::kBlockAt, calibrate::kBlockBytes);
  const calibrate::FoundBlock found = calibrate::FromBlock(bytes);
  if (found.state == calibrate::FoundBlock::State::kSound) return found.stored.numbers;
  if (found.state == calibrate::FoundBlock::State::kNone && !asked) return std::nullopt;
  throw Failure(ExitCode::kNegative, calibrate::Complaint(found),
                "store one with \"tessaline calibration store FILE\", give --calibration FILE, or "
                "--calibration none for columns and rows");
}

}  // namespace

void RequireSensor(const tessaline_calibration& c, const Model& model, const std::string& source) {
  const Region sensor = WholeSensor(model);
  if (c.sensor_width == sensor.width && c.sensor_height == sensor.height) return;
  throw Failure(
      ExitCode::kUsage,
      fmt::format("{}: the calibration is that of a sensor of {} x {}, and a {} has {} x {}",
                  source, c.sensor_width, c.sensor_height, model.code(), sensor.width,
                  sensor.height),
      "give this head's own, or --calibration none for columns and rows");
}

std::string Measuring::Description() const {
  return calibrated() ? fmt::format("in millimetres, by the calibration of {}", source)
                      : "in columns and rows, not in millimetres";
}

double Measuring::MmPerColumn(unsigned columns, unsigned rows) const {
  if (!calibration) return 1;
  tessaline_measurement middle{};
  const double column = geometry.first_column + columns / 2.0;
  const double row = geometry.first_row + rows / 2.0;
  const bool seen = tessaline_point_to_mm(&*calibration, column, row, &middle) == 0;
  return seen && middle.x_column != 0 ? std::abs(middle.x_column) : 1;
}

void MeasuringOptions::Describe(CLI::App& app) {
  app.add_option(kCalibration, from_,
                 "Calibration of the head: a file of \"tessaline calibrate\", eeprom, or none for "
                 "columns and rows (default: the EEPROM's, if there is one)")
      ->type_name("FILE");
  const auto add = [&](const char* name, double& value, const char* text,
                       const CLI::Validator& check) {
    numbers_.push_back(app.add_option(name, value, text)->check(check));
  };
  add("--mm-per-column", mm_per_column_, "Width of a column, instead of a calibration", IsScale());
  add("--mm-per-row", mm_per_row_, "Height of a row, instead of a calibration", IsScale());
  add("--column-at-zero", column_at_zero_, "Column of the full sensor at x = 0",
      NumberIn(-kFarthest, kFarthest));
  add("--row-at-zero", row_at_zero_, "Row of the full sensor at height 0",
      NumberIn(-kFarthest, kFarthest));
}

void MeasuringOptions::DescribeTravel(CLI::App& app) {
  scale_ = app.add_option("--counts-per-mm", counts_per_mm_,
                          "Encoder counts per millimetre, for ply and png")
               ->check(NumberIn(1e-6, 1e9));
}

// A millimetre that is none, because half of the calibration is missing, is worse than a pixel.
std::optional<tessaline_calibration> MeasuringOptions::FromNumbers(const Model& model,
                                                                   bool travels) const {
  if (std::ranges::none_of(numbers_, [](const CLI::Option* o) { return o->count() > 0; })) {
    return std::nullopt;
  }
  if (!from_.empty()) {
    throw Failure(ExitCode::kUsage, "--calibration and numbers of millimetres exclude each other");
  }
  if (mm_per_column_ == 0 || mm_per_row_ == 0 || (travels && counts_per_mm_ == 0)) {
    throw Failure(ExitCode::kUsage, "millimetres need a whole calibration",
                  travels ? "give --mm-per-column, --mm-per-row and --counts-per-mm"
                          : "give --mm-per-column and --mm-per-row");
  }
  return Linear(model, mm_per_column_, column_at_zero_, mm_per_row_, row_at_zero_);
}

std::optional<tessaline_calibration> MeasuringOptions::FromFile(const Session& session) const {
  const calibrate::StoredCalibration stored = calibrate::ReadCalibration(from_);
  if (stored.model != session.model().code()) {
    session.Note("{} was made with a {}, not a {}", from_, stored.model, session.model().code());
  }
  return stored.numbers;
}

std::optional<tessaline_calibration> MeasuringOptions::FromDaemon(const live::LiveSensor& sensor) {
  const Json json = sensor.Get("/api/v1/calibration");
  if (json.is_null()) return std::nullopt;
  return calibrate::ParseCalibration(json.dump(), sensor.Name()).numbers;
}

Measuring MeasuringOptions::ChooseNone(const Session& session, const Region& region,
                                       const char* what) const {
  std::vector<CLI::Option*> options = numbers_;
  if (scale_ != nullptr) options.push_back(scale_);
  const auto given = std::ranges::find_if(options, [](const auto* o) { return o->count() > 0; });
  if (given != options.end() || !(from_.empty() || from_ == kNone)) {
    throw Failure(ExitCode::kUsage,
                  fmt::format("{} does nothing here: {} are no points in millimetres",
                              given != options.end() ? (*given)->get_name() : kCalibration, what),
                  "leave it out, or capture strips as csv, npy, ply or png");
  }
  return {.geometry = GeometryOf(session.model(), region)};
}

Measuring MeasuringOptions::Choose(const Session& session, const Region& region,
                                   bool travels) const {
  const Model& model = session.model();
  const bool scaled = scale_ != nullptr && scale_->count() > 0;
  if (scaled && !travels) {
    throw Failure(ExitCode::kUsage, "--counts-per-mm does nothing here: it is for ply and png",
                  "leave it out; csv and npy have the encoder's stamps");
  }
  Measuring measuring{.geometry = GeometryOf(model, region)};
  measuring.counts_per_mm = counts_per_mm_;
  if (travels && !scaled && session.on_virtual_board()) {
    measuring.counts_per_mm = kVirtualCountsPerMm;
  }
  const auto use = [&measuring](std::optional<tessaline_calibration> calibration,
                                const std::string& source) {
    measuring.calibration = calibration;
    if (calibration) measuring.source = source;
    return measuring.calibrated();
  };
  const bool rehearsal = session.options().dry_run;
  bool from_eeprom = from_.empty() || from_ == kEeprom;
  if (use(FromNumbers(model, travels), "the options")) return measuring;
  if (const auto* const sensor = session.live(); sensor != nullptr && from_eeprom) {
    use(FromDaemon(*sensor), sensor->Name());
    from_eeprom = false;
  }
  if (from_eeprom) {
    measuring.calls.push_back(fmt::format("ConfigRead({})", eeprom::kBytes));
    if (!rehearsal) use(FromEeprom(session, /*asked=*/!from_.empty()), "the EEPROM");
  } else if (!from_.empty() && from_ != kNone && from_ != kEeprom) {
    use(FromFile(session), from_);
  }
  if (measuring.calibrated()) {
    RequireSensor(*measuring.calibration, model, measuring.source);
  } else if (from_.empty() && session.on_virtual_board() && VirtualOpticsAreIdeal()) {
    use(VirtualCalibration(model), "the virtual board's optics");
  }
  const bool may_be_calibrated = rehearsal && from_eeprom;
  if (scaled && !measuring.calibrated() && !may_be_calibrated) {
    throw Failure(ExitCode::kUsage,
                  "--counts-per-mm does nothing here: without a calibration nothing is in "
                  "millimetres",
                  "leave it out, or give --calibration FILE");
  }
  if (travels && measuring.calibrated() && measuring.counts_per_mm == 0) {
    throw Failure(ExitCode::kUsage, "millimetres along the movement need the encoder's scale",
                  "give --counts-per-mm");
  }
  return measuring;
}

}  // namespace tool
