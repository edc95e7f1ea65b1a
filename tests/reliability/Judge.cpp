#include "Judge.h"

#include <errno.h>
#include <fmt/format.h>
#include <string.h>

#include <algorithm>
#include <optional>

#include "RegisterRules.h"
#include "Rules.h"
#include "SensorRules.h"
#include "tessaline/board.h"

namespace reliability {
namespace {

// Whether `fits` is true for one of the alternatives, or there are none.
template <typename Fits>
bool AnyOf(std::string_view alternatives, Fits fits) {
  if (alternatives.empty()) return true;
  for (;;) {
    const auto bar = alternatives.find('|');
    if (fits(alternatives.substr(0, bar))) return true;
    if (bar == alternatives.npos) return false;
    alternatives.remove_prefix(bar + 1);
  }
}

std::string Whole(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + '\n';
  return text;
}

std::size_t Count(std::string_view text, std::string_view sought) {
  std::size_t count = 0;
  for (auto at = text.find(sought); at != text.npos; at = text.find(sought, at + 1)) ++count;
  return count;
}

void ReplaceAll(std::string& text, std::string_view sought, const std::string& by) {
  for (auto at = text.find(sought); at != text.npos; at = text.find(sought)) {
    text.replace(at, sought.size(), by);
  }
}

// For "write 42 00 0f 00 01" and "tx 02 00 0f 00 00 00" the register is 000f. For "write 60 0b" the
// page is 0b.
std::string Filled(std::string_view text, const Call& call, int error) {
  const bool is_read = call.access.starts_with("tx");
  const std::size_t first_byte = is_read ? sizeof "tx 02" : sizeof "write 42";
  std::string filled(text);
  ReplaceAll(filled, "{}", strerror(error == TESSALINE_BOARD_SHORT ? EIO : error));
  if (filled.find('{') == filled.npos || call.access.size() < first_byte + 2) return filled;
  const std::string page = call.access.substr(first_byte, 2);
  ReplaceAll(filled, "{page}", std::to_string(std::stoul(page, nullptr, 16)));
  if (call.access.size() < first_byte + 5) return filled;
  const std::string reg = page + call.access.substr(first_byte + 3, 2);
  ReplaceAll(filled, "{register}", reg);
  ReplaceAll(filled, "{number}", std::to_string(std::stoul(reg, nullptr, 16)));
  return filled;
}

// The required text that is missing, or nothing.
std::string Missing(const Rule& rule, const Call& call, int error, const Outcome& reference,
                    const Outcome& outcome) {
  const std::string before = Whole(reference.printed);
  const std::string now = Whole(outcome.printed);
  for (const std::string_view text : rule.texts) {
    if (!AnyOf(text, [&](std::string_view one) {
          const std::string sought = Filled(one, call, error);
          return Count(now, sought) > Count(before, sought);
        })) {
      return Filled(text, call, error);
    }
  }
  return {};
}

// A text that appears at least twice more than without the failure, or nothing.
std::string Repeated(const Rule& rule, const Call& call, int error, const Outcome& reference,
                     const Outcome& outcome) {
  const std::string before = Whole(reference.printed);
  const std::string now = Whole(outcome.printed);
  for (const std::string_view text : rule.texts) {
    const std::string sought = Filled(text, call, error);
    if (!sought.empty() && Count(now, sought) > Count(before, sought) + 1) return sought;
  }
  return {};
}

// The result in a line of the tour, or nothing if the line has none.
std::optional<std::string_view> ResultOf(std::string_view line) {
  constexpr std::string_view kEquals = " = ";
  const auto equals = line.find(kEquals);
  if (equals == line.npos) return std::nullopt;
  return line.substr(equals + kEquals.size());
}

// The first line before the failure's step that differs from the run without it, or nothing.
std::string DisturbedBefore(const Call& call, const Outcome& reference, const Outcome& outcome) {
  for (std::size_t i = 0; i < call.step && i < outcome.results.size(); ++i) {
    if (outcome.results[i] != reference.results.at(i)) return outcome.results[i];
  }
  return {};
}

// What is wrong with the result of the function in which the call failed, or nothing.
std::string WrongResult(const Rule& rule, const Call& call, const Outcome& reference,
                        const Outcome& outcome) {
  const auto before = ResultOf(reference.results.at(call.step));
  if (!before) return {};
  const auto now = ResultOf(outcome.results.at(call.step)).value_or("nothing");
  const std::string_view expected = rule.result == kSame ? *before : rule.result;
  if (AnyOf(expected, [&](std::string_view one) { return now == one; })) return {};
  return fmt::format("{} returned {} instead of {}", call.during, now, expected);
}

// The position of the failure in the transcript, or the end if it did not occur.
auto FailureIn(const Outcome& outcome, const Call& call) {
  const std::string failed = call.device + ' ' + call.operation + " failed: ";
  const std::string cut = call.device + ' ' + call.operation + " cut short";
  return std::ranges::find_if(outcome.events, [&](const std::string& event) {
    return event.starts_with(failed) || event.starts_with(cut);
  });
}

// The self-test of the IMX252 repeats until its image arrives, with pauses that are skipped here.
// So the number of its lines varies.
constexpr std::string_view kSelfTest = "PowerOnSelfTest252 ";

// Text that is not printed without the failure, or nothing.
std::string PrintedInAddition(const Outcome& reference, const Outcome& outcome) {
  const auto times = [](const Outcome& of, const std::string& line) {
    return std::ranges::count(of.printed, line);
  };
  const auto more = std::ranges::find_if(outcome.printed, [&](const std::string& line) {
    return !line.starts_with(kSelfTest) && times(outcome, line) > times(reference, line);
  });
  return more == outcome.printed.end() ? std::string() : *more;
}

// The number of self-test rounds depends on when the images arrive. So which access is the n-th
// varies too.
bool TestedItselfAsOften(const Outcome& reference, const Outcome& outcome) {
  const auto rounds = [](const Outcome& of) {
    return std::ranges::count_if(
        of.printed, [](const std::string& line) { return line.starts_with(kSelfTest); });
  };
  return rounds(reference) == rounds(outcome);
}

// Whether the access that the call prepares was made anyway. Its answer may differ.
bool AccessFollows(const Call& call, const Outcome& outcome) {
  if (call.access.empty()) return true;
  const auto failure = FailureIn(outcome, call);
  const std::string from = call.device + ' ';
  const auto next =
      std::find_if(std::next(failure), outcome.events.end(), [&](const std::string& event) {
        return event.starts_with(from) && event.find(" failed: ") == event.npos;
      });
  const auto question =
      call.access.substr(0, std::min(call.access.find(" = "), call.access.find(" rx ")));
  return next != outcome.events.end() && next->starts_with(from + question);
}

template <typename Event>
bool RegisterTouchedAfter(Event failure, const Outcome& outcome) {
  return std::any_of(std::next(failure), outcome.events.end(),
                     [](const std::string& event) { return event.starts_with("fpga "); });
}

Judgement Defect(std::string reason) { return {Verdict::kDefect, std::move(reason)}; }

Judgement JudgeHung(const Rule& rule, const std::string& missing, const Call& call, int error,
                    const Outcome& reference, const Outcome& outcome) {
  const std::string where = outcome.results.empty() ? "the start" : outcome.results.back();
  if (rule.effect != Effect::kHangs) return Defect("hangs after " + where);
  if (!missing.empty()) return Defect("hangs without the text \"" + missing + "\"");
  const std::string repeated = Repeated(rule, call, error, reference, outcome);
  if (!repeated.empty()) return Defect("the text \"" + repeated + "\" comes again");
  const auto failure = FailureIn(outcome, call);
  if (failure == outcome.events.end()) return Defect("hangs before the call, after " + where);
  if (RegisterTouchedAfter(failure, outcome)) return Defect("a register was touched after it");
  return {Verdict::kHung, std::string(rule.why)};
}

Judgement JudgeReturned(const Rule& rule, const std::string& missing, const Call& call, int error,
                        const Outcome& reference, const Outcome& outcome) {
  if (outcome.status != 0) return Defect(fmt::format("exit status {}", outcome.status));
  if (outcome.results.size() != reference.results.size()) {
    return Defect(fmt::format("the tour ended after \"{}\"", outcome.results.back()));
  }
  if (!missing.empty()) return Defect("the text \"" + missing + "\" is missing");
  const std::string wrong = WrongResult(rule, call, reference, outcome);
  if (!wrong.empty()) return Defect(wrong);
  switch (rule.effect) {
    case Effect::kTold:
      return {rule.texts.front().empty() ? Verdict::kResult : Verdict::kText,
              std::string(rule.why)};
    case Effect::kRetried:
      if (outcome.results == reference.results) return {Verdict::kRetried, std::string(rule.why)};
      return Defect("another result than without it");
    case Effect::kMadeAgain:
      if (outcome.results != reference.results) return Defect("another result than without it");
      if (const auto more = PrintedInAddition(reference, outcome); !more.empty()) {
        return Defect("says \"" + more + "\"");
      }
      if (!AccessFollows(call, outcome)) {
        if (!TestedItselfAsOften(reference, outcome)) {
          return {Verdict::kNotReached, "another access of the self-test came in its place"};
        }
        return Defect("\"" + call.access + "\" did not follow");
      }
      return {Verdict::kRetried, std::string(rule.why)};
    case Effect::kUnchecked:
      return {Verdict::kUnchecked, std::string(rule.why)};
    case Effect::kHangs:  // after the tour's last access there is no other that would wait
    case Effect::kStops:
      break;
  }
  const std::string repeated = Repeated(rule, call, error, reference, outcome);
  if (!repeated.empty()) return Defect("the text \"" + repeated + "\" comes again");
  if (RegisterTouchedAfter(FailureIn(outcome, call), outcome)) {
    return Defect("the program went on");
  }
  return {Verdict::kText, std::string(rule.why)};
}

}  // namespace

const Rule* RuleFor(const std::string& model, const Call& call, int error) {
  const bool cut_short = error == TESSALINE_BOARD_SHORT;
  const auto fits = [&](const Rule& one) {
    const auto begins = [](std::string_view text) {
      return [text](std::string_view first) { return text.starts_with(first); };
    };
    const auto is = [](std::string_view text) {
      return [text](std::string_view whole) { return text == whole; };
    };
    return AnyOf(one.models, begins(model)) && AnyOf(one.device, begins(call.device)) &&
           AnyOf(one.operation, is(call.operation)) && AnyOf(one.during, is(call.during)) &&
           AnyOf(one.access, begins(call.access)) && (!one.cut_short || cut_short) &&
           call.nth < one.most;
  };
  const Rule* found = nullptr;
  const auto look_in = [&](const auto& rules) {
    const auto* const at = std::ranges::find_if(rules, fits);
    if (found == nullptr && at != rules.end()) found = at;
  };
  if (error == EINTR) look_in(kInterruptedRules);
  look_in(kRegisterRules);
  look_in(kSensorRules);
  look_in(kRules);
  return found;
}

Judgement Judge(const std::string& model, const Call& call, int error, const Outcome& reference,
                const Outcome& outcome) {
  if (outcome.ending == Ending::kCrashed) {
    return Defect(fmt::format("died of signal {} after \"{}\"", outcome.status,
                              outcome.results.empty() ? "the start" : outcome.results.back()));
  }
  const Rule* const rule = RuleFor(model, call, error);
  if (rule == nullptr) return Defect("no rule covers this call");
  const std::string disturbed = DisturbedBefore(call, reference, outcome);
  if (!disturbed.empty()) return Defect("before the call: \"" + disturbed + "\"");
  const std::string missing = Missing(*rule, call, error, reference, outcome);
  if (outcome.ending == Ending::kHung)
    return JudgeHung(*rule, missing, call, error, reference, outcome);
  if (FailureIn(outcome, call) == outcome.events.end()) {
    // The number of passes of the threads that wait for frames and interrupts varies.
    const bool depends = call.operation == "VIDIOC_DQBUF" || call.operation == "VIDIOC_QBUF" ||
                         call.operation == "poll" ||
                         (call.device.starts_with("uio") && call.operation != "open") ||
                         (call.device == "udmabuf0" && call.operation == "write");
    if (depends) return {Verdict::kNotReached, "its thread did not come round to it"};
    return Defect("the call did not come");
  }
  return JudgeReturned(*rule, missing, call, error, reference, outcome);
}

}  // namespace reliability
