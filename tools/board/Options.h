#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace runner {

// The command line: tessaline-board run [OPTION...] -- PROGRAM [ARGUMENT...]
class Options {
 public:
  Options();
  // Throws CLI::ParseError.
  void Parse(int argc, const char* const* argv);
  // Prints what the parser has to say: help, the version or an error. Returns the exit status.
  int Explain(const CLI::ParseError& error) const;

  const std::vector<std::string>& program() const { return program_; }
  const std::string& model() const { return model_; }
  const std::string& state() const { return state_; }
  const std::string& transcript() const { return transcript_; }
  bool is_private() const { return private_; }
  bool is_strict() const { return strict_; }
  // The board's variables for the options that stand for one each, "" where not given.
  struct Setting {
    const char* variable;
    std::string value;
  };
  const std::vector<Setting>& settings() const { return settings_; }

 private:
  void DescribeRun();

  CLI::App app_{"Runs programs on the virtual board of a laser line-profile sensor."};
  CLI::App* run_ = nullptr;
  std::vector<Setting> settings_;
  std::vector<std::string> program_;
  std::string model_;
  std::string state_;
  std::string transcript_;
  bool private_ = false;
  bool strict_ = false;
};

}  // namespace runner
