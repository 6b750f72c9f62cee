#pragma once
// What the library knows about the pixel storage behind a record. All state is in the record and behind Data and
// MemoryHandle: records are copied by value, so no object may point back at one.
//
// Storage that the library owns is registered under its Data address with its kind and extent (StorageNode). The row
// layer looks a record's Data up before it touches memory, so that a record whose geometry or flags were damaged is
// refused instead of followed. Memory that is not registered is the caller's own and is trusted as far as
// BytesPerLine x Height.

#include <cstdint>

#include "Common/Internal/Status.h"
#include "tarn/types.h"

namespace tarn {

enum class StorageKind : uint32_t { kNone, kBlock, kTiles, kCompressed, kSuperCompressed };

/// Registration of one storage, kept inside the storage itself so that registering cannot fail.
struct StorageNode {
  StorageNode* next;
  const void* data;  // the record's Data
  uint64_t bytes;    // kBlock: bytes from Data on
  StorageKind kind;
  uint32_t rowBytes;  // BytesPerLine when the storage was made
  uint32_t rows;
  uint32_t width;  // pixels, of compressed rows
};

void RegisterStorage(StorageNode& node) noexcept;
void UnregisterStorage(StorageNode& node) noexcept;
/// The node registered for an address, null when there is none. The caller holds a record of that storage, so the node
/// stays valid as long as the storage does.
StorageNode* FindStorage(const void* data) noexcept;

/// Operations of one storage kind. Offsets and counts are in bytes; `offset` counts from the start of `row` and may
/// reach into later rows. Transfers never leave the storage.
struct StorageOps {
  /// Returns the bytes moved as the kind counts them, or a negative status. Several threads may read one bitmap.
  int64_t (*read)(BitmapHandle& bitmap, uint8_t* target, uint32_t row, uint64_t offset, uint64_t bytes) noexcept;
  /// The same for a put; failedTile is what a tile that cannot be written makes of the result.
  int64_t (*write)(BitmapHandle& bitmap, const uint8_t* source, uint32_t row, uint64_t offset, uint64_t bytes,
                   int64_t failedTile) noexcept;
  /// Address of a row that lies in memory for as long as the storage does; null when rows must be moved.
  uint8_t* (*direct)(BitmapHandle& bitmap, uint32_t row) noexcept;
  /// Changes the storage to `height` rows and sets Size (and Data, MemoryHandle); the other fields are the caller's.
  Status (*resize)(BitmapHandle& bitmap, int32_t height) noexcept;
  /// Frees the storage and clears the flags that go with it.
  void (*release)(BitmapHandle& bitmap) noexcept;
};

// ---- Making storage: the record's geometry is set, its storage flags are clear ----

Status CreateBlockStorage(BitmapHandle& bitmap) noexcept;
Status CreateDiskStorage(BitmapHandle& bitmap) noexcept;
Status CreateCompressedStorage(BitmapHandle& bitmap) noexcept;
Status CreateSuperStorage(BitmapHandle& bitmap) noexcept;

extern const StorageOps kBlockOps;
extern const StorageOps kDiskOps;
extern const StorageOps kTileOps;
extern const StorageOps kCompressedOps;
extern const StorageOps kSuperOps;

/// The table for the record's flags, tested in the order compressed, tiles, super-compressed, memory, disk; null
/// without any. Not to be kept across a put into compressed rows, which may change the kind.
inline const StorageOps* OpsOf(const BitmapHandle& bitmap) noexcept {
  const uint32_t flags = bitmap.Flags;
  if (flags & T_FLAG_COMPRESSED) return &kCompressedOps;
  if (flags & T_FLAG_TILED) return &kTileOps;
  if (flags & T_FLAG_SUPER_COMPRESSED) return &kSuperOps;
  if (flags & T_FLAG_IN_MEMORY) return &kBlockOps;
  if (flags & T_FLAG_ON_DISK) return &kDiskOps;
  return nullptr;
}

/// Gives a bitmap its GrayParams block, filled from the process-wide defaults.
Status CreateGrayParams(BitmapHandle& bitmap) noexcept;
constexpr uint32_t kGrayParamsBytes = 256;
/// Entries that the block of a palette or lookup table holds; of memory that is not a tracked block, and thus trusted,
/// as many as there are numbers.
uint32_t HeldEntries(const T_PaletteEntry* entries) noexcept;
/// The first `count` entries, as far as they may be touched; 0 of null.
uint32_t TouchableEntries(const T_PaletteEntry* entries, uint32_t count) noexcept;
/// Entries of a bitmap's palette that may be touched: a damaged count does not lead beyond a block of ours. 0 without
/// a palette.
uint32_t PaletteEntriesOf(const BitmapHandle& bitmap) noexcept;
/// The same of a lookup table.
uint32_t LutEntriesOf(const BitmapHandle& bitmap) noexcept;
/// Copies significant bits, percentage, recorded range and parameter block; with ownLut a lookup table of the source is
/// duplicated. Failure changes nothing.
Status CopyGrayParams(BitmapHandle& target, const BitmapHandle& source, bool ownLut) noexcept;

/// Rows of a strip of super-compressed bitmaps made from now on, for tests; 0: by their length.
void SetStripRows(uint32_t rows) noexcept;

/// Frees storage of any kind (caller memory stays the caller's) and clears the flags that go with it.
void ReleaseStorage(BitmapHandle& bitmap) noexcept;

/// The movable block of a record holds this many bytes from DataOffset on.
bool BlockHolds(const BitmapHandle& bitmap, uint64_t bytes) noexcept;

/// T_ChangeBitmapHeight's cap: BytesPerLine x height + extra, at most T_MAX_IMAGE_BYTES.
uint64_t CappedSize(uint64_t bytes) noexcept;

}  // namespace tarn
