#include "reliability/ProcessGauge.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace tessaline_test {

namespace {

long Entries(const char* directory) {
  namespace fs = std::filesystem;
  return static_cast<long>(std::distance(fs::directory_iterator(directory), {}));
}

long StatusLine(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(name)) return std::stol(line.substr(name.size()));
  }
  return -1;
}

}  // namespace

void ProcessGauge::Quantity::Note(long value) {
  now = value;
  most = std::max(most, value);
}

void ProcessGauge::Read() {
  resident_.Note(StatusLine("VmRSS:"));
  descriptors_.Note(Entries("/proc/self/fd"));
  threads_.Note(Entries("/proc/self/task"));
}

void ProcessGauge::Start() {
  for (Quantity* quantity : {&resident_, &descriptors_, &threads_}) quantity->most = 0;
  Read();
  for (Quantity* quantity : {&resident_, &descriptors_, &threads_}) quantity->start = quantity->now;
  samples_ = 0;
}

void ProcessGauge::Sample() {
  Read();
  ++samples_;
}

std::vector<std::string> ProcessGauge::Complaints(long most_kib_more,
                                                  long most_descriptors_more) const {
  std::vector<std::string> complaints;
  const auto expect = [&](const Quantity& quantity, long value, long limit) {
    if (value <= limit) return;
    complaints.push_back(std::string(quantity.name) + ": " + std::to_string(value) + ", at first " +
                         std::to_string(quantity.start));
  };
  expect(resident_, resident_.most, resident_.start + most_kib_more);
  expect(descriptors_, descriptors_.now, descriptors_.start);
  expect(descriptors_, descriptors_.most, descriptors_.start + most_descriptors_more);
  expect(threads_, threads_.most, threads_.start);
  return complaints;
}

void ProcessGauge::Print() const {
  std::printf("%-14s %10s %10s %10s   (%ld samples)\n", "", "start", "most", "end", samples_);
  for (const Quantity* quantity : {&resident_, &descriptors_, &threads_}) {
    std::printf("%-14s %10ld %10ld %10ld\n", quantity->name, quantity->start, quantity->most,
                quantity->now);
  }
}

}  // namespace tessaline_test
