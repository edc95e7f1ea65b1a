// Records from one process to another, in a ring of memory that both map.
//
// A record is written by whatever thread has it, which may be a capture thread, or a signal
// handler. So writers take no lock and make no system call: one atomic step reserves a place, the
// record is copied there, and a mark says that it is whole. The reader is a process of its own, and
// finds what a writer left behind that was killed. The data's pages are mapped twice, one behind
// the other, so a record never wraps.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace ring {

enum class Kind : std::uint32_t {
  kStrips,     // first: strips, second: bytes a point, or 0; payload: the strips
  kImage,      // first: width, second: height; payload: pixels and header
  kTrigger,    // first: level of the input
  kDaArrived,  //
  kRegister,   // first: physical address, second: value
  kClock,      // first: ticks of the FPGA's counter, second: uncertainty in ns
  kLost,       // first: frames that the device has lost so far
  kLog,        // first: level, second: line; payload: file, a zero, message
  kDevice,     // payload: JSON
};

struct Record {
  Kind kind{};
  std::int64_t stamp_ns = 0;  // host clock, since 1970
  std::uint64_t first = 0;
  std::uint64_t second = 0;
  std::span<const std::byte> payload;
};

class RecordRing {
 public:
  // Makes a ring for `bytes` of records, rounded up. None: no memory (errno).
  static std::optional<RecordRing> Create(std::size_t bytes);
  // Maps one that another process has made. None: `path` is no such ring.
  static std::optional<RecordRing> Open(const char* path);
  // The same by a descriptor that it has sent; it stays the caller's.
  static std::optional<RecordRing> Open(int descriptor);
  RecordRing(RecordRing&& other) noexcept;
  RecordRing& operator=(RecordRing&&) = delete;
  ~RecordRing();

  // Where other processes of the same user find it while this one lives.
  std::string Path() const;
  int Descriptor() const { return descriptor_; }
  std::size_t Bytes() const;  // for records

  // --- The writing process. Any thread, signal handlers included.

  // From now on this object is the only writer, and believes nothing that the reader may change: a
  // reader that destroys the ring's head gets no more records, and harms nobody but itself.
  void DistrustReader();
  // False: there is no room, and the record is counted as dropped.
  bool Put(const Record& record);
  // Whether Put() would find room now.
  bool HasRoom(std::size_t payload_bytes) const;
  // Becomes the one application at this ring, unless another living process is.
  bool Claim();
  // Nobody completes what is in the ring now and not whole: its writer has been killed.
  void WriteOff();
  // Nothing more will come.
  void End();

  // --- The reading process. One thread.

  using Position = std::uint64_t;
  // The record at a position, and the position behind it. None: not there yet. `written_off`: the
  // writer has ended, so a record that is not whole is skipped. Believes nothing that is in the
  // ring.
  struct Found {
    Record record;
    Position next;
  };
  std::optional<Found> At(Position position, bool written_off = false) const;
  Position First() const;  // the oldest record that has not been released
  // Gives the room before `position` to the writer.
  void Release(Position position);
  std::size_t UsedBytes() const;
  bool Ended() const;
  // Of the writer, in all: strips and images, and other records.
  std::uint64_t DroppedFrames() const;
  std::uint64_t DroppedRecords() const;

 private:
  struct Header;
  struct Mark;
  // The writer's own, where the reader is not trusted.
  struct Own {
    std::atomic<Position> reserved;
    std::atomic<std::uint64_t> dropped_frames{0};
    std::atomic<std::uint64_t> dropped_records{0};
  };
  std::optional<Position> Reserve(std::size_t room);
  RecordRing(int descriptor, std::byte* memory, std::size_t bytes);
  static std::optional<RecordRing> Map(int descriptor, std::size_t bytes);
  static std::optional<RecordRing> MapWhole(int descriptor);
  Header& header() const;
  Mark& MarkAt(Position position) const;

  int descriptor_;
  std::byte* memory_;
  std::size_t bytes_;
  std::unique_ptr<Own> own_;
};

}  // namespace ring
