#include <algorithm>
#include <filesystem>
#include <optional>

#include "Counted.h"
#include "Failure.h"
#include "Interrupt.h"
#include "OutputFile.h"
#include "capture/BagFrames.h"
#include "capture/BagMeasuring.h"
#include "capture/HeightMapWriter.h"
#include "commands/BagReports.h"
#include "commands/Commands.h"
#include "commands/RecordingOption.h"
#include "record/BagCut.h"
#include "record/BagFolder.h"
#include "record/BagTime.h"

namespace tool {
namespace {

constexpr About kBagAbout{"bag", "Shows, checks, cuts and exports recordings", Touches::kNothing,
                          "A recording is one .db3 file. docs/tool.md says what is in it.",
                          "  tessaline bag info run.db3"};
constexpr About kBagInfoAbout{
    "info", "Shows what is in a recording", Touches::kNothing,
    "Reads all of it once. Rates of frames are those of the device's clock; ids that are missing "
    "between frames are listed, the first gaps by their ids.",
    "  tessaline bag info run.db3\n  tessaline bag info run.db3 --json"};
constexpr About kBagCheckAbout{
    "check", "Finds damage in a recording and says what is whole", Touches::kNothing,
    "Exit status 1 if something is damaged. A recording that was not closed, because its writer "
    "was "
    "killed or the power failed, is whole up to its last sync: that is said, and is no damage.",
    "  tessaline bag check run.db3"};
constexpr About kCutAbout{
    "cut", "Copies a part of a recording into a new one", Touches::kNothing,
    "Times are seconds from the start (2.5), seconds since 1970 (@1700000000), or dates "
    "(2026-05-01T12:30:00, with Z behind it for UTC). Limits belong to the part. The new recording "
    "stands by itself: it begins with the values of all registers and what is known about the "
    "device. Buffers of strips are cut to the frames in the range. Damaged messages are left out.",
    "  tessaline bag cut run.db3 -o part.db3 --from 10 --to 12.5\n"
    "  tessaline bag cut run.db3 -o part.db3 --first-id 1000 --last-id 1999"};
constexpr About kExportAbout{
    "export", "Writes a recording's frames as other files", Touches::kNothing,
    "Formats and files are those of \"tessaline capture\": csv, npy, ply, png, pgm, raw. Heights "
    "are in millimetres by the calibration in the recording, if there is one.\n"
    "bag makes a folder as rosbag2 has them, with a point cloud for each buffer of strips "
    "(/tessaline/points) and a picture for each image (/tessaline/picture), for viewers.",
    "  tessaline bag export run.db3 -o run.npy\n  tessaline bag export run.db3 --format bag -o "
    "run"};

constexpr const char* kBagFormat = "bag";
constexpr unsigned kWidest = 32768;  // that any sensor may be

void TellDamage(const Session& session, std::uint64_t damaged) {
  if (damaged == 0) return;
  session.Note("left out {} of the recording: see \"tessaline bag check\"",
               Counted(damaged, "damaged part"));
}

class BagCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddGroup(parent, kBagAbout);
    info_ = &AddOne(kBagInfoAbout, common);
    check_ = &AddOne(kBagCheckAbout, common);
    cut_ = &AddOne(kCutAbout, common);
    cut_->add_option("-o,--output", output_, "Recording to write; never overwritten")
        ->type_name("NEW")
        ->required();
    cut_->add_option("--from", from_, "When the part begins")->type_name("TIME");
    cut_->add_option("--to", to_, "When the part ends")->type_name("TIME");
    cut_->add_option("--first-id", range_.first_id, "Its first frame")->type_name("ID");
    cut_->add_option("--last-id", range_.last_id, "Its last frame")->type_name("ID");
    export_ = &AddOne(kExportAbout, common);
    export_->add_option("strips-or-images", what_, "What to export (default: strips, if any)")
        ->check(CLI::IsMember({"strips", "images"}))
        ->type_name("WHAT");
    export_->add_option("-o,--output", output_, "File or folder to write")->type_name("FILE");
    export_->add_option("--format", format_, "csv, npy, ply, png, pgm, raw or bag")
        ->type_name("FORMAT");
    export_->add_flag("--force", force_, "Overwrite existing files (never a recording)");
    measuring_.Describe(*export_);
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    Session::LeaveOutBoard();
    CatchInterrupts([] {});
    if (info_->parsed()) return Info(session);
    if (check_->parsed()) return Check(session);
    return cut_->parsed() ? Cut(session) : Export(session);
  }

