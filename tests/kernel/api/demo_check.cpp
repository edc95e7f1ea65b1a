// The example application, as it is.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "support/Files.h"
#include "support/Started.h"

namespace {

using namespace kernel_test;

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
  for (const char* picture : {"/share/camera_image.png", "/share/height_map.png"}) {
    EXPECT_EQ(ReadFile(picture).substr(1, 3), "PNG") << picture;
  }
}

}  // namespace
