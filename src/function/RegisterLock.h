#pragma once

#include <optional>

#include "thread/SignalMask.h"

namespace VeltranoSDK {

// The FPGA's registers, for one thread at a time (it holds fpga_contol). A change that takes
// several accesses (read, replace, write; a pulse) holds one lock all the way, and no other
// thread's change of the same register is lost.
//
// Signals wait for as long as the lock is held: their handlers write registers too. So nothing
// is logged or printed meanwhile, which may block for ever; see TraceRead and TraceWrite.
class RegisterLock {
 public:
  RegisterLock();
  ~RegisterLock();
  RegisterLock(const RegisterLock&) = delete;
  RegisterLock& operator=(const RegisterLock&) = delete;

  // What fpga_read_addr and fpga_write_addr return.
  unsigned int Read(unsigned int block_base, unsigned int index);
  unsigned int Write(unsigned int block_base, unsigned int index, unsigned int value);

 private:
  template <typename Access>
  unsigned int Reach(unsigned int block_base, unsigned int index, Access access);
  bool Acquire();

  std::optional<SignalsBlocked> no_handler_here_;  // before held_, which Acquire makes
  bool held_;
};

// The lines of an access, to be logged before the registers are locked.
void TraceRead(unsigned int block_base, unsigned int index);
void TraceWrite(unsigned int block_base, unsigned int index);

// For the thread that ends the process, in its SIGINT handler: from now on no other thread's
// write reaches the FPGA; it fails instead. This thread's accesses wait for nobody for ever:
// they fail when /dev/mem was out of reach, and do without a lock that somebody keeps.
void CloseRegistersToOthers();

}  // namespace VeltranoSDK
