#pragma once

namespace VeltranoSDK {

// Sleeps for at least this time, whatever signals arrive. It uses the monotonic clock, so setting
// the time of day has no effect. Use it for every hardware wait: a sensor whose power-up time is
// cut short answers wrongly.
//
// Requests the whole pause from the kernel first, and after an interruption what is left.
void Pause(unsigned int microseconds);

}  // namespace VeltranoSDK
