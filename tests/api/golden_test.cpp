// The whole start-up of a product as it crosses the system-call surface, compared
// with a file. A change of one access, its value, its place or a pause shows here.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "support/BoardFixture.h"
#include "tessaline/tessaline.h"

namespace {

using tessaline_test::BoardFixture;

class Golden : public BoardFixture {
 protected:
  Golden() : BoardFixture("K3610") {}
};

// Three threads are at work. The starting thread's events are in order among
// themselves, and so are those of each capture device; they are compared apart.
// How often the starting thread polls for the other two is nobody's business.
std::string InSections(const std::vector<std::string>& events) {
  std::string main;
  std::string video[2];
  for (const std::string& event : events) {
    if (event == tessaline_test::Slept(10)) continue;
    std::string& section = event.starts_with("video0 ")   ? video[0]
                           : event.starts_with("video1 ") ? video[1]
                                                          : main;
    section += event + '\n';
  }
  return "# starting thread\n" + main + "# image thread\n" + video[0] + "# strip thread\n" +
         video[1];
}

TEST_F(Golden, StartUpOfK3610) {
  ASSERT_EQ(GetLibVersion("K3610"), 41915);
  log_set_quiet(true);
  ASSERT_EQ(RegisterHardwareInit(), 0);
  const std::string actual = InSections(Events());

  const auto tests = std::filesystem::path(__FILE__).parent_path().parent_path();
  const std::string name = tests / "golden" / "startup_K3610.txt";
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

}  // namespace
