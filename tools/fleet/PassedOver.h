#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "fleet/Server.h"

namespace tool::fleet {

// What the server keeps of a sensor although a subscriber's place is past it. nats-server 2.9.10
// gets there when it loses a part of a stream or of a place, as after a full disk: it numbers new
// messages as it has numbered others before, and delivers only what lies behind. They are read one
// by one, the newest kMost at most. All functions throw a Failure if the server does not answer.
class PassedOver {
 public:
  static constexpr std::uint64_t kMost = 1024;

  PassedOver(const Server& server, const std::string& sensor, std::string subscriber);

  // Makes the subscriber's place if there is none, as in a stream that has been made again. Begins
  // with the oldest one of those in front of `before`, a number in the stream, up to which
  // all that was delivered has come; none: of those that are not on their way. What is kept for
  // other subscribers is among them, too.
  void Begin(std::optional<std::uint64_t> before);
  // Whether the same was kept when the last round ended.
  bool Unchanged() const { return state_ == ended_; }
  struct Kept {
    Message message;
    std::uint64_t number = 0;  // in the stream
  };
  // None: that was all.
  std::optional<Kept> Next();
  // Whether the subscriber's place was ever ahead of the stream.
  bool WentBack() const { return went_back_; }

 private:
  struct State {
    std::uint64_t first = 0, last = 0, messages = 0;
    std::uint64_t to = 0;  // read
    bool operator==(const State&) const = default;
  };

  const Server& server_;
  const std::string sensor_;
  const std::string stream_;
  const std::string subscriber_;
  State state_;
  std::optional<State> ended_;
  std::uint64_t next_ = 1;
  bool went_back_ = false;
};

}  // namespace tool::fleet
