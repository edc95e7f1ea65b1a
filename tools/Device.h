#pragma once

#include <string>
#include <vector>

#include "Session.h"
#include "tessaline/startup.h"

namespace tool {

// The sensor, as a sub-command sees it. A process starts it once at most.
class Device {
 public:
  explicit Device(const Session& session) : session_(session) {}
  // Switches off what this process has switched on and was not told to leave on.
  ~Device();
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  // A Failure unless this machine is a board whose registers may be accessed. Selects the
  // product; nothing on the board changes.
  void RequireRegisters() const;

  // Starts the device: FPGA and image sensor are set up anew. The handlers may be null.
  // A Failure when it cannot, or does not in time.
  void Start(tessaline_frame_handler on_image = nullptr,
             tessaline_frame_handler on_strips = nullptr);

  // The same without looking at anything before: for who wants to see what comes of it.
  void Launch(tessaline_frame_handler on_image, tessaline_frame_handler on_strips);

  // For who only looks, and starts the device for that if asked to: opens it, or, when it
  // would be started and this is a rehearsal, only tells so and returns false.
  bool Open(bool start);

  // The laser, until the end of the process or LaserOff().
  void LaserOn();
  void LaserOff();

  void StartAcquisition();
  void StopAcquisition();

  // What the library told while it started, for who wants to show it.
  const std::vector<std::string>& complaints() const { return complaints_; }

 private:
  void RequireNodes() const;

  const Session& session_;
  std::vector<std::string> complaints_;
  bool laser_on_ = false;
  bool acquiring_ = false;
};

}  // namespace tool
