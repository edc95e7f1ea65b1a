#pragma once

namespace VeltranoSDK {

// SIGINT handler, installed when start-up is through: stops the FPGA, ends the
// capture threads, releases their devices and leaves the process with status 0.
[[noreturn]] void SystemSignalHandle(int signal);

}  // namespace VeltranoSDK
