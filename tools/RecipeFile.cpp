#include "RecipeFile.h"

#include "InputFile.h"
#include "RecipeText.h"

namespace tool {
namespace {

constexpr std::size_t kLargestRecipe = 1 << 16;

std::string TextIn(const std::string& path) {
  const auto bytes = ReadWholeFile(path, kLargestRecipe,
                                   "a recipe is a JSON file of at most 64 KiB, as \"tessaline "
                                   "recipe save\" writes it");
  return {bytes.begin(), bytes.end()};
}

}  // namespace

Recipe ReadRecipe(const std::string& path) { return ParseRecipe(TextIn(path), path); }

Recipe ReadRecipe(const std::string& path, const Model& model) {
  return ParseRecipe(TextIn(path), path, model);
}

}  // namespace tool
