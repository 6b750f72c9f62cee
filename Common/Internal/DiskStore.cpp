// Pixels in a temporary file that vanishes when it is closed or the process dies.

#include "Common/Internal/Geometry.h"
#include "Common/Internal/Ledger.h"
#include "Common/Internal/RowPlace.h"
#include "Common/Internal/Settings.h"
#include "Common/Internal/Storage.h"
#include "Platform/Platform.h"
#include "tarn/files.h"

namespace tarn {
namespace {

int64_t FileOf(const BitmapHandle& bitmap) noexcept { return static_cast<int64_t>(bitmap.MemoryHandle); }

// Moves bytes in chunks that the file layer takes; ends early where a chunk comes back short.
template <class Byte, class Call>
int64_t InChunks(Byte* bytes, uint64_t count, int32_t failed, Call call) noexcept {
  constexpr uint64_t kChunk = 0x7FFFFFF;
  uint64_t moved = 0;
  while (moved < count) {
    const auto wanted = static_cast<uint32_t>(count - moved < kChunk ? count - moved : kChunk);
    const int64_t got = call(bytes + moved, wanted);
    if (got < 0) return failed;
    moved += static_cast<uint64_t>(got);
    if (got < wanted) break;
  }
  return static_cast<int64_t>(moved);
}

int64_t ReadDisk(BitmapHandle& bitmap, uint8_t* target, uint32_t row, uint64_t offset, uint64_t bytes) noexcept {
  const RowPlace place = PlaceOf(bitmap, row);
  const auto start = static_cast<int64_t>(place.offset + offset);
  const int64_t file = FileOf(bitmap);
  if (platform::FileSeek(file, start, T_SEEK_START, TARN_HERE) != start) return ERR_FILE_SEEK;
  return InChunks(target, place.Clip(place.offset + offset, bytes), ERR_FILE_READ,
                  [file](uint8_t* part, uint32_t wanted) { return platform::FileRead(file, part, wanted, TARN_HERE); });
}

int64_t WriteDisk(BitmapHandle& bitmap, const uint8_t* source, uint32_t row, uint64_t offset, uint64_t bytes,
                  int64_t) noexcept {
  const RowPlace place = PlaceOf(bitmap, row);
  const auto start = static_cast<int64_t>(place.offset + offset);
  const int64_t file = FileOf(bitmap);
  const uint64_t inside = place.Clip(place.offset + offset, bytes);
  if (inside == 0) return 0;  // a write of nothing would cut the file
  if (platform::FileSeek(file, start, T_SEEK_START, TARN_HERE) != start) return ERR_FILE_SEEK;
  return InChunks(source, inside, ERR_FILE_WRITE, [file](const uint8_t* part, uint32_t wanted) {
    return platform::FileWrite(file, part, wanted, TARN_HERE);
  });
}

uint8_t* NoDirectRow(BitmapHandle&, uint32_t) noexcept { return nullptr; }

Status ResizeDisk(BitmapHandle& bitmap, int32_t height) noexcept {
  const uint64_t length = static_cast<uint64_t>(bitmap.BytesPerLine) * static_cast<uint32_t>(height);
  const int64_t file = FileOf(bitmap);
  // What the file holds counts, not what the record says of it.
  const int64_t old = platform::FileSeek(file, 0, T_SEEK_END, TARN_HERE);
  if (old < 0) return ERR_NO_MEMORY;
  // Growing reserves first, so that a full disk shows now and not at some later row.
  if (length > static_cast<uint64_t>(old) && !platform::FileReserve(file, length, TARN_HERE)) {
    (void)platform::FileSetSize(file, old, TARN_HERE);
    return ERR_NO_MEMORY;
  }
  if (!platform::FileSetSize(file, static_cast<int64_t>(length), TARN_HERE)) return ERR_NO_MEMORY;
  bitmap.Size = CappedSize(length);
  return SUCCESS;
}

void ReleaseDisk(BitmapHandle& bitmap) noexcept {
  ledger::Remove(reinterpret_cast<void*>(bitmap.MemoryHandle), ledger::Kind::kSystem, TARN_HERE);
  (void)platform::FileClose(FileOf(bitmap), TARN_HERE);  // the file vanishes with it
  bitmap.MemoryHandle = 0;
  bitmap.Flags &= ~static_cast<uint32_t>(T_FLAG_ON_DISK);
}

}  // namespace

Status CreateDiskStorage(BitmapHandle& bitmap) noexcept {
  const int64_t file = platform::FileTemporary(ThreadSettings().tempDirectory, TARN_HERE);
  if (file == platform::kNoFile) return ERR_NO_MEMORY;
  Undo close([file] { (void)platform::FileClose(file, TARN_HERE); });
  const auto size = static_cast<int64_t>(bitmap.Size);
  if (!platform::FileReserve(file, bitmap.Size, TARN_HERE)) return ERR_FILE_WRITE;
  if (platform::FileSeek(file, size, T_SEEK_START, TARN_HERE) != size) return ERR_NO_MEMORY;
  // Deliberate: the file is Size + 1 bytes long, as readers of the open file expect.
  const uint8_t extra = 0;
  if (platform::FileWrite(file, &extra, 1, TARN_HERE) != 1) return ERR_FILE_WRITE;
  if (platform::FileSeek(file, 0, T_SEEK_START, TARN_HERE) != 0) return ERR_NO_MEMORY;
  close.Dismiss();
  bitmap.MemoryHandle = static_cast<uint64_t>(file);
  ledger::Add(reinterpret_cast<void*>(bitmap.MemoryHandle), ledger::Kind::kSystem, TARN_HERE);
  return SUCCESS;
}

const StorageOps kDiskOps = {ReadDisk, WriteDisk, NoDirectRow, ResizeDisk, ReleaseDisk};

}  // namespace tarn
