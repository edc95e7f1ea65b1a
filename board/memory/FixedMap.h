#pragma once

#include <algorithm>
#include <array>
#include <cstddef>

namespace board {

// A sorted map without pointers, for the board's memory. A key more than it has room for is lost.
template <typename Key, typename Value, std::size_t kRoom>
class FixedMap {
 public:
  // The value of a key, or the one of a key that was never set.
  Value Get(Key key) const {
    const auto place = Find(*this, key);
    return place != End(*this) && place->key == key ? place->value : Value{};
  }

  void Set(Key key, Value value) {
    const auto place = Find(*this, key);
    if (place != End(*this) && place->key == key) {
      place->value = value;
    } else if (count_ < kRoom) {
      std::move_backward(place, End(*this), End(*this) + 1);
      *place = {key, value};
      ++count_;
    }
  }

  void Clear() { count_ = 0; }

 private:
  struct Entry {
    Key key;
    Value value;
  };
  template <typename Map>
  static auto End(Map& map) {
    return map.entries_.begin() + static_cast<std::ptrdiff_t>(map.count_);
  }
  template <typename Map>
  static auto Find(Map& map, Key key) {
    return std::lower_bound(map.entries_.begin(), End(map), key,
                            [](const Entry& entry, Key wanted) { return entry.key < wanted; });
  }

  std::array<Entry, kRoom> entries_{};
  std::size_t count_ = 0;
};

}  // namespace board
