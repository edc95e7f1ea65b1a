#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>

#include "tessaline/register_map.h"

namespace board {

class BoardMemory;
class Replay;

inline constexpr std::size_t kRegistersPerBlock = 64;

// The destination of a frame, set by the committed stream switches.
enum class Route { kNone, kImages, kStrips };

// Signals to the rest of the board when software writes a register.
struct FpgaSignals {
  std::function<void()> software_trigger = [] {};
  std::function<void()> acquisition_stop = [] {};
  std::function<void()> frame_id_reset = [] {};
  std::function<void()> sensor_reset = [] {};
  std::function<void()> settings_changed = [] {};  // after every write
};

// The FPGA's registers: what software reads, and what its writes trigger. All methods may be called
// from any thread. Value may also be called from a signal handler.
class FpgaModel {
 public:
  FpgaModel(BoardMemory& memory, std::uint32_t version);

  // Set before the first write.
  FpgaSignals signals;
  // If there is one, it says what the counter shows. Set before software runs.
  const Replay* replay = nullptr;

  // The value that software reads now.
  std::uint32_t Value(VeltranoSDK::fpga::Block block, std::uint32_t offset) const;
  // A write by software, with all its effects.
  void Write(VeltranoSDK::fpga::Block block, std::uint32_t offset, std::uint32_t value);

  // The stored word, from the FPGA's own side.
  std::uint32_t Get(const VeltranoSDK::fpga::Register& reg) const { return Cell(reg).load(); }
  std::uint32_t Get(const VeltranoSDK::fpga::Field& field) const {
    return field.Of(Get(field.reg));
  }
  void Set(const VeltranoSDK::fpga::Register& reg, std::uint32_t value) { Cell(reg) = value; }
  // The same for what only the FPGA writes; other registers stay as they are.
  void SetStatus(const VeltranoSDK::fpga::Register& reg, std::uint32_t value);
  void Add(const VeltranoSDK::fpga::Register& reg, std::uint32_t amount) { Cell(reg) += amount; }

  Route CommittedRoute() const;

 private:
  std::uint64_t TimerTicks() const;
  using Word = std::atomic<std::uint32_t>;
  const Word& Cell(const VeltranoSDK::fpga::Register& reg) const;
  Word& Cell(const VeltranoSDK::fpga::Register& reg);
  void CommitSwitch(VeltranoSDK::fpga::Block block);

  struct State {
    std::array<std::array<Word, kRegistersPerBlock>, VeltranoSDK::fpga::kBlockCount> words{};
    // The first two ports of each switch, as last committed. Only these are connected.
    std::array<std::array<Word, 2>, 2> committed{};
  };
  State& state_;
};

}  // namespace board
