#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "Devices/fpga/FpgaTypes.h"
#include "tessaline/register_map.h"
#include "thread/Relaxed.h"

namespace VeltranoSDK {

class CmosSensor;
enum ReadoutDriveMode : unsigned int;

// The FPGA's controls by name: each method converts a number in user units to a field of a
// register, or back. The map of registers and fields is in tessaline/register_map.h.
//
// Results: setters return true when done. Invalid arguments, and write failures where they are
// checked, are reported on standard output; no further register is touched. Getters return all ones
// (0xFF...) for an invalid argument. Methods that return the write's result say so: it is 0 for
// success and all ones for failure, not a truth value.
//
// Threads: any thread. A change of a register (read, replace, write; a pulse) is one unit: no
// access of another thread comes in between, and no change is lost.
class FpgaLogic {
 public:
  // Uses the register regions of the current series.
  FpgaLogic();
  FpgaLogic(const FpgaLogic&) = delete;
  FpgaLogic& operator=(const FpgaLogic&) = delete;

  // Row time and global exposure shift of the sensor's timing. Values wider than the field overflow
  // into its neighbour.
  virtual bool SetTRow(unsigned int row_time);
  virtual bool SetTGes(unsigned int global_exposure_shift);

  virtual ~FpgaLogic() = default;

  // --- Trigger, encoder, synchronisation ---------------------------------------------------
  bool SetTriMode(TriggerMode mode);
  unsigned int GetTriMode() const;
  // Triggers one frame by software.
  bool ControlSoftwareTrigger();
  // Encoder pulses in trigger mode 1; microseconds, at least 2, in every other.
  bool SetTriSpacing(unsigned int spacing);
  // The raw register: ticks, or pulses.
  unsigned int GetTriSpacing() const;
  // Door control exists in trigger modes 0 and 1 only.
  bool SetDoorControlEn(STATE state);
  unsigned int GetDoorControlEn() const;
  bool SetDelayEn(STATE state);
  unsigned int GetDelayEn() const;
  bool SetTriDelayStandard(TriggerMode standard);
  unsigned int GetTriDelayStandard() const;
  // In the unit of the trigger delay standard.
  bool SetTriDelay(unsigned int delay);
  unsigned int GetTriDelay() const;
  bool SetGlobalControl(STATE state);
  unsigned int GetGlobalControl() const;
  bool SetReverseMode(ReverseMode mode);
  unsigned int GetReverseMode() const;
  // The reverse distance exists in reverse mode 2 only; 10 bits.
  bool SetReverseDistance(unsigned int distance);
  std::pair<bool, unsigned int> GetReverseDistance() const;
  unsigned int GetEncoderFreq() const;
  std::uint64_t GetEncoderCounter() const;
  std::uint64_t GetTimerCounter() const;
  std::uint64_t GetXtrigStart() const;
  unsigned int GetXtrigLostSta() const;
  bool TriggerLostReset();
  unsigned int GetExternalTriggerLevel() const;
  bool ExternalTriggerIrqCtrl(STATE state);
  // The shortest pulse that the external input accepts, in microseconds.
  bool SetExtinWidth(unsigned int microseconds);
  // In ticks.
  unsigned int GetExtinWidth() const;
  bool SetMasterState(STATE state);
  unsigned int GetMasterState() const;
  bool SetMasterConctrolID(unsigned int id);
  unsigned int GetMasterConctrolID() const;
  // Stops triggering and leaves master mode.
  bool IntSignalOper();

  // --- Digital outputs, polarities, DA output ----------------------------------------------
  bool SetOutWidth(DigitalOutputChannel channel, unsigned int width);
  unsigned int GetOutWidth(DigitalOutputChannel channel) const;
  bool SetOutEvent(DigitalOutputChannel channel, DigitalOutputEvent event);
  // 0 for either output, whatever was set.
  unsigned int GetOutEvent(DigitalOutputChannel channel) const;
  bool SetOutMode(DigitalOutputChannel channel, DigitalOutputMode mode);
  // 0 for either output, whatever was set.
  unsigned int GetOutMode(DigitalOutputChannel channel) const;
  bool SetOutDelayEn(DigitalOutputChannel channel, STATE state);
  unsigned int GetOutDelayEn(DigitalOutputChannel channel) const;
  bool DigitalOutputSWTrigger(DigitalOutputChannel channel);
  bool WRFifo(DigitalOutputChannel channel);
  bool SetDigitalOutputEnState(DigitalOutputChannel channel, STATE state);
  unsigned int GetDigitalOutputEnState(DigitalOutputChannel channel) const;
  // The DA output has a standard too.
  bool SetExtTriDelayStandard(DigitalOutputChannel channel, TriggerMode standard);
  unsigned int GetExtTriDelayStandard(DigitalOutputChannel channel) const;
  // In the unit of the channel's delay standard.
  bool SetOutDelay(DigitalOutputChannel channel, std::uint64_t delay);
  std::uint64_t GetOutDelay(DigitalOutputChannel channel) const;
  unsigned int GetOutLostSta(DigitalOutputChannel channel) const;
  bool SetOutPolarity(DigitalOutputChannel channel, unsigned int polarity);
  bool SetCamTriPolarity(unsigned int polarity);
  bool SetCamResPolarity(unsigned int polarity);
  bool SetLasTriPolarity(unsigned int polarity);
  // Takes effect, but returns false.
  bool SetExtTriPolarity(unsigned int polarity);
  unsigned int GetPolarity() const;
  bool DaIrqCtrl(STATE state);
  // In the unit of the DA output's delay standard.
  bool SetDAOutputDelay(unsigned int delay);
  unsigned int GetDAOutputDelay() const;
  unsigned int GetCommVerifyErrorSta() const;

