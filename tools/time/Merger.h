#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace tool {

// Merges the items of several sensors by a key: a time in ns, or the count of an encoder that all
// of them share. An item is given out once every sensor has come to its key; of equal keys, that of
// the sensor whose name comes first. The items of one sensor always keep their order.
//
// - A sensor that is silent holds up the others by `patience` and no more. One that has left, or
//   was never heard of, does not hold them up.
// - An item with a key that has been passed already is late: it is given out at once.
// - A sensor's keys may go down: an encoder turns back or is set, a clock is set. That is no error.
//   Such an item follows right behind those of its sensor that came before it. Once no sensor is
//   where they have been, keys count from where they are now. So items come as they come while an
//   encoder turns back, and are merged again when it goes forward.
// - What is held has a limit: above it, the items with the lowest keys go first, unmerged.
//
// Without threads and without a clock: the caller says what time it is, on one that is never set.
// After each call that may set items free, take all that are there.
template <typename Item>
class Merger {
 public:
  using Key = std::int64_t;

  struct Limits {
    std::int64_t patience_ns = 1'000'000'000;
    std::size_t items = 100'000;
    std::size_t bytes = std::size_t{256} << 20;
  };

  struct Counters {
    std::uint64_t late = 0;       // came after a higher key had been given out
    std::uint64_t backward = 0;   // keys went down within their sensor
    std::uint64_t impatient = 0;  // given out without waiting on, because a sensor was silent
    std::uint64_t crowded = 0;    // given out without waiting on, because too much was held
  };

  struct Given {
    std::string sensor;
    Key key = 0;
    Item item;
  };

  explicit Merger(const Limits& limits = {}) : limits_(limits) {}

  // The others wait for this sensor from now on, even before its first item.
  void Join(const std::string& sensor) { sensors_[sensor].present = true; }

  // Nobody waits for it any more. What it has brought still comes out, in order.
  void Leave(const std::string& sensor) {
    const auto found = sensors_.find(sensor);
    if (found != sensors_.end()) found->second.present = false;
  }

  // Joins the sensor if it is new, or has left.
  void Add(const std::string& sensor, Key key, Item item, std::size_t bytes, std::int64_t now_ns) {
    Sensor& from = sensors_[sensor];
    from.present = true;
    const bool backward = from.latest && key < from.reached;
    from.latest = key;
    if (backward) {
      ++counters_.backward;
    } else {
      from.reached = key;
      if (key < passed_) ++counters_.late;
    }
    from.held.push_back({std::move(item), key, from.reached, bytes, now_ns});
    ++items_;
    bytes_ += bytes;
    if (key < from.reached || key < passed_) FollowDown();
  }

  // The next item that may go, or nothing.
  std::optional<Given> Take(std::int64_t now_ns) {
    const auto first = First();
    if (first == sensors_.end()) return std::nullopt;
    const Key key = first->second.held.front().place;
    if (key >= passed_ && !AllHaveReached(key)) {
      if (items_ > limits_.items || bytes_ > limits_.bytes) {
        ++counters_.crowded;
      } else if (Oldest() <= now_ns - limits_.patience_ns) {
        ++counters_.impatient;
      } else {
        return std::nullopt;
      }
    }
    return Give(first);
  }

  // The next item, however long others might still wait; nothing once it is empty.
  std::optional<Given> TakeAnyway() {
    const auto first = First();
    return first == sensors_.end() ? std::nullopt : std::optional(Give(first));
  }

  // When patience ends for something that is held: Take() gives it out then at the latest.
  std::optional<std::int64_t> Deadline() const {
    if (items_ == 0) return std::nullopt;
    return Oldest() + limits_.patience_ns;
  }

  const Counters& counters() const { return counters_; }
  std::size_t held_items() const { return items_; }
  std::size_t held_bytes() const { return bytes_; }

 private:
  static constexpr Key kLowest = std::numeric_limits<Key>::min();

  struct Held {
    Item item;
    Key key;
    Key place;  // where it stands among those of others; never goes down within a sensor
    std::size_t bytes;
    std::int64_t since_ns;
  };

  struct Sensor {
    bool present = false;
    std::optional<Key> latest;
    Key reached = kLowest;
    std::deque<Held> held;
  };

  using Sensors = std::map<std::string, Sensor>;

  // The sensor with the item that is next in order.
  typename Sensors::iterator First() {
    auto first = sensors_.end();
    for (auto at = sensors_.begin(); at != sensors_.end(); ++at) {
      if (at->second.held.empty()) continue;
      if (first == sensors_.end() ||
          at->second.held.front().place < first->second.held.front().place) {
        first = at;
      }
    }
    return first;
  }

  bool AllHaveReached(Key key) const {
    return std::all_of(sensors_.begin(), sensors_.end(), [key](const auto& named) {
      return !named.second.present || named.second.reached >= key;
    });
  }

  std::int64_t Oldest() const {
    auto oldest = std::numeric_limits<std::int64_t>::max();
    for (const auto& [name, sensor] : sensors_) {
      if (!sensor.held.empty()) oldest = std::min(oldest, sensor.held.front().since_ns);
    }
    return oldest;
  }

  Given Give(typename Sensors::iterator from) {
    Sensor& sensor = from->second;
    Held held = std::move(sensor.held.front());
    sensor.held.pop_front();
    --items_;
    bytes_ -= held.bytes;
    passed_ = std::max(passed_, held.place);
    return {from->first, held.key, std::move(held.item)};
  }

  // When all keys have gone down, nobody comes to the old ones again soon: lets go what waits for
  // that, and counts from here.
  void FollowDown() {
    Key lowest = std::numeric_limits<Key>::max();
    for (const auto& [name, sensor] : sensors_) {
      if (!sensor.present || !sensor.latest) continue;
      if (*sensor.latest >= std::max(sensor.reached, passed_)) return;
      lowest = std::min(lowest, *sensor.latest);
    }
    for (auto& [name, sensor] : sensors_) {
      sensor.reached = sensor.latest.value_or(kLowest);
      for (Held& held : sensor.held) held.place = kLowest;
    }
    passed_ = lowest;
  }

  Limits limits_;
  Sensors sensors_;
  Counters counters_;
  Key passed_ = kLowest;  // the highest place given out
  std::size_t items_ = 0;
  std::size_t bytes_ = 0;
};

}  // namespace tool
