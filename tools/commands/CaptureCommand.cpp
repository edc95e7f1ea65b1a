#include <optional>

#include "Acquisition.h"
#include "Counted.h"
#include "Device.h"
#include "Failure.h"
#include "Measuring.h"
#include "OutputFile.h"
#include "capture/HeightMapWriter.h"
#include "capture/Recorder.h"
#include "commands/Commands.h"
#include "tessaline/tessaline.h"

namespace tool {
namespace {

constexpr About kCaptureAbout{
    "capture", "Captures profiles (strips) or images into a file", Touches::kLight,
    "The file's ending, or --format, selects the format. Strips: csv (one line per point), npy (an "
    "array of records), ply (a point cloud), png (a height map), raw (the bytes as the library "
    "delivers them, with an index in FILE.csv). Images: png and pgm (one file per image, numbered "
    "if more than one is asked for), npy, raw.\n"
    "The laser is on while frames are taken, and off afterwards. After Ctrl-C or on a full disk "
    "the file holds what was captured until then. Heights are in millimetres if the head is "
    "calibrated (tessaline calibrate), otherwise in columns and rows of the full sensor. csv, npy "
    "and ply state the 1-sigma uncertainty of millimetres where it is known.",
    "  tessaline capture strips -n 600 -o scan.png --virtual K3610\n"
    "  tessaline capture strips -t 10 -o scan.ply --spacing 1000 --model K3610\n"
    "  tessaline capture images -n 1 -o image.png --virtual K3920"};

constexpr double kMostFrames = 1e15;

class CaptureCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddCommand(parent, kCaptureAbout, common);
    app_->add_option("strips-or-images", what_, "What to capture")
        ->check(CLI::IsMember({"strips", "images"}))
        ->type_name("WHAT")
        ->required();
    app_->add_option("-o,--output", path_, "File to write")->type_name("FILE")->required();
    app_->add_option("-n,--count", limits_.frames, "Frames to capture")
        ->check(NumberIn(1, kMostFrames))
        ->type_name("COUNT");
    app_->add_option("-t,--time", limits_.seconds, "Seconds to capture")
        ->check(NumberIn(0.001, kMostSeconds))
        ->type_name("SECONDS");
    app_->add_option("--format", format_, "csv, npy, ply, png, pgm or raw")->type_name("FORMAT");
    app_->add_flag("--force", force_, "Overwrite existing files");
    app_->add_flag("--strict", strict_, "Exit status 1 when a frame was lost or malformed");
    acquisition_.Describe(*app_);
    measuring_.Describe(*app_);
    measuring_.DescribeTravel(*app_);
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    const bool images = what_ == "images";
    const Format format = FormatOf(path_, format_, images);
    if (limits_.frames == 0 && limits_.seconds == 0) {
      throw Failure(ExitCode::kUsage, "give a number of frames or a time",
                    "use -n COUNT or -t SECONDS");
    }
    const bool height_map = format == Format::kPng && !images;
    if (height_map && limits_.frames > HeightMapWriter::kMostProfiles) {
      throw Failure(
          ExitCode::kUsage,
          fmt::format("a height map holds at most {} profiles", HeightMapWriter::kMostProfiles),
          "capture less at a time, or write .npy");
    }
    const Model& model = session.model();
    acquisition_.Settle(session, &model);
    WriterSettings settings{.path = path_,
                            .force = force_,
                            .images = images,
                            .frames = limits_.frames,
                            .rows_only = model.product().points != products::PointLayout::kFull,
                            .measuring = ChooseMeasuring(session, format, images)};
    RequireStreamable(format, settings, limits_.seconds == 0);
    if (IsStandardOutput(path_)) LibraryOutput::Instance().KeepUserForData();
    // Refuse, or ask the user, before the laser is on.
    for (const std::string& file : FilesOf(format, settings)) {
      settings.force |= MayOverwrite(file, force_);
    }
    if (session.options().dry_run) {
      acquisition_.Rehearse(session, "capture " + what_, images, settings.measuring.calls, path_);
      return ExitCode::kOk;
    }

    Device device(session);
    device.Start(FrameQueue::OnImage, FrameQueue::OnStrips);
    acquisition_.SetUp(session, images);
    const Region region = session.live() == nullptr
                              ? Region{0, 0, GetImageWidth(), GetImageHeight()}
                              : session.live()->CurrentRegion();
    settings.width = region.width;
    settings.height = region.height;
    const auto writer = MakeWriter(format, settings);
    Recorder recorder(device, *writer, images,
                      StripReader(model.product().PointBytes(), settings.measuring.geometry,
                                  settings.measuring.calibration),
                      LightMeter(images, settings.rows_only));
    RecordingResult result = recorder.Run(limits_, acquisition_.laser());
    const auto files = writer->Files();
    if (session.live() != nullptr && !result.failure) {
      try {
        RequireRegion(*session.live(), region, files.empty() ? path_ : files.front());
      } catch (const Failure& failure) {
        if (failure.code() != ExitCode::kUnreachable) throw;
        result.failure = failure;
      }
    }
    if (result.frames == 0) {
      for (const std::string& file : files) RemoveFile(file);
    }
    return Report(session, result, files, settings.measuring);
  }

