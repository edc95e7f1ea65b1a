#include "Laser.h"

#include <atomic>

#include "Interrupt.h"
#include "tessaline/tessaline.h"

namespace tool::laser {
namespace {

std::atomic<bool> wanted = false;

// Runs in a signal handler, which these two calls of the library allow.
template <int (*call)()>
void IfWanted() {
  if (wanted) call();
}

}  // namespace

bool On() {
  static const bool follows_stops = AtStop(IfWanted<CloseLaser>, IfWanted<OpenLaser>);
  wanted = follows_stops;
  return OpenLaser() == 0;
}

// A stop in between leaves it off.
bool Off() {
  wanted = false;
  return CloseLaser() == 0;
}

}  // namespace tool::laser
