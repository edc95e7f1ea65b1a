#pragma once

#include <initializer_list>

#include "Devices/fpga/FpgaLogic.h"
#include "function/RegisterLock.h"

namespace VeltranoSDK {

// Several register accesses with no other thread's in between.
class FpgaLogic::Unit {
 public:
  enum Kind { kRead, kWrite };
  struct Access {
    Kind kind;
    const fpga::Register& reg;
  };

  // Takes all accesses in advance: they are traced before the registers are locked, because nothing
  // may be logged meanwhile.
  Unit(const FpgaLogic& fpga, std::initializer_list<Access> accesses)
      : fpga_(fpga), lock_(Traced(fpga, accesses)) {}

  unsigned int Read(const fpga::Register& reg) {
    const unsigned int base = fpga_.Base(reg);
    return base == 0 ? kFailed : lock_.Read(base, reg.Index());
  }

  unsigned int Write(const fpga::Register& reg, unsigned int value) {
    const unsigned int base = fpga_.Base(reg);
    return base == 0 ? kFailed : lock_.Write(base, reg.Index(), value);
  }

 private:
  static RegisterLock Traced(const FpgaLogic& fpga, std::initializer_list<Access> accesses) {
    for (const Access& access : accesses) {
      const unsigned int base = fpga.Base(access.reg);
      if (base == 0) continue;
      (access.kind == kRead ? TraceRead : TraceWrite)(base, access.reg.Index());
    }
    return RegisterLock();
  }

  const FpgaLogic& fpga_;
  RegisterLock lock_;
};

}  // namespace VeltranoSDK
