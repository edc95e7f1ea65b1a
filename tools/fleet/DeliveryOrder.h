#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>

#include "fleet/Assembler.h"
#include "time/ClockFit.h"
#include "time/Merger.h"

namespace tool::fleet {

// In which order the deliveries of several sensors are stored: as they come, or merged. Those of
// one sensor always keep theirs.
class DeliveryOrder {
 public:
  enum class By { kArrival, kTime, kEncoder };
  struct Settings {
    By by = By::kArrival;
    std::int64_t patience_ns = 1'000'000'000;
  };
  explicit DeliveryOrder(const Settings& settings);

  void Join(const std::string& sensor);
  void Add(Delivery delivery);
  // The next one. `all`: without waiting for other sensors.
  std::optional<Delivery> Take(bool all = false);

  bool Merges() const { return settings_.by != By::kArrival; }
  const Merger<Delivery>::Counters& counters() const { return merger_.counters(); }

 private:
  struct Sensor {
    ClockFit clock;
    std::int64_t key = 0;  // of the last frame; what has none stays behind it
  };
  std::int64_t KeyOf(const Delivery& delivery, Sensor& sensor) const;

  const Settings settings_;
  std::deque<Delivery> arrived_;
  Merger<Delivery> merger_;
  std::map<std::string, Sensor> sensors_;
};

}  // namespace tool::fleet
