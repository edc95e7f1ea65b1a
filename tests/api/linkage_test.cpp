// What the shipped file declares to the dynamic linker.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <string>
#include <vector>

#include "support/Sanitizers.h"
#include "tessaline/startup.h"

namespace {

constexpr bool kSanitized = tessaline_test::kAddressSanitizer || tessaline_test::kThreadSanitizer;

// The lines that readelf prints about the library.
std::vector<std::string> Readelf(const std::string& options) {
  Dl_info library{};
  dladdr(reinterpret_cast<void*>(&GetLibVersion), &library);
  const std::string command = "readelf -W " + options + " '" + library.dli_fname + "'";
  FILE* readelf = popen(command.c_str(), "r");
  std::vector<std::string> lines;
  char line[1024];
  while (fgets(line, sizeof line, readelf) != nullptr) lines.emplace_back(line);
  EXPECT_EQ(pclose(readelf), 0);
  return lines;
}

// Entries of one kind in the dynamic section: "... (NEEDED)  Shared library: [libc.so.6]".
std::vector<std::string> DynamicEntries(const std::string& kind) {
  std::vector<std::string> entries;
  const std::regex wanted("\\(" + kind + "\\).*\\[(.*)\\]");
  for (const std::string& line : Readelf("-d")) {
    std::smatch match;
    if (std::regex_search(line, match, wanted)) entries.push_back(match[1]);
  }
  return entries;
}

// The access rights of every segment of a type, such as "R E".
std::vector<std::string> SegmentRights(const std::string& type) {
  std::vector<std::string> rights;
  const std::regex wanted("^ *" + type + "( +0x[0-9a-f]+){5} ([R ][W ][E ]) ");
  for (const std::string& line : Readelf("-l")) {
    std::smatch match;
    if (std::regex_search(line, match, wanted)) rights.push_back(match[2]);
  }
  return rights;
}

TEST(Linkage, TheSonameCarriesTheInterfaceVersion) {
  EXPECT_THAT(DynamicEntries("SONAME"), ::testing::ElementsAre("libtessaline.so.1"));
}

TEST(Linkage, NothingIsNeededButTheStandardLibraries) {
  if (kSanitized) GTEST_SKIP() << "a sanitized library also needs the sanitizer's runtime";
  const auto needed = DynamicEntries("NEEDED");
  EXPECT_FALSE(needed.empty());
  for (const std::string& library : needed) {
    EXPECT_THAT(library, ::testing::MatchesRegex(
                             "lib(stdc\\+\\+|c|m|gcc_s)\\.so\\.[0-9]+|ld-linux.*\\.so\\.[0-9]+"));
  }
}

TEST(Hardening, NothingMappedIsWritableAndExecutable) {
  const auto mapped = SegmentRights("LOAD");
  EXPECT_GE(mapped.size(), 2u);  // code and data; some linkers make more segments
  for (const std::string& rights : mapped) EXPECT_NE(rights, "RWE");
  EXPECT_THAT(SegmentRights("GNU_STACK"), ::testing::ElementsAre("RW "));
}

TEST(Hardening, RelocatedDataIsReadOnlyOnceTheLibraryIsLoaded) {
  EXPECT_THAT(SegmentRights("GNU_RELRO"), ::testing::ElementsAre("R  "));
  if (kSanitized) GTEST_SKIP() << "a sanitized library is bound lazily";
  EXPECT_THAT(Readelf("-d"), ::testing::Contains(::testing::ContainsRegex("FLAGS.*BIND_NOW")));
}

TEST(Hardening, OverflowsOfTheStackAndOfFixedBuffersAreCaught) {
  if (kSanitized) GTEST_SKIP() << "the sanitizers check this in ways of their own";
  const auto symbols = Readelf("--dyn-syms");
  EXPECT_THAT(symbols, ::testing::Contains(::testing::HasSubstr(" __stack_chk_fail@")));
#ifdef __OPTIMIZE__
  EXPECT_THAT(symbols, ::testing::Contains(::testing::ContainsRegex(" __[a-z]+_chk@")));
#endif
}

}  // namespace
