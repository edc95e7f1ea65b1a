#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fleet/Arrival.h"
#include "fleet/Gap.h"
#include "fleet/RunOrder.h"
#include "ring/RecordRing.h"

namespace tool::fleet {

// What a subscriber writes down: a record or a gap, whole; neither, of a message that is for
// others.
struct Delivery {
  std::string sensor;
  std::string run;
  std::uint64_t sequence = 0;  // of its last message
  bool run_is_over = false;    // nothing follows in this run
  bool damaged = false;        // its message did not say what its kind has to
  std::optional<Gap> gap{};
  std::optional<ring::Record> record{};  // its payload is one of the next two
  std::vector<std::byte> bytes{};
  std::string text{};
  std::int64_t stamp_ns = 0;
  std::uint64_t strips = 0, images = 0;
  std::uint64_t last_id = 0;        // of these; 0: not known
  std::vector<Message> messages{};  // to acknowledge once it is stored
};

// Joins the parts of buffers and images of one sensor, and says which frames are missing where
// messages are.
class Assembler {
 public:
  // The ids: of the last frames of the run that goes on, if one does.
  explicit Assembler(std::string sensor, std::uint64_t last_strip = 0, std::uint64_t last_image = 0)
      : sensor_(std::move(sensor)), last_strip_(last_strip), last_image_(last_image) {}

  // What is whole with this step.
  std::vector<Delivery> Add(RunOrder::Step step);

 private:
  Delivery NewDelivery(const std::string& run, std::uint64_t sequence, std::int64_t stamp_ns) const;
  void AddPart(Arrival arrival, std::vector<Delivery>& whole);
  // The rest of what was begun does not come.
  void GiveUp(std::vector<Delivery>& whole);
  void Clear();
  Delivery GapOf(Gap gap, std::uint64_t sequence, std::int64_t stamp_ns) const;
  Gap NewGap(const char* reason, const std::string& run) const;
  // What a message without frames says. Throws a Failure if it says nothing.
  static void Read(const Arrival& arrival, Delivery& delivery);

  const std::string sensor_;
  std::vector<Arrival> parts_;
  std::size_t bytes_ = 0;                  // of these
  std::int64_t stamp_ns_ = 0;              // of the last message
  std::uint64_t last_strip_, last_image_;  // ids, of the run
};

}  // namespace tool::fleet
