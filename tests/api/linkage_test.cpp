// What the shipped file says about itself to the dynamic linker.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <string>
#include <vector>

#include "tessaline/startup.h"

namespace {

// Entries of one kind in the library's dynamic section, as readelf prints them:
// "... (NEEDED)  Shared library: [libc.so.6]".
std::vector<std::string> DynamicEntries(const std::string& kind) {
  Dl_info library{};
  dladdr(reinterpret_cast<void*>(&GetLibVersion), &library);
  FILE* readelf = popen((std::string("readelf -d '") + library.dli_fname + "'").c_str(), "r");
  std::vector<std::string> entries;
  const std::regex wanted("\\(" + kind + "\\).*\\[(.*)\\]");
  char line[1024];
  while (fgets(line, sizeof line, readelf) != nullptr) {
    std::cmatch match;
    if (std::regex_search(line, match, wanted)) entries.push_back(match[1]);
  }
  EXPECT_EQ(pclose(readelf), 0);
  return entries;
}

TEST(Linkage, TheSonameCarriesTheInterfaceVersion) {
  EXPECT_THAT(DynamicEntries("SONAME"), ::testing::ElementsAre("libtessaline.so.1"));
}

TEST(Linkage, NothingIsNeededButTheStandardLibraries) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitized library also needs the sanitizer's runtime";
#endif
  const auto needed = DynamicEntries("NEEDED");
  EXPECT_FALSE(needed.empty());
  for (const std::string& library : needed) {
    EXPECT_THAT(library, ::testing::MatchesRegex(
                             "lib(stdc\\+\\+|c|m|gcc_s)\\.so\\.[0-9]+|ld-linux.*\\.so\\.[0-9]+"));
  }
}

}  // namespace
