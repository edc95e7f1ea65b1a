#pragma once

#include <nats/nats.h>

#include <memory>

namespace tool::fleet {

// What belongs to the client library, and is given back with its own function.
template <auto Destroy>
struct Destroyer {
  template <typename T>
  void operator()(T* object) const {
    Destroy(object);
  }
};
using Message = std::unique_ptr<natsMsg, Destroyer<natsMsg_Destroy>>;
using Subscription = std::unique_ptr<natsSubscription, Destroyer<natsSubscription_Destroy>>;

}  // namespace tool::fleet
