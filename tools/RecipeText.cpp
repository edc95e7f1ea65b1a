#include "RecipeText.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <set>

#include "Failure.h"

namespace tool {
namespace {

constexpr const char* kVersionKey = "recipe";
constexpr const char* kModelKey = "model";
constexpr unsigned kVersion = 1;
constexpr std::size_t kLongestQuote = 40;
constexpr int kDeepest = 2;  // settings, and the numbers of one

// The four numbers of a region.
struct Side {
  const char* key;
  unsigned Region::*number;
};
constexpr std::array kSides{Side{"x", &Region::x}, Side{"y", &Region::y},
                            Side{"width", &Region::width}, Side{"height", &Region::height}};

// A piece of the file for a message: in one line, not too long, in ASCII.
std::string Quote(const Json& value) {
  const std::string text = value.dump(-1, ' ', true, Json::error_handler_t::replace);
  return text.size() <= kLongestQuote ? text : text.substr(0, kLongestQuote) + "...";
}

// Reads settings and says what is wrong with them.
class Reader {
 public:
  explicit Reader(const std::string& origin) : origin_(origin) {}

  Recipe Read(std::string_view text) const {
    if (text.empty()) throw Bad("is empty", "a recipe is at least {\"recipe\": 1}");
    const Json json = Parse(text);
    if (!json.is_object())
      throw Bad("is not a JSON object", "a recipe is at least {\"recipe\": 1}");
    RequireVersion(json);
    RequireKnownKeys(json);
    Recipe recipe;
    if (json.contains(kModelKey)) {
      const Json& model = json[kModelKey];
      if (!model.is_string() || model.empty() || model == "") {
        throw BadValue(kModelKey, model, "a model code, or the first characters of a family's");
      }
      recipe.model = model;
    }
    ForEachSetting([&](const Setting& setting, auto member) {
      const std::string key(setting.key);
      if (json.contains(key)) Convert(setting, json[key], (recipe.*member).emplace());
    });
    return recipe;
  }

  Failure Bad(const std::string& what, const std::string& next) const {
    return Failure(ExitCode::kUsage, origin_.empty() ? what : fmt::format("{}: {}", origin_, what),
                   next);
  }

 private:
  Json Parse(std::string_view text) const {
    std::vector<std::set<std::string>> keys;  // of the objects around the current place
    const auto look = [&](int depth, Json::parse_event_t event, Json& value) {
      switch (event) {
        case Json::parse_event_t::object_start:
          keys.emplace_back();
          [[fallthrough]];
        case Json::parse_event_t::array_start:
          if (depth >= kDeepest) throw Bad("is nested too deeply", "a recipe has two levels");
          break;
        case Json::parse_event_t::object_end:
          keys.pop_back();
          break;
        case Json::parse_event_t::key:
          if (!keys.back().insert(value.get<std::string>()).second) {
            throw Bad(fmt::format("{} stands there twice", Quote(value)), "remove one");
          }
          break;
        default:
          break;
      }
      return true;
    };
    try {
      return Json::parse(text, look);
    } catch (const Json::parse_error& error) {
      const std::string_view before = text.substr(0, std::min(error.byte, text.size()));
      const auto line = 1 + std::count(before.begin(), before.end(), '\n');
      throw Bad(fmt::format("is not valid JSON in line {}", line),
                "is something left out or misspelt there?");
    } catch (const Json::out_of_range&) {  // a number like 1e999
      throw Bad("holds a number that is too large for any setting",
                "\"tessaline recipe save --help\" shows the limits");
    }
  }

  void RequireVersion(const Json& json) const {
    const auto found = json.find(kVersionKey);
    if (found == json.end()) {
      throw Bad("is not a recipe", "a recipe holds \"recipe\": 1, the version of its format");
    }
    if (found->is_number_unsigned() && *found > kVersion) {
      throw Bad(fmt::format("{} is {}, a newer format", kVersionKey, Quote(*found)),
                fmt::format("this command reads version {}", kVersion));
    }
    if (!found->is_number_unsigned() || *found != kVersion) {
      throw BadValue(kVersionKey, *found, fmt::format("{}, the version of the format", kVersion));
    }
  }

