#pragma once

namespace VeltranoSDK {

// Sleeps for at least so long, whatever signals come meanwhile. On the monotonic clock:
// setting the time of day changes nothing. The one way to wait for hardware: a power-up
// time that a signal cuts short is a sensor that answers wrongly.
//
// Asks the kernel for the whole pause at first, and after an interruption for what is left.
void Pause(unsigned int microseconds);

}  // namespace VeltranoSDK
