#pragma once

namespace VeltranoSDK {

// Exposure-count delta of the fast sensors (series 24 and 25), instead of the 6000 of the common
// start-up.
inline constexpr unsigned int kWideExposureDelta = 10'000'000;

}  // namespace VeltranoSDK
