#include "Models.h"

namespace tool {

Model::Model(std::string_view code) : code_(code) {
  for (const Family& family : kFamilies) {
    if (code.starts_with(family.prefix)) family_ = &family;
  }
}

// One product's sensor has every other row only.
unsigned Model::height() const { return code_ == "K3810" ? family_->height / 2 : family_->height; }

bool Model::RebuildsOnProcessor() const {
  return family_->arm_bytes_per_point != family_->bytes_per_point && Has("arm_rebuild") &&
         (family_->series != 22 || Has("ch16"));
}

unsigned Model::bytes_per_point() const {
  return RebuildsOnProcessor() ? family_->arm_bytes_per_point : family_->bytes_per_point;
}

std::string_view Model::variant() const {
  if (code_ == "K3810") return "half the rows";
  const bool channels = family_->series == 22 && Has("ch16");
  if (RebuildsOnProcessor()) {
    return channels ? "16 channels, points made by the processor" : "points made by the processor";
  }
  return channels ? "16 channels" : "";
}

std::vector<std::string_view> CodesOf(const Family& family) {
  std::vector<std::string_view> codes;
  std::string_view rest = family.codes;
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find(' '), rest.size());
    codes.push_back(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return codes;
}

}  // namespace tool
