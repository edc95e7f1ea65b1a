#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "capture/FrameReader.h"
#include "serve/Feed.h"
#include "serve/View.h"

namespace tool::serve {

enum class Stream { kProfile, kImage, kState };

// How good the laser line is, over the profiles that were looked at recently.
struct LineQuality {
  std::uint64_t points = 0;      // of the latest profile
  double missing_percent = 0;    // columns without a point
  double saturated_percent = 0;  // points whose peak is white
  double mean_peak = 0;          // grey value; 0 if the product does not send it
};

// Turns the newest frame into a message for all clients, as often as the fastest of them wants one,
// on a thread of its own. While nobody watches, it looks twice a second, for the line's quality.
class PictureMaker {
 public:
  using Message = std::shared_ptr<const std::string>;
  // `publish` runs on our thread.
  explicit PictureMaker(std::function<void(Stream, Message)> publish);
  ~PictureMaker();
  PictureMaker(const PictureMaker&) = delete;
  PictureMaker& operator=(const PictureMaker&) = delete;

  void Start();
  void SetView(const View& view);
  // Messages a second; 0: nobody watches.
  void SetRate(double rate) { rate_ = rate; }

  LineQuality quality() const;

  // For snapshots: the newest frame, with the view that it was read with. The points of strips, or
  // the bytes of an image.
  struct Newest {
    View view;
    Frame frame;                      // without spans
    std::vector<std::uint8_t> image;  // pixels
  };
  std::optional<Newest> newest() const;

 private:
  void Run(const std::stop_token& stop);
  void UseView();
  void Use(const Delivery& delivery);
  void UseStrips(const Delivery& delivery);
  void UseImage(const Delivery& delivery);
  void Judge(const Frame& frame);

  std::function<void(Stream, Message)> publish_;
  std::atomic<double> rate_ = 0;
  mutable std::mutex mutex_;
  View view_;
  bool view_changed_ = false;
  LineQuality quality_;
  bool nothing_judged_ = true;
  std::optional<Newest> newest_;

  // The thread's own.
  View used_;
  std::optional<StripReader> reader_;
  std::jthread thread_;
};

}  // namespace tool::serve
