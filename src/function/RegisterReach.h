#pragma once

namespace VeltranoSDK {

// Whether /dev/mem could not be opened once. The register lock is then taken for
// good, and an access would wait for ever. Callable in a signal handler.
bool RegistersOutOfReach();

}  // namespace VeltranoSDK
