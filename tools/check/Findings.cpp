#include "check/Findings.h"

#include <algorithm>

#include "Interrupt.h"

namespace tool {
namespace {

const char* NameOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::kPass:
      return "pass";
    case Verdict::kFail:
      return "FAIL";
    case Verdict::kNotApplicable:
      return "n/a";
    case Verdict::kSkipped:
      return "skip";
  }
  return "";
}

const char* JsonNameOf(Verdict verdict) {
  return verdict == Verdict::kFail            ? "fail"
         : verdict == Verdict::kNotApplicable ? "not applicable"
         : verdict == Verdict::kSkipped       ? "skipped"
                                              : "pass";
}

}  // namespace

void Findings::Pass(std::string id, std::string title, std::string detail) {
  Add({std::move(id), std::move(title), Verdict::kPass, std::move(detail), {}});
}

void Findings::Fail(std::string id, std::string title, std::string detail, std::string advice) {
  // What is cut short proves nothing.
  if (Interrupted()) return Skip(std::move(id), std::move(title), "interrupted");
  Add({std::move(id), std::move(title), Verdict::kFail, std::move(detail), std::move(advice)});
}

void Findings::NotApplicable(std::string id, std::string title, std::string why) {
  Add({std::move(id), std::move(title), Verdict::kNotApplicable, std::move(why), {}});
}

void Findings::Skip(std::string id, std::string title, std::string why) {
  Add({std::move(id), std::move(title), Verdict::kSkipped, std::move(why), {}});
}

void Findings::Add(Finding finding) {
  session_.Print("{:<5} {:<34} {}\n", NameOf(finding.verdict), finding.title, finding.detail);
  if (!finding.advice.empty()) session_.Print("      -> {}\n", finding.advice);
  findings_.push_back(std::move(finding));
}

bool Findings::Failed(const std::string& id) const {
  return std::any_of(findings_.begin(), findings_.end(), [&](const Finding& finding) {
    return finding.id == id && finding.verdict == Verdict::kFail;
  });
}

std::size_t Findings::Count(Verdict verdict) const {
  return static_cast<std::size_t>(
      std::count_if(findings_.begin(), findings_.end(),
                    [&](const Finding& finding) { return finding.verdict == verdict; }));
}

void Findings::Conclude() const {
  session_.Print("{}{} passed, {} failed, {} skipped, {} not applicable\n",
                 Interrupted() ? "interrupted: " : "", Count(Verdict::kPass), Count(Verdict::kFail),
                 Count(Verdict::kSkipped), Count(Verdict::kNotApplicable));
  Json steps = Json::array();
  for (const Finding& finding : findings_) {
    steps.push_back({{"id", finding.id},
                     {"title", finding.title},
                     {"verdict", JsonNameOf(finding.verdict)},
                     {"detail", finding.detail},
                     {"advice", finding.advice}});
  }
  session_.Emit({{"model", session_.model().code()},
                 {"passed", Count(Verdict::kPass)},
                 {"failed", Count(Verdict::kFail)},
                 {"skipped", Count(Verdict::kSkipped)},
                 {"not_applicable", Count(Verdict::kNotApplicable)},
                 {"interrupted", Interrupted()},
                 {"steps", std::move(steps)}});
}

}  // namespace tool
