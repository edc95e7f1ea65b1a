#pragma once

#include <fuzzer/FuzzedDataProvider.h>
#include <linux/videodev2.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/SystemCalls.h"

namespace tessaline_fuzz {

// One request to the driver, and its result.
struct Reply {
  // Calls that are not ioctl requests.
  static constexpr unsigned long kOpen = 0, kMap = 1, kWrite = 2, kClose = 3;

  unsigned long call;
  int error = 0;       // 0: it succeeded
  std::string path{};  // of an open
  const std::byte* map = nullptr;
  // The record as returned to the caller.
  __u32 capabilities = 0;
  __u32 granted = 0;
  v4l2_buffer buffer{};
};

// Capture devices and the DMA area. The input determines their answers: valid ones, errors, and
// anything that a broken driver might write to the record. Mapped memory is a heap block of exactly
// the mapped length, so that the address sanitizer catches overruns. Calls that no correct program
// makes are findings: closing a descriptor that is not open, unmapping memory that is not mapped or
// with a wrong length, or making any other call before an interrupted one is repeated.
class VideoDriver final : public SystemCalls {
 public:
  explicit VideoDriver(FuzzedDataProvider& answers) : answers_(answers) {}

  // Every munmap must have this length, whatever length was mapped.
  void ExpectUnmapLength(std::size_t length) { unmap_length_ = length; }

  // An interrupted dequeue is reported to the caller and need not be repeated.
  void TellInterruptedDequeue() { tells_interrupted_dequeue_ = true; }

  // Forgets the recorded requests. Replies() returns those since then. It leaves out close, munmap
  // and write, whose failures are not reported, and interrupted calls that were repeated.
  void ForgetReplies();
  const std::vector<Reply>& Replies() const;

  std::size_t Descriptors() const { return open_.size(); }
  std::size_t Mappings() const { return mappings_.size(); }
  // Returns whether the whole range is mapped.
  bool Maps(const void* address, std::size_t length) const;

  int Open(const char* path) override;
  int Close(int fd) override;
  int Ioctl(int fd, unsigned long request, void* argument) override;
  void* Map(std::size_t length, int fd, off_t offset) override;
  int Unmap(void* address, std::size_t length) override;
  ssize_t Write(int fd, const void* data, std::size_t size) override;

 private:
  enum Answer { kSane, kBent, kWild, kScribbled };

  int Fail();
  bool Fails();
  void Begin(unsigned long call);
  bool MustBeMadeAgain(unsigned long call) const;
  // Ends a call. Returns whether it must be made again.
  bool End(unsigned long call, bool failed);
  Answer NextAnswer();
  template <typename Record>
  void Scribble(Record& record);

  void Note(Reply reply);
  int AnswerRequest(unsigned long request, void* argument);
  void* AnswerMap(std::size_t length);
  void SetFormat(v4l2_format& format);
  int Grant(v4l2_requestbuffers& request);
  void Describe(v4l2_buffer& buffer);
  int Queue(v4l2_buffer& buffer);
  int Dequeue(v4l2_buffer& buffer);

  FuzzedDataProvider& answers_;
  std::map<int, std::string> open_;
  std::vector<Reply> replies_;
  std::map<std::byte*, std::pair<std::size_t, std::unique_ptr<std::byte[]>>> mappings_;
  std::optional<std::size_t> unmap_length_;
  std::optional<unsigned long> interrupted_;
  bool tells_interrupted_dequeue_ = false;
  std::vector<__u32> queued_;
  __u32 frame_bytes_ = 0;
  __u32 granted_ = 0;
  __u32 memory_ = 0;
  std::size_t sync_offset_ = 0;
  int next_ = kFirstDescriptor;
};

}  // namespace tessaline_fuzz
