#include "fleet/DeliveryOrder.h"

#include <chrono>
#include <cstring>
#include <utility>

#include "tessaline/frames.h"

namespace tool::fleet {
namespace {

std::int64_t SteadyNs() {
  return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// What the FPGA noted with the first strip or the image; none for other records.
std::optional<tessaline_image_header> StampsOf(const Delivery& delivery) {
  tessaline_image_header stamps{};  // a strip's header begins with the same
  std::size_t from = 0;
  if (delivery.images > 0) {
    if (delivery.bytes.size() < sizeof stamps) return std::nullopt;
    from = delivery.bytes.size() - sizeof stamps;
  } else if (delivery.strips == 0 || delivery.bytes.size() < sizeof(tessaline_strip_header)) {
    return std::nullopt;
  }
  std::memcpy(&stamps, delivery.bytes.data() + from, sizeof stamps);
  return stamps;
}

}  // namespace

DeliveryOrder::DeliveryOrder(const Settings& settings)
    : settings_(settings), merger_({.patience_ns = settings.patience_ns}) {}

void DeliveryOrder::Join(const std::string& sensor) {
  if (Merges()) merger_.Join(sensor);
}

std::int64_t DeliveryOrder::KeyOf(const Delivery& delivery, Sensor& sensor) const {
  if (delivery.record && delivery.record->kind == ring::Kind::kClock) {
    sensor.clock.Add({delivery.stamp_ns, delivery.record->first, delivery.record->second});
  }
  const auto stamps = StampsOf(delivery);
  if (!stamps) return sensor.key;
  if (settings_.by == By::kEncoder) return static_cast<std::int64_t>(stamps->encoder_stamp);
  const auto time = sensor.clock.At(stamps->time_stamp);
  return time ? time->ns : delivery.stamp_ns;
}

void DeliveryOrder::Add(Delivery delivery) {
  if (!Merges()) return arrived_.push_back(std::move(delivery));
  Sensor& sensor = sensors_[delivery.sensor];
  sensor.key = KeyOf(delivery, sensor);
  const std::string name = delivery.sensor;
  const std::size_t bytes = delivery.bytes.size();
  const bool leaves = delivery.run_is_over;
  merger_.Add(name, sensor.key, std::move(delivery), bytes, SteadyNs());
  if (leaves) merger_.Leave(name);  // until it sends again
}

std::optional<Delivery> DeliveryOrder::Take(bool all) {
  if (!Merges()) {
    if (arrived_.empty()) return std::nullopt;
    Delivery first = std::move(arrived_.front());
    arrived_.pop_front();
    return first;
  }
  auto given = all ? merger_.TakeAnyway() : merger_.Take(SteadyNs());
  if (!given) return std::nullopt;
  return std::move(given->item);
}

}  // namespace tool::fleet