 private:
  // That nobody changed it meanwhile.
  static void RequireRegion(const live::LiveSensor& sensor, const Region& region,
                            const std::string& file) {
    if (sensor.CurrentRegion() == region) return;
    throw Failure(
        ExitCode::kNegative,
        fmt::format("somebody changed the region meanwhile, so what is in {} does not fit together",
                    file),
        "capture again");
  }

  // What has no points needs no calibration.
  Measuring ChooseMeasuring(const Session& session, Format format, bool images) const {
    const Region region = acquisition_.RegionOf(session);
    if (images) return measuring_.ChooseNone(session, region, "images");
    if (format == Format::kRaw) return measuring_.ChooseNone(session, region, "raw bytes");
    return measuring_.Choose(session, region,
                             /*travels=*/format == Format::kPly || format == Format::kPng);
  }

  static std::optional<Failure> FailureOf(const RecordingResult& result) {
    if (result.failure && result.frames == 0) return result.failure;
    if (result.failure) {
      return Failure(
          result.failure->code(),
          fmt::format("{}; {} {} kept", result.failure->what(), Counted(result.frames, "frame"),
                      result.frames == 1 ? "is" : "are"),
          result.failure->next());
    }
    if (result.interrupted || (!result.no_more_came && result.frames > 0)) return std::nullopt;
    return Failure(ExitCode::kUnreachable,
                   fmt::format("no {}frames came", result.frames == 0 ? "" : "more "),
                   "are there triggers (tessaline trigger)? \"tessaline check\" tests the board");
  }

  static std::string Warning(const RecordingResult& result, const Measuring& measuring) {
    if (!result.warning.empty() || !measuring.travels() || result.moved || result.frames < 2) {
      return result.warning;
    }
    return "the encoder has not moved, so all profiles lie at y = 0: is it connected?";
  }

  ExitCode Report(Session& session, const RecordingResult& result,
                  const std::vector<std::string>& files, const Measuring& measuring) const {
    const double rate =
        result.seconds > 0 ? static_cast<double>(result.frames) / result.seconds : 0;
    if (result.frames > 0) {
      session.Print("{} in {:.1f} s ({:.1f}/s): {}{}\n",
                    Counted(result.frames, what_ == "images" ? "image" : "profile"), result.seconds,
                    rate, files.front(),
                    files.size() == 1
                        ? ""
                        : fmt::format(" {} {}", files.size() == 2 ? "and" : "to", files.back()));
    }
    session.Print(
        "missing ids {}, malformed {}, lost by the FPGA {}, lost triggers {}, dropped by "
        "this tool {}\n",
        result.missing, result.losses.malformed, result.losses.fpga_lost,
        result.losses.triggers_lost, result.dropped);
    if (what_ == "strips") session.Print("{}\n", measuring.Description());
    if (result.outside_field > 0) {
      session.Print("{} outside the calibrated field: their uncertainty is unknown\n",
                    Counted(result.outside_field, "point"));
    }
    Json json{{"frames", result.frames},
              {"seconds", result.seconds},
              {"rate", rate},
              {"missing_ids", result.missing},
              {"malformed", result.losses.malformed},
              {"fpga_lost", result.losses.fpga_lost},
              {"triggers_lost", result.losses.triggers_lost},
              {"dropped", result.dropped},
              {"complete", result.Complete()},
              {"unit", measuring.Unit()},
              {"calibration", measuring.calibrated() ? Json(measuring.source) : Json()},
              {"files", result.frames > 0 ? files : std::vector<std::string>()}};
    if (result.outside_field > 0) json["points_outside_field"] = result.outside_field;
    const std::string warning = Warning(result, measuring);
    if (!warning.empty()) json["warning"] = warning;
    const std::optional<Failure> failure = FailureOf(result);
    if (failure) AddTo(json, *failure);
    session.Emit(json);
    if (!warning.empty() && !session.json()) session.Note("{}", warning);
    if (failure) throw *failure;
    if (result.interrupted) return ExitCode::kInterrupted;
    return strict_ && result.Lost() ? ExitCode::kNegative : ExitCode::kOk;
  }

  CLI::App* app_ = nullptr;
  std::string what_;
  std::string path_;
  std::string format_;
  bool force_ = false;
  bool strict_ = false;
  RecordingLimits limits_;
  Acquisition acquisition_;
  MeasuringOptions measuring_;
};

}  // namespace

std::unique_ptr<Command> MakeCaptureCommand() { return std::make_unique<CaptureCommand>(); }

}  // namespace tool
