#pragma once

#include <array>
#include <string_view>

namespace tool {

// The exit status of the process.
enum class ExitCode : int {
  kOk = 0,
  kNegative = 1,
  kUsage = 2,
  kUnreachable = 3,
  kNoPermission = 4,
  kExists = 5,
  kFile = 6,
  kInterrupted = 130,
};

struct ExitCodeText {
  ExitCode code;
  std::string_view text;
};

// As the manual pages list them.
inline constexpr std::array kExitCodes{
    ExitCodeText{ExitCode::kOk, "done"},
    ExitCodeText{ExitCode::kNegative,
                 "the answer is no: a check failed, dumps, recipes or EEPROM contents differ, the "
                 "device refused a "
                 "setting, or frames were lost with --strict"},
    ExitCodeText{ExitCode::kUsage,
                 "the command line is wrong: unknown option or model, value out of range, "
                 "register outside the map, or such an error in a recipe"},
    ExitCodeText{ExitCode::kUnreachable,
                 "the device is not there, does not answer, or sends no frames"},
    ExitCodeText{ExitCode::kNoPermission, "no permission to open a device node"},
    ExitCodeText{
        ExitCode::kExists,
        "an output file already exists, or another command is writing it; nothing was overwritten"},
    ExitCodeText{ExitCode::kFile,
                 "a file cannot be read, created or written (disk full), or memory ran out"},
    ExitCodeText{
        ExitCode::kInterrupted,
        "stopped early by Ctrl-C or a similar signal; what had been captured by then is complete"},
};

}  // namespace tool
