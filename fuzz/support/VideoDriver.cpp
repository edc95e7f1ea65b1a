#include "support/VideoDriver.h"

#include <errno.h>
#include <sys/mman.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string_view>

#include "support/Allocations.h"
#include "support/Require.h"

namespace tessaline_fuzz {

namespace {

constexpr int kErrors[] = {EINVAL, ENODEV, EIO, EBUSY, ENOMEM, EAGAIN, EINTR, ENOTTY, EFAULT};
// No more memory than this is available.
constexpr std::size_t kMaxMapped = 1 << 20;
constexpr std::size_t kMaxMappings = 64;

}  // namespace

int VideoDriver::Fail() {
  errno = answers_.PickValueInArray(kErrors);
  return -1;
}

// When the input is used up, everything succeeds.
bool VideoDriver::Fails() { return answers_.ConsumeIntegralInRange<std::uint8_t>(0, 15) == 15; }

// An interrupted call must be repeated before any other.
void VideoDriver::Begin(unsigned long call) {
  Require(interrupted_.value_or(call) == call, "an interrupted call is made again");
  interrupted_.reset();
}

// An interrupted close() has still closed the descriptor.
bool VideoDriver::MustBeMadeAgain(unsigned long call) const {
  return errno == EINTR && call != Reply::kClose &&
         (call != VIDIOC_DQBUF || !tells_interrupted_dequeue_);
}

bool VideoDriver::End(unsigned long call, bool failed) {
  if (failed && MustBeMadeAgain(call)) interrupted_ = call;
  return interrupted_.has_value();
}

void VideoDriver::ForgetReplies() {
  Require(!interrupted_, "an interrupted call is made again");
  replies_.clear();
}

const std::vector<Reply>& VideoDriver::Replies() const {
  Require(!interrupted_, "an interrupted call is made again");
  return replies_;
}

VideoDriver::Answer VideoDriver::NextAnswer() {
  const int choice = answers_.ConsumeIntegralInRange<int>(0, 9);
  return choice < 7 ? kSane : static_cast<Answer>(choice - 6);
}

template <typename Record>
void VideoDriver::Scribble(Record& record) {
  answers_.ConsumeData(&record, sizeof record);
}

bool VideoDriver::Maps(const void* address, std::size_t length) const {
  return std::any_of(mappings_.begin(), mappings_.end(), [=](const auto& mapping) {
    const auto offset = static_cast<const std::byte*>(address) - mapping.first;
    const std::size_t mapped = mapping.second.first;
    return offset >= 0 && static_cast<std::size_t>(offset) <= mapped &&
           length <= mapped - static_cast<std::size_t>(offset);
  });
}

// The caller reads errno next.
void VideoDriver::Note(Reply reply) {
  const int error = errno;
  replies_.push_back(std::move(reply));
  errno = error;
}

int VideoDriver::Open(const char* path) {
  const Allocations::NotNow ours;
  Begin(Reply::kOpen);
  const bool fails = Fails();
  if (fails) Fail();
  if (End(Reply::kOpen, fails)) return -1;
  Note({.call = Reply::kOpen, .error = fails ? errno : 0, .path = path});
  // The offset then cannot be set, which is reported. Forget the offset of an earlier area, so that
  // it is not checked.
  if (fails && std::string_view(path).ends_with("sync_offset")) sync_offset_ = 0;
  if (fails) return -1;
  open_[next_] = path;
  return next_++;
}

int VideoDriver::Close(int fd) {
  const Allocations::NotNow ours;
  Begin(Reply::kClose);
  Require(open_.erase(fd) == 1, "what is closed is open");
  queued_.clear();
  return Fails() ? Fail() : 0;
}

int VideoDriver::Ioctl(int fd, unsigned long request, void* argument) {
  const Allocations::NotNow ours;
  Require(open_.count(fd) == 1, "a request goes to an open device");
  Begin(request);
  const int result = AnswerRequest(request, argument);
  if (End(request, result != 0)) return result;
  Reply reply{.call = request, .error = result == 0 ? 0 : errno};
  switch (request) {
    case VIDIOC_QUERYCAP:
      reply.capabilities = static_cast<const v4l2_capability*>(argument)->capabilities;
      break;
    case VIDIOC_REQBUFS:
      reply.granted = static_cast<const v4l2_requestbuffers*>(argument)->count;
      break;
    case VIDIOC_QUERYBUF:
    case VIDIOC_QBUF:
    case VIDIOC_DQBUF:
      reply.buffer = *static_cast<const v4l2_buffer*>(argument);
  }
  Note(reply);
  return result;
}

int VideoDriver::AnswerRequest(unsigned long request, void* argument) {
  const bool fails = Fails();
  if (fails) Fail();
  const int error = errno;
  // A failing driver may write an answer, unless the call must be repeated.
  const bool answers = !fails || (answers_.ConsumeBool() && !MustBeMadeAgain(request));
  int result = 0;
  if (answers) {
    switch (request) {
      case VIDIOC_QUERYCAP: {
        auto& capability = *static_cast<v4l2_capability*>(argument);
        capability.capabilities = V4L2_CAP_VIDEO_CAPTURE;
        if (NextAnswer() != kSane) Scribble(capability);
        break;
      }
      case VIDIOC_TRY_FMT:
        Require(static_cast<v4l2_format*>(argument)->type == V4L2_BUF_TYPE_VIDEO_CAPTURE,
                "a capture format");
        [[fallthrough]];
      case VIDIOC_S_FMT:
        SetFormat(*static_cast<v4l2_format*>(argument));
        break;
      case VIDIOC_REQBUFS:
        result = Grant(*static_cast<v4l2_requestbuffers*>(argument));
        break;
      case VIDIOC_QUERYBUF:
        Describe(*static_cast<v4l2_buffer*>(argument));
        break;
      case VIDIOC_QBUF:
        result = Queue(*static_cast<v4l2_buffer*>(argument));
        break;
      case VIDIOC_DQBUF:
        result = Dequeue(*static_cast<v4l2_buffer*>(argument));
        break;
      case VIDIOC_STREAMON:
        break;
      case VIDIOC_STREAMOFF:
        queued_.clear();
        break;
      default:
        Require(false, "the request is one of a capture program");
    }
  }
  if (!fails) return result;
  errno = error;
  return -1;
}

void VideoDriver::SetFormat(v4l2_format& format) {
  frame_bytes_ = format.fmt.pix.width * format.fmt.pix.height;
  switch (NextAnswer()) {
    case kSane:
      break;
    case kBent:
      format.fmt.pix.width = answers_.ConsumeIntegralInRange<__u32>(0, 4096);
      format.fmt.pix.height = answers_.ConsumeIntegralInRange<__u32>(0, 4096);
      break;
    case kWild:
      format.fmt.pix.sizeimage = answers_.ConsumeIntegral<__u32>();
      format.fmt.pix.pixelformat = answers_.ConsumeIntegral<__u32>();
      break;
    case kScribbled:
      Scribble(format);
  }
}

int VideoDriver::Grant(v4l2_requestbuffers& request) {
  memory_ = request.memory;
  queued_.clear();
  switch (NextAnswer()) {
    case kSane:
      request.count = std::min<__u32>(request.count, 32);
      break;
    case kBent:
      request.count = answers_.ConsumeIntegralInRange<__u32>(0, 40);
      break;
    case kWild:
      request.count = answers_.ConsumeIntegral<__u32>();
      break;
    case kScribbled:
      Scribble(request);
  }
  granted_ = request.count;
  return 0;
}

void VideoDriver::Describe(v4l2_buffer& buffer) {
  Require(buffer.index < granted_, "a granted buffer is asked for");
  buffer.length = frame_bytes_;
  buffer.m.offset = buffer.index * frame_bytes_;
  switch (NextAnswer()) {
    case kSane:
      break;
    case kBent:
      buffer.length = answers_.ConsumeIntegralInRange<__u32>(0, 8192);
      break;
    case kWild:
      buffer.length = answers_.ConsumeIntegral<__u32>();
      buffer.m.offset = answers_.ConsumeIntegral<__u32>();
      buffer.index = answers_.ConsumeIntegral<__u32>();
      break;
    case kScribbled:
      Scribble(buffer);
  }
}

int VideoDriver::Queue(v4l2_buffer& buffer) {
  if (buffer.memory == V4L2_MEMORY_USERPTR && memory_ == V4L2_MEMORY_USERPTR) {
    Require(buffer.m.userptr == 0 || Maps(reinterpret_cast<const void*>(buffer.m.userptr), 0),
            "a buffer lies in the DMA area");
  }
  if (buffer.index < granted_) queued_.push_back(buffer.index);
  switch (NextAnswer()) {
    case kSane:
      break;
    case kBent:
      buffer.flags = answers_.ConsumeIntegral<__u32>();
      break;
    case kWild:
      buffer.index = answers_.ConsumeIntegral<__u32>();
      break;
    case kScribbled:
      Scribble(buffer);
  }
  return 0;
}

int VideoDriver::Dequeue(v4l2_buffer& buffer) {
  const Answer answer = NextAnswer();
  if (answer == kSane) {
    // A real driver waits here.
    if (queued_.empty()) return errno = EAGAIN, -1;
    buffer.index = queued_.front();
    queued_.erase(queued_.begin());
    buffer.sequence = answers_.ConsumeIntegral<__u32>();
    buffer.bytesused = answers_.ConsumeIntegral<__u32>();
    buffer.length = answers_.ConsumeIntegral<__u32>();
  } else if (answer == kScribbled) {
    Scribble(buffer);
  } else {
    buffer.index = answer == kBent ? answers_.ConsumeIntegralInRange<__u32>(0, 40)
                                   : answers_.ConsumeIntegral<__u32>();
    buffer.bytesused = answers_.ConsumeIntegral<__u32>();
  }
  return 0;
}

void* VideoDriver::Map(std::size_t length, int fd, off_t) {
  const Allocations::NotNow ours;
  Require(open_.count(fd) == 1, "what is mapped is open");
  Begin(Reply::kMap);
  void* const address = AnswerMap(length);
  const bool fails = address == MAP_FAILED;
  Note({.call = Reply::kMap,
        .error = fails ? errno : 0,
        .map = fails ? nullptr : static_cast<std::byte*>(address)});
  return address;
}

void* VideoDriver::AnswerMap(std::size_t length) {
  const bool fails = Fails();
  if (fails || length == 0 || length > kMaxMapped || mappings_.size() == kMaxMappings) {
    errno = length == 0 ? EINVAL : ENOMEM;
    return MAP_FAILED;
  }
  auto memory = std::make_unique<std::byte[]>(length);
  std::byte* const address = memory.get();
  memset(address, 0xA5, length);
  mappings_[address] = {length, std::move(memory)};
  return address;
}

int VideoDriver::Unmap(void* address, std::size_t length) {
  const Allocations::NotNow ours;
  const auto mapping = mappings_.find(static_cast<std::byte*>(address));
  Require(mapping != mappings_.end(), "what is unmapped is mapped");
  Require(length == unmap_length_.value_or(mapping->second.first), "the length is unmapped");
  mappings_.erase(mapping);
  return 0;
}

// The attributes of the DMA area take one number each. The offset comes before the size.
ssize_t VideoDriver::Write(int fd, const void* data, std::size_t size) {
  const Allocations::NotNow ours;
  Begin(Reply::kWrite);
  const std::string& path = open_.at(fd);
  const std::string_view text(static_cast<const char*>(data), size);
  std::size_t number = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
  Require(parsed.ec == std::errc() && parsed.ptr == text.data() + text.size(), "a decimal number");
  if (path.ends_with("sync_offset")) sync_offset_ = number;
  if (path.ends_with("sync_size")) {
    const bool inside =
        std::any_of(mappings_.begin(), mappings_.end(), [=, this](const auto& area) {
          const std::size_t mapped = area.second.first;
          return sync_offset_ <= mapped && number <= mapped - sync_offset_;
        });
    Require(inside, "what is synchronised lies in the DMA area");
  }
  const bool fails = Fails();
  if (fails) Fail();
  End(Reply::kWrite, fails);
  return fails ? -1 : static_cast<ssize_t>(size);
}

}  // namespace tessaline_fuzz
