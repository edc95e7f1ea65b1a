#pragma once

#include <algorithm>
#include <cstddef>
#include <span>

#include "Devices/sensor/e2v_flash4k/E2vTable.h"

namespace VeltranoSDK::e2v {

// Calls use(page, entries) for each run of entries with the same page, in order. Stops and returns
// false when a call returns false.
template <typename Use>
bool ForEachPage(std::span<const PagedEntry> list, Use use) {
  while (!list.empty()) {
    const unsigned char page = list.front().page;
    const auto end = std::find_if(list.begin(), list.end(),
                                  [page](const PagedEntry& entry) { return entry.page != page; });
    const auto count = static_cast<std::size_t>(end - list.begin());
    if (!use(page, list.first(count))) return false;
    list = list.subspan(count);
  }
  return true;
}

}  // namespace VeltranoSDK::e2v
