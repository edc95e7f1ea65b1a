#include "record/BagCut.h"

#include <fmt/format.h>

#include <filesystem>
#include <system_error>
#include <vector>

#include "Failure.h"
#include "record/BagWriter.h"
#include "record/RegisterValues.h"
#include "record/SalvageReader.h"
#include "record/StripWalk.h"

namespace tool {
namespace {

bool IsFrame(Topic topic) { return topic == Topic::kStrips || topic == Topic::kImages; }
// Made from frames, by nobody knows which.
bool IsMadeOfFrames(Topic topic) { return topic == Topic::kPoints || topic == Topic::kPicture; }

class Cutter {
 public:
  Cutter(const BagSource& from, const BagRange& range, const std::function<bool()>& stop)
      : from_(from), range_(range), stop_(stop), registers_(from.path) {}

  // Where the wanted part begins and ends.
  Span Find() {
    Span part;
    ForEach([&](const StoredMessage& message) {
      if (!InTime(message.stamp_ns)) return;
      if (!ById() || (IsFrame(message.topic) && HasFrame(message))) part.Add(message.stamp_ns);
    });
    return part;
  }

  BagCutResult Write(const std::string& to, const Span& part) {
    BagWriter writer(to);
    try {
      bool begun = false;
      damaged_ = 0;
      ForEach([&](const StoredMessage& message) {
        const bool before = message.stamp_ns < *part.from_ns;
        if (before) Remember(message);
        begun |= !before && message.stamp_ns <= part.to_ns;
        // Again when something came late, behind messages that are younger.
        if (begun) WriteState(writer, *part.from_ns);
        if (!before && message.stamp_ns <= part.to_ns) Copy(writer, message);
      });
      writer.Close();
    } catch (...) {
      Remove(to);
      throw;
    }
    result_.damaged = damaged_;
    return std::move(result_);
  }

 private:
  bool ById() const { return range_.first_id || range_.last_id; }
  bool InTime(std::int64_t ns) const {
    return ns >= range_.from_ns.value_or(INT64_MIN) && ns <= range_.to_ns.value_or(INT64_MAX);
  }
  bool Wanted(std::uint64_t id) const {
    return id >= range_.first_id.value_or(0) && id <= range_.last_id.value_or(UINT64_MAX);
  }

  // Calls `use` with every message that is whole.
  template <typename Use>
  void ForEach(Use use) {
    SalvageReader reader(from_);
    while (const auto message = reader.Next()) {
      if (stop_()) throw Failure(ExitCode::kInterrupted, fmt::format("{}: not cut", from_.path));
      if (!IsWhole(*message)) {
        ++damaged_;
        continue;
      }
      use(*message);
    }
    damaged_ += reader.damaged();
  }

  bool HasFrame(const StoredMessage& message) const {
    if (message.topic == Topic::kImages) return Wanted(IdOf(message.As<ImageMessage>()));
    bool has = false;
    WalkStrips(message.As<StripsMessage>(),
               [&](const auto& header, const auto&) { has |= Wanted(header.frame_id); });
    return has;
  }
  static std::uint64_t IdOf(const ImageMessage& image) {
    tessaline_image_header header{};
    ReadHeader(image, header);
    return header.frame_id;
  }

  // What holds until something else is said.
  void Remember(const StoredMessage& message) {
    if (message.topic == Topic::kRegisters) {
      registers_.Set(message.As<RegisterMessage>());
    } else if (message.topic == Topic::kDevice) {
      device_.Add(message.As<DeviceMessage>().json);
    } else if (message.topic == Topic::kLosses) {
      losses_ = message.As<LossesMessage>();
    }
  }

  void WriteState(BagWriter& writer, std::int64_t now) {
    const auto put = [&](auto message) {
      message.stamp_ns = now;
      Put(writer, message);
    };
    if (!device_.all().empty()) put(DeviceMessage{0, device_.all().dump()});
    for (const auto& [address, value] : registers_.all()) put(value);
    if (losses_) put(*losses_);
    device_ = {};
    registers_.Clear();
    losses_.reset();
  }

  void Copy(BagWriter& writer, const StoredMessage& message) {
    if (message.topic == Topic::kStrips && ById()) {
      CopyStrips(writer, message.As<StripsMessage>());
    } else if (message.topic != Topic::kImages || Wanted(IdOf(message.As<ImageMessage>()))) {
      if (ById() && IsMadeOfFrames(message.topic)) return;
      PutBytes(writer, message.topic, message.stamp_ns, message.cdr);
    }
  }

  void CopyStrips(BagWriter& writer, StripsMessage buffer) {
    std::vector<std::byte> kept;
    std::uint32_t strips = 0;
    WalkStrips(buffer, [&](const auto& header, std::span<const std::byte> bytes) {
      if (!Wanted(header.frame_id)) return;
      kept.insert(kept.end(), bytes.begin(), bytes.end());
      ++strips;
    });
    if (strips == 0) return;
    buffer.strips = strips;
    buffer.data = kept;
    Put(writer, buffer);
  }

  template <typename Message>
  void Put(BagWriter& writer, const Message& message) {
    PutBytes(writer, Message::kTopic, message.stamp_ns, Encode(message));
  }
  void PutBytes(BagWriter& writer, Topic topic, std::int64_t stamp_ns,
                std::span<const std::byte> cdr) {
    writer.Write(topic, stamp_ns, cdr);
    result_.contents.Add({.id = 0, .topic = topic, .stamp_ns = stamp_ns, .cdr = cdr});
  }

  // What is half written is of no use, and was made by us.
  static void Remove(const std::string& path) {
    std::error_code ignored;
    for (const char* end : {"", "-journal"}) std::filesystem::remove(path + end, ignored);
  }

  const BagSource from_;
  const BagRange range_;
  const std::function<bool()>& stop_;
  RegisterValues registers_;
  DeviceNotes device_;
  std::optional<LossesMessage> losses_;
  std::uint64_t damaged_ = 0;
  BagCutResult result_;
};

}  // namespace

std::int64_t StartOf(const BagSource& source) {
  SalvageReader reader(source);
  const auto first = reader.Next();
  return first ? first->stamp_ns : 0;
}

BagCutResult CutBag(const BagSource& from, const std::string& to, const BagRange& range,
                    const std::function<bool()>& stop) {
  Cutter cutter(from, range, stop);
  const Span part = cutter.Find();
  if (!part.from_ns) {
    throw Failure(ExitCode::kNegative, fmt::format("{}: nothing of it is in this range", from.path),
                  "\"tessaline bag info\" shows its times and frame ids");
  }
  return cutter.Write(to, part);
}

}  // namespace tool
