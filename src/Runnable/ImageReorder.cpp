#include "Runnable/ImageReorder.h"

#include <string.h>

#include <algorithm>
#include <array>

namespace VeltranoSDK {

namespace {

constexpr std::size_t kPlanes = 4;
constexpr std::size_t kBlockBytes = 16;
constexpr std::size_t kGroupBytes = kPlanes * kBlockBytes;
constexpr std::size_t kChunkBytes = ReorderScratch::kChunkBytes;
static_assert(ReorderScratch::kOverlapBytes >= kBlockBytes && kChunkBytes % kGroupBytes == 0);

using Sources = std::array<const std::byte*, kPlanes>;

struct Block {
  std::byte bytes[kBlockBytes];
};

Block BlockAt(const std::byte* data) {
  Block block;
  memcpy(&block, data, sizeof block);
  return block;
}

// Written out in full so that a group goes through four vector registers.
void Merge(std::byte* out, const Sources& planes, std::size_t plane_bytes) {
  for (std::size_t at = 0; at < plane_bytes; at += kBlockBytes) {
    const Block block0 = BlockAt(planes[0] + at);
    const Block block1 = BlockAt(planes[1] + at);
    const Block block2 = BlockAt(planes[2] + at);
    const Block block3 = BlockAt(planes[3] + at);
    std::byte* const group = out + kPlanes * at;
    memcpy(group, &block0, sizeof block0);
    memcpy(group + kBlockBytes, &block1, sizeof block1);
    memcpy(group + 2 * kBlockBytes, &block2, sizeof block2);
    memcpy(group + 3 * kBlockBytes, &block3, sizeof block3);
  }
}

// Where the planes lie in the buffer. They overlap when the region is larger than the frame.
struct Planes {
  std::size_t distance;
  std::size_t bytes;  // of each: whole blocks

  std::size_t Offset(std::size_t plane, std::size_t at) const { return plane * distance + at; }

  // Whether any byte from `begin` to `end` still has to be merged, when the first `merged` bytes of
  // every plane have been.
  bool Unread(std::size_t begin, std::size_t end, std::size_t merged) const {
    for (std::size_t k = 0; k < kPlanes; ++k) {
      if (std::max(begin, Offset(k, merged)) < std::min(end, Offset(k, bytes))) return true;
    }
    return false;
  }
};

// Merges the part of the image from `out` to `out_end`. Blocks below `out_end` are overwritten now
// or already have been, so they are read from their copies.
void MergeChunk(std::byte* buffer, const Planes& planes, std::size_t out, std::size_t out_end,
                const ReorderScratch& scratch) {
  std::size_t at = out / kPlanes;
  while (at < out_end / kPlanes) {
    std::size_t run = out_end / kPlanes - at;
    Sources sources;
    for (std::size_t k = 0; k < kPlanes; ++k) {
      const std::size_t from = planes.Offset(k, at);
      if (from >= out_end) {
        sources[k] = buffer + from;
        continue;
      }
      const std::size_t in_chunk = from % kChunkBytes;
      sources[k] = scratch.Saved(from / kChunkBytes) + in_chunk;
      const std::size_t blocks = (kChunkBytes - in_chunk + kBlockBytes - 1) / kBlockBytes;
      run = std::min(run, blocks * kBlockBytes);
    }
    Merge(buffer + kPlanes * at, sources, run);
    at += run;
  }
}

}  // namespace

void ReorderScratch::Begin(std::size_t chunks) {
  slot_of_chunk_.assign(chunks, kNowhere);
  free_slots_.clear();
  for (std::size_t slot = slots_.size() / kSlotBytes; slot > 0; --slot) {
    free_slots_.push_back(static_cast<std::uint32_t>(slot - 1));
  }
}

const std::byte* ReorderScratch::Saved(std::size_t chunk) const {
  return slots_.data() + slot_of_chunk_[chunk] * kSlotBytes;
}

void ReorderScratch::Save(std::size_t chunk, const std::byte* data, std::size_t size) {
  if (free_slots_.empty()) {
    free_slots_.push_back(static_cast<std::uint32_t>(slots_.size() / kSlotBytes));
    slots_.resize(slots_.size() + kSlotBytes);
  }
  const std::uint32_t slot = free_slots_.back();
  free_slots_.pop_back();
  slot_of_chunk_[chunk] = slot;
  memcpy(slots_.data() + slot * kSlotBytes, data, size);
}

void ReorderScratch::Release(std::size_t chunk) {
  if (chunk >= slot_of_chunk_.size() || slot_of_chunk_[chunk] == kNowhere) return;
  free_slots_.push_back(slot_of_chunk_[chunk]);
  slot_of_chunk_[chunk] = kNowhere;
}

// The image grows from offset 0 over the planes, chunk by chunk. A chunk of the buffer that holds
// unread data is copied just before the image covers it, and the copy is used up soon after. Half
// of the frame passes through the scratch memory, but never more than a quarter at a time.
bool ReorderImage(std::byte* buffer, std::size_t size, const ImageFrame& frame,
                  ReorderScratch& scratch) {
  if (frame.full_pixels / kPlanes > size || frame.image_pixels > size) return false;
  const std::size_t quarter = frame.full_pixels / kPlanes;
  const std::size_t image = frame.image_pixels;
  const std::size_t header_at = 3 * quarter + image / kPlanes;
  if (header_at + kImageHeaderBytes > size || image + kImageHeaderBytes > size) return false;

  std::array<std::byte, kImageHeaderBytes> header;
  memcpy(header.data(), buffer + header_at, header.size());

  const std::size_t end = image / kGroupBytes * kGroupBytes;
  const Planes planes{quarter, end / kPlanes};
  scratch.Begin((end + kChunkBytes - 1) / kChunkBytes);

  for (std::size_t out = 0; out < end; out += kChunkBytes) {
    const std::size_t out_end = std::min(out + kChunkBytes, end);
    if (planes.Unread(out, out_end, out / kPlanes)) {
      scratch.Save(out / kChunkBytes, buffer + out,
                   std::min(kChunkBytes + ReorderScratch::kOverlapBytes, size - out));
    }
    MergeChunk(buffer, planes, out, out_end, scratch);
    for (std::size_t k = 0; k < kPlanes; ++k) {
      const std::size_t chunk = planes.Offset(k, out / kPlanes) / kChunkBytes;
      if (!planes.Unread(chunk * kChunkBytes, (chunk + 1) * kChunkBytes, out_end / kPlanes)) {
        scratch.Release(chunk);
      }
    }
  }

  memset(buffer + end, 0, image - end);
  memcpy(buffer + image, header.data(), header.size());
  return true;
}

}  // namespace VeltranoSDK
