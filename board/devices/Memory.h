#pragma once

#include "Device.h"
#include "memory/BoardMemory.h"
#include "tessaline/register_map.h"

namespace board {

class FpgaModel;

// /dev/mem: the FPGA's register blocks at the addresses of the board's family, and the
// processor's RAM below 1 GiB, which may contain a reserved capture area. Other addresses
// cannot be mapped.
class Memory : public Device {
 public:
  Memory(BoardMemory& memory, std::shared_ptr<FpgaModel> fpga,
         VeltranoSDK::fpga::RegionBases bases);
  ~Memory() override;
  std::string Name() const override { return "fpga"; }
  bool Claims(const std::string& path) const override { return path == "/dev/mem"; }
  OpenResult Open(const std::string& path, int flags) override;

  std::intptr_t Map(void* hint, std::size_t length, int protection, int flags, off_t offset);
  ssize_t Read(void* buffer, std::size_t size, off_t offset) const;
  ssize_t Write(const void* buffer, std::size_t size, off_t offset) const;

 private:
  bool InRam(off_t offset, std::size_t length) const;

  std::shared_ptr<FpgaModel> fpga_;
  VeltranoSDK::fpga::RegionBases bases_;
  const BoardMemory::Pages ram_;
};

}  // namespace board
