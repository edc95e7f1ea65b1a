#include "Runnable/ImageReorder.h"

#include <string.h>

#include <algorithm>
#include <array>

namespace VeltranoSDK {

namespace {

constexpr std::size_t kPlanes = 4;
constexpr std::size_t kBlockBytes = 16;
constexpr std::size_t kGroupBytes = kPlanes * kBlockBytes;
constexpr std::size_t kPieceBytes = ReorderScratch::kPieceBytes;
constexpr std::size_t kGroupsPerPiece = kPieceBytes / kBlockBytes;

using Sources = std::array<const std::byte*, kPlanes>;

struct Block {
  std::byte bytes[kBlockBytes];
};

Block BlockAt(const std::byte* data) {
  Block block;
  memcpy(&block, data, sizeof block);
  return block;
}

// Spelled out, so that a group goes through four vector registers.
void Merge(std::byte* out, const Sources& planes, std::size_t groups) {
  for (std::size_t at = 0; at < groups * kBlockBytes; at += kBlockBytes) {
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

}  // namespace

void ReorderScratch::Begin(std::size_t pieces) { slot_of_piece_.assign(pieces, kNowhere); }

const std::byte* ReorderScratch::Saved(std::size_t piece) const {
  const std::uint32_t slot = slot_of_piece_[piece];
  return slot == kNowhere ? nullptr : slots_.data() + slot * kPieceBytes;
}

void ReorderScratch::Save(std::size_t piece, const std::byte* data, std::size_t size) {
  if (free_slots_.empty()) {
    free_slots_.push_back(static_cast<std::uint32_t>(slots_.size() / kPieceBytes));
    slots_.resize(slots_.size() + kPieceBytes);
  }
  const std::uint32_t slot = free_slots_.back();
  free_slots_.pop_back();
  slot_of_piece_[piece] = slot;
  memcpy(slots_.data() + slot * kPieceBytes, data, size);
}

void ReorderScratch::Release(std::size_t piece) {
  const std::uint32_t slot = slot_of_piece_[piece];
  if (slot == kNowhere) return;
  slot_of_piece_[piece] = kNowhere;
  free_slots_.push_back(slot);
}

// The image grows from offset 0 over the planes. Pieces of a plane that are still
// to be read are saved just before the image reaches them, and their copies are
// used up soon after: at no time more than about a quarter of the frame is held
// twice, and that stays in the cache.
bool ReorderImage(std::byte* buffer, std::size_t size, const ImageFrame& frame,
                  ReorderScratch& scratch) {
  if (frame.full_pixels / kPlanes > size || frame.image_pixels > size) return false;
  const std::size_t quarter = frame.full_pixels / kPlanes;
  const std::size_t image = frame.image_pixels;
  const std::size_t header_at = 3 * quarter + image / kPlanes;
  if (header_at + kImageHeaderBytes > size || image + kImageHeaderBytes > size) return false;

  std::array<std::byte, kImageHeaderBytes> header;
  memcpy(header.data(), buffer + header_at, header.size());

  const std::size_t groups = image / kGroupBytes;
  const std::size_t plane_bytes = groups * kBlockBytes;
  const std::size_t pieces = (plane_bytes + kPieceBytes - 1) / kPieceBytes;
  std::array<std::size_t, kPlanes> reached{};  // pieces the image has begun to cover
  scratch.Begin(kPlanes * pieces);

  for (std::size_t piece = 0; piece < pieces; ++piece) {
    const std::size_t first_group = piece * kGroupsPerPiece;
    const std::size_t merged = std::min(kGroupsPerPiece, groups - first_group);
    std::byte* const out = buffer + first_group * kGroupBytes;
    const std::byte* const out_end = out + merged * kGroupBytes;

    for (std::size_t k = 0; k < kPlanes; ++k) {
      for (std::size_t& next = reached[k]; next < pieces; ++next) {
        const std::byte* const data = buffer + k * quarter + next * kPieceBytes;
        if (data >= out_end) break;
        if (next < piece) continue;  // merged already
        scratch.Save(k * pieces + next, data,
                     std::min(kPieceBytes, plane_bytes - next * kPieceBytes));
      }
    }
    Sources planes;
    for (std::size_t k = 0; k < kPlanes; ++k) {
      const std::byte* const saved = scratch.Saved(k * pieces + piece);
      planes[k] = saved ? saved : buffer + k * quarter + piece * kPieceBytes;
    }
    Merge(out, planes, merged);
    for (std::size_t k = 0; k < kPlanes; ++k) scratch.Release(k * pieces + piece);
  }

  memset(buffer + groups * kGroupBytes, 0, image - groups * kGroupBytes);
  memcpy(buffer + image, header.data(), header.size());
  return true;
}

}  // namespace VeltranoSDK
