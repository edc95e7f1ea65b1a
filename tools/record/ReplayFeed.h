#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <string>
#include <thread>
#include <vector>

#include "record/BagQuery.h"
#include "record/BagSource.h"
#include "record/Messages.h"
#include "record/ReplayRings.h"

namespace tool {

// Puts a recording's messages into rings, from which the virtual board takes them. Threads of its
// own read the file ahead of the board.
class ReplayFeed {
 public:
  struct Settings {
    BagSource source;
    StampRange range;    // what to play
    unsigned times = 1;  // 0: for ever
  };

  // Throws Failure if the file cannot be read, or has no frames there.
  explicit ReplayFeed(const Settings& settings);
  // Stops wherever it is.
  ~ReplayFeed();
  ReplayFeed(const ReplayFeed&) = delete;
  ReplayFeed& operator=(const ReplayFeed&) = delete;

  // Of the recording; empty if it does not say.
  const std::string& model() const { return model_; }
  const ReplayRings& rings() const { return rings_; }

  struct Counts {
    std::uint64_t strips = 0;  // profiles, in all rounds
    std::uint64_t images = 0;
  };
  // What the board has taken so far.
  Counts Played() const;
  // Whether it has taken a frame.
  bool Begun() const { return images_.ring.First() + strips_.ring.First() > 0; }
  // Whether it has taken all of the kinds that it takes at all.
  bool Idle() const;
  // Whether it has taken everything.
  bool Over() const;
  // Throws what went wrong while reading, if anything has.
  void Check() const;

 private:
  struct Lane {
    Lane(ring::RecordRing& to, std::vector<Topic> read) : ring(to), topics(std::move(read)) {}
    ring::RecordRing& ring;
    const std::vector<Topic> topics;
    std::atomic<std::uint64_t> frames{0};  // put into it
    std::exception_ptr failure;
    std::atomic<bool> failed{false};
    std::thread thread;
  };

  void ReadState(const BagReader& reader);
  void Feed(Lane& lane);
  // False: there is nothing for this lane, or it is to stop.
  bool FeedOnce(Lane& lane, std::int64_t later_ns);
  // False: it is to stop.
  bool Put(Lane& lane, const ring::Record& record);
  static std::uint64_t Waiting(const Lane& lane);

  const Settings settings_;
  std::string model_;
  std::int64_t first_ns_ = 0;  // stamp of the first frame
  std::atomic<bool> stop_{false};
  ReplayRings rings_;
  Lane images_;
  Lane strips_;
  Lane events_;
};

}  // namespace tool
