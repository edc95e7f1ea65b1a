#pragma once

namespace VeltranoSDK {

// For the thread that ends the process. Once /dev/mem could not be opened the register
// lock is taken for good and an access waits for ever; this thread's fail instead, also
// when somebody else keeps the lock beyond the last moment of waits. Callable in a signal
// handler.
void DoNotWaitForLostRegisters();

}  // namespace VeltranoSDK
