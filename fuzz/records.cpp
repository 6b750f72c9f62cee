// Bitmap records with damaged fields, with valid storage behind, handed to every function that checks them.

#include <cstring>
#include <vector>

#include "Targets.h"
#include "tarn/tarn.h"

using tarn::fuzz::Input;
using tarn::fuzz::Require;

namespace {

// Fields of 32 bits that are no pointers and no handles; 64-bit ones are damaged by halves.
constexpr uint32_t kFields[] = {0,  20,  24,  28,  32,  36,  40,  44,  48,  52,  64,  68,  72, 76,
                                88, 100, 104, 132, 136, 148, 152, 156, 160, 164, 168, 172, 176};
constexpr uint32_t kValues[] = {0, 1, ~0u, 0x7FFFFFFF, 0x80000000, 2, 212, 0x10000, 0xFFFF, 33};

// Flags that name another owner of the memory are the caller's own word and stay as they are.
constexpr uint32_t kTrusted =
    T_FLAG_USER_DATA | T_FLAG_HANDLE_DATA | T_FLAG_LOCKED | T_FLAG_ON_DISK | T_FLAG_LUT_IN_USE;

void Damage(Input& input, BitmapHandle& bitmap) {
  auto* const bytes = reinterpret_cast<uint8_t*>(&bitmap);
  const uint32_t field = kFields[input.Byte() % (sizeof kFields / sizeof kFields[0])];
  uint32_t value = 0;
  std::memcpy(&value, bytes + field, 4);
  const uint32_t before = value;
  switch (input.Byte() % 4) {
    case 0:
      value = kValues[input.Byte() % 10];
      break;
    case 1:
      ++value;
      break;
    case 2:
      --value;
      break;
    default:
      value = input.Long();
      break;
  }
  if (field == 48) value = (value & ~kTrusted) | (before & kTrusted);
  // The palette is as long as Colors said, and the lookup table as LUTLength: whoever sets the one sets the other.
  if (field == 52 && value > before) value = before;
  if (field == 148) value = 0;
  std::memcpy(bytes + field, &value, 4);
}

}  // namespace

void FuzzRecords(const uint8_t* data, size_t size) {
  Input input(data, size);
  constexpr int32_t kDepths[] = {1, 4, 8, 12, 24, 64};
  constexpr uint32_t kTypes[] = {8, 4, 1, 128, 512};
  const int32_t bits = kDepths[input.Byte() % 6];
  uint32_t type = kTypes[input.Byte() % 5];
  if (type == 512 && bits != 1) type = 4;
  T_SetMemoryThresholds(0, type == 1 ? 10 : 0x7FFFFFFF, 64, 2, 1, 31);
  BitmapHandle owner{};
  Require(T_CreateBitmap(&owner, sizeof owner, type, 37, 23, bits, 1, nullptr, 1, nullptr, 0) == SUCCESS, "create");
  BitmapHandle bitmap = owner;
  for (uint32_t count = 1 + input.Byte() % 2; count > 0; --count) Damage(input, bitmap);

  // Room that no row of the real storage exceeds; a count that the damaged record asks for is cut to it.
  constexpr size_t kRoom = 4096;
  std::vector<uint8_t> buffer(kRoom, 0x5A);
  const uint64_t bytes = input.Below(kRoom + 1);
  const uint32_t row = input.Byte() & 1 ? input.Below(40) : input.Long();
  const uint32_t column = input.Byte() & 1 ? input.Below(60) : input.Long();
  (void)T_GetBitmapRow(&bitmap, buffer.data(), row, bytes);
  (void)T_GetBitmapRowCol(&bitmap, buffer.data(), row, column, bytes);
  (void)T_PutBitmapRow(&bitmap, buffer.data(), row, bytes);
  (void)T_PutBitmapRowCol(&bitmap, buffer.data(), row, column, bytes);
  (void)T_GetPixelColor(&bitmap, static_cast<int32_t>(row), static_cast<int32_t>(column));
  (void)T_PutPixelColor(&bitmap, static_cast<int32_t>(row), static_cast<int32_t>(column), 0x00804020);
  (void)T_IsGrayScaleBitmap(&bitmap);
  (void)T_TranslateBitmapColor(&bitmap, &owner, 0x01000003);
  uint32_t type32 = 0;
  int64_t tile = 0;
  (void)T_GetBitmapMemoryInfo(&bitmap, &type32, &tile, nullptr, nullptr, nullptr, nullptr);
  T_PaletteEntry entries[256];
  (void)T_GetBitmapColors(&bitmap, input.Byte(), 1 + input.Byte() % 200, entries);
  // A copy of its own from a damaged source; the source's storage stays what it was. Widths and heights that would take
  // more memory than a test should are left out.
  if (static_cast<uint64_t>(static_cast<uint32_t>(bitmap.Height)) * bitmap.BytesPerLine < (1u << 20)) {
    BitmapHandle copy{};
    if (T_DupBitmapNewDim(&copy, &bitmap, sizeof copy, bitmap.Width, bitmap.Height, bitmap.BitsPerPixel, DUP_STORAGE) ==
        SUCCESS) {
      (void)T_CopyBitmapData(&copy, &bitmap);
      T_FreeDuplicateBitmap(&copy, DUP_STORAGE);
    }
  }
  T_FreeBitmap(&owner);
  T_SetMemoryThresholds(0, 0x7FFFFFFF, 0, -100, 1, 31);
}
