#include "Device.h"
#include "Failure.h"
#include "Plan.h"
#include "Recipe.h"
#include "Registers.h"
#include "commands/Commands.h"

namespace tool {
namespace {

constexpr About kRoiAbout{
    "roi", "Sets or shows the region of interest", Touches::kSets,
    "Without numbers, shows what the FPGA holds. What each sensor accepts: IMX273 anything within "
    "1456 x 1088; IMX252 x from 8, y from 4; GMAX2509 x and width in steps of 28, width from 560; "
    "GSPRINT6502BSI x and width in steps of 32, height in steps of 2; e2v Flash 4K x and width in "
    "steps of 64, y and height in steps of 8.",
    "  tessaline roi --model K3610\n  tessaline roi 128 256 1000 700 --model K3610\n"
    "  tessaline roi --full --model K3820"};

constexpr std::size_t kNumbers = 4;

class RoiCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddCommand(parent, kRoiAbout, common);
    app_->add_option("region", region_, "x, y, width and height in pixels")
        ->type_name("X Y WIDTH HEIGHT")
        ->expected(0, static_cast<int>(kNumbers));
    app_->add_flag("--full", full_, "The full sensor");
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    if (region_.empty() && !full_) return Show(session);
    const Model& model = session.model();
    if (full_ != region_.empty()) Refuse();
    if (!full_ && region_.size() != kNumbers) Refuse();
    const Region region =
        full_ ? WholeSensor(model) : Region{region_[0], region_[1], region_[2], region_[3]};
    Require(region, model);
    Plan plan(session, "roi");
    Recipe recipe;
    recipe.region = region;
    plan.Add(recipe, StepsOf(recipe, model));
    plan.CarryOut();
    return ExitCode::kOk;
  }

 private:
  [[noreturn]] static void Refuse() {
    throw Failure(ExitCode::kUsage, "a region is four numbers: x, y, width, height",
                  "for example \"tessaline roi 0 0 1456 512\", or --full");
  }

  static ExitCode Show(Session& session) {
    const Registers registers = Device(session).OpenRegisters();
    const std::uint32_t width = registers.Read(fpga::kReg.STRIP_IMAGE_WIDTH);
    const std::uint32_t height = registers.Read(fpga::kReg.STRIP_IMAGE_HEIGHT);
    const std::uint32_t offset = registers.Read(fpga::kReg.ROI_OFFSET);
    const unsigned x = fpga::kField.roi_offset_x.Of(offset);
    const unsigned y = fpga::kField.roi_offset_y.Of(offset);
    session.Print("size in the FPGA       {} x {}{}\noffset of the points   column {}, row {}\n",
                  width, height, width == 0 ? " (the device was not started)" : "", x, y);
    session.Emit({{"width", width}, {"height", height}, {"offset_x", x}, {"offset_y", y}});
    return ExitCode::kOk;
  }

  CLI::App* app_ = nullptr;
  std::vector<unsigned> region_;
  bool full_ = false;
};

}  // namespace

std::unique_ptr<Command> MakeRoiCommand() { return std::make_unique<RoiCommand>(); }

}  // namespace tool
