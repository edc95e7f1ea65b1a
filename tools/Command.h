#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "ExitCode.h"
#include "Session.h"

namespace tool {

// What a sub-command does to the board.
enum class Touches {
  kNothing,    // does not open the board
  kReads,      // looks, and changes nothing
  kMayStart,   // looks, and first starts the device if asked to
  kSets,       // starts the device and changes a setting
  kLight,      // also drives the laser
  kRegisters,  // writes registers directly
  kEeprom,     // writes the EEPROM
};

// The part of a sub-command's help that is not about single options.
struct About {
  const char* name;
  const char* summary;
  Touches touches;
  const char* details;   // may be empty
  const char* examples;  // one per line
};

// One sub-command.
class Command {
 public:
  virtual ~Command() = default;
  // Describes itself to the parser, below `parent`. Help, manual pages and completion come
  // from this.
  virtual void Describe(CLI::App& parent, CommonOptions& common) = 0;
  // Whether it is the one on the command line.
  virtual bool Asked() const = 0;
  // First of all, with the command line: for one that another program carries out.
  virtual void HandOver(char** /*argv*/) {}
  virtual ExitCode Run(Session& session) = 0;
};

// A parser below `parent` with the options that every sub-command takes. Sub-commands that
// change something also get --dry-run.
CLI::App& AddCommand(CLI::App& parent, const About& about, CommonOptions& common);

// The same for one that only groups others.
CLI::App& AddGroup(CLI::App& parent, const About& about);

// The options that may also stand before the sub-command.
void AddCommonOptions(CLI::App& app, CommonOptions& common);

// A number within these limits; unlike the parser's own range, it rejects "nan".
CLI::Validator NumberIn(double low, double high);

// Longer than anyone waits.
inline constexpr double kMostSeconds = 1e7;

// All sub-commands, in the order of the help.
std::vector<std::unique_ptr<Command>> MakeCommands();

}  // namespace tool
