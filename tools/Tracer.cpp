#include "Tracer.h"

#include <charconv>

namespace tool {
namespace {

constexpr std::string_view kRead = "fpga_read_addr: ";
constexpr std::string_view kWrite = "fpga_write_addr: ";

}  // namespace

void Tracer::Listen() { log_add_callback(Sink, this, TESSALINE_LOG_TRACE); }

std::vector<Tracer::Line> Tracer::Lines() {
  const std::lock_guard lock(mutex_);
  return lines_;
}

void Tracer::Sink(log_Event* event) {
  auto* const self = static_cast<Tracer*>(event->udata);
  char text[512];
  vsnprintf(text, sizeof text, event->fmt, event->ap);
  std::string trimmed = text;
  while (!trimmed.empty() && (trimmed.back() == '\n' || trimmed.back() == ' ')) trimmed.pop_back();
  Line line = self->Decode(trimmed);
  const std::lock_guard lock(self->mutex_);
  self->lines_.push_back(std::move(line));
}

Tracer::Line Tracer::Decode(const std::string& text) const {
  const bool write = text.starts_with(kWrite);
  if (!write && !text.starts_with(kRead)) return {false, false, 0, text};
  const std::string_view digits = std::string_view(text).substr((write ? kWrite : kRead).size());
  std::uint32_t address = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), address, 16);
  const fpga::Register* const reg = registers_.At(address);
  return {true, write, address, reg == nullptr ? "outside the register map" : FullName(*reg)};
}

}  // namespace tool
