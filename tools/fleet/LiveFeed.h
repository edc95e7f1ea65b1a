#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "fleet/Assembler.h"
#include "fleet/Server.h"
#include "record/ReplayRings.h"

namespace tool::fleet {

// Puts the frames of a sensor into rings as they are published, for a virtual board that hands them
// to an application. It shows and keeps nothing: what the application does not take in time is left
// out. Lives to the end of the process.
class LiveFeed {
 public:
  // Throws a Failure if the server does not allow it.
  LiveFeed(const Server& server, const std::string& sensor);

  const ReplayRings& rings() const { return rings_; }
  struct Counts {
    std::uint64_t strips = 0, images = 0;  // put into the rings
    std::uint64_t left_out = 0;            // frames
  };
  Counts counts() const;

 private:
  static void OnMessage(natsConnection* connection, natsSubscription* subscription,
                        natsMsg* message, void* self);
  void Use(Arrival arrival);
  void Put(Delivery delivery);

  const std::string sensor_;
  ReplayRings rings_;
  Subscription subscription_;
  mutable std::mutex mutex_;
  Assembler assembler_;
  std::string run_;
  std::uint64_t last_ = 0;  // sequence, of that run
  Counts counts_;
};

}  // namespace tool::fleet
