#pragma once

#include <string>

#include "Recipe.h"

namespace tool {

// A recipe in a file. Throws a Failure if the file cannot be read, and as ParseRecipe().
Recipe ReadRecipe(const std::string& path);
// The same, and the recipe must suit the model.
Recipe ReadRecipe(const std::string& path, const Model& model);

}  // namespace tool
