#pragma once

namespace VeltranoSDK {

// The two places where buffers are counted that no callback took: the strip
// thread (series 21 and 22) or the FPGA (the others).
unsigned int StripThreadLostCount();
bool ResetStripThreadLostCount();
unsigned int FpgaLostCount();
bool ResetFpgaLostCount();

}  // namespace VeltranoSDK
