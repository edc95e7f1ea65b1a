#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "fleet/Backlog.h"

namespace tool::fleet {

// The messages that have been sent and are not acknowledged yet. It keeps the order in which the
// server stores them within what a subscriber can put right again. Not thread-safe.
class SendWindow {
 public:
  // Enough to keep a network and three disks busy; a subscriber holds four times as many.
  static constexpr std::uint64_t kMost = 64;
  static constexpr std::uint64_t kMostBytes = 16 << 20;

  using Position = std::uint64_t;  // in the order of sending
  using Clock = std::chrono::steady_clock;

  // "6f1c0a....17": under this name the server stores it once.
  static std::string NameOf(const PacketHeader& header);

  // Counted from the oldest one: those behind one that has to be sent again must not run away from
  // it.
  bool HasRoom() const;
  // Whether it may go now: a run follows when all of the one before is stored.
  bool Admits(const PacketHeader& next) const;
  Position Add(Backlog::Taken taken);

  const Packet& At(Position position) const { return sent_.at(position).packet; }
  // Up to which message of its run everything is acknowledged.
  std::uint64_t AcknowledgedBefore(Position position) const;

  struct Acknowledged {
    std::uint64_t bytes = 0;
    // All rows of the file before this one have arrived; 0: it was not from the file.
    std::int64_t rows_before = 0;
  };
  // None: it is not on its way any more.
  std::optional<Acknowledged> Acknowledge(const std::string& name, Clock::time_point now);
  // The connection has broken. A server that is being stopped may have acknowledged what it did not
  // store any more, so what was acknowledged last is to be sent again. What the server did store it
  // knows by name. Returns how many bytes of how many messages.
  struct Doubted {
    std::uint64_t messages = 0, bytes = 0;
  };
  Doubted Doubt(Clock::time_point now);
  // It has not arrived. False: it is not on its way any more.
  bool Refuse(const std::string& name);
  // None of them is answered any more.
  void RefuseAll();
  void SendAgain(Position position) { again_.insert(position); }
  void SentAgain(Position position) { again_.erase(position); }
  // The oldest one to be sent again.
  std::optional<Position> NextAgain() const;

  // Everything, the newest first.
  std::deque<Backlog::Taken> Clear();
  std::size_t size() const { return sent_.size(); }

 private:
  std::map<Position, Backlog::Taken> sent_;
  std::map<std::string, Position> by_name_;  // of these
  std::set<Position> again_;                 // likewise
  struct Done {
    Position position;
    Backlog::Taken taken;
    Clock::time_point at;
  };
  void Remember(Position position, Backlog::Taken taken, Clock::time_point now);

  std::deque<Done> done_;  // acknowledged of late
  std::uint64_t bytes_done_ = 0;
  Position next_ = 1;
  std::uint64_t bytes_ = 0;
  std::int64_t last_row_ = 0;  // that was added
};

}  // namespace tool::fleet
