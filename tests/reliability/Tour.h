#pragma once

#include <string>

namespace reliability {

// Starts a product and calls nearly everything an application can call, while frames are acquired
// in both collect modes. `told` gets every line as soon as it is known, so that a hang shows its
// place.
void Tour(const std::string& model, void (*told)(const std::string& line));

}  // namespace reliability
