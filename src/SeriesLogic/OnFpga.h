#pragma once

#include <functional>

namespace VeltranoSDK {

class FpgaLogic;

// Does something to the board's FPGA, kept alive meanwhile. Without one, that is
// before start-up, an ERROR line names `who` and nothing is done.
bool OnFpga(const char* who, const std::function<void(FpgaLogic&)>& use);

}  // namespace VeltranoSDK
