#pragma once

#include <array>
#include <string_view>
#include <type_traits>

namespace reliability {

// The expected outcome of a failed call.
enum class Effect {
  kTold,       // prints the texts, returns the result, the program continues
  kRetried,    // prints the texts; every result is as without the failure
  kMadeAgain,  // the same as without the failure in every respect
  kUnchecked,  // the program continues with any value or skipped step
  kHangs,      // prints the texts once; no register is accessed any more
  kStops,      // the same, but the program continues with the result
};

inline constexpr std::string_view kSame = "=";

// The call that fails, its caller, and what must be seen. Alternatives are separated by '|'; empty
// means any. The first rule that matches counts. A rule is written as a sentence:
//
//   On("i2c-", "open").During("ConfigRead(100)").Tells("open eeprom: {}\n").Returns("-1")
struct Rule {
  std::string_view device = {};
  std::string_view operation = {};
  std::string_view models = {};  // first characters
  std::string_view during = {};  // the exported function
  std::string_view access = {};  // purpose of the call, first characters: see Call
  unsigned most = ~0U;           // only this many of such calls in the step, the first
  bool cut_short = false;        // for calls cut short; others match both
  Effect effect = Effect::kTold;
  // Each must be printed. {} is the text of the errno (EIO for a call cut short); {register},
  // {number} and {page} are a sensor's register (in two forms) and page, from the access.
  std::array<std::string_view, 2> texts = {};
  std::string_view result = {};  // of that function, if it has one; kSame: as without the failure
  std::string_view why = {};

 private:
  // Defined before its uses for clang 14.
  template <typename Value>
  constexpr Rule With(Value Rule::*field, std::type_identity_t<Value> value) const {
    Rule rule = *this;
    rule.*field = value;
    return rule;
  }

 public:
  constexpr Rule Of(std::string_view products) const { return With(&Rule::models, products); }
  constexpr Rule During(std::string_view function) const { return With(&Rule::during, function); }
  constexpr Rule For(std::string_view purpose) const { return With(&Rule::access, purpose); }
  constexpr Rule AmongTheFirst(unsigned calls) const { return With(&Rule::most, calls); }
  constexpr Rule CutShort() const { return With(&Rule::cut_short, true); }

  constexpr Rule Tells(std::string_view text = {}, std::string_view also = {}) const {
    return With(&Rule::texts, {text, also}).With(&Rule::effect, Effect::kTold);
  }
  constexpr Rule Retries(std::string_view text = {}) const {
    return Tells(text).With(&Rule::effect, Effect::kRetried);
  }
  constexpr Rule IsMadeAgain() const { return With(&Rule::effect, Effect::kMadeAgain); }
  constexpr Rule IsNotLookedAt() const { return With(&Rule::effect, Effect::kUnchecked); }
  constexpr Rule Hangs(std::string_view text) const {
    return Tells(text).With(&Rule::effect, Effect::kHangs);
  }
  constexpr Rule Stops(std::string_view text) const {
    return Tells(text).With(&Rule::effect, Effect::kStops);
  }
  constexpr Rule Returns(std::string_view value) const { return With(&Rule::result, value); }
  constexpr Rule Because(std::string_view reason) const { return With(&Rule::why, reason); }
};

constexpr Rule On(std::string_view device, std::string_view operation = {}) {
  return {.device = device, .operation = operation};
}

}  // namespace reliability
