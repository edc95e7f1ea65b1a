#if defined(__x86_64__)

#include <cstring>

#include "devices/LoadStore.h"

namespace board {
namespace {

constexpr std::array kRegisters{REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP,
                                REG_RSI, REG_RDI, REG_R8,  REG_R9,  REG_R10, REG_R11,
                                REG_R12, REG_R13, REG_R14, REG_R15};

constexpr std::uint8_t kOperandSizePrefix = 0x66;
constexpr unsigned kRexW = 8;
constexpr unsigned kRexR = 4;
constexpr greg_t kTrapFlag = 0x100;
constexpr greg_t kWriteFault = 2;  // of the page fault's error code

struct Opcode {
  unsigned code;  // with 0x0F00 for the two-byte ones
  bool stores;
  std::size_t bytes;  // 0: as the prefixes say
  bool sign_extends;
  bool whole_register;  // also sets what lies above the value
  bool constant;
};

constexpr std::array kOpcodes{
    Opcode{0x88, true, 1, false, false, false},    // mov m8, r8
    Opcode{0x89, true, 0, false, false, false},    // mov m, r
    Opcode{0x8A, false, 1, false, false, false},   // mov r8, m8
    Opcode{0x8B, false, 0, false, false, false},   // mov r, m
    Opcode{0xC6, true, 1, false, false, true},     // mov m8, imm8
    Opcode{0xC7, true, 0, false, false, true},     // mov m, imm
    Opcode{0x63, false, 4, true, true, false},     // movsxd r, m32
    Opcode{0x0FB6, false, 1, false, true, false},  // movzx r, m8
    Opcode{0x0FB7, false, 2, false, true, false},  // movzx r, m16
    Opcode{0x0FBE, false, 1, true, true, false},   // movsx r, m8
    Opcode{0x0FBF, false, 2, true, true, false},   // movsx r, m16
};

// The bytes of a memory operand, from its ModRM byte on.
std::size_t OperandLength(const std::uint8_t* operand) {
  const unsigned mode = *operand >> 6;
  const unsigned base = *operand & 7;
  const bool has_index = base == 4;
  const bool no_base = mode == 0 && (has_index ? (operand[1] & 7) == 5 : base == 5);
  const std::size_t displacement = mode == 1 ? 1 : mode == 2 || no_base ? 4 : 0;
  return 1 + (has_index ? 1 : 0) + displacement;
}

std::uint64_t Constant(const std::uint8_t* code, std::size_t bytes) {
  std::int64_t value = 0;
  std::memcpy(&value, code, bytes);
  if (bytes < 4) return static_cast<std::uint64_t>(value);
  return static_cast<std::uint64_t>(std::int64_t{static_cast<std::int32_t>(value)});
}

}  // namespace

std::optional<LoadStore> LoadStore::At(const ucontext_t& context) {
  const auto* const start =
      reinterpret_cast<const std::uint8_t*>(context.uc_mcontext.gregs[REG_RIP]);
  const std::uint8_t* code = start;
  const bool half = *code == kOperandSizePrefix;
  if (half) ++code;
  const unsigned rex = (*code & 0xF0) == 0x40 ? *code++ : 0;
  unsigned found = *code++;
  if (found == 0x0F) found = 0x0F00u | *code++;
  const std::size_t operand = (rex & kRexW) != 0 ? 8 : half ? 2 : 4;

  for (const Opcode& opcode : kOpcodes) {
    if (opcode.code != found || *code >> 6 == 3) continue;
    LoadStore access;
    const unsigned number = *code >> 3 & 7;
    if (opcode.constant && number != 0) return std::nullopt;
    access.stores_ = opcode.stores;
    access.sign_extends_ = opcode.sign_extends;
    access.bytes_ = opcode.bytes != 0 ? opcode.bytes : operand;
    access.register_bytes_ = opcode.whole_register ? operand : access.bytes_;
    access.high_byte_ =
        access.bytes_ == 1 && !opcode.whole_register && !opcode.constant && rex == 0 && number >= 4;
    access.registers_[0] = access.high_byte_ ? number - 4 : number | ((rex & kRexR) != 0 ? 8 : 0);
    code += OperandLength(code);
    if (opcode.constant) {
      const std::size_t bytes = std::min<std::size_t>(access.bytes_, 4);
      access.constant_ = Constant(code, bytes);
      code += bytes;
    }
    access.length_ = static_cast<std::size_t>(code - start);
    return access;
  }
  return std::nullopt;
}

void LoadStore::Get(const ucontext_t& context, std::span<std::byte> bytes) const {
  std::uint64_t value = constant_.value_or(0);
  if (!constant_) {
    value = static_cast<std::uint64_t>(context.uc_mcontext.gregs[kRegisters[registers_[0]]]);
  }
  if (high_byte_) value >>= 8;
  std::memcpy(bytes.data(), &value, bytes_);
}

void LoadStore::Put(ucontext_t& context, std::span<const std::byte> bytes) const {
  greg_t& whole = context.uc_mcontext.gregs[kRegisters[registers_[0]]];
  std::uint64_t value = 0;
  std::memcpy(&value, bytes.data(), bytes_);
  if (sign_extends_) {
    const unsigned unused = static_cast<unsigned>(64 - 8 * bytes_);
    value = static_cast<std::uint64_t>(static_cast<std::int64_t>(value << unused) >> unused);
  }
  if (register_bytes_ == 4) {
    // The processor clears the upper half.
    whole = static_cast<greg_t>(value & 0xFFFFFFFF);
    return;
  }
  std::memcpy(reinterpret_cast<std::byte*>(&whole) + (high_byte_ ? 1 : 0), &value, register_bytes_);
}

void LoadStore::Finish(ucontext_t& context) const {
  context.uc_mcontext.gregs[REG_RIP] += static_cast<greg_t>(length_);
}

bool FaultedOnWrite(const ucontext_t& context) {
  return (context.uc_mcontext.gregs[REG_ERR] & kWriteFault) != 0;
}

bool StepOne(ucontext_t& context, bool step) {
  greg_t& flags = context.uc_mcontext.gregs[REG_EFL];
  flags = step ? flags | kTrapFlag : flags & ~kTrapFlag;
  return true;
}

}  // namespace board

#endif
