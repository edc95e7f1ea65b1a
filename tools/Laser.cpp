#include "Laser.h"

#include <atomic>
#include <mutex>

#include "Interrupt.h"
#include "tessaline/tessaline.h"

namespace tool::laser {
namespace {

std::atomic<bool> wanted = false;

// These run in a signal handler, which the two calls of the library allow.
void Leave() { CloseLaser(); }
void Resume() {
  if (wanted && !Interrupted()) OpenLaser();
}

}  // namespace

bool On() {
  static std::once_flag once;
  std::call_once(once, [] { AtStop(Leave, Resume); });
  wanted = true;
  return OpenLaser() == 0;
}

bool Off() {
  wanted = false;
  return CloseLaser() == 0;
}

}  // namespace tool::laser
