#pragma once

#include "check/Findings.h"

namespace tool {

// The checks that change nothing on the board. They come first.

void CheckNodes(const Model& model, Findings& findings);
// Checks what can be read from the FPGA; needs its registers.
void CheckFpga(const Model& model, Findings& findings);
void CheckEeprom(Findings& findings);
void CheckTemperature(const Model& model, Findings& findings);

// The id of the check of a kernel file.
std::string NodeId(const std::string& path);

}  // namespace tool
