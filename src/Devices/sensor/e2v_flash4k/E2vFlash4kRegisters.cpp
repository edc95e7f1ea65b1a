// Register access of the e2v Flash 4K's driver: single registers with their failure
// texts, and lists page by page.
#include <algorithm>
#include <cstdio>

#include "Devices/bus/Bytes.h"
#include "Devices/sensor/e2v_flash4k/E2vFlash4k.h"
#include "Devices/sensor/e2v_flash4k/E2vPages.h"
#include "Devices/sensor/e2v_flash4k/E2vTexts.h"
#include "log/Log.h"

namespace VeltranoSDK {

bool E2vFlash4k::Write(const e2v::Write& write, const char* failure) {
  if (e2v_spi_.Write(write.address, write.value)) return true;
  PrintRegister(failure, write.named);
  return false;
}

bool E2vFlash4k::WriteAll(std::span<const e2v::Write> writes, const char* failure) {
  return std::all_of(writes.begin(), writes.end(),
                     [&](const e2v::Write& write) { return Write(write, failure); });
}

bool E2vFlash4k::Update(std::uint16_t address, std::uint16_t mask, std::uint16_t bits,
                        const char* failure) {
  const auto [ok, old] = e2v_spi_.Read(address);
  if (ok) return Write({address, LowHalf(Replaced(old, mask, bits))}, failure);
  PrintRegister(failure, address);
  return false;
}

void E2vFlash4k::PrintRegister(const char* format, std::uint16_t address) {
  char text[80];
  snprintf(text, sizeof text, format, address);
  puts(text);
}

bool E2vFlash4k::WriteList(std::span<const e2v::PagedEntry> list) {
  return e2v::ForEachPage(list,
                          [this](unsigned char page, std::span<const e2v::PagedEntry> entries) {
                            return WritePage(page, entries);
                          });
}

bool E2vFlash4k::LoadTable(std::span<const e2v::PagedEntry> table) {
  return e2v::ForEachPage(table,
                          [this](unsigned char page, std::span<const e2v::PagedEntry> entries) {
                            if (!e2v_spi_.Wpage(page)) {
                              printf(e2v::kInitWpageFailed, page);
                              return false;
                            }
                            return WritePage(page, entries);
                          });
}

bool E2vFlash4k::WritePage(unsigned char page, std::span<const e2v::PagedEntry> entries) {
  std::vector<std::uint16_t> kept;
  for (const e2v::PagedEntry& entry : entries) {
    if (entry.mask != e2v::kAllBits) kept.push_back(entry.address);
  }
  std::pair<bool, std::vector<std::uint16_t>> held{true, {}};
  if (!kept.empty()) held = BatchReadRegister(page, kept);
  if (!held.first) return false;

  auto next_held = held.second.begin();
  std::vector<std::uint16_t> addresses;
  std::vector<std::uint16_t> values;
  for (const e2v::PagedEntry& entry : entries) {
    const unsigned int old = entry.mask == e2v::kAllBits ? 0 : *next_held++;
    addresses.push_back(entry.address);
    values.push_back(LowHalf(Replaced(old, entry.mask, entry.value)));
  }
  return BatchWriteRegister(addresses, {page, values});
}

bool E2vFlash4k::BatchWriteRegister(
    const std::vector<std::uint16_t>& addresses,
    const std::pair<unsigned char, std::vector<std::uint16_t>>& page_value) {
  Trace(__func__);
  const auto& [page, values] = page_value;
  if (addresses.size() != values.size()) {
    puts(e2v::kBatchSizesDiffer);
    return false;
  }
  if (!e2v_spi_.Wpage(page)) {
    printf(e2v::kBatchWpageFailed, page);
    return false;
  }
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (e2v_spi_.Write(addresses[i], values[i])) continue;
    printf(e2v::kBatchWriteFailed, addresses[i]);
    e2v_spi_.Wpage(0);
    return false;
  }
  return ReturnToPage0(e2v::kBatchWpageFailed);
}

std::pair<bool, std::vector<std::uint16_t>> E2vFlash4k::BatchReadRegister(
    unsigned char page, const std::vector<std::uint16_t>& addresses) {
  Trace(__func__);
  std::vector<std::uint16_t> values;
  if (!e2v_spi_.Wpage(page)) {
    printf(e2v::kBatchReadWpageFailed, page);
    return {false, values};
  }
  for (const std::uint16_t address : addresses) {
    const auto [ok, value] = e2v_spi_.Read(address);
    if (!ok) {
      printf(e2v::kBatchReadFailed, address);
      e2v_spi_.Wpage(0);
      return {false, values};
    }
    values.push_back(value);
  }
  return {ReturnToPage0(e2v::kBatchReadWpageFailed), values};
}

bool E2vFlash4k::ReturnToPage0(const char* failure) {
  if (e2v_spi_.Wpage(0)) return true;
  printf(failure, 0);
  return false;
}

}  // namespace VeltranoSDK
