#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Device.h"
#include "chips/I2cChip.h"
#include "chips/ImageSensorChip.h"
#include "chips/LaserPowerChip.h"
#include "devices/Gpio.h"
#include "devices/IioTemperature.h"
#include "devices/Uio.h"
#include "devices/VideoNode.h"
#include "devices/Watchdog.h"
#include "files/FileTree.h"
#include "memory/BoardMemory.h"
#include "model/FpgaModel.h"
#include "model/FrameEngine.h"
#include "model/Replay.h"

namespace board {

// The board that is plugged in: its FPGA, chips and device nodes, wired together.
class Board {
 public:
  // Null when no board is plugged in. The first is faster and takes no lock.
  static bool PluggedIn();
  static std::shared_ptr<Board> Current();
  // Returns false for an unknown model. The current board is then unchanged.
  static bool PlugIn(const std::string& model,
                     std::unique_ptr<BoardMemory> memory = BoardMemory::Own());
  static void Unplug();

  ~Board();
  Board(const Board&) = delete;
  Board& operator=(const Board&) = delete;

  // The device behind a path, or null.
  Device* Find(const std::string& path) const;
  // All files that the board has now.
  FileTree Files() const;
  // The device with this name in the transcript, or null.
  Device* Named(const std::string& name) const;

  // The number of open files of a device. -1: the device does not exist or does not count them.
  int OpenFiles(const std::string& device) const;

  BoardMemory& memory() { return *memory_; }
  FpgaModel& fpga() { return *fpga_; }
  FrameEngine& engine() { return *engine_; }
  Gpio& gpio() { return *gpio_; }
  Watchdog& watchdog() { return *watchdog_; }
  IioTemperature& temperature() { return *temperature_; }
  Uio& uio(unsigned index) { return *uio_[index]; }
  ImageSensorChip* sensor() { return sensor_.get(); }
  // Names are "sensor", "pot", "da" and "eeprom". Returns null if the board has no such chip.
  ChipAccess* chip(const std::string& name);

  // A recording in the place of the scene. Call before software runs.
  void Play(std::unique_ptr<Replay> replay);

  void DriveExternalTrigger(bool level);
  void ReportDaArrived();

 private:
  Board(const VeltranoSDK::products::Product& product, std::unique_ptr<BoardMemory> memory);
  template <typename Kind, typename... Args>
  Kind* Add(Args&&... args);
  double LaserPower() const;
  void DoAsRecorded(const ring::Record& record);
  void SetRegisterAsRecorded(std::uint64_t address, std::uint32_t value);

  const std::unique_ptr<BoardMemory> memory_;  // outlives what has its place there
  const VeltranoSDK::products::Family& family_;
  std::shared_ptr<FpgaModel> fpga_;
  std::vector<std::unique_ptr<Device>> devices_;
  std::vector<std::pair<std::string, std::shared_ptr<ChipAccess>>> chips_;
  std::shared_ptr<ImageSensorChip> sensor_;
  std::shared_ptr<LaserPowerChip> laser_power_;
  Gpio* gpio_ = nullptr;
  Watchdog* watchdog_ = nullptr;
  IioTemperature* temperature_ = nullptr;
  Uio* uio_[2] = {};
  VideoNode* video_[2] = {};
  std::unique_ptr<FrameEngine> engine_;
};

}  // namespace board
