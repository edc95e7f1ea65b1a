#include "devices/OpenCount.h"

namespace board {

CountedDevice::OpenToken CountedDevice::CountOpen() {
  ++opens_;
  ++*open_files_;
  return {nullptr, [open_files = open_files_](void*) { --*open_files; }};
}

}  // namespace board
