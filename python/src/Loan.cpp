#include "Loan.h"

#include <sys/mman.h>

#include <atomic>
#include <cstring>
#include <new>

namespace python {

namespace {

// A process may have 65530 mappings. Beyond this many, arrays that outlived their turn, new
// deliveries are copied at once.
constexpr int kMostDetached = 20'000;
std::atomic<int> detached_loans = 0;

}  // namespace

std::shared_ptr<Loan> Loan::Of(const void* data, std::size_t bytes) {
  if (bytes == 0 || detached_loans > kMostDetached) return CopyOf(data, bytes);
  const auto place = SecondMappings::Instance().Lend(data, bytes);
  if (!place) return CopyOf(data, bytes);
  std::shared_ptr<Loan> loan(new Loan);
  loan->pages_ = place->pages;
  loan->data_ = place->pages.begin + place->offset;
  loan->bytes_ = bytes;
  return loan;
}

std::shared_ptr<Loan> Loan::CopyOf(const void* data, std::size_t bytes) {
  std::shared_ptr<Loan> loan(new Loan);
  loan->copy_ = std::make_unique_for_overwrite<std::uint8_t[]>(bytes);
  std::memcpy(loan->copy_.get(), data, bytes);
  loan->data_ = loan->copy_.get();
  loan->bytes_ = bytes;
  return loan;
}

Loan::~Loan() {
  if (!detached_) return;
  munmap(pages_.begin, pages_.bytes);
  --detached_loans;
}

bool Loan::borrowed() const {
  const std::lock_guard lock(mutex_);
  return pages_.begin != nullptr && !detached_;
}

void Loan::Detach() {
  const std::lock_guard lock(mutex_);
  if (pages_.begin == nullptr || detached_) return;
  const std::size_t offset = static_cast<std::size_t>(data_ - pages_.begin);
  const std::size_t used = (offset + bytes_ + PageSize() - 1) / PageSize() * PageSize();
  void* const copy =
      mmap(nullptr, used, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (copy == MAP_FAILED) throw std::bad_alloc();
  std::memcpy(static_cast<std::uint8_t*>(copy) + offset, data_, bytes_);
  // The copy takes the place of the second mapping in one step, so readers never see a gap.
  if (mprotect(copy, used, PROT_READ) != 0 ||
      mremap(copy, used, used, MREMAP_MAYMOVE | MREMAP_FIXED, pages_.begin) == MAP_FAILED) {
    munmap(copy, used);
    throw std::bad_alloc();
  }
  SecondMappings::Instance().GiveAway(pages_);
  if (pages_.bytes > used) munmap(pages_.begin + used, pages_.bytes - used);
  pages_.bytes = used;
  detached_ = true;
  ++detached_loans;
}

}  // namespace python
