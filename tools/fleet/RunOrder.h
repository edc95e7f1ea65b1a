#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "fleet/Arrival.h"

namespace tool::fleet {

// Puts the messages of one sensor in the order in which its publisher numbered them, leaves out
// what has come before, and finds what is missing. It gets them in the stream's order, which is
// another one where a publisher had to send again.
class RunOrder {
 public:
  // What has been used of earlier runs: the last message of each.
  explicit RunOrder(std::map<std::string, std::uint64_t> used);

  // One thing that comes out: a message, or a hole where nothing comes any more.
  struct Step {
    std::optional<Arrival> arrival;
    std::string run;
    Range hole{};              // the numbers, without a message
    bool run_is_over = false;  // nobody sends the rest of this run
  };
  // Adds a message. Returns what is in order now; nothing if it was there before: then `duplicate`
  // has it.
  std::vector<Step> Add(Arrival arrival, std::optional<Arrival>& duplicate);
  // Whether something waits for a message in front of it.
  bool Waits() const;

 private:
  struct Run {
    std::uint64_t next = 1;
    // Messages before the first one may have gone to somebody else.
    bool joined = false;
    bool ended = false;
    std::map<std::uint64_t, Arrival> early;  // by their first number
  };
  void Drain(const std::string& name, Run& run, std::vector<Step>& steps);
  void Skip(const std::string& name, Run& run, std::uint64_t to, std::vector<Step>& steps);
  void Leave(std::vector<Step>& steps);

  std::map<std::string, Run> runs_;
  std::string current_;
};

}  // namespace tool::fleet
