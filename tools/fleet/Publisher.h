#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <mutex>
#include <string>

#include "capture/RecordSource.h"
#include "fleet/Backlog.h"
#include "fleet/Packetizer.h"
#include "fleet/Sender.h"
#include "fleet/Server.h"

namespace tool::fleet {

// Takes records out of the ring and has them sent; tells how it is, each second; answers questions.
// Lives to the end of the process, because the client library's threads call it.
class Publisher : public RecordTaker {
 public:
  struct Settings {
    StreamSettings stream;
    Backlog::Settings backlog;
    std::chrono::milliseconds drain{0};
    Json facts;  // about this publisher and its device
    // What the device is like now; may be empty.
    std::function<Json()> health;
    // An order: "check" or "set", and the recipe. Throws a Failure if it cannot be carried out.
    std::function<Json(const std::string& verb, const Json& request)> order;
  };
  // Throws a Failure if the store cannot be used, or another publisher has the name.
  Publisher(Server& server, Settings settings);

  void Begin(ring::RecordRing& ring) override;
  void Work() override;
  void Finish(bool crashed) override;

  struct Totals {
    std::uint64_t strips = 0, images = 0, bytes = 0;  // taken
    std::uint64_t missing = 0;                        // ids, by the device or by the memory
    std::uint64_t dropped = 0;                        // frames, by the store
    std::uint64_t waiting = 0;                        // messages
    bool saved = false;                               // all that waits is in the store
    Sender::Counts sent;
    Backlog::Counts backlog;
  };
  Totals totals() const;
  // All of it, for whoever asks.
  Json Status() const;
  const std::string& run() const { return packetizer_.run(); }

 private:
  using Clock = std::chrono::steady_clock;
  void RequireName() const;
  void Listen();
  void ListenAgain();
  void Take(bool written_off);
  void Learn(const ring::Record& record);
  void TellStatus();
  void AnswerQuestions();
  Json Answer(const std::string& verb, const Json& request);
  static void OnQuestion(natsConnection* connection, natsSubscription* subscription,
                         natsMsg* message, void* self);

  const Server& server_;
  const Settings settings_;
  Backlog backlog_;
  Sender sender_;
  Packetizer packetizer_;
  ring::RecordRing* ring_ = nullptr;
  Totals totals_;
  std::uint64_t ring_dropped_ = 0;
  const std::int64_t started_ns_;
  Json device_ = Json::object();  // what it says about itself
  Clock::time_point next_status_;
  double rate_ = 0;  // frames a second
  std::uint64_t frames_then_ = 0;
  Clock::time_point then_ = Clock::now();

  std::mutex mutex_;
  std::deque<Message> questions_;
  Subscription own_questions_, common_questions_;
  std::uint64_t listens_on_ = 0;  // which connection
};

}  // namespace tool::fleet
