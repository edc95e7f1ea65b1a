#pragma once

#include <string>

namespace reliability {

// Starts a product up, and calls about everything an application can call, as an
// application would: frames are acquired in both collect modes meanwhile.
// `told` gets every line as soon as it is known, so that a hang shows its place.
void Tour(const std::string& model, void (*told)(const std::string& line));

}  // namespace reliability
