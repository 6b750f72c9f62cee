#pragma once
// What the library knows about pixel storage behind a record. All state is in the record and behind Data and
// MemoryHandle: records are copied by value, so no object may point back at one.
//
// Storage that the library owns registers itself under its Data address with its kind and length (StorageNode). The row
// layer looks a record's Data up before it touches memory, so that a record whose geometry or flags were damaged is
// refused instead of followed. Memory that is not registered is the caller's own and trusted as far as
// BytesPerLine x Height.

#include <cstdint>

#include "Common/Internal/Status.h"
#include "tarn/types.h"

namespace tarn {

enum class StorageKind : uint32_t { kNone, kBlock, kTiles, kCompressed, kSuperCompressed };

/// Registration of one storage, kept by the store itself (no allocation of its own).
struct StorageNode {
  StorageNode* next;
  const void* data;     // the record's Data
  StorageKind kind;
  uint32_t rowBytes;    // BytesPerLine at allocation
  uint32_t rows;        // rows held
  uint64_t bytes;       // kBlock: bytes from Data on that belong to the storage
};

void RegisterStorage(StorageNode& node) noexcept;
void UnregisterStorage(StorageNode& node) noexcept;
/// Copies the node of Data; false when none is registered. Takes the library-wide critical section.
bool FindStorage(const void* data, StorageNode& found) noexcept;

/// Operations of one storage kind. Offsets and counts in bytes; a transfer moves what lies inside the storage and
/// returns the bytes moved or a negative status. `row` is below the rows the storage holds.
struct StorageOps {
  int64_t (*read)(BitmapHandle& bitmap, uint8_t* target, uint32_t row, uint64_t offset, uint64_t bytes) noexcept;
  int64_t (*write)(BitmapHandle& bitmap, const uint8_t* source, uint32_t row, uint64_t offset, uint64_t bytes) noexcept;
  uint8_t* (*direct)(BitmapHandle& bitmap, uint32_t row) noexcept;  // address of the row, null when not directly there
  int32_t (*resize)(BitmapHandle& bitmap, int32_t height) noexcept;
  void (*release)(BitmapHandle& bitmap) noexcept;
};

/// The table of the record's storage by its flags, in the order compressed, tiles, super-compressed, memory, disk; null
/// when it has none. Not to be kept across a put into compressed storage, which may change the kind.
const StorageOps* OpsOf(const BitmapHandle& bitmap) noexcept;

}  // namespace tarn
