#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace python {

// Pages that show the same memory as another mapping of this process, read-only.
struct Pages {
  std::uint8_t* begin = nullptr;
  std::size_t bytes = 0;
};

// Maps driver buffers a second time.
//
// An array of Python may live longer than its buffer may be kept. So arrays never point into the
// library's mapping. They point into a second one of the same memory, which belongs to us alone: we
// can put a copy of the content in its place, at the same address, and give the buffer back
// (Loan.h).
//
// A second mapping stays for the next delivery of the same buffer, until a copy takes its place.
class SecondMappings {
 public:
  static SecondMappings& Instance();

  // Pages that hold this memory, and where in them it begins. Nothing: it cannot be mapped again,
  // because it is not shared memory or its driver refuses.
  struct Place {
    Pages pages;
    std::size_t offset;
  };
  std::optional<Place> Lend(const void* data, std::size_t bytes);
  // The pages are the borrower's from now on.
  void GiveAway(const Pages& pages);

 private:
  // The library's mapping around an address. They stay from the start to the end of the process, so
  // each is looked up once.
  struct Mapping {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    long offset = 0;
    std::string path;
  };
  static std::optional<Mapping> LookUp(std::uintptr_t address);
  const Mapping* MappingOf(std::uintptr_t address);
  static void* MapAgain(std::uintptr_t first, std::size_t bytes, const Mapping& mapping);

  std::mutex mutex_;
  std::vector<Mapping> mappings_;
  std::map<std::uintptr_t, Pages> pages_;  // by the first page of the library's mapping
};

std::size_t PageSize();

}  // namespace python
