#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "fleet/Server.h"

namespace tool::fleet {

// Removes from a sensor's stream what every subscriber has stored: all, or nothing. nats-server
// 2.9.10 does not survive anything else: when it removes a part, it forgets what was delivered and
// not acknowledged; and when it starts again within two minutes, it removes everything up to the
// end that the stream had then. Nothing may be sent meanwhile. For one thread.
class Tidier {
 public:
  Tidier(const Server& server, const std::string& sensor);

  // Whether all subscribers will have everything within a moment, once nothing more is sent.
  bool IsNear() const;
  // True: the stream is empty now. False: somebody has not stored all, or the servers do not say.
  bool RemoveIfStored() const;

 private:
  struct Kept {
    std::uint64_t last = 0;      // in the stream
    std::uint64_t messages = 0;  // there
    std::uint64_t unstored = 0;  // of them, by the slowest subscriber
    bool ahead = false;          // somebody's place is: it has not seen what the stream has
  };
  // None: the servers do not say for certain.
  std::optional<Kept> KeptNow(jsCtx* context) const;

  const Server& server_;
  const std::string stream_;
};

}  // namespace tool::fleet
