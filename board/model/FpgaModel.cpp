#include "model/FpgaModel.h"

#include "Clock.h"
#include "memory/BoardMemory.h"
#include "model/Replay.h"
#include "model/Scene.h"

namespace board {
namespace {

namespace fpga = VeltranoSDK::fpga;
using fpga::Block;
using fpga::Register;

struct ResetValue {
  Register reg;
  std::uint32_t value;
};

// Power-up values. They are our choice; all other registers start at 0. With an exposure of 100
// sensor lines and a threshold of 30, the scene's line is clearly visible without any settings.
constexpr std::array kPowerUp{
    ResetValue{fpga::kReg.EXP_TIME_1, 100},
    ResetValue{fpga::kReg.EXP_TIME_2, 100},
    ResetValue{fpga::kReg.EXP_TIME_3, 100},
    ResetValue{fpga::kReg.EXP_TIME_4, 100},
    ResetValue{fpga::kReg.EXP_TIME_5, 100},
    ResetValue{fpga::kReg.EXPOSURE_NUM, 1},
    ResetValue{fpga::kReg.RIS_THRESHOLD, 30},
    ResetValue{fpga::kReg.STRIP_WIDTH_MIN, 1},
    ResetValue{fpga::kReg.STRIP_WIDTH_MAX, 128},
    ResetValue{fpga::kReg.ENCODER_FREQ, static_cast<std::uint32_t>(scene::kCountsPerSecond)},
};

// Only the FPGA writes these; writes by software are lost.
constexpr std::array kReadOnly{
    fpga::kReg.FPGA_VERSION,      fpga::kReg.XTRIG_LOST_STA,        fpga::kReg.TIMER_COUNTER_L,
    fpga::kReg.TIMER_COUNTER_H,   fpga::kReg.XTRIG_START_L,         fpga::kReg.XTRIG_START_H,
    fpga::kReg.ENCODER_COUNTER_L, fpga::kReg.ENCODER_COUNTER_H,     fpga::kReg.ENCODER_FREQ,
    fpga::kReg.STRIP_DELAY,       fpga::kReg.DO1_LOST_STA,          fpga::kReg.DO2_LOST_STA,
    fpga::kReg.EXT_TRIGGER_LEVEL, fpga::kReg.COMM_VERIFY_ERROR_STA, fpga::kReg.CALLBACK_LOST_NUM,
};

bool IsReadOnly(const Register& reg) {
  for (const Register& known : kReadOnly) {
    if (known == reg) return true;
  }
  return false;
}

bool Rises(const fpga::Field& bit, std::uint32_t before, std::uint32_t after) {
  return bit.Of(before) == 0 && bit.Of(after) != 0;
}

constexpr std::size_t SwitchIndex(Block block) { return block == Block::kImage2 ? 0 : 1; }

}  // namespace

FpgaModel::FpgaModel(BoardMemory& memory, std::uint32_t version) : state_(memory.Place<State>()) {
  if (!memory.IsFirst()) return;
  for (const ResetValue& reset : kPowerUp) Set(reset.reg, reset.value);
  Set(fpga::kReg.FPGA_VERSION, version);
  for (auto& ports : state_.committed) {
    for (Word& port : ports) port = fpga::kStreamSwitchPortOff;
  }
}

const FpgaModel::Word& FpgaModel::Cell(const Register& reg) const {
  // These are two names for one block.
  const Block block = reg.block == Block::kRebuild6B ? Block::kRebuild6 : reg.block;
  return state_.words[static_cast<std::size_t>(block)][reg.Index() % kRegistersPerBlock];
}

FpgaModel::Word& FpgaModel::Cell(const Register& reg) {
  return const_cast<Word&>(static_cast<const FpgaModel*>(this)->Cell(reg));
}

std::uint64_t FpgaModel::TimerTicks() const {
  const auto ticks = static_cast<std::uint64_t>(NowNs()) / fpga::kNanosecondsPerTick;
  return replay == nullptr ? ticks : replay->Ticks(ticks);
}

std::uint32_t FpgaModel::Value(Block block, std::uint32_t offset) const {
  const Register reg{block, offset, {}};
  if (reg == fpga::kReg.TIMER_COUNTER_L) return static_cast<std::uint32_t>(TimerTicks());
  if (reg == fpga::kReg.TIMER_COUNTER_H) return static_cast<std::uint32_t>(TimerTicks() >> 32);
  if (reg == fpga::kReg.ENCODER_COUNTER_L) {
    return static_cast<std::uint32_t>(scene::EncoderCount(NowNs()));
  }
  if (reg == fpga::kReg.ENCODER_COUNTER_H) {
    return static_cast<std::uint32_t>(scene::EncoderCount(NowNs()) >> 32);
  }
  return Get(reg);
}

void FpgaModel::SetStatus(const Register& reg, std::uint32_t value) {
  if (IsReadOnly(reg)) Set(reg, value);
}

void FpgaModel::Write(Block block, std::uint32_t offset, std::uint32_t value) {
  const Register reg{block, offset, {}};
  if (IsReadOnly(reg)) return;
  const std::uint32_t before = Cell(reg).exchange(value);

  const bool is_switch = block == Block::kImage2 || block == Block::kImage4;
  if (reg == fpga::kReg.TRIGGER_CTRL && Rises(fpga::kField.software_trigger, before, value)) {
    signals.software_trigger();
  } else if (reg == fpga::kReg.TRIGGER_CTRL && Rises(fpga::kField.global_control, value, before)) {
    signals.acquisition_stop();
  } else if (reg == fpga::kReg.CMOS_WORK_MODE && Rises(fpga::kField.cmos_reset, value, before)) {
    signals.sensor_reset();  // active low
  } else if (reg == fpga::kReg.FRAME_ID_RESET && value != 0) {
    signals.frame_id_reset();
  } else if (reg == fpga::kReg.CALLBACK_LOST_RESET && value != 0) {
    Set(fpga::kReg.CALLBACK_LOST_NUM, 0);
  } else if (reg == fpga::kReg.LASER_CTRL &&
             Rises(fpga::kField.trigger_lost_reset, before, value)) {
    Set(fpga::kReg.XTRIG_LOST_STA, 0);
  } else if (is_switch && offset == 0 && (value & fpga::kStreamSwitchCommit) != 0) {
    CommitSwitch(block);
  }
  signals.settings_changed();
}

void FpgaModel::CommitSwitch(Block block) {
  auto& ports = state_.committed[SwitchIndex(block)];
  for (std::size_t i = 0; i < ports.size(); ++i) ports[i] = Get(fpga::StreamSwitchPort(block, i));
}

// The first switch sends the sensor's data to the extraction (port 0) or past it (port 1). The
// second switch sends one of the two to memory. A frame arrives only if both switches agree.
Route FpgaModel::CommittedRoute() const {
  const auto& source = state_.committed[SwitchIndex(Block::kImage2)];
  const auto& sink = state_.committed[SwitchIndex(Block::kImage4)];
  if (source[1] == 0 && sink[0] == 1) return Route::kImages;
  if (source[0] == 0 && sink[0] == 0) return Route::kStrips;
  return Route::kNone;
}

}  // namespace board
