#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "Fixture.h"
#include "fleet/RunOrder.h"
#include "fleet/SendWindow.h"
#include "fleet/StreamOrder.h"

namespace fleet_test {

// A tenth of a second.
using Tick = std::int64_t;

// The server: stores each name once, in the order of arrival, and delivers what is not acknowledged
// again and again. At most so many are delivered and not acknowledged.
class SimulatedServer {
 public:
  static constexpr std::size_t kMostUnstored = 128;
  static constexpr Tick kAckWait = 100;
  struct Stored {
    tool::fleet::PacketHeader header;
    std::uint64_t acknowledged = 0;
    bool done = false;
    Tick delivered_at = -1;  // the last time
  };

  // `forgets`: it has forgotten the name already.
  void Store(const tool::fleet::PacketHeader& header, std::uint64_t acknowledged, bool forgets) {
    if (!names_.insert(tool::fleet::SendWindow::NameOf(header)).second && !forgets) return;
    stream_.push_back({header, acknowledged});
  }
  // Numbers that are delivered now, in a stream's order but for what comes again.
  std::vector<std::uint64_t> Deliver(Tick now) {
    std::vector<std::uint64_t> numbers;
    for (const std::uint64_t number : pending_) {
      if (now - stream_[number - 1].delivered_at >= kAckWait) numbers.push_back(number);
    }
    for (; next_ <= stream_.size() && pending_.size() < kMostUnstored; ++next_) {
      pending_.insert(next_);
      numbers.push_back(next_);
    }
    for (const std::uint64_t number : numbers) stream_[number - 1].delivered_at = now;
    return numbers;
  }
  void Acknowledge(std::uint64_t number) {
    stream_[number - 1].done = true;
    pending_.erase(number);
  }
  // Nobody listens: what is under way is lost.
  void Disconnect(Tick now) {
    for (const std::uint64_t number : pending_) stream_[number - 1].delivered_at = now - kAckWait;
  }
  // All up to this one are acknowledged.
  std::uint64_t Floor() const {
    std::uint64_t floor = 0;
    while (floor < stream_.size() && stream_[floor].done) ++floor;
    return floor;
  }
  std::size_t pending() const { return pending_.size(); }
  const std::vector<Stored>& stream() const { return stream_; }
  bool AllDone() const { return Floor() == stream_.size(); }

 private:
  std::vector<Stored> stream_;
  std::set<std::string> names_;
  std::set<std::uint64_t> pending_;
  std::uint64_t next_ = 1;
};

// The publisher: sends what waits through a window, over a network that loses.
class SimulatedPublisher {
 public:
  SimulatedPublisher(SimulatedServer& server, std::mt19937_64& random)
      : server_(server), random_(random) {}

  void Add(const tool::fleet::PacketHeader& header) { waiting_.push_back({{header, {}}, 0}); }

  // `bad`: of a hundred messages.
  void Work(Tick now, unsigned bad) {
    for (auto answer = answers_.begin(); answer != answers_.end();) {
      if (answer->at > now) {
        ++answer;
        continue;
      }
      answer->good ? void(window_.Acknowledge(answer->name, {}))
                   : void(window_.Refuse(answer->name));
      answer = answers_.erase(answer);
    }
    while (const auto again = window_.NextAgain()) {
      window_.SentAgain(*again);
      Send(*again, now, bad);
    }
    for (int i = 0; i < 30 && !waiting_.empty() && window_.HasRoom(); ++i) {
      if (!window_.Admits(waiting_.front().packet.header)) return;
      const auto position = window_.Add(std::move(waiting_.front()));
      waiting_.pop_front();
      Send(position, now, bad);
    }
  }
  // Killed. With a store, the next one has what was not acknowledged; else it is gone.
  void Kill(bool store) {
    std::deque<tool::fleet::Backlog::Taken> unsent = window_.Clear();
    if (store) {
      for (auto& one : unsent) waiting_.push_front(std::move(one));
    } else {
      waiting_.clear();
    }
    answers_.clear();
  }
  bool Idle() const { return waiting_.empty() && window_.size() == 0; }

 private:
  struct Answer {
    std::string name;
    bool good;
    Tick at;
  };
  static constexpr Tick kAnswer = 40;

  void Send(tool::fleet::SendWindow::Position position, Tick now, unsigned bad) {
    const tool::fleet::PacketHeader& header = window_.At(position).header;
    const std::string name = tool::fleet::SendWindow::NameOf(header);
    const bool lost = random_() % 100 < bad;
    if (!lost) {
      server_.Store(header, window_.AcknowledgedBefore(position), random_() % 10 == 0);
    }
    const bool answer_lost = lost || random_() % 100 < bad;
    const Tick at = answer_lost ? now + kAnswer : now + static_cast<Tick>(random_() % 4);
    answers_.push_back({name, !answer_lost, at});
  }

