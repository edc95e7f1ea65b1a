#pragma once

#include <array>
#include <string_view>

namespace reliability {

// What must become of a failed call.
enum class Effect {
  kTold,       // the texts and the result, the program goes on
  kRetried,    // the texts; every result is as without the failure
  kMadeAgain,  // as without the failure in every respect
  kUnchecked,  // whatever it reads or leaves undone, the program goes on
  kHangs,      // the texts, once, and no register is touched any more
  kStops,      // the same, but the program goes on, with the result
};

// In which call, made by whom, and what must be seen. Alternatives are separated
// by '|'; empty means any. The first rule that fits counts.
struct Rule {
  std::string_view models;  // first characters
  std::string_view device;
  std::string_view operation;
  std::string_view during;  // the exported function
  bool cut_short;           // for calls cut short; the others are for both
  Effect effect;
  // Each must be printed. {} is the text of the errno, EIO for a call cut short; {register},
  // {number} and {page} are a sensor's register (in two ways) and page, by the access.
  std::array<std::string_view, 2> texts;
  std::string_view result;  // of that function, if it has one; kSame: as without the failure
  std::string_view why;
  std::string_view access = "";  // what the call is for, first characters: see Call
  unsigned most = ~0U;           // only so many of the step's such calls, the first
};

inline constexpr std::string_view kSame = "=";

}  // namespace reliability
