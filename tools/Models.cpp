#include "Models.h"

#include <fmt/core.h>

#include <algorithm>
#include <numeric>

#include "Failure.h"

namespace tool {
namespace {

// Characters to insert, leave out or replace, from one text to the other.
std::size_t Distance(std::string_view one, std::string_view other) {
  std::vector<std::size_t> row(other.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < one.size(); ++i) {
    std::size_t diagonal = row[0]++;
    for (std::size_t j = 0; j < other.size(); ++j) {
      const std::size_t replaced = diagonal + (one[i] == other[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
    }
  }
  return row.back();
}

bool IsMade(std::string_view code) {
  const auto codes = ModelCodes();
  return std::find(codes.begin(), codes.end(), code) != codes.end();
}

}  // namespace

std::vector<std::string_view> ModelCodes(const Family& family) {
  std::vector<std::string_view> codes;
  std::string_view rest = family.codes;
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find(' '), rest.size());
    codes.push_back(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return codes;
}

std::vector<std::string_view> ModelCodes() {
  std::vector<std::string_view> codes;
  for (const Family& family : products::kFamilies) {
    for (const std::string_view code : ModelCodes(family)) codes.push_back(code);
  }
  return codes;
}

Model::Model(std::string_view code)
    : code_(code), product_(IsMade(code) ? products::FindProduct(code) : nullptr) {}

void Model::Require() const {
  if (known()) return;
  const auto codes = ModelCodes();
  const auto nearest =
      std::min_element(codes.begin(), codes.end(), [this](std::string_view a, std::string_view b) {
        return Distance(code_, a) < Distance(code_, b);
      });
  throw Failure(
      ExitCode::kUsage, fmt::format("unknown model \"{}\"", code_),
      fmt::format("the nearest is {}; \"tessaline models\" lists the model codes", *nearest));
}

}  // namespace tool