  SimulatedServer& server_;
  std::mt19937_64& random_;
  std::deque<tool::fleet::Backlog::Taken> waiting_;
  tool::fleet::SendWindow window_;
  std::deque<Answer> answers_;
};

// The subscriber: what comes out of the two orders is stored, synced now and then, and then
// acknowledged. It may be killed; the file keeps what was synced.
class SimulatedSubscriber {
 public:
  static constexpr std::chrono::seconds kPatience{30};
  struct File {
    std::vector<std::pair<std::string, std::uint64_t>> came;  // run, first number
    std::map<std::string, std::set<std::uint64_t>> holes;
    std::map<std::string, int> over;
    std::map<std::string, tool::fleet::RunOrder::Used> used;
  };

  SimulatedSubscriber(SimulatedServer& server, std::mt19937_64& random)
      : server_(server), random_(random) {
    Start();
  }

  void Kill(Tick now) {
    server_.Disconnect(now);
    Start();
  }

  void Work(Tick now, unsigned bad) {
    const auto time = TimeOf(now);
    if (random_() % 1000 < bad) {  // the connection broke
      server_.Disconnect(now);
      stream_->Interrupted(time);
      return;
    }
    bool cut = false;
    for (const std::uint64_t number : server_.Deliver(now)) {
      cut |= random_() % 1000 < bad;  // and so for all behind it
      if (!cut) Use(number, time);
    }
    if (cut) stream_->Interrupted(time);
    const auto gone = [this] { return server_.pending() <= open_.size(); };
    while (auto next = stream_->Next(time, kPatience, gone)) Use(std::move(*next));
    if (now % 2 == 0) Sync(bad);
  }
  const File& file() const { return synced_; }
  const tool::fleet::RunOrder& runs() const { return *runs_; }

 private:
  using Stream = tool::fleet::StreamOrder<tool::fleet::Arrival>;
  static Stream::Clock::time_point TimeOf(Tick now) {
    return Stream::Clock::time_point(std::chrono::milliseconds(100 * now));
  }

  void Start() {
    file_ = synced_;
    stored_.clear();
    open_.clear();
    stream_ = std::make_unique<Stream>(server_.Floor());
    runs_ = std::make_unique<tool::fleet::RunOrder>(file_.used, false);
  }
  void Use(std::uint64_t number, Stream::Clock::time_point time) {
    if (stream_->Has(number)) {
      if (!open_.contains(number)) server_.Acknowledge(number);
      return;
    }
    const SimulatedServer::Stored& stored = server_.stream()[number - 1];
    tool::fleet::Packet packet{stored.header, {}};
    packet.header.stamp_ns = static_cast<std::int64_t>(number);
    open_.insert(number);
    EXPECT_TRUE(stream_->Add(number, ArrivalOf(packet, stored.acknowledged), time));
  }
  void Use(tool::fleet::Arrival arrival) {
    std::vector<tool::fleet::Arrival> duplicates;
    for (const auto& step : runs_->Add(std::move(arrival), duplicates)) {
      auto& used = file_.used[step.run];
      if (step.run_is_over) {
        ++file_.over[step.run];
        used.over = true;
      } else if (!step.arrival) {
        for (auto number = step.hole.first; number <= step.hole.last; ++number) {
          EXPECT_TRUE(file_.holes[step.run].insert(number).second);
        }
        used.last = step.hole.last;
      } else {
        const auto& header = step.arrival->header;
        file_.came.emplace_back(step.run, header.first());
        used.last = header.sequence;
        used.over |= header.kind == tool::fleet::Kind::kEnd;
        stored_.push_back(static_cast<std::uint64_t>(header.stamp_ns));
      }
    }
    for (const auto& duplicate : duplicates) {
      stored_.push_back(static_cast<std::uint64_t>(duplicate.header.stamp_ns));
    }
  }
  void Sync(unsigned bad) {
    synced_ = file_;
    for (const std::uint64_t number : stored_) {
      if (random_() % 100 >= bad) server_.Acknowledge(number);
      open_.erase(number);
    }
    stored_.clear();
  }

  SimulatedServer& server_;
  std::mt19937_64& random_;
  File file_, synced_;
  std::vector<std::uint64_t> stored_;
  std::set<std::uint64_t> open_;
  std::unique_ptr<Stream> stream_;
  std::unique_ptr<tool::fleet::RunOrder> runs_;
};

}  // namespace fleet_test
