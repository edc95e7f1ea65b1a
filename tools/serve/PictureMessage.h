#pragma once

#include <string>

#include "capture/Frame.h"
#include "serve/View.h"

namespace tool::serve {

// The binary messages of the streams; docs/serve.md has their layout.

std::string ProfileMessage(const Frame& frame, const View& view, double host_seconds);

// A picture of an image. It shows every second, third, ... pixel, so that it is at most `most`
// pixels wide and high.
std::string ImageMessage(const Frame& frame, const View& view, double host_seconds, unsigned most);

}  // namespace tool::serve
