#pragma once

#include "Device.h"
#include "check/Findings.h"

namespace tool {

// The checks on a started device.

// Starts the device. False if it does not start: nothing else can be checked then.
bool CheckStart(Device& device, Findings& findings);
void CheckSensor(const Model& model, Findings& findings);
void CheckLines(const Model& model, Findings& findings);
void CheckLaserBus(const Model& model, Findings& findings);

// Skips all of them, because the device has not started.
void SkipActiveChecks(const std::string& why, Findings& findings);

}  // namespace tool