  // --- Image sensor, laser, exposure -------------------------------------------------------
  bool SetCmosSensorWorkMode(CameraSensorMode mode);
  bool SetCmosTimingControl(STATE first, STATE second);
  // Blocks for up to 5.15 s.
  bool CameraReset();
  // Full resolution of the sensor, width in the upper half.
  unsigned int GetCmosMaxDrive() const;
  bool SetLaserMode(LaserMode mode);
  unsigned int GetLaserMode() const;
  bool SetLaserOffsetTime(unsigned int microseconds);
  // Remembers the time and programs it in the sensor's exposure units.
  bool SetExpTime(ExposureIndex index, unsigned int time, float unit);
  // The time that was set; 0 when none was.
  unsigned int GetExpTime(ExposureIndex index) const;
  // Uses the sensor's camera delay. Takes effect, but returns false.
  bool SetExpDelay();
  unsigned int GetExpDelay() const;
  // 1 to 5 exposures per cycle.
  bool SetExposureNum(unsigned int count);
  bool SetExposureNumDelta(unsigned int delta);
  // Like SetExposureNum, and sets the delta to 1 while laser lines are collected.
  bool SetExpNum(unsigned int count);
  unsigned int GetExpNum() const;
  // The write's result.
  unsigned int SetHDREnable(unsigned int enable);
  unsigned int GetHDREnable() const;
  // Splits exposure slot 0 into three segments: the first two are given as fractions of it, the
  // third is the rest. The third argument has no effect. The write's result.
  unsigned int SetHDRParam(double first, double second, double third);

  // --- Data path ---------------------------------------------------------------------------
  // Routes images, as after power-up: collect mode 1.
  bool EnableCollectModeSignal();
  bool SetCollectMode(CollectMode mode);
  static bool IsCollectMode(CollectMode mode);
  // Sets only the mode register, not the routing.
  bool SetCollectMode2(CollectMode mode);
  // The last mode that was routed.
  CollectMode collect_mode() const { return collect_mode_; }
  bool SetStripDataMode(StripSelectMode mode);
  unsigned int GetStripDataMode() const;
  bool ResetFrameID();
  unsigned int GetCallbackLostNum() const;
  // Takes effect, but returns false.
  bool ResetCallbackLostNum();
  // The flag is always false; the value is 0 when the read failed.
  std::pair<bool, unsigned int> GetStripDelay() const;
  unsigned int GetFPGASeries() const;
  unsigned int GetFPGAVersion() const;

  // --- Image geometry ----------------------------------------------------------------------
  // Width in pixels of the sensor; the FPGA counts the GMAX2509's in its own units.
  bool SetImageSize(unsigned int width, unsigned int height);
  unsigned int GetImageWidth() const;
  unsigned int GetImageHeight() const;
  bool SetImageReadoutParam(unsigned int width, unsigned int height, ReadoutDriveMode mode);
  // Half readout (0x11) also clears the ROI offset.
  bool SetPLDriveMode(ReadoutDriveMode mode);
  bool SetRoiOffset(unsigned int x, unsigned int y);
  bool SetMeasuringRange(unsigned int start, unsigned int end);

  // --- Laser-line extraction and reconstruction --------------------------------------------
  // At most 255.
  bool SetRisThresholdValue(unsigned int threshold);
  unsigned int GetRisThresholdValue() const;
  // 1 to 128.
  bool SetStripWidthMin(unsigned int width);
  unsigned int GetStripWidthMin() const;
  bool SetStripWidthMax(unsigned int width);
  unsigned int GetStripWidthMax() const;
  bool SetBaseThreshold(int threshold);
  // 21 signed coefficients, each truncated to the width of its register; the caller's array
  // receives the values written.
  bool SetStripRebuildValue(int* values);
  bool SetSampleLightLineParam(int start_x, int step_x, int count_x, int fourth, int fifth);
  bool SetStripWriteMemMode(SampleStrategy strategy);
  bool SetStripSelectorImgWidth(std::uint16_t width);
  bool SetImageFilterSize(std::uint16_t width, std::uint16_t height);
  bool SetImageFilterThrs(std::uint16_t threshold);
  // What a strip's points carry in addition to their position. The write's result.
  unsigned int SetBrFlag(unsigned int flag);
  unsigned int SetContinuousFlag(unsigned int flag);

