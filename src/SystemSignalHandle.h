#pragma once

namespace VeltranoSDK {

// SIGINT handler: stops the FPGA, ends the capture threads, releases their devices and
// leaves the process with status 0, in two seconds at the most. Returns on a second thread
// that is interrupted at the same moment, and in a forked child, which then ends by SIGINT.
void SystemSignalHandle(int signal);

// When start-up is through.
void InstallSystemSignalHandle();

}  // namespace VeltranoSDK
