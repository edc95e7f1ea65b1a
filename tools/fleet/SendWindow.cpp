#include "fleet/SendWindow.h"

#include <fmt/core.h>

#include <algorithm>
#include <utility>

namespace tool::fleet {

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

std::optional<SendWindow::Acknowledged> SendWindow::Acknowledge(const std::string& name) {
  const auto named = by_name_.find(name);
  if (named == by_name_.end()) return std::nullopt;
  const auto found = sent_.find(named->second);
  Acknowledged acknowledged{found->second.packet.payload.size()};
  const bool from_file = found->second.row != 0;
  bytes_ -= acknowledged.bytes;
  again_.erase(named->second);
  sent_.erase(found);
  by_name_.erase(named);
  if (from_file) {
    const auto next = std::find_if(sent_.begin(), sent_.end(),
                                   [](const auto& entry) { return entry.second.row != 0; });
    acknowledged.rows_before = next == sent_.end() ? last_row_ + 1 : next->second.row;
  }
  return acknowledged;
}

bool SendWindow::Refuse(const std::string& name) {
  const auto named = by_name_.find(name);
  if (named == by_name_.end()) return false;
  SendAgain(named->second);
  return true;
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
