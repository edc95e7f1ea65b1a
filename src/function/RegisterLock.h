#pragma once

#include <optional>

#include "thread/SignalMask.h"

namespace VeltranoSDK {

// Gives one thread at a time the FPGA's registers (it holds fpga_contol). A change of several
// accesses (read, replace, write; a pulse) holds one lock throughout, so no other thread's change
// of the same register is lost.
//
// Signals are blocked while the lock is held, because their handlers write registers too. So
// nothing may be logged or printed meanwhile, which could block for ever; see TraceRead and
// TraceWrite.
class RegisterLock {
 public:
  RegisterLock();
  ~RegisterLock();
  RegisterLock(const RegisterLock&) = delete;
  RegisterLock& operator=(const RegisterLock&) = delete;

  // Returns the same as fpga_read_addr and fpga_write_addr.
  unsigned int Read(unsigned int block_base, unsigned int index);
  unsigned int Write(unsigned int block_base, unsigned int index, unsigned int value);

 private:
  template <typename Access>
  unsigned int Reach(unsigned int block_base, unsigned int index, Access access);
  bool Acquire();

  std::optional<SignalsBlocked> no_handler_here_;  // before held_, whose initialiser uses it
  bool held_;
};

// Log the trace line of an access. Called before the registers are locked.
void TraceRead(unsigned int block_base, unsigned int index);
void TraceWrite(unsigned int block_base, unsigned int index);

// For the thread that ends the process, in its SIGINT handler: from now on a write of any other
// thread fails and does not reach the FPGA. Accesses of this thread never block for ever: they fail
// if /dev/mem was out of reach, and go ahead without a lock that another thread does not release.
void CloseRegistersToOthers();

}  // namespace VeltranoSDK
