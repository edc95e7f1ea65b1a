#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "serve/PictureMaker.h"

namespace tool::serve {

// What became of the messages for one client.
struct StreamCounts {
  std::uint64_t sent = 0;
  std::uint64_t sent_bytes = 0;
  std::uint64_t dropped = 0;  // overtaken by newer ones before the client took them
  std::uint64_t dropped_bytes = 0;

  void Add(const StreamCounts& more);
};

// One subscriber. Lives on the network's thread.
class StreamClient {
 public:
  using Clock = std::chrono::steady_clock;
  using Message = PictureMaker::Message;

  StreamClient(Stream stream, double rate, std::string peer);
  virtual ~StreamClient() = default;

  Stream stream() const { return stream_; }
  double rate() const { return rate_; }
  const std::string& peer() const { return peer_; }
  const StreamCounts& counts() const { return counts_; }

  // A new message: sent now, or kept in the place of an older one that waits.
  void Offer(const Message& message, Clock::time_point now);
  // Whether one would be wanted now.
  bool IsDue(Clock::time_point now) const;

 protected:
  // Sends it; Sent() says when that is done.
  virtual void Send(const Message& message) = 0;
  void Sent(std::size_t bytes);

 private:
  const Stream stream_;
  const double rate_;
  const Clock::duration period_;
  const std::string peer_;
  Clock::time_point due_;
  Message waiting_;
  bool sending_ = false;
  StreamCounts counts_;
};

// All subscribers. Its calls are made on the network's thread.
class StreamHub {
 public:
  // `rate`: how many pictures a second the fastest one wants; 0: there is none.
  explicit StreamHub(std::function<void(double)> rate) : set_rate_(std::move(rate)) {}

  unsigned Add(const std::shared_ptr<StreamClient>& client);
  void Remove(unsigned id);
  void Publish(Stream stream, const StreamClient::Message& message);
  bool WantsNow(Stream stream) const;

  using Clients = std::map<unsigned, std::weak_ptr<StreamClient>>;
  const Clients& clients() const { return clients_; }
  // Of all clients that ever were, by stream.
  StreamCounts counts(Stream stream) const;

 private:
  void TellRate() const;

  std::function<void(double)> set_rate_;
  Clients clients_;
  unsigned next_id_ = 1;
  std::map<Stream, StreamCounts> gone_;
};

}  // namespace tool::serve
