#include "support/Started.h"

#include <cstring>

#include "support/Files.h"

namespace kernel_test {

void PutOnSpiBus1(const std::string& model) {
  WriteFile("/sys/module/board_spi/parameters/chip", model.starts_with("K39") ? "1" : "0");
}

Frames::Frames(const Product& product) {
  images_ = std::make_unique<LoopedVideo>(0, product.full_width, product.full_height + 1);
  strips_ = std::make_unique<LoopedVideo>(1, product.strip_width, product.strip_height);
  const auto dark = [](LoopedVideo& video) { video.Start([](unsigned, std::byte*, unsigned) {}); };
  images_->IsScaled() ? dark(*images_) : frames::SendImages(*images_, product);
  strips_->IsScaled() ? dark(*strips_) : frames::SendStrips(*strips_, product, kStrips, kPoints);
  Lose(100);
}

void Frames::Flow() { Lose(0); }

void Frames::Lose(int percent) {
  if (images_->IsScaled()) LoopedVideo::LosePercent(0, percent);
  if (strips_->IsScaled()) LoopedVideo::LosePercent(1, percent);
}

}  // namespace kernel_test