  // --- Image processing: each returns the write's result -----------------------------------
  unsigned int SetISPHeight(unsigned int height);
  unsigned int SetBinEnable(unsigned int enable);
  unsigned int SetHotpixelEnable(unsigned int enable);
  unsigned int SetImgFlippingEnable(unsigned int enable);
  unsigned int SetObOffset(unsigned int offset);
  unsigned int SetBriThresMax(unsigned int threshold);
  unsigned int SetBriThresMin(unsigned int threshold);
  unsigned int SetEnhanceEnable(unsigned int enable);
  unsigned int SetEnhanceThresMax(unsigned int threshold);
  unsigned int SetEnhanceThresMin(unsigned int threshold);
  unsigned int SetEnhanceThresNum(unsigned int count);
  unsigned int SetEnhanceGain(unsigned int gain);
  unsigned int SetMedianFilterEnable(unsigned int enable);
  unsigned int SetErosionFilterEnable(unsigned int enable);
  unsigned int SetErosionThresMax(unsigned int threshold);
  unsigned int SetErosionThresMin(unsigned int threshold);
  unsigned int SetErosionThresNum(unsigned int count);
  unsigned int SetErosionFilterStrategy(unsigned int strategy);
  unsigned int SetFpgaContinuous(unsigned int continuous);

 protected:
  // The result of a read or write when the FPGA cannot be reached.
  static constexpr unsigned int kFailed = 0xFFFFFFFFu;

  unsigned int Read(const fpga::Register& reg) const;
  unsigned int Read(const fpga::Field& field) const { return field.Of(Read(field.reg)); }
  std::uint64_t Read(const fpga::Register& low, const fpga::Register& high) const;
  unsigned int Base(const fpga::Register& reg) const {
    return block_bases_[static_cast<std::size_t>(reg.block)];
  }

  unsigned int Write(const fpga::Register& reg, unsigned int value);
  // Prints the text on standard output when the write fails.
  bool WriteOrTell(const fpga::Register& reg, unsigned int value, const char* text);

  // Reads a register, replaces the bits of `mask` and writes it back; no access of another thread
  // comes in between. The write's result.
  unsigned int Update(const fpga::Register& reg, unsigned int mask, unsigned int bits);
  // The plain rule: read, replace the field, write. The write's result.
  unsigned int Update(const fpga::Field& field, unsigned int value);
  // Like Update, for controls with their own rules: the value is not masked, and the bits in `lost`
  // are cleared too. The write's result.
  unsigned int Merge(const fpga::Field& field, unsigned int value, unsigned int lost = 0);

 private:
  // Bits of ISP_CTRL that every update clears.
  static constexpr unsigned int kLostByIspControl = ~0xFFu;

  using OutputField = fpga::Field fpga::DigitalOutputFields::*;
  bool UpdateOutput(DigitalOutputChannel channel, OutputField field, unsigned int value,
                    const char* refusal);
  std::optional<unsigned int> ReadOutput(DigitalOutputChannel channel, OutputField field,
                                         const char* refusal) const;

  class Unit;

  // Sets bits briefly.
  void Pulse(const fpga::Register& reg, unsigned int raised, unsigned int lowered);
  void Pulse(const fpga::Field& field) { Pulse(field.reg, field.Mask(), field.Mask()); }
  void PulseWord(const fpga::Register& reg);

  unsigned int StoredExposureTime(ExposureIndex index) const;

  bool SwitchOffPorts(fpga::Block stream_switch, std::size_t first);
  bool CommitSwitch(fpga::Block stream_switch);
  // False when the register cannot be read or written.
  bool SetExposureDelta(unsigned int delta);
  unsigned int WriteBrContMode(Relaxed<bool>& flag, bool value);
  void StrobeImageFilter();

  // The device manager's sensor; null and an ERROR line when there is none.
  std::shared_ptr<CmosSensor> Sensor() const;

  Relaxed<CollectMode> collect_mode_{kCollectImage};
  std::array<Relaxed<unsigned int>, kMaxExposures> exposure_times_;  // by ExposureIndex
  std::array<unsigned int, fpga::kBlockCount> block_bases_{};
  Relaxed<bool> brightness_flag_{false};
  Relaxed<bool> continuous_flag_{false};
};

}  // namespace VeltranoSDK
