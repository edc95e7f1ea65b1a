#include "fleet/SendWindow.h"

#include <fmt/core.h>

#include <algorithm>
#include <utility>

namespace tool::fleet {
namespace {

// For how long an acknowledgement is doubtful when the connection breaks, and how much is kept for
// that.
constexpr std::chrono::seconds kDoubtful{3};
constexpr std::size_t kMostDone = 4 * SendWindow::kMost;

}  // namespace

std::string SendWindow::NameOf(const PacketHeader& header) {
  return fmt::format("{}.{}", header.run, header.sequence);
}

bool SendWindow::HasRoom() const {
  return sent_.empty() || (next_ - sent_.begin()->first < kMost && bytes_ < kMostBytes);
}

bool SendWindow::Admits(const PacketHeader& next) const {
  return sent_.empty() || sent_.begin()->second.packet.header.run == next.run;
}

SendWindow::Position SendWindow::Add(Backlog::Taken taken) {
  const Position position = next_++;
  bytes_ += taken.packet.payload.size();
  if (taken.row != 0) last_row_ = taken.row;
  by_name_[NameOf(taken.packet.header)] = position;
  sent_.emplace(position, std::move(taken));
  return position;
}

std::uint64_t SendWindow::AcknowledgedBefore(Position position) const {
  const std::string& run = At(position).header.run;
  const auto oldest = std::find_if(sent_.begin(), sent_.end(), [&](const auto& entry) {
    return entry.second.packet.header.run == run;
  });
  return std::min(oldest->second.packet.header.first(), At(position).header.first()) - 1;
}

std::optional<SendWindow::Acknowledged> SendWindow::Acknowledge(const std::string& name,
                                                                Clock::time_point now) {
  const auto named = by_name_.find(name);
  if (named == by_name_.end()) return std::nullopt;
  const auto found = sent_.find(named->second);
  Acknowledged acknowledged{found->second.packet.payload.size()};
  const bool from_file = found->second.row != 0;
  bytes_ -= acknowledged.bytes;
  again_.erase(named->second);
  Remember(found->first, std::move(found->second), now);
  sent_.erase(found);
  by_name_.erase(named);
  if (from_file) {
    const auto next = std::find_if(sent_.begin(), sent_.end(),
                                   [](const auto& entry) { return entry.second.row != 0; });
    acknowledged.rows_before = next == sent_.end() ? last_row_ + 1 : next->second.row;
  }
  return acknowledged;
}

void SendWindow::Remember(Position position, Backlog::Taken taken, Clock::time_point now) {
  taken.row = 0;
  bytes_done_ += taken.packet.payload.size();
  done_.push_back({position, std::move(taken), now});
  while (done_.size() > kMostDone || bytes_done_ > kMostBytes ||
         now - done_.front().at > kDoubtful) {
    bytes_done_ -= done_.front().taken.packet.payload.size();
    done_.pop_front();
  }
}

SendWindow::Doubted SendWindow::Doubt(Clock::time_point now) {
  Doubted doubted;
  for (Done& done : done_) {
    if (now - done.at > kDoubtful) continue;
    const std::uint64_t bytes = done.taken.packet.payload.size();
    ++doubted.messages;
    doubted.bytes += bytes;
    bytes_ += bytes;
    by_name_[NameOf(done.taken.packet.header)] = done.position;
    again_.insert(done.position);
    sent_.emplace(done.position, std::move(done.taken));
  }
  done_.clear();
  bytes_done_ = 0;
  return doubted;
}

bool SendWindow::Refuse(const std::string& name) {
  const auto named = by_name_.find(name);
  if (named == by_name_.end()) return false;
  SendAgain(named->second);
  return true;
}

void SendWindow::RefuseAll() {
  for (const auto& [position, taken] : sent_) SendAgain(position);
}

std::optional<SendWindow::Position> SendWindow::NextAgain() const {
  if (again_.empty()) return std::nullopt;
  return *again_.begin();
}

std::deque<Backlog::Taken> SendWindow::Clear() {
  std::deque<Backlog::Taken> all;
  for (auto& [position, taken] : sent_) all.push_front(std::move(taken));
  sent_.clear();
  by_name_.clear();
  again_.clear();
  bytes_ = 0;
  return all;
}

}  // namespace tool::fleet