 private:
  CLI::App& AddOne(const About& about, CommonOptions& common) {
    CLI::App& one = AddCommand(*app_, about, common);
    recording_.Describe(one);
    return one;
  }

  ExitCode Info(Session& session) const {
    const std::vector<BagFindings> findings = ReadBags(recording_.source(), Interrupted);
    if (findings.size() > 1) {
      ReportSensors(session, recording_.path(), findings);
    } else {
      ReportContents(session, recording_.path(), findings.front());
    }
    if (std::ranges::none_of(findings, &BagFindings::damaged)) return ExitCode::kOk;
    session.Note("{} is damaged: \"tessaline bag check\" says what is whole", recording_.path());
    return ExitCode::kNegative;
  }

  ExitCode Check(Session& session) const {
    const std::vector<BagFindings> findings = Checked();
    ReportCheck(session, recording_.path(), findings);
    const bool good = std::ranges::none_of(findings, [](const BagFindings& sensor) {
      return sensor.damaged() || sensor.Unexplained() > 0;
    });
    return good ? ExitCode::kOk : ExitCode::kNegative;
  }
  std::vector<BagFindings> Checked() const {
    try {
      return CheckBags(recording_.source(), Interrupted);
    } catch (const Damaged&) {
      throw Failure(ExitCode::kNegative,
                    fmt::format("{}: DAMAGED, nothing of it is whole", recording_.path()),
                    "its list of tables or of sensors cannot be read");
    }
  }

  ExitCode Cut(Session& session) {
    if (from_.empty() && to_.empty() && !range_.first_id && !range_.last_id) {
      throw Failure(ExitCode::kUsage, "no part is given",
                    "give --from, --to, --first-id or --last-id");
    }
    const std::int64_t start = StartOf(recording_.source());
    if (!from_.empty()) range_.from_ns = MomentOf(from_, start);
    if (!to_.empty()) range_.to_ns = MomentOf(to_, start);
    const BagCutResult result = CutBag(recording_.source(), output_, range_, Interrupted);
    const Contents& part = result.contents;
    session.Print("{}, {}, {:.3f} s: {}\n", Counted(part.strips().frames(), "profile"),
                  Counted(part.images().frames(), "image"), part.span().Seconds(), output_);
    session.Emit({{"file", output_},
                  {"profiles", part.strips().frames()},
                  {"images", part.images().frames()},
                  {"seconds", part.span().Seconds()},
                  {"damaged", result.damaged}});
    return End(session, result.damaged);
  }

  ExitCode Export(Session& session) {
    if (format_ == "mcap") {
      throw Failure(ExitCode::kUsage, "this program writes no mcap",
                    "write --format bag; \"ros2 bag convert\" makes mcap of it");
    }
    if (output_.empty()) {
      if (format_.empty()) {
        throw Failure(ExitCode::kUsage, "no format is given", "give --format or -o FILE");
      }
      const std::string stem = std::filesystem::path(recording_.path()).stem().string();
      output_ = format_ == kBagFormat ? stem : stem + "." + format_;
    }
    const BagFindings findings = ReadBag(recording_.source(), Interrupted);
    return format_ == kBagFormat ? ExportBag(session, findings.contents)
                                 : ExportFrames(session, findings.contents);
  }

  ExitCode ExportBag(Session& session, const Contents& contents) {
    StandardMessages::Settings settings;
    if (const auto chosen = measuring_.Choose(session, contents.device())) {
      const Measuring& measuring = chosen->measuring;
      settings = {measuring.geometry, measuring.calibration, measuring.counts_per_mm};
      session.Print("points are {}\n", measuring.Description());
    } else {
      session.Note("the recording does not name its model: points are columns and rows");
    }
    const BagFolderResult result =
        ExportBagFolder(recording_.source(), output_, StandardMessages(settings), Interrupted);
    const auto count = [&](Topic topic) { return result.contents.Of(topic).count; };
    session.Print("{} and {} beside the recording's messages: {}\n",
                  Counted(count(Topic::kPoints), "point cloud"),
                  Counted(count(Topic::kPicture), "picture"), output_);
    session.Emit({{"files", result.files},
                  {"point_clouds", count(Topic::kPoints)},
                  {"pictures", count(Topic::kPicture)},
                  {"damaged", result.damaged}});
    return End(session, result.damaged);
  }

