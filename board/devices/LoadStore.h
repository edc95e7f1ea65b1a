// The instruction that faulted at a register window, made in the place of the processor.
#pragma once

#include <ucontext.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace board {

// A plain load or store, as compilers and memcpy make them. Where it goes to is known from the
// fault.
class LoadStore {
 public:
  // A pair of vector registers is the most that one instruction moves.
  static constexpr std::size_t kMostBytes = 32;

  // Nothing: the instruction is not a plain load or store.
  static std::optional<LoadStore> At(const ucontext_t& context);

  bool Stores() const { return stores_; }
  std::size_t Bytes() const { return bytes_ * count_; }

  // The bytes that a store writes.
  void Get(const ucontext_t& context, std::span<std::byte> bytes) const;
  // Puts the bytes of a load into its registers.
  void Put(ucontext_t& context, std::span<const std::byte> bytes) const;
  // Goes on behind the instruction.
  void Finish(ucontext_t& context) const;

 private:
  bool stores_ = false;
  bool sign_extends_ = false;
  std::size_t bytes_ = 0;           // of each register's value
  std::size_t count_ = 1;           // of registers
  std::size_t register_bytes_ = 8;  // how many of a register a load sets
  std::size_t length_ = 4;          // of the instruction
  std::array<unsigned, 2> registers_{};

  // Not every processor has these.
  [[maybe_unused]] bool vector_ = false;
  [[maybe_unused]] bool high_byte_ = false;                 // of a register
  [[maybe_unused]] std::optional<std::uint64_t> constant_;  // stored, without a register
  [[maybe_unused]] std::optional<unsigned> base_;  // a register that the instruction changes
  [[maybe_unused]] std::int64_t base_change_ = 0;
};

// Whether the instruction that faulted wanted to write.
bool FaultedOnWrite(const ucontext_t& context);

// Has the processor make one instruction and then raise SIGTRAP, or stops doing so. Returns false
// if the processor cannot.
bool StepOne(ucontext_t& context, bool step);

}  // namespace board
