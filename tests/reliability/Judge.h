#pragma once

#include <string>

#include "Calls.h"
#include "Outcome.h"
#include "Rule.h"

namespace reliability {

enum class Verdict {
  kText,        // reported by the right text
  kResult,      // reported by the result only
  kRetried,     // repeated successfully
  kUnchecked,   // not checked, by design
  kHung,        // blocks the program for ever, by design
  kNotReached,  // the call did not occur this time: a frame more or less
  kDefect,
};
inline constexpr const char* kVerdictNames[] = {
    "told by text", "told by result", "retried", "unchecked", "hung", "not reached", "defects"};

struct Judgement {
  Verdict verdict;
  std::string reason;  // of a defect; otherwise why it is right
};

// The first rule that matches, or null.
const Rule* RuleFor(const std::string& model, const Call& call, int error);

// Judges `call`, which failed with `error`; `reference` is a tour without a failure.
Judgement Judge(const std::string& model, const Call& call, int error, const Outcome& reference,
                const Outcome& outcome);

}  // namespace reliability
