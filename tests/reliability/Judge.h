#pragma once

#include <string>

#include "Calls.h"
#include "Outcome.h"
#include "Rule.h"

namespace reliability {

enum class Verdict {
  kText,        // told by the text that belongs to it
  kResult,      // told by the result alone
  kRetried,     // made up for
  kUnchecked,   // nobody looks, by design
  kHung,        // holds the program for ever, by design
  kNotReached,  // the call did not come this time: a frame more or less
  kDefect,
};
inline constexpr const char* kVerdictNames[] = {
    "told by text", "told by result", "retried", "unchecked", "hung", "not reached", "defects"};

struct Judgement {
  Verdict verdict;
  std::string reason;  // of a defect; else what makes it right
};

// The first rule that fits, or null.
const Rule* RuleFor(const std::string& model, const Call& call, int error);

// What became of `call`, which failed with `error`; `reference` is a tour without a failure.
Judgement Judge(const std::string& model, const Call& call, int error, const Outcome& reference,
                const Outcome& outcome);

}  // namespace reliability
