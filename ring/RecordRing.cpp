#include "RecordRing.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <new>
#include <utility>

namespace ring {
namespace {

constexpr std::uint64_t kMagic = 0x31474E4952415354;
constexpr std::size_t kHeaderBytes = 64 << 10;  // so that the data begins on a page of any size
constexpr std::size_t kGranularity = 64 << 10;
constexpr std::size_t kMostBytes = std::size_t{1} << 40;
constexpr std::size_t kAlignment = 64;

constexpr std::size_t RoundUp(std::size_t bytes, std::size_t to) {
  return (bytes + to - 1) / to * to;
}

constexpr std::uint64_t FramesIn(const Record& record) {
  if (record.kind == Kind::kStrips) return record.first;
  return record.kind == Kind::kImage ? 1 : 0;
}

}  // namespace

struct RecordRing::Header {
  std::uint64_t magic;
  std::uint64_t bytes;
  alignas(kAlignment) std::atomic<std::uint64_t> reserved;
  alignas(kAlignment) std::atomic<std::uint64_t> released;
  alignas(kAlignment) std::atomic<std::uint64_t> dropped_frames;
  std::atomic<std::uint64_t> dropped_records;
  std::atomic<std::uint64_t> written_off;  // up to here
  std::atomic<std::int32_t> application;
  std::atomic<bool> ended;
};

// In front of each record. `begun` and `whole` equal the record's place once its length, and all of
// it, are there. Old bytes cannot look like that, because places only grow.
struct RecordRing::Mark {
  std::atomic<std::uint64_t> begun;
  std::atomic<std::uint64_t> whole;
  std::uint64_t payload_bytes;
  std::int64_t stamp_ns;
  std::uint64_t first;
  std::uint64_t second;
  Kind kind;
};

// Place 0 would look like memory that was never written.
constexpr std::uint64_t Tag(std::uint64_t position) { return position + 1; }

RecordRing::RecordRing(int descriptor, std::byte* memory, std::size_t bytes)
    : descriptor_(descriptor), memory_(memory), bytes_(bytes) {
  static_assert(sizeof(Mark) <= kAlignment);
}

RecordRing::RecordRing(RecordRing&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)),
      memory_(std::exchange(other.memory_, nullptr)),
      bytes_(other.bytes_),
      own_(std::move(other.own_)) {}

RecordRing::~RecordRing() {
  if (memory_ != nullptr) munmap(memory_, kHeaderBytes + 2 * bytes_);
  if (descriptor_ >= 0) close(descriptor_);
}