  void RequireKnownKeys(const Json& json) const {
    std::vector<std::string_view> known{kVersionKey, kModelKey};
    ForEachSetting([&](const Setting& setting, auto) { known.push_back(setting.key); });
    for (const auto& [key, value] : json.items()) {
      if (std::find(known.begin(), known.end(), key) != known.end()) continue;
      throw Bad(fmt::format("{} is no setting", Quote(key)),
                fmt::format("a recipe may hold {}", fmt::join(known, ", ")));
    }
  }

  Failure BadValue(std::string_view key, const Json& value, const std::string& takes) const {
    return Bad(fmt::format("{} is {}", key, Quote(value)), "it takes " + takes);
  }

  static std::string Limits(const char* what, const Setting& setting) {
    return fmt::format("{} from {} to {}", what, setting.low, setting.high);
  }

  void Convert(const Setting& setting, const Json& value, double& number) const {
    if (value.is_number() && value >= setting.low && value <= setting.high) {
      number = value;
    } else {
      throw BadValue(setting.key, value, Limits("a number", setting));
    }
  }

  void Convert(const Setting& setting, const Json& value, unsigned& number) const {
    if (value.is_number_integer() && value >= setting.low && value <= setting.high) {
      number = value;
    } else {
      throw BadValue(setting.key, value, Limits("a whole number", setting));
    }
  }

  void Convert(const Setting& setting, const Json& value, std::vector<unsigned>& numbers) const {
    if (!value.is_array()) return Convert(setting, value, numbers.emplace_back());
    if (value.empty() || value.size() > setting::kMostExposures) {
      throw BadValue(setting.key, value,
                     fmt::format("a number, or 1 to {} of them", setting::kMostExposures));
    }
    for (const Json& one : value) Convert(setting, one, numbers.emplace_back());
  }

  void Convert(const Setting& setting, const Json& value, std::string& word) const {
    const auto& words = setting.words;
    if (value.is_string() && std::find(words.begin(), words.end(), value) != words.end()) {
      word = value;
    } else {
      throw BadValue(setting.key, value, fmt::format("{}", fmt::join(words, ", ")));
    }
  }

  void Convert(const Setting& setting, const Json& value, Region& region) const {
    const bool has_all = value.is_object() && value.size() == kSides.size() &&
                         std::all_of(kSides.begin(), kSides.end(),
                                     [&](const Side& side) { return value.contains(side.key); });
    if (!has_all) throw BadValue(setting.key, value, "x, y, width and height");
    for (const Side& side : kSides) {
      const std::string key = fmt::format("{}.{}", setting.key, side.key);
      Setting one = setting;
      one.key = key;
      Convert(one, value[side.key], region.*side.number);
    }
  }

  const std::string& origin_;
};

template <typename Check>
Recipe ParseAnd(std::string_view text, const std::string& origin, Check check) {
  const Reader reader(origin);
  Recipe recipe = reader.Read(text);
  try {
    check(recipe);
  } catch (const Failure& failure) {
    throw reader.Bad(failure.what(), failure.next());
  }
  return recipe;
}

}  // namespace

Recipe ParseRecipe(std::string_view text, const std::string& origin) {
  return ParseAnd(text, origin, RequireItself);
}

Recipe ParseRecipe(std::string_view text, const std::string& origin, const Model& model) {
  return ParseAnd(text, origin, [&](const Recipe& recipe) {
    RequireItself(recipe);
    Require(recipe, model);
  });
}

std::string AsText(const Recipe& recipe) {
  Json json;
  json[kVersionKey] = kVersion;
  if (!recipe.model.empty()) json[kModelKey] = recipe.model;
  ForEachSetting([&](const Setting& setting, auto member) {
    if (recipe.*member) json[std::string(setting.key)] = ValueOf(recipe.*member);
  });
  return json.dump(2) + '\n';
}

Json ValueOf(const std::optional<Region>& region) {
  if (!region) return {};
  Json json;
  for (const Side& side : kSides) json[side.key] = (*region).*side.number;
  return json;
}

Json ValueOf(const std::optional<std::vector<unsigned>>& numbers) {
  if (!numbers) return {};
  return numbers->size() == 1 ? Json(numbers->front()) : Json(*numbers);
}

}  // namespace tool
