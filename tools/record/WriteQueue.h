#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>

#include "record/BagWriter.h"
#include "record/Messages.h"

namespace tool {

// Takes messages from any thread and writes them from one of its own, so that the disk never holds
// up a handler. What does not fit is dropped and counted, also in the recording.
class WriteQueue {
 public:
  struct Settings {
    std::size_t most_bytes = std::size_t{256} << 20;  // that wait for the disk
    std::chrono::milliseconds sync_period{1000};
  };

  struct Counts {
    std::uint64_t written = 0;  // messages, and their bytes
    std::uint64_t written_bytes = 0;
    std::uint64_t dropped_frames = 0;  // strip buffers count their strips
    std::uint64_t dropped_messages = 0;
  };

  WriteQueue(BagWriter& writer, const Settings& settings);
  // Drops what has not been written; Finish() writes it.
  ~WriteQueue();
  WriteQueue(const WriteQueue&) = delete;
  WriteQueue& operator=(const WriteQueue&) = delete;

  // Copies the message. Waits for nobody but a thread that does the same at this moment. False: it
  // was dropped, because the disk is too slow or writing has failed.
  template <typename Message>
  bool Put(const Message& message) {
    return PutCoded(Message::kTopic, message.stamp_ns, Frames(message), Encode(message));
  }

  // Frames that the device lost, in all: the next message of losses tells.
  void SetLostByDevice(std::uint64_t frames) { lost_by_device_ = frames; }

  // Whether writing has failed: Finish() says why.
  bool failed() const { return failed_; }
  Counts counts() const;

  // Writes everything, closes the recording and ends the thread. Throws what writing threw.
  void Finish();

 private:
  struct Item {
    Topic topic;
    std::int64_t stamp_ns;
    Cdr cdr;
  };

  static std::uint64_t Frames(const StripsMessage& strips) { return strips.strips; }
  static std::uint64_t Frames(const ImageMessage&) { return 1; }
  template <typename Message>
  static std::uint64_t Frames(const Message&) {
    return 0;
  }

  bool PutCoded(Topic topic, std::int64_t stamp_ns, std::uint64_t frames, Cdr cdr);
  void Run();
  void WriteAll();
  // Whether they had grown.
  bool WriteLosses();
  void End();

  BagWriter& writer_;
  const Settings settings_;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Item> waiting_;
  std::size_t waiting_bytes_ = 0;
  Counts counts_;
  bool ending_ = false;

  std::atomic<std::uint64_t> lost_by_device_{0};
  std::atomic<bool> failed_{false};
  std::exception_ptr failure_;
  LossesMessage told_;
  std::thread thread_;
};

}  // namespace tool
