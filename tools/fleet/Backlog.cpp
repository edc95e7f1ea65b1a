#include "fleet/Backlog.h"

#include <numeric>
#include <utility>

#include "Failure.h"

namespace tool::fleet {
namespace {

// What a message takes besides its payload: in memory, or as text in the file.
constexpr std::uint64_t kBytesBeside = sizeof(Packet) + 64;

std::uint64_t BytesOf(const std::vector<Packet>& record) {
  return std::accumulate(record.begin(), record.end(), std::uint64_t{0},
                         [](std::uint64_t sum, const Packet& packet) {
                           return sum + packet.payload.size() + kBytesBeside;
                         });
}

std::uint64_t Frames(const PacketHeader& header) {
  if (header.kind == Kind::kStrips) return header.strips;
  return header.kind == Kind::kImages && header.part == header.parts ? 1 : 0;
}

}  // namespace

Backlog::Backlog(Settings settings) : settings_(std::move(settings)) {
  if (!settings_.file.empty()) file_ = std::make_unique<SpillFile>(settings_.file);
}

bool Backlog::FitsInMemory(const std::vector<Packet>& record) const {
  return memory_.empty() || memory_bytes_ + BytesOf(record) <= settings_.memory;
}

void Backlog::PutInMemory(std::vector<Packet> record) {
  memory_bytes_ += BytesOf(record);
  memory_packets_ += record.size();
  memory_.push_back(std::move(record));
}

std::vector<Packet> Backlog::TakeFromMemory() {
  std::vector<Packet> record = std::move(memory_.front());
  memory_.pop_front();
  memory_bytes_ -= BytesOf(record);
  memory_packets_ -= record.size();
  return record;
}

bool Backlog::WithFile(const std::function<void()>& work) {
  try {
    work();
    counts_.file_error.clear();
    return true;
  } catch (const Failure& failure) {
    counts_.file_error = failure.what();
    return false;
  }
}

// Record by record: what the file has taken is not in memory any more, whatever happens next.
bool Backlog::MoveToFile() {
  return WithFile([&] {
    while (!memory_.empty()) {
      file_->Append(memory_.front());
      TakeFromMemory();
    }
  });
}

void Backlog::Note(const std::vector<Packet>& dropped, std::deque<Dropped>& gaps) {
  for (const Packet& packet : dropped) {
    ++counts_.dropped_packets;
    counts_.dropped_frames += Frames(packet.header);
    if (!gaps.empty() && gaps.back().Continues(packet)) {
      gaps.back().Add(packet);
    } else {
      gaps.emplace_back(packet);
    }
  }
}

bool Backlog::DropOldest() {
  std::vector<Packet> record;
  if (InFile()) {
    WithFile([&] {
      for (SpillFile::Row& row : file_->Drop()) record.push_back(std::move(row.packet));
    });
  } else if (!memory_.empty()) {
    record = TakeFromMemory();
  }
  Note(record, oldest_);
  return !record.empty();
}

void Backlog::DropNewest(const std::vector<Packet>& record) { Note(record, newest_); }

void Backlog::Put(std::vector<Packet> record) {
  if (record.empty()) return;
  const std::lock_guard lock(mutex_);
  if (!InFile() && FitsInMemory(record)) {
    Append(std::move(record));
  } else if (!file_) {
    while (settings_.drop_oldest && !FitsInMemory(record) && DropOldest()) {
    }
    if (FitsInMemory(record)) {
      Append(std::move(record));
    } else {
      DropNewest(record);
    }
  } else {
    const std::uint64_t bytes = BytesOf(record);
    const auto fits = [&] { return file_->bytes() + bytes <= settings_.file_bytes; };
    const bool moved = MoveToFile();
    while (settings_.drop_oldest && moved && !fits() && DropOldest()) {
    }
    if (moved && fits()) {
      Append(std::move(record));
    } else {
      DropNewest(record);
    }
  }
  arrived_.notify_one();
}

// There is room, so what was dropped in front of the record is told first.
void Backlog::Append(std::vector<Packet> record) {
  // False: the packets are as they were.
  const auto append = [&](std::vector<Packet>& packets) {
    if (InFile() || (file_ && !FitsInMemory(packets))) {
      return MoveToFile() && WithFile([&] { file_->Append(packets); });
    }
    PutInMemory(std::move(packets));
    return true;
  };
  for (; !newest_.empty(); newest_.pop_front()) {
    std::vector<Packet> gap{newest_.front().ToPacket()};
    if (!append(gap)) return DropNewest(record);
  }
  if (!append(record)) DropNewest(record);
}

void Backlog::FillHands() {
  if (!oldest_.empty()) {
    hands_.push_back({oldest_.front().ToPacket(), 0});
    oldest_.pop_front();
  } else if (InFile()) {  // older than what is in memory: a full disk has stopped a move
    WithFile([&] {
      for (SpillFile::Row& row : file_->Take()) {
        hands_.push_back({std::move(row.packet), row.number});
      }
    });
  } else if (!memory_.empty()) {
    for (Packet& packet : TakeFromMemory()) hands_.push_back({std::move(packet), 0});
  }
  if (hands_.empty() && !InFile() && !newest_.empty()) {
    hands_.push_back({newest_.front().ToPacket(), 0});
    newest_.pop_front();
  }
}

std::optional<Backlog::Taken> Backlog::Take(std::chrono::milliseconds patience) {
  std::unique_lock lock(mutex_);
  if (hands_.empty()) FillHands();
  if (hands_.empty()) {
    arrived_.wait_for(lock, patience);
    FillHands();
  }
  if (hands_.empty()) return std::nullopt;
  Taken taken = std::move(hands_.front());
  hands_.pop_front();
  return taken;
}

void Backlog::PutBack(Taken taken) {
  const std::lock_guard lock(mutex_);
  hands_.push_front(std::move(taken));
}

void Backlog::DoneBefore(std::int64_t row) {
  const std::lock_guard lock(mutex_);
  if (file_) WithFile([&] { file_->RemoveBefore(row); });
}

Backlog::Counts Backlog::counts() const {
  const std::lock_guard lock(mutex_);
  Counts counts = counts_;
  counts.memory_bytes = memory_bytes_;
  counts.packets = hands_.size() + oldest_.size() + newest_.size() + memory_packets_;
  if (file_) {
    counts.file_bytes = file_->bytes();
    counts.packets += file_->waiting();
  }
  return counts;
}

bool Backlog::SaveAll() {
  const std::lock_guard lock(mutex_);
  if (!file_) return false;
  // In front of what waits in the file is what was in our hands, and what was dropped there.
  std::vector<Packet> front;
  for (const Taken& taken : hands_) front.push_back(taken.packet);
  for (const Dropped& gap : oldest_) front.push_back(gap.ToPacket());
  if (!WithFile([&] { file_->PutInFront(front); })) return false;
  hands_.clear();
  oldest_.clear();
  if (!MoveToFile()) return false;
  return WithFile([&] {
    for (; !newest_.empty(); newest_.pop_front()) file_->Append({newest_.front().ToPacket()});
  });
}

}  // namespace tool::fleet
