#pragma once

#include <cstdint>

namespace board {

// The board's time in nanoseconds since power-up: real time, plus what skipped
// sleeps and free-running triggers have put on top.
std::int64_t NowNs();
void AdvanceNs(std::int64_t nanoseconds);
void RestartClock();

void SetSleepFactor(double factor);
double SleepFactor();

}  // namespace board
