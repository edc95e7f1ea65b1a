#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "Registers.h"
#include "Session.h"
#include "Step.h"
#include "tessaline/startup.h"

namespace tool {

// The registers of this machine's board, or of the sensor that a daemon has. Opens nothing yet.
Registers RegistersOf(const Session& session);

// The sensor, as a sub-command sees it. A process starts it at most once.
class Device {
 public:
  struct StartCall {
    std::string_view name;
    std::string_view effect;
  };
  // What Start() calls.
  static constexpr std::array<StartCall, 2> kStart{
      {{"RegisterHardwareInit()", "FPGA and image sensor set up from scratch"},
       {"SetGlobalControl(0)", "no acquisition"}}};

  explicit Device(const Session& session) : session_(session) {}
  // Switches off whatever this process switched on and was not told to leave on.
  ~Device();
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  // Selects the product; nothing on the board changes. Throws a Failure unless this machine is
  // a board whose registers may be accessed.
  void RequireRegisters() const;
  // The same, unless a daemon has the sensor: then its registers.
  Registers OpenRegisters() const;

  // Starts the device: sets up FPGA and image sensor from scratch. The handlers may be null.
  // Throws a Failure if that fails or takes too long.
  void Start(tessaline_frame_handler on_image = nullptr,
             tessaline_frame_handler on_strips = nullptr);

  // The same without checking anything first, for callers who want to see the result.
  void Launch(tessaline_frame_handler on_image, tessaline_frame_handler on_strips);

  // For commands that only look, and start the device first if asked to: opens it. In a dry run
  // that would start it, only says so and returns false.
  bool Open(bool start);

  // Switches the laser on until LaserOff() or the end of the process.
  void LaserOn();
  void LaserOff();

  void StartAcquisition();
  void StopAcquisition();

  // The same as steps: takes frames, with the laser or without, until End().
  std::vector<Step> Begin(bool laser);
  std::vector<Step> End(bool laser);

  // What the library printed while it started.
  const std::vector<std::string>& complaints() const { return complaints_; }

 private:
  void RequireNodes() const;
  // No other program takes frames.
  void RequireUnused() const;
  Step Call(std::string name, void (Device::*method)());

  const Session& session_;
  std::vector<std::string> complaints_;
  bool laser_on_ = false;
  bool acquiring_ = false;
  bool live_ = false;  // the frames are those of a daemon
};

}  // namespace tool