  ExitCode ExportFrames(Session& session, const Contents& contents) {
    if (contents.strips().frames() + contents.images().frames() == 0) {
      throw Failure(ExitCode::kNegative, fmt::format("{} has no frames", recording_.path()),
                    "\"tessaline bag info\" shows what it has");
    }
    const bool images = what_.empty() ? contents.strips().frames() == 0 : what_ == "images";
    const Format format = FormatOf(output_, format_, images);
    const FrameCount& frames = images ? contents.images() : contents.strips();
    if (frames.frames() == 0) {
      throw Failure(ExitCode::kNegative,
                    fmt::format("{} has no {}", recording_.path(), images ? "images" : "strips"),
                    "\"tessaline bag info\" shows what it has");
    }
    if (format == Format::kPng && !images && frames.frames() > HeightMapWriter::kMostProfiles) {
      throw Failure(
          ExitCode::kUsage,
          fmt::format("a height map holds at most {} profiles", HeightMapWriter::kMostProfiles),
          "cut the recording (tessaline bag cut), or write .npy");
    }
    WriterSettings settings{.path = output_,
                            .force = force_,
                            .images = images,
                            .frames = frames.frames(),
                            .rows_only = !contents.HasPointsOf(sizeof(tessaline_full_point)),
                            .width = images ? contents.image_width() : kWidest,
                            .height = images ? contents.image_height() : kWidest,
                            .measuring = {.geometry = tessaline_geometry_full(kWidest, kWidest)}};
    const bool points = !images && format != Format::kRaw;
    if (points) {
      const auto chosen = measuring_.Choose(session, contents.device());
      if (!chosen) {
        throw Failure(ExitCode::kUsage,
                      fmt::format("{} does not name its model", recording_.path()),
                      "give --model CODE, or write raw");
      }
      settings.measuring = chosen->measuring;
      settings.width = chosen->region.width;
      settings.height = chosen->region.height;
      RequireTravel(settings.measuring, format);
    }
    RequireStreamable(format, settings, /*exact=*/true);
    if (IsStandardOutput(output_)) LibraryOutput::Instance().KeepUserForData();
    for (const std::string& file : FilesOf(format, settings)) {
      settings.force |= MayOverwrite(file, force_);
    }
    const auto writer = MakeWriter(format, settings);
    const BagFramesResult result = WriteBagFrames(recording_.source(), images, settings.measuring,
                                                  settings.width, *writer, Interrupted);
    const auto files = writer->Files();
    const std::string several =
        files.size() < 2 ? ""
                         : fmt::format(" {} {}", files.size() == 2 ? "and" : "to", files.back());
    session.Print("{}: {}{}\n", Counted(result.frames, images ? "image" : "profile"),
                  files.empty() ? output_ : files.front(), several);
    if (points) session.Print("{}\n", settings.measuring.Description());
    return Report(session, result, settings.measuring, files);
  }

  static ExitCode Report(Session& session, const BagFramesResult& result,
                         const Measuring& measuring, const std::vector<std::string>& files) {
    if (result.outside_region > 0) {
      session.Note("{} outside the region of interest: give --roi",
                   Counted(result.outside_region, "point"));
    }
    Json json{{"frames", result.frames},
              {"unit", measuring.Unit()},
              {"calibration", measuring.calibrated() ? Json(measuring.source) : Json()},
              {"points_outside_field", result.outside_field},
              {"points_outside_region", result.outside_region},
              {"damaged", result.damaged},
              {"files", files}};
    if (result.failure) AddTo(json, *result.failure);
    session.Emit(json);
    if (result.failure) throw *result.failure;
    return End(session, result.damaged);
  }

  static void RequireTravel(const Measuring& measuring, Format format) {
    const bool travels = format == Format::kPly || format == Format::kPng;
    if (!travels || !measuring.calibrated() || measuring.travels()) return;
    throw Failure(ExitCode::kUsage, "millimetres along the movement need the encoder's scale",
                  "give --counts-per-mm, or --calibration none");
  }

  static ExitCode End(Session& session, std::uint64_t damaged) {
    TellDamage(session, damaged);
    return damaged == 0 ? ExitCode::kOk : ExitCode::kNegative;
  }

  CLI::App *app_ = nullptr, *info_ = nullptr, *check_ = nullptr, *cut_ = nullptr,
           *export_ = nullptr;
  RecordingOption recording_;
  std::string output_, from_, to_, what_, format_;
  BagRange range_;
  bool force_ = false;
  BagMeasuringOptions measuring_;
};

}  // namespace

std::unique_ptr<Command> MakeBagCommand() { return std::make_unique<BagCommand>(); }

}  // namespace tool
