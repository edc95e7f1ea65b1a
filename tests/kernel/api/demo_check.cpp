// The example application, unchanged.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <utility>

#include "support/Files.h"
#include "support/Started.h"

namespace {

using namespace kernel_test;

// Width and height of a PNG, in pixels.
std::pair<unsigned, unsigned> SizeOf(const char* picture) {
  const std::string bytes = ReadFile(picture);
  if (bytes.size() < 24 || bytes.substr(1, 3) != "PNG") return {};
  const auto number = [&](unsigned at) {
    unsigned value = 0;
    for (unsigned i = 0; i < 4; ++i) value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
  };
  return {number(16), number(20)};
}

TEST(Demo, ScansAndWritesItsPictures) {
  Frames fed(kK3610);
  const pid_t child = fork();
  if (child == 0) {
    std::freopen("/share/demo.txt", "w", stdout);
    execl("/checks/scan_demo", "scan_demo", "--model", "K3610", "--profiles", "60", "--output",
          "/share", nullptr);
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  const std::string said = ReadFile("/share/demo.txt");
  for (const char* line :
       {"started: 1456 x 1088 pixels", "images   60 of 60", "profiles   60 of 60"}) {
    EXPECT_NE(said.find(line), std::string::npos) << line;
  }
  EXPECT_EQ(SizeOf("/share/camera_image.png"), std::pair(1456u, 1088u));
  EXPECT_GE(SizeOf("/share/height_map.png").second, 60u) << "at least a row a profile";
}

}  // namespace
