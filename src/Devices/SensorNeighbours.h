#pragma once

#include <memory>

namespace VeltranoSDK {

class FpgaLogic;

// What a sensor driver keeps in step with its chip. An ERROR line names `who` when
// the neighbour does not exist.
std::shared_ptr<FpgaLogic> FpgaBeside(const char* who);
void FitImageFormat(const char* who, unsigned int width, unsigned int height);

}  // namespace VeltranoSDK
