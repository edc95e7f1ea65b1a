#pragma once

#include <atomic>
#include <memory>

#include "Device.h"

namespace board {

// A device that counts its open files, so that leaked descriptors show.
class CountedDevice : public Device {
 public:
  unsigned OpenFiles() const { return *open_files_; }  // now
  unsigned Opens() const { return opens_; }            // in total

 protected:
  // Every open file holds a token. The token outlives the device if the descriptor does.
  using OpenToken = std::shared_ptr<void>;
  OpenToken CountOpen();

 private:
  std::shared_ptr<std::atomic<unsigned>> open_files_ = std::make_shared<std::atomic<unsigned>>(0);
  std::atomic<unsigned> opens_{0};
};

}  // namespace board
