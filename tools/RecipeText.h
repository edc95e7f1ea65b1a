#pragma once

#include <string>
#include <string_view>

#include "Json.h"
#include "Recipe.h"

namespace tool {

// A recipe as text: JSON with "recipe": 1, the version of the format.

// Throws a Failure that names the origin, the key and its limits unless the text is a recipe and
// nothing else. Without an origin only the key is named.
Recipe ParseRecipe(std::string_view text, const std::string& origin);
// The same, and the recipe must suit the model.
Recipe ParseRecipe(std::string_view text, const std::string& origin, const Model& model);

std::string AsText(const Recipe& recipe);

// One setting's value; null if it is absent.
Json ValueOf(const std::optional<Region>& region);
Json ValueOf(const std::optional<std::vector<unsigned>>& numbers);
template <typename T>
Json ValueOf(const std::optional<T>& value) {
  return value ? Json(*value) : Json();
}

}  // namespace tool
