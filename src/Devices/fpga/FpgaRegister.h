#pragma once

#include "tessaline/register_map.h"

namespace VeltranoSDK {

// Where the programmable logic of a board family has its two register regions in physical memory.
// The blocks inside a region are the same for all.
class FpgaRegister {
 public:
  virtual ~FpgaRegister() = default;
  virtual unsigned int GetImageBaseAddress() const = 0;
  virtual unsigned int GetRebuildBaseAddress() const = 0;
};

class FpgaRegisterZynq : public FpgaRegister {
 public:
  unsigned int GetImageBaseAddress() const override { return fpga::kZynqRegions.image; }
  unsigned int GetRebuildBaseAddress() const override { return fpga::kZynqRegions.rebuild; }
};

class FpgaRegisterZynqMp : public FpgaRegister {
 public:
  unsigned int GetImageBaseAddress() const override { return fpga::kZynqMpRegions.image; }
  unsigned int GetRebuildBaseAddress() const override { return fpga::kZynqMpRegions.rebuild; }
};

}  // namespace VeltranoSDK
