#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "fleet/DeliveryOrder.h"
#include "fleet/Intake.h"
#include "fleet/Latency.h"
#include "fleet/Server.h"
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

  std::map<std::string, Intake::Counts> counts() const;
  const DeliveryOrder& order() const { return order_; }
  // From the sensor's handler to here, of frames that came once. As good as both clocks are.
  const Latency& latency() const { return latency_; }
  // Why some sensor cannot be taken now; empty: all can.
  std::string trouble() const;
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
    Intake intake;
    std::int64_t written = 0;  // messages that are not synced
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
  std::map<std::string, RunOrder::Used> RunsOf(const std::string& sensor) const;
  bool HasDeliveredAll();
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
  std::uint64_t came_bytes_ = 0;
};

}  // namespace tool::fleet
