#pragma once

#include <fmt/core.h>

#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "LibraryOutput.h"
#include "Models.h"

namespace tool {

// Keeps members in the order they were added.
using Json = nlohmann::ordered_json;

// The options of every sub-command.
struct CommonOptions {
  std::string model;
  std::string virtual_model;
  bool json = false;
  bool verbose = false;
  bool dry_run = false;
  bool quiet = false;  // no results at all: another command shows them
};

// One run of the tool: its options and where its results go.
class Session {
 public:
  explicit Session(CommonOptions options);

  const CommonOptions& options() const { return options_; }
  bool json() const { return options_.json; }
  // Whether the board is the virtual one.
  bool on_virtual_board() const;

  // The requested product; throws a Failure if there is none or it does not exist.
  const Model& model() const;

  // Results for people; prints nothing with --json.
  template <typename... Args>
  void Print(fmt::format_string<Args...> format, Args&&... args) const {
    if (!json() && !options_.quiet) Write(fmt::format(format, std::forward<Args>(args)...));
  }
  // The result for programs; prints nothing without --json.
  void Emit(const Json& json) const;
  // One result of many, on a line of its own.
  void EmitLine(const Json& json) const;
  // One line for people besides the result.
  template <typename... Args>
  void Note(fmt::format_string<Args...> format, Args&&... args) const {
    WriteNote(fmt::format(format, std::forward<Args>(args)...));
  }

 private:
  void Write(const std::string& text) const;
  static void WriteNote(const std::string& text);

  CommonOptions options_;
  std::string code_;
  Model model_;
};

}  // namespace tool
