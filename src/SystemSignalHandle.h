#pragma once

namespace VeltranoSDK {

// SIGINT handler: stops the FPGA, ends the capture threads, releases their devices and ends the
// process with status 0 within two seconds. It returns on a second thread that is interrupted at
// the same moment, and in a forked child, which then dies of SIGINT.
void SystemSignalHandle(int signal);

// Called at the end of start-up.
void InstallSystemSignalHandle();

}  // namespace VeltranoSDK
