#pragma once

#include "check/Findings.h"

namespace tool {

// The steps that change nothing on the board: they come first.

void CheckNodes(const Model& model, Findings& findings);
// What can be read out of the FPGA; needs its registers.
void CheckFpga(const Model& model, Findings& findings);
void CheckEeprom(Findings& findings);
void CheckTemperature(const Model& model, Findings& findings);

// Of the files of the kernel, the id of the step.
std::string NodeId(const std::string& path);

}  // namespace tool
