#pragma once

#include <string>
#include <vector>

#include "Session.h"

namespace tool {

enum class Verdict { kPass, kFail, kNotApplicable, kSkipped };

// What one step of the self-check found.
struct Finding {
  std::string id;     // for programs: "eeprom.low"
  std::string title;  // for people
  Verdict verdict;
  std::string detail;
  std::string advice;  // what to do if it failed
};

// The findings so far; each is shown immediately.
class Findings {
 public:
  explicit Findings(const Session& session) : session_(session) {}

  void Pass(std::string id, std::string title, std::string detail);
  void Fail(std::string id, std::string title, std::string detail, std::string advice);
  void NotApplicable(std::string id, std::string title, std::string why);
  void Skip(std::string id, std::string title, std::string why);

  bool Failed(const std::string& id) const;
  std::size_t Count(Verdict verdict) const;
  // Prints the totals, and everything as JSON with --json.
  void Conclude() const;

 private:
  void Add(Finding finding);

  const Session& session_;
  std::vector<Finding> findings_;
};

}  // namespace tool
