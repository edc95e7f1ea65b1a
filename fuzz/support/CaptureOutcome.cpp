#include "support/CaptureOutcome.h"

#include <errno.h>
#include <string.h>

#include "support/Require.h"

namespace tessaline_fuzz {

namespace {

constexpr int kEnds = 255;
constexpr int kBuffersEnd = 1;

std::string Perror(const std::string& what, int error) {
  return what + ": " + strerror(error) + "\n";
}

std::string Reason(const std::string& what, int error, const char* end) {
  return what + " failed: " + strerror(error) + " (" + std::to_string(error) + ")" + end;
}

void End(CaptureOutcome& outcome, const char* step, int error) {
  outcome.text += CaptureOutcome::kPlace + Perror(step, error);
  outcome.status = kEnds;
}

std::string StepText(const Reply& reply) {
  switch (reply.call) {
    case VIDIOC_TRY_FMT:
      return Reason("VIDIOC_TRY_FMT", reply.error, "\n");
    case VIDIOC_S_FMT:
      return Reason("VIDIOC_S_FMT", reply.error, "\n");
    case VIDIOC_QBUF:
      return Reason("VIDIOC_QBUF", reply.error, "");
    case VIDIOC_DQBUF:
      return Perror("ioctl", reply.error) + Reason("VIDIOC_DQBUF", reply.error, "");
    case VIDIOC_STREAMON:
      return Reason("VIDIOC_STREAMON", reply.error, "");
    case VIDIOC_STREAMOFF:
      return Reason("VIDIOC_STREAMOFF", reply.error, "");
  }
  Require(false, "a step's request");
  return {};
}

const char* BufferStep(unsigned long call) {
  switch (call) {
    case VIDIOC_REQBUFS:
      return "Requesting Buffer";
    case VIDIOC_QUERYBUF:
      return "Querying Buffer";
    case Reply::kMap:
      return "mmap";
    case VIDIOC_QBUF:
      return "Queue Buffer";
  }
  Require(false, "a request for buffers");
  return nullptr;
}

// Adds the outcome of the buffer steps, in order, to the earlier text.
void AddBuffers(CaptureOutcome& outcome, const Replies& replies, std::size_t first) {
  constexpr unsigned long kEach[] = {VIDIOC_QUERYBUF, Reply::kMap, VIDIOC_QBUF};
  Require(first < replies.size() && replies[first].call == VIDIOC_REQBUFS, "buffers asked for");
  const Reply& request = replies[first];
  for (std::size_t i = first; i < replies.size(); ++i) {
    const Reply& reply = replies[i];
    Require(i == first || reply.call == kEach[(i - first - 1) % std::size(kEach)], "in this order");
    if (reply.error == 0) continue;
    Require(i + 1 == replies.size(), "nothing more behind a failure");
    outcome.text += Perror(BufferStep(reply.call), reply.error);
    outcome.status = kBuffersEnd;
    return;
  }
  const std::size_t done = replies.size() - first - 1;
  if (done == std::size_t{request.granted} * std::size(kEach)) return;
  // The only other reason to stop is missing memory for the records.
  Require(done == 0 && request.granted > 1'000'000, "all buffers are set up");
  outcome.text += Perror("calloc", ENOMEM);
  outcome.status = kBuffersEnd;
}

}  // namespace

CaptureOutcome StepOutcome(const Replies& replies) {
  CaptureOutcome outcome;
  for (const Reply& reply : replies) {
    outcome.result = reply.error == 0 ? 0 : -1;
    if (reply.error != 0) outcome.text += StepText(reply);
  }
  return outcome;
}

CaptureOutcome OpenOutcome(const Replies& replies, bool path) {
  if (!path) {
    Require(replies.empty(), "nothing is opened");
    return {std::string("v4l2_open failed: ") + strerror(EFAULT) + "\n", {}, -1};
  }
  Require(!replies.empty() && replies[0].call == Reply::kOpen, "the device is opened");
  Require(replies[0].path == "/dev/video0", "this one");
  if (replies[0].error != 0) {
    return {std::string("v4l2_open failed: ") + strerror(replies[0].error) + "\n", {}, -1};
  }
  Require(replies.size() > 1 && replies[1].call == VIDIOC_QUERYCAP, "it is asked what it can");
  if (replies[1].error != 0) return {Perror("Setting Pixel Format", replies[1].error), {}, -1};
  if ((replies[1].capabilities & V4L2_CAP_VIDEO_CAPTURE) == 0) {
    return {"Not a capture device", {}, -1};
  }
  return {};
}

CaptureOutcome SwitchOutcome(const Replies& replies, const char* step) {
  Require(replies.size() == 1, "one request");
  CaptureOutcome outcome = StepOutcome(replies);
  if (outcome.result != 0) End(outcome, step, replies[0].error);
  return outcome;
}

CaptureOutcome CreateOutcome(const Replies& replies) {
  CaptureOutcome outcome = OpenOutcome(replies, true);
  if (outcome.result != 0) {
    const Reply& last = replies.back();
    Require(replies.size() <= 2, "no request behind a failure");
    End(outcome, "v4l2_open", last.error == 0 ? ENODEV : last.error);
    return outcome;
  }
  Require(
      replies.size() > 3 && replies[2].call == VIDIOC_TRY_FMT && replies[3].call == VIDIOC_S_FMT,
      "the format is set");
  const CaptureOutcome format = StepOutcome({replies[2], replies[3]});
  outcome.text += format.text;
  if (format.result != 0) {
    Require(replies.size() == 4, "no request behind a failure");
    End(outcome, "v4l2_setfmt", replies[3].error);
    return outcome;
  }
  AddBuffers(outcome, replies, 4);
  return outcome;
}

std::string WithoutPlace(std::string printed) {
  constexpr std::string_view kFile = "image/video.cpp(";
  const std::size_t from = printed.rfind(kFile);
  if (from == std::string::npos) return printed;
  const std::size_t number = from + kFile.size();
  const std::size_t end = printed.find_first_not_of("0123456789", number);
  if (end == number || end == std::string::npos || printed.compare(end, 2, ") ") != 0) {
    return printed;
  }
  return printed.replace(from, end + 2 - from, CaptureOutcome::kPlace);
}

}  // namespace tessaline_fuzz
