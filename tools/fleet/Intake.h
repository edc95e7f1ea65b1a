#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "fleet/Assembler.h"
#include "fleet/Latency.h"
#include "fleet/PassedOver.h"
#include "fleet/RunOrder.h"
#include "fleet/StreamOrder.h"

namespace tool::fleet {

// The way of one sensor's messages from the server to what a subscriber stores: each once and in
// order, and gaps where something is missing. Not thread-safe.
class Intake {
 public:
  using Clock = std::chrono::steady_clock;
  struct Counts {
    std::uint64_t strips = 0, images = 0, bytes = 0;  // stored
    std::uint64_t named = 0;                          // frames missing that a gap names by number
    std::uint64_t open_gaps = 0;                      // gaps whose end nobody knows
    std::uint64_t unknown = 0;                        // holes that nobody explains
    std::uint64_t duplicates = 0;                     // messages that came again
    std::uint64_t passed_over = 0;  // messages that the server kept and did not deliver
    std::uint64_t damaged = 0;      // messages that were none, or whose bytes had changed
    std::int64_t newest_ns = 0;     // host time of the sensor's last message
  };
  // Where the subscriber's place in the stream stands.
  struct Place {
    std::uint64_t used = 0;  // all up to here is in the subscriber's file, or in an earlier one
    bool ahead = false;      // the stream has fewer messages
  };

  // `known`: what the file has, by run.
  Intake(const Server& server, const std::string& sensor, const std::string& subscriber,
         const Place& place, const std::map<std::string, RunOrder::Used>& known);

  // A message has come, at this time of the host clock.
  void Take(Message message, std::int64_t at_ns, Latency& latency);
  // Nothing can come now.
  void Interrupted() { stream_->Interrupted(Clock::now()); }
  // What can be stored now.
  std::vector<Delivery> Advance();
  // What came again and is stored: to be acknowledged, too.
  std::vector<Message> TakeDuplicates() { return std::move(duplicates_); }
  // It is in the file for certain.
  void Acknowledge(natsMsg* message);

  // Asks the server for what it keeps and does not deliver, now and then while the sensor is
  // silent, and after `asked`. Returns whether it has asked.
  bool Look(std::optional<Clock::time_point> asked);
  // Whether there was nothing of that kind at that time or later.
  bool HadAllSince(Clock::time_point time) const { return had_all_at_ >= time; }

  // Why something has to wait; empty: nothing has.
  const std::string& trouble() const { return newer_.empty() ? trouble_ : newer_; }
  // Messages that wait for others, which may never come; none while something else is to be done.
  std::optional<std::size_t> Held() const;
  Counts& counts() { return counts_; }
  const Counts& counts() const { return counts_; }

 private:
  using Stream = StreamOrder<std::optional<Arrival>>;
  bool IsAgain(std::uint64_t number, Arrival& arrival);
  bool BeginAgain(std::uint64_t number);
  // What the server says of this subscriber.
  struct Acknowledgements {
    std::uint64_t stored;  // all of the stream up to here
    std::int64_t awaited;  // messages that it has delivered
  };
  std::optional<Acknowledgements> PlaceNow() const;
  bool HasAllDelivered() const;
  void Use(std::vector<RunOrder::Step> steps, std::vector<Arrival> duplicates);
  bool FetchPassedOver();
  void UseKept(PassedOver::Kept kept);

  const Server& server_;
  const std::string sensor_;
  const std::string subscriber_;
  std::unique_ptr<Stream> stream_;
  RunOrder runs_;
  Assembler assembler_;
  std::optional<Arrival> next_;  // out of the stream's order
  std::vector<Delivery> ready_;
  std::vector<Message> duplicates_;
  // What came, and is not acknowledged: by number in the stream, and the publisher's name for it.
  std::map<std::uint64_t, std::string> open_;
  std::uint64_t before_;  // all of the stream up to here has been used by somebody with our name

  PassedOver passed_over_;
  std::set<std::string> fetched_;  // of it, and not in the file: the publisher's names
  bool fetching_ = false;
  std::uint64_t found_ = 0;                    // in this round
  std::optional<std::uint64_t> before_round_;  // in front of what it looks
  Clock::time_point round_at_;                 // began
  Clock::time_point had_all_at_;               // nothing was found
  Clock::time_point fetch_at_;                 // not before
  Clock::time_point look_at_;                  // likewise, while the sensor is silent
  Clock::time_point came_at_;                  // the last message
  std::string trouble_;
  std::string newer_;  // likewise, for good
  Counts counts_;
};

}  // namespace tool::fleet
