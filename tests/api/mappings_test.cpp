// The mappings of a process while the library is running.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "api/StartedBoard.h"

namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// One line per mapping: "7f5c0a000000-7f5c0a021000 rw-p 00000000 00:00 0 [stack]".
std::vector<std::string> Mappings(bool wanted(const std::string& rights)) {
  std::vector<std::string> mappings;
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (wanted(line.substr(line.find(' ') + 1, 4))) mappings.push_back(line);
  }
  return mappings;
}

using HardeningAtWork = tessaline_test::StartedBoard;

TEST_F(HardeningAtWork, NothingMappedIsWritableAndExecutable) {
  ASSERT_EQ(SetGlobalControl(1), 0);
  const auto executable = Mappings([](const std::string& rights) { return rights[2] == 'x'; });
  EXPECT_THAT(executable, Contains(HasSubstr("libtessaline.so")));
  const auto writable = Mappings([](const std::string& rights) { return rights[1] == 'w'; });
  EXPECT_THAT(writable, Contains(HasSubstr("[stack]")));
  EXPECT_THAT(
      Mappings([](const std::string& rights) { return rights[1] == 'w' && rights[2] == 'x'; }),
      IsEmpty());
}

}  // namespace
