#pragma once

namespace VeltranoSDK {

// The two counters of buffers that no callback took: the strip thread's (series 21 and 22) and the
// FPGA's (the others).
unsigned int StripThreadLostCount();
bool ResetStripThreadLostCount();
unsigned int FpgaLostCount();
bool ResetFpgaLostCount();

}  // namespace VeltranoSDK