std::optional<RecordRing> RecordRing::Map(int descriptor, std::size_t bytes) {
  void* const room = mmap(nullptr, kHeaderBytes + 2 * bytes, PROT_NONE,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (room == MAP_FAILED) return std::nullopt;
  auto* const memory = static_cast<std::byte*>(room);
  RecordRing ring(-1, memory, bytes);
  constexpr int kAccess = PROT_READ | PROT_WRITE;
  constexpr int kFlags = MAP_SHARED | MAP_FIXED;
  const bool mapped =
      mmap(memory, kHeaderBytes + bytes, kAccess, kFlags, descriptor, 0) != MAP_FAILED &&
      mmap(memory + kHeaderBytes + bytes, bytes, kAccess, kFlags, descriptor, kHeaderBytes) !=
          MAP_FAILED;
  if (!mapped) return std::nullopt;
  ring.descriptor_ = descriptor;
  return ring;
}

std::optional<RecordRing> RecordRing::Create(std::size_t bytes) {
  bytes = RoundUp(bytes, kGranularity);
  const int descriptor = memfd_create("tessaline-records", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  if (descriptor < 0) return std::nullopt;
  // All of it now, and for good: a missing page would end the writing process.
  if (bytes == 0 || bytes > kMostBytes ||
      posix_fallocate(descriptor, 0, static_cast<off_t>(kHeaderBytes + bytes)) != 0 ||
      fcntl(descriptor, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0) {
    close(descriptor);
    errno = ENOMEM;
    return std::nullopt;
  }
  auto ring = Map(descriptor, bytes);
  if (!ring) {
    close(descriptor);
    return std::nullopt;
  }
  new (ring->memory_) Header{};
  ring->header().bytes = bytes;
  ring->header().magic = kMagic;
  return ring;
}

std::optional<RecordRing> RecordRing::Open(const char* path) {
  return MapWhole(open(path, O_RDWR | O_CLOEXEC));
}

std::optional<RecordRing> RecordRing::Open(int descriptor) {
  return MapWhole(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
}

// Takes over the descriptor.
std::optional<RecordRing> RecordRing::MapWhole(int descriptor) {
  if (descriptor < 0) return std::nullopt;
  struct stat info {};
  // Only what can shrink no more may be mapped: a missing page would end this process.
  constexpr int kLasting = F_SEAL_SHRINK | F_SEAL_GROW;
  const int seals = fcntl(descriptor, F_GET_SEALS);
  const bool lasts = seals >= 0 && (seals & kLasting) == kLasting;
  const bool large = lasts && fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode) &&
                     info.st_size >= static_cast<off_t>(kHeaderBytes + kGranularity) &&
                     info.st_size % static_cast<off_t>(kGranularity) == 0;
  if (large) {
    auto ring = Map(descriptor, static_cast<std::size_t>(info.st_size) - kHeaderBytes);
    if (ring && ring->header().magic == kMagic && ring->header().bytes == ring->bytes_) return ring;
    if (ring) return std::nullopt;
  }
  close(descriptor);
  return std::nullopt;
}

RecordRing::Header& RecordRing::header() const { return *reinterpret_cast<Header*>(memory_); }

RecordRing::Mark& RecordRing::MarkAt(Position position) const {
  return *reinterpret_cast<Mark*>(memory_ + kHeaderBytes + position % bytes_);
}

std::string RecordRing::Path() const {
  return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(descriptor_);
}

std::size_t RecordRing::Bytes() const { return bytes_; }

bool RecordRing::HasRoom(std::size_t payload_bytes) const {
  return header().reserved - header().released + kAlignment + RoundUp(payload_bytes, kAlignment) <=
         bytes_;
}

void RecordRing::DistrustReader() {
  own_ = std::make_unique<Own>();
  own_->reserved = header().reserved.load();
}

// The place of a record; nothing if there is no room.
std::optional<RecordRing::Position> RecordRing::Reserve(std::size_t room) {
  Header& shared = header();
  std::atomic<Position>& reserved = own_ ? own_->reserved : shared.reserved;
  Position position = reserved.load(std::memory_order_relaxed);
  do {
    const std::uint64_t used = position - shared.released.load(std::memory_order_acquire);
    if (room > bytes_ || used > bytes_ - room) return std::nullopt;
  } while (!reserved.compare_exchange_weak(position, position + room));
  if (own_) {
    // Other threads may have come further meanwhile. A few tries, since the reader may interfere.
    Position told = shared.reserved;
    for (int i = 0; i < 8 && told < position + room; ++i) {
      if (shared.reserved.compare_exchange_weak(told, position + room)) break;
    }
  }
  return position;
}

bool RecordRing::Put(const Record& record) {
  Header& shared = header();
  const auto reserved = Reserve(kAlignment + RoundUp(record.payload.size(), kAlignment));
  if (!reserved) {
    const std::uint64_t frames = FramesIn(record);
    shared.dropped_frames += frames;
    shared.dropped_records += frames == 0 ? 1 : 0;
    if (own_) {
      own_->dropped_frames += frames;
      own_->dropped_records += frames == 0 ? 1 : 0;
    }
    return false;
  }
  const Position position = *reserved;
  Mark& mark = MarkAt(position);
  mark.payload_bytes = record.payload.size();
  mark.begun.store(Tag(position), std::memory_order_release);
  mark.stamp_ns = record.stamp_ns;
  mark.first = record.first;
  mark.second = record.second;
  mark.kind = record.kind;
  if (!record.payload.empty()) {
    std::memcpy(reinterpret_cast<std::byte*>(&mark) + kAlignment, record.payload.data(),
                record.payload.size());
  }
  mark.whole.store(Tag(position), std::memory_order_release);
  return true;
}

bool RecordRing::Claim() {
  std::int32_t application = header().application;
  const std::int32_t self = getpid();
  do {
    const bool gone = application == 0 || (kill(application, 0) != 0 && errno == ESRCH);
    if (!gone) return application == self;
  } while (!header().application.compare_exchange_weak(application, self));
  return true;
}

void RecordRing::WriteOff() { header().written_off = header().reserved.load(); }

void RecordRing::End() { header().ended = true; }

std::optional<RecordRing::Found> RecordRing::At(Position position, bool written_off) const {
  for (;;) {
    const Position reserved = header().reserved.load(std::memory_order_acquire);
    const std::uint64_t ahead = reserved - position;  // not trusted: others may write there
    if (ahead < kAlignment || ahead > bytes_ || position % kAlignment != 0) return std::nullopt;
    const bool skip = written_off || position < header().written_off;
    const Mark& mark = MarkAt(position);
    // Whoever was killed before this left no length, but the next record's mark shows its place.
    Position next = position + kAlignment;
    if (mark.begun.load(std::memory_order_acquire) == Tag(position)) {
      const std::uint64_t payload_bytes = mark.payload_bytes;
      if (payload_bytes > ahead - kAlignment) return std::nullopt;
      next += RoundUp(payload_bytes, kAlignment);
      if (mark.whole.load(std::memory_order_acquire) == Tag(position)) {
        const auto* payload = reinterpret_cast<const std::byte*>(&mark) + kAlignment;
        return Found{{mark.kind, mark.stamp_ns, mark.first, mark.second, {payload, payload_bytes}},
                     next};
      }
    }
    if (!skip) return std::nullopt;
    position = next;
  }
}

RecordRing::Position RecordRing::First() const { return header().released; }

void RecordRing::Release(Position position) { header().released = position; }

std::size_t RecordRing::UsedBytes() const { return header().reserved - header().released; }

bool RecordRing::Ended() const { return header().ended; }

std::uint64_t RecordRing::DroppedFrames() const {
  return own_ ? own_->dropped_frames : header().dropped_frames;
}

std::uint64_t RecordRing::DroppedRecords() const {
  return own_ ? own_->dropped_records : header().dropped_records;
}

}  // namespace ring
