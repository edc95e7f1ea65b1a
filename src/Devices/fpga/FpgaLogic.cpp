#include "Devices/fpga/FpgaLogic.h"

#include <cstdio>

#include "Devices/bus/Bytes.h"
#include "Devices/fpga/FpgaLogicUnit.h"
#include "Devices/fpga/FpgaRegister.h"
#include "Devices/sensor/CmosSensor.h"
#include "Neighbours.h"
#include "log/Log.h"
#include "tessaline/fpga.h"
#include "thread/Pause.h"

namespace VeltranoSDK {

FpgaLogic::FpgaLogic() {
  const auto regions = neighbour::FpgaRegions("FpgaLogic");
  if (!regions) return;
  const fpga::RegionBases bases{regions->GetImageBaseAddress(), regions->GetRebuildBaseAddress()};
  for (std::size_t i = 0; i < block_bases_.size(); ++i) {
    block_bases_[i] = fpga::BaseAddress(static_cast<fpga::Block>(i), bases);
  }
}

// --- Access ---------------------------------------------------------------------------------

// Base 0 is main memory, not a register block.

unsigned int FpgaLogic::Read(const fpga::Register& reg) const {
  const unsigned int base = Base(reg);
  return base == 0 ? kFailed : fpga_read_addr(base, reg.Index());
}

unsigned int FpgaLogic::Write(const fpga::Register& reg, unsigned int value) {
  const unsigned int base = Base(reg);
  return base == 0 ? kFailed : fpga_write_addr(base, reg.Index(), value);
}

std::uint64_t FpgaLogic::Read(const fpga::Register& low, const fpga::Register& high) const {
  const std::uint64_t low_word = Read(low);
  return std::uint64_t{Read(high)} << 32 | low_word;
}

bool FpgaLogic::WriteOrTell(const fpga::Register& reg, unsigned int value, const char* text) {
  if (Write(reg, value) != kFailed) return true;
  puts(text);
  return false;
}

unsigned int FpgaLogic::Update(const fpga::Register& reg, unsigned int mask, unsigned int bits) {
  Unit unit(*this, {{Unit::kRead, reg}, {Unit::kWrite, reg}});
  return unit.Write(reg, Replaced(unit.Read(reg), mask, bits));
}

unsigned int FpgaLogic::Update(const fpga::Field& field, unsigned int value) {
  return Update(field.reg, field.Mask(), field.In(0, value));
}

unsigned int FpgaLogic::Merge(const fpga::Field& field, unsigned int value, unsigned int lost) {
  return Update(field.reg, field.Mask() | lost, value << field.shift);
}

void FpgaLogic::Pulse(const fpga::Register& reg, unsigned int raised, unsigned int lowered) {
  Unit unit(*this, {{Unit::kRead, reg}, {Unit::kWrite, reg}, {Unit::kWrite, reg}});
  const unsigned int word = unit.Read(reg) | raised;
  unit.Write(reg, word);
  Pause(1);
  unit.Write(reg, word & ~lowered);
}

void FpgaLogic::PulseWord(const fpga::Register& reg) {
  Unit unit(*this, {{Unit::kWrite, reg}, {Unit::kWrite, reg}});
  unit.Write(reg, 1);
  Pause(1);
  unit.Write(reg, 0);
  Pause(1);
}

std::shared_ptr<CmosSensor> FpgaLogic::Sensor() const { return neighbour::Sensor("FpgaLogic"); }

// --- Sensor timing, laser, versions ---------------------------------------------------------

bool FpgaLogic::SetTRow(unsigned int row_time) {
  Trace(__func__);
  Merge(fpga::kField.t_row, row_time);
  return true;
}

bool FpgaLogic::SetTGes(unsigned int global_exposure_shift) {
  Trace(__func__);
  Merge(fpga::kField.t_ges, global_exposure_shift);
  return true;
}

bool FpgaLogic::SetCmosSensorWorkMode(CameraSensorMode mode) {
  Trace(__func__);
  // The read is part of the access sequence; its result does not matter.
  Read(fpga::kReg.CMOS_WORK_MODE);
  Write(fpga::kReg.CMOS_WORK_MODE, mode | fpga::kField.cmos_work.Mask());
  return true;
}

bool FpgaLogic::SetCmosTimingControl(STATE first, STATE second) {
  Trace(__func__);
  Write(fpga::kReg.CMOS_TIMING_CTRL, unsigned{first} << fpga::kField.timing_first.shift |
                                         unsigned{second} << fpga::kField.timing_second.shift);
  return true;
}

bool FpgaLogic::CameraReset() {
  Trace(__func__);
  constexpr unsigned int kSettle = 50'000;
  constexpr unsigned int kE2vPowerUp = 5'000'000;

  const auto sensor = Sensor();
  if (!sensor) return false;
  if (sensor->model() == kE2vFlash4k) Pause(kE2vPowerUp);

  // This sensor gets only the first edge.
  const bool one_edge = sensor->model() == kGSPRINT6502BSI;
  const Unit::Access write{Unit::kWrite, fpga::kReg.CMOS_WORK_MODE};
  const Unit::Access read{Unit::kRead, fpga::kReg.CMOS_WORK_MODE};
  Unit unit = one_edge ? Unit(*this, {read, write}) : Unit(*this, {read, write, write, write});
  const unsigned int released =
      unit.Read(fpga::kReg.CMOS_WORK_MODE) | fpga::kField.cmos_reset.Mask();
  unit.Write(fpga::kReg.CMOS_WORK_MODE, released);
  Pause(kSettle);
  if (one_edge) return true;
  unit.Write(fpga::kReg.CMOS_WORK_MODE, released & ~fpga::kField.cmos_reset.Mask());
  Pause(kSettle);
  unit.Write(fpga::kReg.CMOS_WORK_MODE, released);
  Pause(kSettle);
  return true;
}

unsigned int FpgaLogic::GetCmosMaxDrive() const {
  Trace(__func__);
  const auto sensor = Sensor();
  if (!sensor) return kFailed;
  const auto [width, height] = sensor->resolution();
  return width << 16 | height;
}

bool FpgaLogic::SetLaserMode(LaserMode mode) {
  Trace(__func__);
  // Clears everything but the two known bits on purpose.
  Merge(fpga::kField.laser_mode, mode & 1u,
        ~(fpga::kField.laser_mode.Mask() | fpga::kField.trigger_lost_reset.Mask()));
  return true;
}

unsigned int FpgaLogic::GetLaserMode() const {
  Trace(__func__);
  return Read(fpga::kField.laser_mode);
}

bool FpgaLogic::SetLaserOffsetTime(unsigned int microseconds) {
  Trace(__func__);
  Write(fpga::kReg.LASER_OFFSET_TIME, microseconds * fpga::kTicksPerMicrosecond);
  return true;
}

unsigned int FpgaLogic::GetFPGASeries() const {
  Trace(__func__);
  return Read(fpga::kField.fpga_series);
}

unsigned int FpgaLogic::GetFPGAVersion() const {
  Trace(__func__);
  return Read(fpga::kField.fpga_version);
}

}  // namespace VeltranoSDK
