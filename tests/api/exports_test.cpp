// The library's symbols are exactly those of the checked-in list, so that the interface only
// changes on purpose.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tessaline/signal_handler.h"
#include "tessaline/tessaline.h"

namespace {

std::vector<std::string> ListedSymbols() {
  std::ifstream list(std::filesystem::path(__FILE__).parent_path().parent_path() / "exports.txt");
  std::vector<std::string> names;
  for (std::string name; std::getline(list, name);) names.push_back(name);
  return names;
}

std::vector<std::string> ExportedSymbols() {
  Dl_info library{};
  dladdr(reinterpret_cast<void*>(&GetLibVersion), &library);
  const std::string command = std::string("nm -D --defined-only '") + library.dli_fname + "'";
  FILE* nm = popen(command.c_str(), "r");
  std::vector<std::string> names;
  char line[1024];
  while (fgets(line, sizeof line, nm) != nullptr) {
    std::istringstream words(line);
    std::string address, type, name;
    words >> address >> type >> name;
    names.push_back(name.substr(0, name.find('@')));
  }
  EXPECT_EQ(pclose(nm), 0);
  std::sort(names.begin(), names.end());
  return names;
}

TEST(Exports, AreExactlyTheListedOnes) {
  const auto listed = ListedSymbols();
  EXPECT_TRUE(std::is_sorted(listed.begin(), listed.end()));
  EXPECT_THAT(ExportedSymbols(), ::testing::ElementsAreArray(listed));
}

// Applications also derive from it, so its constructor and destructor have a second symbol.
class OwnHandler : public VeltranoSDK::SignalHandler {};

// The class's symbols must link from outside.
TEST(Exports, IncludeTheSignalHandlerClass) {
  const VeltranoSDK::SignalHandler handler;
  const OwnHandler own;
  VeltranoSDK::SignalHandler::handleSignal(2);
  EXPECT_EQ(VeltranoSDK::SignalHandler::install(), 0);
}

}  // namespace
