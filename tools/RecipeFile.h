#pragma once

#include <string>

#include "Recipe.h"
#include "Session.h"

namespace tool {

// A recipe in a file: JSON with "recipe": 1, the version of the format.

// Throws a Failure that names the file, the key and its limits unless it holds a recipe and
// nothing else.
Recipe ReadRecipe(const std::string& path);
// The same, and the recipe must suit the model.
Recipe ReadRecipe(const std::string& path, const Model& model);

std::string AsFile(const Recipe& recipe);

// One setting's value; null if it is absent.
Json ValueOf(const std::optional<Region>& region);
Json ValueOf(const std::optional<std::vector<unsigned>>& numbers);
template <typename T>
Json ValueOf(const std::optional<T>& value) {
  return value ? Json(*value) : Json();
}

}  // namespace tool
