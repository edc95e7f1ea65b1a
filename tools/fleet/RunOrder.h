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
  // What is known of a run from earlier.
  struct Used {
    std::uint64_t last = 0;  // message
    bool over = false;       // it has ended, or it has been told that it did not
    std::uint64_t last_strip = 0, last_image = 0;  // ids
  };
  // `joins`: the messages in front of the first run that is not known may have gone to somebody
  // else.
  RunOrder(const std::map<std::string, Used>& used, bool joins);

  // One thing that comes out: a message, or a hole where nothing comes any more.
  struct Step {
    std::optional<Arrival> arrival;
    std::string run;
    Range hole{};              // the numbers, without a message
    bool run_is_over = false;  // without its end: nobody sends the rest
  };
  // Adds a message. Returns what is in order now. `duplicates` gets what was there before.
  std::vector<Step> Add(Arrival arrival, std::vector<Arrival>& duplicates);
  // Whether adding it would give up something that has not come.
  bool Misses(const Arrival& arrival) const;
  // Adds one that is out of the stream's order, so that it says nothing about others.
  std::vector<Step> AddLate(Arrival arrival, std::vector<Arrival>& duplicates);
  // Whether it was there before.
  bool Has(const PacketHeader& header) const;
  bool Knows(const std::string& run) const { return runs_.contains(run); }
  // Whether something waits for a message in front of it.
  bool Waits() const;

 private:
  struct Run {
    std::uint64_t next = 1;
    // Messages before the first one may have gone to somebody else.
    bool joined = false;
    bool over = false;
    std::map<std::uint64_t, Arrival> early;  // by their first number
  };
  struct Result {
    std::vector<Step> steps;
    std::vector<Arrival>& duplicates;
  };
  Run& Insert(Arrival arrival);
  static void Drain(const std::string& name, Run& run, Result& result);
  static void Skip(const std::string& name, Run& run, std::uint64_t to, Result& result);
  static void Leave(const std::string& name, Run& run, Result& result);

  std::map<std::string, Run> runs_;
  std::string current_;
  bool joins_;
};

}  // namespace tool::fleet
