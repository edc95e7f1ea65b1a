#pragma once

#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "Command.h"
#include "Recipe.h"

namespace tool {

// Only exposures come as a list.
template <typename T>
std::size_t CountOf(const T&) {
  return 1;
}
inline std::size_t CountOf(const std::vector<unsigned>& numbers) { return numbers.size(); }

// An option, or an argument, that fills one setting of a recipe.
template <typename T>
CLI::Option& AddSettingOption(CLI::App& app, const char* name, const std::string& text,
                              const Setting& setting, std::optional<T>& value) {
  const auto keep = [name, &value](const T& given) {
    if (CountOf(given) > setting::kMostExposures) {
      throw CLI::ValidationError(name, fmt::format("takes at most {}", setting::kMostExposures));
    }
    value = given;
  };
  CLI::Option& option = *app.add_option_function<T>(name, keep, text);
  option.type_name(std::string(setting.type));
  if constexpr (std::is_same_v<T, std::string>) {
    option.check(
        CLI::IsMember(std::vector<std::string>(setting.words.begin(), setting.words.end())));
  } else if constexpr (std::is_same_v<T, double>) {
    option.check(NumberIn(setting.low, setting.high));
  } else {
    option.check(
        CLI::Range(static_cast<unsigned>(setting.low), static_cast<unsigned>(setting.high)));
  }
  return option;
}

}  // namespace tool
