#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "fleet/Assembler.h"
#include "fleet/DeliveryOrder.h"
#include "fleet/Latency.h"
#include "fleet/PassedOver.h"
#include "fleet/RunOrder.h"
#include "fleet/Server.h"
#include "fleet/StreamOrder.h"
#include "record/FleetFile.h"

namespace tool::fleet {

// Stores what the server keeps for a subscriber, of all sensors that match a pattern, also of those
// that come later. A message is acknowledged once the file has it for certain, so it is stored once
// whatever ends in between. Lives to the end of the process.
class Subscriber {
 public:
  struct Settings {
    std::string pattern;
    std::string name;  // of the subscriber
    DeliveryOrder::Settings order;
  };
  // Throws a Failure if the file cannot be used.
  Subscriber(const Server& server, Settings settings, const std::string& path);

  // Takes what has come, and stores it. Throws a Failure if it cannot be stored, or if somebody
  // else has the name.
  void Work(std::chrono::milliseconds patience);
  // Stores what has been held back for others, and completes the file.
  void Finish();

  // Of one sensor.
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
  std::map<std::string, Counts> counts() const;
  const DeliveryOrder& order() const { return order_; }
  // From the sensor's handler to here, of frames that came once. As good as both clocks are.
  const Latency& latency() const { return latency_; }
  // Why some sensor cannot be taken now; empty: all can.
  const std::string& trouble() const { return trouble_; }
  // Whether everything has been taken that was stored on the servers when this was asked first. To
  // be asked again and again.
  bool HasAll();

 private:
  using Clock = std::chrono::steady_clock;
  struct Came {
    Message message;
    std::string sensor;
    std::int64_t at_ns = 0;  // host clock
  };
  struct Input {
    Subscription subscription;
    std::unique_ptr<StreamOrder<std::optional<Arrival>>> stream;
    std::unique_ptr<RunOrder> runs;
    std::unique_ptr<Assembler> assembler;
    std::optional<Arrival> next;  // taken out of the stream's order
    std::unique_ptr<PassedOver> passed_over;
    bool fetching = false;           // what that finds
    std::uint64_t found = 0;         // in this round
    Clock::time_point fetch_at{};    // not before
    Clock::time_point look_at{};     // likewise, without a reason
    Clock::time_point came_at{};     // the last message
    Clock::time_point round_at{};    // began
    Clock::time_point had_all_at{};  // then nothing was passed over
    // In the stream: up to here everything is in this file or in another one of our name.
    std::uint64_t before = 0;
    std::set<std::string> fetched;  // and not synced: the publisher's names
    // What came, and is not acknowledged: by number in the stream, and the publisher's name for it.
    std::map<std::uint64_t, std::string> open;
    std::int64_t written = 0;  // messages of these
    Counts counts;
  };
  // The client library's closure of one subscription.
  struct Origin {
    Subscriber* subscriber;
    std::string sensor;
  };
  void LookForSensors();
  std::vector<std::string> SensorsNow();
  void Open(const std::string& sensor);
  void RequireUnbound(const std::string& sensor);
  static void OnMessage(natsConnection* connection, natsSubscription* subscription,
                        natsMsg* message, void* origin);
  void Use(Came came);
  bool IsAgain(Input& input, std::uint64_t number, Arrival& arrival);
  bool BeginAgain(const std::string& sensor, Input& input, std::uint64_t number);
  void Advance(const std::string& sensor, Input& input);
  void Take(Input& input, std::vector<RunOrder::Step> steps, std::vector<Arrival> duplicates);
  bool FetchPassedOver(const std::string& sensor, Input& input);
  void LookForPassedOver();
  bool HasDeliveredAll();
  bool HasAllDelivered(const std::string& sensor, const Input& input) const;
  void Store(Delivery delivery);
  void AcknowledgeAfterSync(Input& input, Message message);
  void CommitIfDue(bool now = false);

  const Server& server_;
  const Settings settings_;
  FleetFile file_;
  DeliveryOrder order_;
  Latency latency_;
  std::map<std::string, Input> inputs_;
  struct Stored {
    Input* input;
    Message message;
  };
  std::vector<Stored> stored_;  // to be acknowledged after the next sync
  std::uint64_t unsynced_bytes_ = 0;
  std::int64_t most_written_ = 0;  // messages of one sensor among them
  Clock::time_point next_look_, sync_at_;
  std::map<std::string, std::uint64_t> wanted_;           // number in the stream, of each sensor
  std::optional<Clock::time_point> delivered_at_;         // since then the servers deliver nothing
  std::map<std::string, Clock::time_point> bound_since_;  // sensors that seem to be taken
  bool has_streams_ = false;                              // the server has told them once
  std::string trouble_;

  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<Came> came_;
};

}  // namespace tool::fleet
