#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "Counted.h"
#include "Failure.h"
#include "LibraryOutput.h"
#include "OutputFile.h"
#include "Region.h"
#include "calibrate/CalibrationFile.h"
#include "calibrate/Field.h"
#include "calibrate/Solve.h"
#include "commands/Commands.h"

namespace tool {
namespace {

using calibrate::Solution;
using calibrate::Target;

constexpr About kCalibrateAbout{
    "calibrate", "Solves for the calibration of a head from captures of a target",
    Touches::kNothing,
    "Each FILE is a csv of \"tessaline capture strips\": one or more profiles of the target at "
    "rest. Move and tilt the target between them, so that it has been everywhere in the field of "
    "view. The first file sets the frame: the target's origin there is x = 0, z = 0, unless --at "
    "tells where it stood.\n"
    "Targets: \"sawtooth\" (give --pitch and --depth), \"plane\" (give --at for each file), or a "
    "JSON file, see docs/calibration.md. The sawtooth is the best: it determines x and z.\n"
    "Needs --model, for the sensor's size.",
    "  tessaline calibrate --target sawtooth --pitch 8 --depth 4 view*.csv -o head.cal --model "
    "K3610\n"
    "  tessaline calibrate --target stairs.json view*.csv -o head.cal --model K3610\n"
    "  tessaline calibrate --target plane --at 0 --at 10 --at 5,8 --at 5,-8 p1.csv p2.csv p3.csv "
    "p4.csv -o head.cal --model K3610"};

constexpr double kMostTilt = 80;  // degrees
constexpr const char* kPlaceHelp = "give HEIGHT in mm, or HEIGHT,TILT with degrees up to 80";

// Where the target stood: "HEIGHT" or "HEIGHT,TILT" or "HEIGHT,TILT,X".
calibrate::Pose ReadPose(const std::string& text) {
  std::vector<double> numbers;
  for (const std::string& word : CLI::detail::split(text, ',')) {
    double number = 0;
    if (!CLI::detail::lexical_cast(word, number) || !(std::abs(number) <= 1e4)) {
      throw Failure(ExitCode::kUsage, fmt::format("--at {}: this is no place", text), kPlaceHelp);
    }
    numbers.push_back(number);
  }
  if (numbers.size() > 3 || (numbers.size() > 1 && !(std::abs(numbers[1]) <= kMostTilt))) {
    throw Failure(ExitCode::kUsage, fmt::format("--at {}: this is no place", text), kPlaceHelp);
  }
  calibrate::Pose pose;
  pose.z = numbers[0];
  pose.tilt = numbers.size() > 1 ? numbers[1] * std::numbers::pi / 180 : 0;
  if (numbers.size() > 2) pose.x = numbers[2];
  return pose;
}

// What is left over, across the field, as a line of blocks: the middle one is zero.
std::string Drawn(const std::vector<double>& residuals, double largest) {
  constexpr std::array kBlocks{"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  std::string line;
  for (const double residual : residuals) {
    if (std::isnan(residual)) {
      line += " ";
      continue;
    }
    const double level = largest > 0 ? residual / largest : 0;
    const auto block = std::lround((level + 1) / 2 * (kBlocks.size() - 1));
    line += kBlocks[static_cast<std::size_t>(std::clamp<long>(block, 0, kBlocks.size() - 1))];
  }
  return line;
}

class CalibrateCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddCommand(parent, kCalibrateAbout, common);
    app_->add_option("files", files_, "Captures of the target")->type_name("FILES")->required();
    app_->add_option("--target", target_, "sawtooth, plane, or a JSON file with the target's shape")
        ->type_name("TARGET")
        ->required();
    const auto add_length = [this](const char* name, double& value, const char* text) {
      sawtooth_.push_back(app_->add_option(name, value, text)->check(NumberIn(0.001, 1e4)));
    };
    add_length("--pitch", pitch_, "From tooth to tooth of a sawtooth, mm");
    add_length("--depth", depth_, "From valley to peak of a sawtooth, mm");
    app_->add_option("--at", places_,
                     "Where the target stood: height in mm, tilt in degrees, x in mm; once for "
                     "each file")
        ->type_name("HEIGHT[,TILT[,X]]")
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app_->add_option("-o,--output", output_, "File to write")->type_name("FILE")->required();
    app_->add_flag("--force", force_, "Overwrite an existing file");
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    const Region sensor = WholeSensor(session.model());
    const Target target = ChooseTarget();
    const bool overwrite = MayOverwrite(output_, force_);
    if (IsStandardOutput(output_)) LibraryOutput::Instance().KeepUserForData();
    RequireOnceEach();
    calibrate::RequireViews(files_.size());
    WholeFile output(output_, overwrite);
    std::vector<calibrate::Sight> sights;
    for (const std::string& file : files_) {
      sights.push_back({calibrate::ReadView(file, sensor.width, sensor.height), {}, {}});
    }
    SetPlaces(sights);
    const Solution solution =
        calibrate::Solve(sensor.width, sensor.height, target, std::move(sights));
    const calibrate::StoredCalibration stored{solution.calibration,
                                              std::string(session.model().code())};
    const std::string text = calibrate::ToJson(stored).dump(2) + "\n";
    output.Write({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    Report(session, solution);
    return ExitCode::kOk;
  }

 private:
  void RequireOnceEach() const {
    std::vector<std::string> sorted = files_;
    std::sort(sorted.begin(), sorted.end());
    const auto twice = std::adjacent_find(sorted.begin(), sorted.end());
    if (twice == sorted.end()) return;
    throw Failure(ExitCode::kUsage, *twice + " is given twice",
                  "each view counts as new knowledge, so give it once");
  }

  static void RequireUnused(const CLI::Option& option) {
    if (option.count() == 0) return;
    throw Failure(ExitCode::kUsage,
                  option.get_name() + " does nothing here: it is for --target sawtooth",
                  "leave it out; a file describes its target by itself");
  }

  Target ChooseTarget() const {
    if (target_ != "sawtooth") {
      for (const CLI::Option* option : sawtooth_) RequireUnused(*option);
      return target_ == "plane" ? calibrate::Plane() : calibrate::ReadTarget(target_);
    }
    if (pitch_ == 0 || depth_ == 0) {
      throw Failure(ExitCode::kUsage, "a sawtooth has a pitch and a depth",
                    "give --pitch and --depth in mm");
    }
    return calibrate::Sawtooth(pitch_, depth_);
  }

  void SetPlaces(std::vector<calibrate::Sight>& sights) const {
    if (places_.empty()) return;
    if (places_.size() != sights.size()) {
      throw Failure(ExitCode::kUsage,
                    fmt::format("{}, but {}", Counted(sights.size(), "file"),
                                Counted(places_.size(), "place")),
                    "give --at once for each file");
    }
    for (std::size_t i = 0; i < sights.size(); ++i) {
      sights[i].pose = ReadPose(places_[i]);
    }
  }

  // Which cells of the drawing lie over the field.
  static std::string Ruler(const tessaline_calibration& c, std::size_t cells) {
    const calibrate::Extent extent = calibrate::ExtentOf(c);
    const auto cell_of = [&](int column) {
      return static_cast<std::size_t>(column / c.sensor_width * static_cast<double>(cells));
    };
    const std::size_t first = cell_of(extent.columns[0]);
    const std::size_t last = cell_of(extent.columns[1]);
    std::string line;
    for (std::size_t i = 0; i < cells; ++i) line += i < first || i > last ? " " : "─";
    return line;
  }

  static double LargestDrawn(const Solution& solution) {
    double largest = 0;
    for (const calibrate::Fit& fit : solution.fits) {
      for (const double residual : fit.across) {
        if (!std::isnan(residual)) largest = std::max(largest, std::abs(residual));
      }
    }
    return largest;
  }

  // Returns what is told of the views.
  static Json ReportFits(Session& session, const Solution& solution) {
    const double largest = LargestDrawn(solution);
    Json fits = Json::array();
    for (const calibrate::Fit& fit : solution.fits) {
      session.Print("  {:>7.2f} um |{}| {}{}\n", fit.error_mm * calibrate::kMicrometres,
                    Drawn(fit.across, largest), fit.name,
                    fit.stride > 1 ? fmt::format(", 1 column of {}", fit.stride) : "");
      Json across = Json::array();
      for (const double residual : fit.across) {
        across.push_back(std::isnan(residual) ? Json() : Json(residual * calibrate::kMicrometres));
      }
      fits.push_back({{"file", fit.name},
                      {"residual_um", fit.error_mm * calibrate::kMicrometres},
                      {"residual_pixels", fit.error_pixels},
                      {"stride", fit.stride},
                      {"across_um", across}});
    }
    session.Print("     field   |{}|\n",
                  Ruler(solution.calibration, solution.fits[0].across.size()));
    session.Print("residuals: {:.2f} um, {:.3f} pixels; the drawn means reach {:.2f} um\n",
                  solution.error_mm * calibrate::kMicrometres, solution.error_pixels,
                  largest * calibrate::kMicrometres);
    if (solution.corners > 0) {
      session.Print("{}: {:.2f} columns\n", Counted(solution.corners, "edge"),
                    solution.corner_error);
    }
    return fits;
  }

  // How far the lens is from what is usual.
  static Json ReportPriors(Session& session, const Solution& solution) {
    Json priors = Json::object();
    std::string line;
    for (const calibrate::Problem::Prior& prior : solution.priors) {
      line += fmt::format("{}{} {:.5g} ({:+.2f})", line.empty() ? "" : ", ", prior.name,
                          prior.solved, prior.Off());
      priors[prior.name] = {{"solved", prior.solved},
                            {"usual", prior.usual},
                            {"usual_sigma", prior.sigma},
                            {"sigmas_off", prior.Off()}};
    }
    session.Print("lens (off the usual, sigmas): {}\n", line);
    return priors;
  }

  void Report(Session& session, const Solution& solution) const {
    const tessaline_calibration& c = solution.calibration;
    session.Print("{} points of {} on the target, {} left out\n", solution.samples,
                  Counted(files_.size(), "view"), solution.outliers);
    const Json fits = ReportFits(session, solution);
    const Json priors = ReportPriors(session, solution);
    session.Print("a row of one profile: {:.3f} pixels (1 sigma)\n", c.row_sigma);
    session.Print("uncertainty of the calibration: x {:.2f} um, z {:.2f} um (1 sigma)\n",
                  c.x_sigma * calibrate::kMicrometres, c.z_sigma * calibrate::kMicrometres);
    session.Print("field, beyond which the uncertainty is unknown: {}\n",
                  calibrate::FieldInWords(c));
    session.Print("wrote {}\n", output_);
    Json json{{"file", output_},
              {"points", solution.samples},
              {"left_out", solution.outliers},
              {"residual_um", solution.error_mm * calibrate::kMicrometres},
              {"residual_pixels", solution.error_pixels},
              {"row_sigma_pixels", c.row_sigma},
              {"x_sigma_um", c.x_sigma * calibrate::kMicrometres},
              {"z_sigma_um", c.z_sigma * calibrate::kMicrometres},
              {"field", calibrate::FieldCorners(c)},
              {"field_range", calibrate::FieldRange(c)},
              {"lens", priors},
              {"views", fits}};
    if (solution.corners > 0) {
      json["edges"] = solution.corners;
      json["edge_residual_columns"] = solution.corner_error;
    }
    session.Emit(json);
  }

  CLI::App* app_ = nullptr;
  std::vector<std::string> files_;
  std::string target_;
  std::vector<std::string> places_;
  std::string output_;
  std::vector<CLI::Option*> sawtooth_;  // options
  double pitch_ = 0;
  double depth_ = 0;
  bool force_ = false;
};

}  // namespace

std::unique_ptr<Command> MakeCalibrateCommand() { return std::make_unique<CalibrateCommand>(); }

}  // namespace tool
