// A block that is read as a device-independent bitmap: nothing outside of it is touched, a refusal leaves everything as
// it was, and what was read comes back the same after it was written.

#include <cstring>
#include <vector>

#include "Targets.h"
#include "tarn/tarn.h"

using tarn::fuzz::Require;

namespace {

uint64_t HandleOf(void* block) { return reinterpret_cast<uintptr_t>(block); }

void* BlockOf(const std::vector<uint8_t>& bytes) {
  const uint64_t block = T_OsAllocHandle(T_BLOCK_MOVABLE, bytes.size(), 1, L"fuzz");
  void* const start = T_OsLockHandle(block, 1, L"fuzz");
  if (start) {
    std::memcpy(start, bytes.data(), bytes.size());
    T_OsUnlockHandle(block, 1, L"fuzz");
  }
  return reinterpret_cast<void*>(static_cast<uintptr_t>(block));
}

/// A few bytes of run lengths may announce a picture of gigabytes, which takes long to clear.
void KeepRunsSmall(std::vector<uint8_t>& bytes) {
  if (bytes.size() < 40 || bytes[0] < 40 || (bytes[16] != 1 && bytes[16] != 2)) return;
  bytes[6] = bytes[7] = bytes[10] = bytes[11] = 0;
  bytes[5] &= 3;
  bytes[9] &= 3;
}

std::vector<uint8_t> RowOf(BitmapHandle& bitmap, int32_t row) {
  std::vector<uint8_t> line(bitmap.BytesPerLine);
  Require(T_GetBitmapRow(&bitmap, line.data(), static_cast<uint32_t>(row), line.size()) ==
              static_cast<int64_t>(line.size()),
          "a row can be read");
  return line;
}

void RequireSame(BitmapHandle& a, BitmapHandle& b, bool upsideDown) {
  Require(a.Width == b.Width && a.Height == b.Height && a.BitsPerPixel == b.BitsPerPixel, "the same shape");
  for (int32_t row = 0; row < a.Height; ++row)
    Require(RowOf(a, row) == RowOf(b, upsideDown ? a.Height - 1 - row : row), "the same pixels");
  for (uint32_t i = 0; a.Palette && i < a.Colors; ++i)
    Require(std::memcmp(&a.Palette[i], &b.Palette[i], 3) == 0, "the same colours");
}

}  // namespace

void FuzzDib(const uint8_t* data, size_t size) {
  if (size == 0) return;
  std::vector<uint8_t> bytes(data, data + size);
  KeepRunsSmall(bytes);
  BitmapHandle first;
  std::memset(static_cast<void*>(&first), 0x3C, sizeof first);
  const BitmapHandle untouched = first;
  void* const block = BlockOf(bytes);
  if (T_ChangeFromDIB(&first, sizeof first, block) != SUCCESS) {
    Require(std::memcmp(&first, &untouched, sizeof first) == 0, "a refusal touches nothing");
    T_OsFreeHandle(HandleOf(block), 1, L"fuzz");
    return;
  }
  // The header bounds what is read, except for run lengths of unknown length.
  BitmapHandle again{};
  if (T_ConvertFromDIB(&again, sizeof again, bytes.data(), nullptr) == SUCCESS) RequireSame(first, again, false);
  T_FreeBitmap(&again);

  void* written = nullptr;
  Require(T_ConvertToDIB(&first, &written) == SUCCESS, "a picture can be written");
  BitmapHandle second{};
  Require(T_ChangeFromDIB(&second, sizeof second, written) == SUCCESS, "what was written can be read");
  if (first.BitsPerPixel != 2) RequireSame(first, second, first.ViewPerspective == 1);
  T_FreeBitmap(&first);
  T_FreeBitmap(&second);
}
