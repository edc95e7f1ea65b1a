#if defined(__aarch64__)

#include <asm/sigcontext.h>

#include <cstring>

#include "devices/LoadStore.h"

namespace board {
namespace {

constexpr unsigned kStackPointer = 31;  // as a base; as a value it is zero

constexpr unsigned Bits(std::uint32_t word, unsigned high, unsigned low) {
  return word >> low & ((1u << (high - low + 1)) - 1);
}

constexpr std::int64_t SignedBits(std::uint32_t word, unsigned high, unsigned low) {
  const unsigned width = high - low + 1;
  const std::int64_t value = Bits(word, high, low);
  return value - (Bits(word, high, high) != 0 ? std::int64_t{1} << width : 0);
}

// The registers of the vector unit as the kernel saved them. Null: it did not.
__uint128_t* Vectors(const ucontext_t& context) {
  const auto* place = reinterpret_cast<const std::byte*>(context.uc_mcontext.__reserved);
  for (;;) {
    const auto* const head = reinterpret_cast<const _aarch64_ctx*>(place);
    if (head->magic == 0) return nullptr;
    if (head->magic == FPSIMD_MAGIC) {
      return const_cast<fpsimd_context*>(reinterpret_cast<const fpsimd_context*>(head))->vregs;
    }
    place += head->size;
  }
}

}  // namespace

std::optional<LoadStore> LoadStore::At(const ucontext_t& context) {
  std::uint32_t word = 0;
  std::memcpy(&word, reinterpret_cast<const void*>(context.uc_mcontext.pc), sizeof word);
  LoadStore access;
  const unsigned size = Bits(word, 31, 30);
  const bool loads = Bits(word, 22, 22) != 0;
  access.vector_ = Bits(word, 26, 26) != 0;
  access.registers_ = {Bits(word, 4, 0), Bits(word, 14, 10)};
  const unsigned base = Bits(word, 9, 5);
  const unsigned family = Bits(word, 29, 27);

  if (family == 5 && Bits(word, 25, 25) == 0) {  // a pair: ldp, stp
    if (size == 3 || (size == 1 && !access.vector_ && !loads)) return std::nullopt;
    access.stores_ = !loads;
    access.count_ = 2;
    access.bytes_ = access.vector_ ? std::size_t{4} << size : size == 2 ? 8 : 4;
    access.sign_extends_ = size == 1 && !access.vector_;
    access.register_bytes_ = 8;
    if (Bits(word, 23, 23) != 0) {
      access.base_ = base;
      access.base_change_ = SignedBits(word, 21, 15) * static_cast<std::int64_t>(access.bytes_);
    }
    return access;
  }
  if ((word & 0x3FA0'8000) == 0x0880'8000) {  // ldar, stlr
    access.vector_ = false;
    access.stores_ = !loads;
    access.bytes_ = std::size_t{1} << size;
    return access;
  }
  if (family != 7 || Bits(word, 25, 25) != 0) return std::nullopt;

  const bool plain_offset = Bits(word, 24, 24) != 0;
  const unsigned mode = Bits(word, 11, 10);
  const bool register_offset = Bits(word, 21, 21) != 0;
  if (!plain_offset && register_offset && mode != 2) return std::nullopt;  // atomic operations
  const unsigned operation = Bits(word, 23, 22);
  if (access.vector_) {
    const bool whole = (operation & 2) != 0;
    if (whole && size != 0) return std::nullopt;
    access.bytes_ = whole ? 16 : std::size_t{1} << size;
    access.stores_ = !loads;
  } else {
    if (operation >= 2 && size == 3) return std::nullopt;  // a prefetch does not fault
    access.bytes_ = std::size_t{1} << size;
    access.stores_ = operation == 0;
    access.sign_extends_ = operation >= 2;
    access.register_bytes_ = operation == 3 ? 4 : 8;
  }
  if (!plain_offset && !register_offset && (mode & 1) != 0) {
    access.base_ = base;
    access.base_change_ = SignedBits(word, 20, 12);
  }
  return access;
}

void LoadStore::Get(const ucontext_t& context, std::span<std::byte> bytes) const {
  for (std::size_t i = 0; i < count_; ++i) {
    std::byte* const place = bytes.data() + i * bytes_;
    const unsigned number = registers_[i];
    if (vector_) {
      if (const __uint128_t* const vectors = Vectors(context)) {
        std::memcpy(place, &vectors[number], bytes_);
      }
    } else {
      const std::uint64_t value = number == kStackPointer ? 0 : context.uc_mcontext.regs[number];
      std::memcpy(place, &value, bytes_);
    }
  }
}

void LoadStore::Put(ucontext_t& context, std::span<const std::byte> bytes) const {
  for (std::size_t i = 0; i < count_; ++i) {
    const std::byte* const place = bytes.data() + i * bytes_;
    const unsigned number = registers_[i];
    if (vector_) {
      __uint128_t value = 0;
      std::memcpy(&value, place, bytes_);
      if (__uint128_t* const vectors = Vectors(context)) vectors[number] = value;
      continue;
    }
    std::uint64_t value = 0;
    std::memcpy(&value, place, bytes_);
    if (sign_extends_) {
      const auto unused = static_cast<unsigned>(64 - 8 * bytes_);
      value = static_cast<std::uint64_t>(static_cast<std::int64_t>(value << unused) >> unused);
      if (register_bytes_ == 4) value &= 0xFFFF'FFFF;
    }
    if (number != kStackPointer) context.uc_mcontext.regs[number] = value;
  }
}

void LoadStore::Finish(ucontext_t& context) const {
  context.uc_mcontext.pc += length_;
  if (!base_) return;
  auto& base = *base_ == kStackPointer ? context.uc_mcontext.sp : context.uc_mcontext.regs[*base_];
  base += static_cast<std::uint64_t>(base_change_);
}

bool FaultedOnWrite(const ucontext_t&) { return false; }

// What is no plain load or store has no access to a device's registers on this processor either.
bool StepOne(ucontext_t&, bool) { return false; }

}  // namespace board

#endif
