#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "fleet/Backlog.h"
#include "fleet/SendWindow.h"
#include "fleet/Server.h"
#include "fleet/Stream.h"
#include "fleet/Tidier.h"

namespace tool::fleet {

// Sends what waits, oldest first, and keeps each message until the server has acknowledged it. Some
// are on their way at a time; one that is not acknowledged is sent again, under the same name, so
// that the server stores it once. Has a thread of its own.
class Sender {
 public:
  Sender(Server& server, Backlog& backlog, StreamSettings stream);
  void Start();
  // Ends without waiting for anybody.
  ~Sender();
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;

  // Waits until all has been acknowledged. False: the time is over.
  bool Drain(std::chrono::milliseconds patience);
  // Ends the thread, and gives back to the backlog what was not acknowledged.
  void Stop();

  struct Counts {
    std::uint64_t acknowledged = 0;  // messages
    std::uint64_t bytes = 0;
    std::uint64_t sent_again = 0;
    std::uint64_t on_the_way = 0;
    std::string trouble;  // why nothing moves; empty: it does
  };
  Counts counts() const;

 private:
  using Clock = std::chrono::steady_clock;

  void Run();
  void Connect();
  // Makes sure that the server has a place for the messages. False: not now.
  bool Prepare();
  bool Send(SendWindow::Position position);
  void WaitForAnswers();
  // Takes back what was acknowledged just before the connection broke.
  void Doubt();
  // Whether nothing new is sent now, so that what everybody has stored can be removed.
  bool Tidies();
  // Uses the answers that have come.
  void Collect();
  void Trouble(const std::string& text);
  static void OnAnswer(jsCtx* context, natsMsg* message, jsPubAck* good, jsPubAckErr* bad,
                       void* self);

  Server& server_;
  Backlog& backlog_;
  const StreamSettings stream_;
  Server::Stream context_;
  bool prepared_ = false;
  bool had_stream_ = false;
  std::optional<Clock::time_point> missing_since_;  // as the servers say

  // The thread's own.
  SendWindow window_;
  std::uint64_t reconnects_ = 0;  // that we know of
  Clock::time_point not_before_;  // after trouble
  unsigned troubles_ = 0;         // one behind the other
  Clock::time_point trouble_at_;  // the last one
  Room room_;
  Tidier tidier_;
  Clock::time_point tidy_at_, ask_at_;  // not before
  std::optional<Clock::time_point> tidying_since_;

  struct Answer {
    std::string name;     // of the message
    std::string trouble;  // empty: acknowledged
  };
  mutable std::mutex mutex_;
  std::condition_variable answered_;
  std::deque<Answer> answers_;
  Counts counts_;

  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace tool::fleet
