#pragma once

#include "Device.h"
#include "check/Findings.h"

namespace tool {

// The steps on a started device.

// Starts it. False when it does not: nothing else can be tried then.
bool CheckStart(Device& device, Findings& findings);
void CheckSensor(const Model& model, Findings& findings);
void CheckLines(const Model& model, Findings& findings);
void CheckLaserBus(const Model& model, Findings& findings);

// All of them, for when there is no started device.
void SkipActiveChecks(const std::string& why, Findings& findings);

}  // namespace tool
