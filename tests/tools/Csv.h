#pragma once

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "ToolRun.h"

namespace tessaline_test {

// A csv file, by the names of its columns.
class Csv {
 public:
  explicit Csv(const std::string& path) {
    std::istringstream lines(FileText(path));
    for (std::string line; std::getline(lines, line);) {
      std::vector<std::string> cells;
      std::istringstream stream(line + ',');
      for (std::string cell; std::getline(stream, cell, ',');) cells.push_back(cell);
      if (names_.empty()) {
        names_ = cells;
      } else {
        lines_.push_back(cells);
      }
    }
  }

  std::vector<std::string> Texts(const std::string& name) const {
    const auto at = std::find(names_.begin(), names_.end(), name);
    if (at == names_.end()) throw std::runtime_error("no column " + name);
    std::vector<std::string> texts;
    for (const auto& cells : lines_) {
      texts.push_back(cells.at(static_cast<std::size_t>(at - names_.begin())));
    }
    return texts;
  }
  std::vector<double> Numbers(const std::string& name) const {
    std::vector<double> numbers;
    for (const std::string& text : Texts(name)) numbers.push_back(std::stod(text));
    return numbers;
  }

 private:
  std::vector<std::string> names_;
  std::vector<std::vector<std::string>> lines_;
};

}  // namespace tessaline_test
