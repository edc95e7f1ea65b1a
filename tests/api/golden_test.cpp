// Compares the whole start-up of a product of every series, as the board records it, with a file.
// The test fails if an access, its value, its order or a pause changes.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "api/SelfTestImage.h"
#include "support/BoardFixture.h"
#include "support/StartUpSections.h"
#include "tessaline/tessaline.h"

namespace {

using tessaline_test::BoardFixture;
using tessaline_test::SelfTestImage;

void OnImage(unsigned, unsigned, void*) { SelfTestImage::Handled(); }

class Golden : public BoardFixture, public ::testing::WithParamInterface<const char*> {
 protected:
  Golden() : BoardFixture(GetParam()) {}

  static std::string StartUp() {
    const std::string model = GetParam();
    EXPECT_EQ(GetLibVersion(model.c_str()), 41915);
    log_set_quiet(true);
    RegisterEventHandler(TESSALINE_EVENT_IMAGE, reinterpret_cast<tessaline_event_handler>(OnImage));
    const SelfTestImage tried_out(model);
    EXPECT_EQ(RegisterHardwareInit(), 0);
    tessaline_test::StartUpSections sections;
    for (const std::string& event : Events()) sections.Add(event);
    return sections.Text();
  }
};

TEST_P(Golden, StartUp) {
  const std::string actual = StartUp();
  const auto tests = std::filesystem::path(__FILE__).parent_path().parent_path();
  const std::string name = tests / "golden" / ("startup_" + std::string(GetParam()) + ".txt");
  if (std::getenv("TESSALINE_ACCEPT_GOLDEN") != nullptr) {
    std::ofstream(name) << actual;
    FAIL() << "wrote " << name << "; look at the difference, then run without accepting";
  }
  std::ifstream file(name);
  ASSERT_TRUE(file) << name << " is missing; TESSALINE_ACCEPT_GOLDEN=1 writes it";
  std::stringstream expected;
  expected << file.rdbuf();
  EXPECT_EQ(actual, expected.str());
}

INSTANTIATE_TEST_SUITE_P(Api, Golden,
                         ::testing::Values("K3610", "K3710", "K3710ch16", "K3710ch16arm_rebuild",
                                           "K3810", "K3820", "K3920", "K3920arm_rebuild", "K4010",
                                           "K4010arm_rebuild"),
                         [](const auto& row) { return std::string(row.param); });

}  // namespace
