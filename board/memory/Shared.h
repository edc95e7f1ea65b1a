#pragma once

#include <mutex>

#include "memory/BoardMemory.h"
#include "memory/SharedMutex.h"

namespace board {

// What a part of the board knows, behind its lock. All processes that share the board see the same.
template <typename Value>
class Shared {
  struct Guarded {
    SharedMutex mutex;
    Value value;
  };

 public:
  explicit Shared(BoardMemory& memory) : guarded_(&memory.Place<Guarded>()) {}

  // The value, locked while this exists.
  class Access {
   public:
    explicit Access(Guarded& guarded) : lock_(guarded.mutex), value_(guarded.value) {}
    Value* operator->() const { return &value_; }
    Value& operator*() const { return value_; }

   private:
    const std::lock_guard<SharedMutex> lock_;
    Value& value_;
  };
  Access Lock() const { return Access(*guarded_); }

 private:
  Guarded* guarded_;
};

}  // namespace board
