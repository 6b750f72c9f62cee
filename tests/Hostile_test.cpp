// Damaged records: every field but pointers and handles takes values that it should not have, with valid storage behind
// it. Whatever looks at the record answers with a status; nothing outside the storage is touched, and what a refused
// call should not change is unchanged.

#include "Hostile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "Common/Internal/Storage.h"
#include "Platform/Fault.h"
#include "Platform/Here.h"
#include "engine/Operations.h"
#include "engine/Random.h"
#include "engine/Scene.h"

namespace tarn {
namespace {

using engine::Bytes;
using engine::Kind;
using engine::Picture;
using engine::Random;
using engine::Shape;

struct Field {
  const char* name;
  size_t offset;
  size_t bytes;
};
#define FIELD(name) \
  { #name, offsetof(BitmapHandle, name), sizeof(BitmapHandle::name) }
constexpr Field kFields[] = {
    FIELD(StructSize),      FIELD(Width),       FIELD(Height),          FIELD(BitsPerPixel), FIELD(BytesPerLine),
    FIELD(CachedRowOffset), FIELD(CachedRow),   FIELD(Flags),           FIELD(Colors),       FIELD(ViewPerspective),
    FIELD(Order),           FIELD(Size),        FIELD(DitheringMethod), FIELD(XResolution),  FIELD(YResolution),
    FIELD(PlaybackLeft),    FIELD(PlaybackTop), FIELD(PlaybackDelay),   FIELD(LowBit),       FIELD(HighBit),
    FIELD(LUTLength),       FIELD(DataOffset),  FIELD(MinValue),        FIELD(MaxValue),     FIELD(AltLowBit),
    FIELD(AltHighBit),      FIELD(Percentage),  FIELD(Unused180),       FIELD(Reserved),     FIELD(Closing)};
#undef FIELD

/// A field and the value it gets.
struct Damage {
  const Field* field = nullptr;
  uint64_t value = 0;

  uint64_t Read(const BitmapHandle& record) const {
    uint64_t read = 0;
    std::memcpy(&read, reinterpret_cast<const uint8_t*>(&record) + field->offset, field->bytes);
    return read;
  }
  void Write(BitmapHandle& record, uint64_t written) const {
    std::memcpy(reinterpret_cast<uint8_t*>(&record) + field->offset, &written, field->bytes);
  }
  bool Changes(const BitmapHandle& record) const {
    BitmapHandle changed = record;
    Write(changed, value);
    return std::memcmp(&changed, &record, sizeof record) != 0;
  }
  std::string Text() const { return std::string(field->name) + " = " + std::to_string(static_cast<int64_t>(value)); }
};

/// Values around the borders of a field's type and around the value that it has.
std::vector<uint64_t> ValuesFor(const Field& field, uint64_t now, Random& random) {
  const uint64_t top = uint64_t{1} << (field.bytes * 8 - 1);
  std::vector<uint64_t> values = {0,       1,        ~uint64_t{},        top,          top - 1, now + 1, now - 1,
                                  now * 2, now + 64, random.Below(5000), random.Next()};
  if (std::strcmp(field.name, "Flags") == 0)
    for (uint32_t bit = 1; bit <= T_FLAG_SUPER_COMPRESSED; bit <<= 1) values.push_back(now ^ bit);
  if (std::strcmp(field.name, "BitsPerPixel") == 0)
    for (const int32_t bits : engine::kDepths) values.push_back(static_cast<uint64_t>(bits));
  return values;
}

constexpr uint32_t kMoveFlags = T_INFO_MEMORY_TYPE | T_INFO_TILE_SIZE;

constexpr HostileProbe kRowProbes[] = {
    {"T_GetBitmapRow", false,
     [](BitmapHandle* b, HostileRoom& r) { return T_GetBitmapRow(b, r.out.data(), 1, 3 * r.rowBytes); }},
    {"T_GetBitmapRow, last", false,
     [](BitmapHandle* b, HostileRoom& r) {
       return T_GetBitmapRow(b, r.out.data(), static_cast<uint32_t>(r.shape.height) - 1, 2 * r.rowBytes);
     }},
    {"T_GetBitmapRow, far", false,
     [](BitmapHandle* b, HostileRoom& r) { return T_GetBitmapRow(b, r.out.data(), 1u << 30, 9); }},
    {"T_GetBitmapRowCol", false,
     [](BitmapHandle* b, HostileRoom& r) { return T_GetBitmapRowCol(b, r.out.data(), 2, 9, 3 * r.rowBytes); }},
    {"T_GetBitmapRowCol, far", false,
     [](BitmapHandle* b, HostileRoom& r) { return T_GetBitmapRowCol(b, r.out.data(), 2, 0xFFFFFFF0, r.rowBytes); }},
    {"T_PutBitmapRow", true,
     [](BitmapHandle* b, HostileRoom& r) { return T_PutBitmapRow(b, r.in.data(), 1, 3 * r.rowBytes); }},
    {"T_PutBitmapRow, last", true,
     [](BitmapHandle* b, HostileRoom& r) {
       return T_PutBitmapRow(b, r.in.data(), static_cast<uint32_t>(r.shape.height) - 1, 2 * r.rowBytes);
     }},
    {"T_PutBitmapRow, far", true,
     [](BitmapHandle* b, HostileRoom& r) { return T_PutBitmapRow(b, r.in.data(), 1u << 30, 9); }},
    {"T_PutBitmapRowCol", true,
     [](BitmapHandle* b, HostileRoom& r) { return T_PutBitmapRowCol(b, r.in.data(), 2, 9, 3 * r.rowBytes); }},
    {"T_PutBitmapRowSegments", true,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t {
       const auto width = static_cast<uint32_t>(r.shape.width);
       const uint32_t segments[] = {0, 3, 5, width};
       return T_PutBitmapRowSegments(b, r.in.data(), 2, 1, segments, 4, 1);
     }},
    {"T_GetBitmapRowCompressed", false,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t {
       return T_GetBitmapRowCompressed(b, nullptr, r.records.data(), 1, 3);
     }},
    {"T_GetBitmapRowColCompressed", false,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t {
       return T_GetBitmapRowColCompressed(b, nullptr, r.records.data(), 1, 3, 9);
     }},
    {"T_PutBitmapRowCompressed", true,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t {
       T_CompressRows(r.records.data(), r.in.data(), static_cast<uint32_t>(r.shape.width), 3);
       return T_PutBitmapRowCompressed(b, nullptr, r.records.data(), 1, 3);
     }},
    {"T_PutBitmapRowColCompressed", true,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t {
       T_CompressRow(r.records.data(), r.in.data(), 0, 9);
       return T_PutBitmapRowColCompressed(b, nullptr, r.records.data(), 1, 3, 9);
     }},
    {"T_GetBitmapMemoryInfo", false,
     [](BitmapHandle* b, HostileRoom&) -> int64_t {
       uint32_t type = 0;
       int64_t tileSize = 0;
       uint32_t figures[4];
       return T_GetBitmapMemoryInfo(b, &type, &tileSize, &figures[0], &figures[1], &figures[2], &figures[3]);
     }},
    {"T_SetBitmapMemoryInfo, memory", false,
     [](BitmapHandle* b, HostileRoom&) -> int64_t {
       return T_SetBitmapMemoryInfo(b, TYPE_CONV, 0, 0, 0, 0, 0, kMoveFlags);
     }},
    {"T_SetBitmapMemoryInfo, tiles", false,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t {
       return T_SetBitmapMemoryInfo(b, TYPE_TILED, static_cast<int64_t>(2 * r.rowBytes), 0, 0, 0, 0, kMoveFlags);
     }},
    {"T_SetBitmapMemoryInfo, disk", false,
     [](BitmapHandle* b, HostileRoom&) -> int64_t {
       return T_SetBitmapMemoryInfo(b, TYPE_DISK, 0, 0, 0, 0, 0, kMoveFlags);
     }},
    {"T_SetBitmapMemoryInfo, other tiles", false,
     [](BitmapHandle* b, HostileRoom&) -> int64_t {
       return T_SetBitmapMemoryInfo(b, 0, 0, 3, 1, 2, 2,
                                    T_INFO_TILE_COUNT | T_INFO_CONVENTIONAL_TILES | T_INFO_MAX_MAPPED_TILES);
     }},
    {"T_ChangeBitmapCompression 512", false,
     [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_ChangeBitmapCompression(b, TYPE_COMPRESSED); }},
    {"T_ChangeBitmapCompression 0", false,
     [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_ChangeBitmapCompression(b, 0); }},
    {"T_ChangeBitmapHeight, more", false,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t { return T_ChangeBitmapHeight(b, r.shape.height + 4); }},
    {"T_ChangeBitmapHeight, less", false,
     [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_ChangeBitmapHeight(b, 2); }},
    {"T_LockBitmap", false,
     [](BitmapHandle* b, HostileRoom&) -> int64_t {
       T_UnlockBitmap(b, T_LockBitmap(b));
       return SUCCESS;
     }},
    {"T_DupBitmapNewDim", false,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t {
       return T_DupBitmapNewDim(&r.made, b, sizeof r.made, r.shape.width, r.shape.height, r.shape.bits,
                                DUP_STORAGE | DUP_PALETTE | DUP_REGION | DUP_OVERLAYS);
     }},
    {"T_CopyBitmapData from", false,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t { return T_CopyBitmapData(&r.other.record, b); }},
    {"T_CopyBitmapData to", true,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t { return T_CopyBitmapData(b, &r.other.record); }},
    {"T_CopyBitmap", false,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t { return T_CopyBitmap(&r.made, b, sizeof r.made); }},
    {"T_CopyBitmap2", false,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t { return T_CopyBitmap2(&r.made, b, TYPE_NODISK, sizeof r.made); }},
    {"T_CopyBitmapRect", false,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t {
       return T_CopyBitmapRect(&r.made, b, sizeof r.made, 5, -1, r.shape.width, r.shape.height);
     }},
    {"T_CopyBitmapRect, far", false,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t {
       return T_CopyBitmapRect(&r.made, b, sizeof r.made, 3 * r.shape.width, 2, r.shape.width, r.shape.height);
     }},
    {"T_TrimBitmap", true,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t {
       return T_TrimBitmap(b, 3, 1, r.shape.width, r.shape.height - 2);
     }},
    {"T_ConvertToDIB", false,
     [](BitmapHandle* b, HostileRoom&) -> int64_t {
       void* dib = nullptr;
       const int32_t status = T_ConvertToDIB(b, &dib);
       if (status == SUCCESS) T_OsFreeHandle(reinterpret_cast<uintptr_t>(dib), 1, L"here");
       return status;
     }},
    {"T_CopyBitmapPalette from", false,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t { return T_CopyBitmapPalette(&r.other.record, b); }},
    {"T_CopyBitmapPalette to", false,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t { return T_CopyBitmapPalette(b, &r.other.record); }},
    {"T_PutBitmapColors", false,
     [](BitmapHandle* b, HostileRoom&) -> int64_t {
       const T_PaletteEntry entries[256] = {};
       return T_PutBitmapColors(b, 1, 255, entries);
     }},
    {"T_GetBitmapColors", false,
     [](BitmapHandle* b, HostileRoom&) -> int64_t {
       T_PaletteEntry entries[256];
       return T_GetBitmapColors(b, 0, 256, entries);
     }},
    {"T_GetBitmapPaletteEntries", false,
     [](BitmapHandle* b, HostileRoom&) -> int64_t {
       T_PaletteEntry entries[256];
       return T_GetBitmapPaletteEntries(b, 1, 256, entries);
     }},
    {"T_IsGrayScaleBitmap", false, [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_IsGrayScaleBitmap(b); }},
    {"T_CompareBitmapToPalette", false,
     [](BitmapHandle* b, HostileRoom&) -> int64_t {
       T_PaletteEntry entries[256];
       T_GetBitmapPaletteEntries(b, 0, 256, entries);
       return T_CompareBitmapToPalette(b, entries, 256);
     }},
    {"T_TranslateBitmapColor", false,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t {
       return (T_TranslateBitmapColor(b, &r.other.record, 0x0400ABCD) ^
               T_TranslateBitmapColor(&r.other.record, b, 0x010000FF)) &
              1;
     }},
    {"T_DupBitmapPalette", false,
     [](BitmapHandle* b, HostileRoom&) -> int64_t {
       T_DeletePalette(T_DupBitmapPalette(b));
       return T_GetNearestPaletteIndex(b, 0x123456);
     }},
    {"T_GetPixelColor", false,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t {
       return (T_GetPixelColor(b, 2, 9) ^ T_GetPixelColor(b, r.shape.height - 1, r.shape.width - 1) ^
               T_GetPixelColor(b, 3, 5000)) &
              1;
     }},
    {"T_PutPixelColor", true,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t {
       T_PutPixelColor(b, 3, 5000, 0x0400ABCD);
       return T_PutPixelColor(b, r.shape.height - 1, r.shape.width - 1, 0x00804020);
     }},
    {"T_GetPixelData", false,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t { return T_GetPixelData(b, r.out.data(), 2, INT32_MAX, 9); }},
    {"T_PutPixelData", true,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t {
       return T_PutPixelData(b, r.in.data(), r.shape.height - 1, 40, 9);
     }},
    {"T_ColorToPixel", false,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t { return T_ColorToPixel(b, 0x0400ABCD, r.out.data(), 8); }},
    {"T_FillBitmap", true, [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_FillBitmap(b, 0x00804020); }},
    {"T_ClearBitmap", true, [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_ClearBitmap(b); }},
    {"T_GrowBitmapHeap", false, [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_GrowBitmapHeap(b, 3000); }},
    {"T_TrimBitmapHeap", false, [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_TrimBitmapHeap(b); }},
    {"T_CopyBitmapHandle", false,
     [](BitmapHandle* b, HostileRoom&) -> int64_t {
       BitmapHandle copy{};
       return T_CopyBitmapHandle(&copy, b, sizeof copy);
     }},
    {"T_AllocateBitmap", false,
     [](BitmapHandle* b, HostileRoom& r) -> int64_t {
       r.made = *b;
       r.made.Palette = r.made.LUT = nullptr;
       r.made.GrayParams = nullptr;
       const int32_t status = T_AllocateBitmap(&r.made, TYPE_CONV);
       if (status != SUCCESS) r.made = {};  // a record refused by its figures keeps what it has
       return status;
     }},
    {"T_FreeBitmap", true,
     [](BitmapHandle* b, HostileRoom&) -> int64_t {
       T_FreeBitmap(b);
       return SUCCESS;
     }},
};

bool IsKnown(int64_t status) {
  constexpr int32_t kCodes[] = {
      ERR_NO_MEMORY,         ERR_NO_BITMAP,          ERR_IMAGE_TOO_LARGE,    ERR_FILE_SEEK,
      ERR_FILE_WRITE,        ERR_FILE_READ,          ERR_LIBRARY_NOT_LOADED, ERR_EMPTY_AREA,
      ERR_INVALID_PARAMETER, ERR_BAD_BITS_PER_PIXEL, ERR_DISK_FULL,          ERR_BAD_STRUCT_SIZE,
      ERR_BAD_LUT_LENGTH,    ERR_SIGNED_DATA,        ERR_NULL_POINTER,       ERR_OVERLAY_NO_BITMAP};
  return (status >= 0 && status < 1 << 20) ||
         std::find(std::begin(kCodes), std::end(kCodes), status) != std::end(kCodes);
}

constexpr Shape kShape = {43, 9, 0};
constexpr Kind kHostileKinds[] = {Kind::kBlock, Kind::kMemoryTiles, Kind::kMixedTiles, Kind::kSwapTiles,
                                  Kind::kDisk,  Kind::kCompressed,  Kind::kSuper};
constexpr int32_t kHostileDepths[] = {1, 4, 8, 12, 24};

class Hostile : public testing::Test {
 protected:
  /// One probe on one damaged record.
  void Run(const HostileProbe& probe, Kind kind, int32_t bits, const std::vector<Damage>& damages) {
    Shape shape = kShape;
    shape.bits = bits;
    std::string what = std::string(probe.name) + ", " + engine::NameOf(kind) + ", " + Text(shape);
    for (const Damage& damage : damages) what += ", " + damage.Text();
    SCOPED_TRACE(what + ", " + engine::SeedText());
    const engine::World before = LookAround(scene_);
    bool flags = false;
    for (const Damage& damage : damages) flags |= std::strcmp(damage.field->name, "Flags") == 0;
    {
      HostileRoom room;
      room.shape = shape;
      room.rowBytes = shape.RowBytes();
      room.in.assign(room.rowBytes * 4 + 64 * 8, 0x6B);
      room.out.assign(room.rowBytes * 4, 0);
      room.records.assign(1 << 16, 0);
      Picture picture;
      ASSERT_EQ(picture.Make(kind, shape, 3), "");
      ASSERT_EQ(room.other.Make(Kind::kBlock, shape, 4), "");
      BitmapHandle& record = picture.record;
      Furnish(record);
      Furnish(room.other.record);
      Bytes rows;
      ASSERT_EQ(engine::ReadPixels(record, rows), "");
      const BitmapHandle good = record;
      for (const Damage& damage : damages) damage.Write(record, damage.value);
      const BitmapHandle damaged = record;
      // A disk that has no room for sizes that nobody meant.
      const bool large =
          record.Size > 1 << 24 || uint64_t{record.BytesPerLine} * static_cast<uint32_t>(record.Height) > 1 << 24;
      fault::Arm({.first = large ? 1u : 0u, .answer = fault::Answer::kDiskFull, .points = Mask(fault::Point::kSize)});
      // Whole pictures of such sizes take long even where they lead nowhere.
      const int64_t status = large && probe.whole ? int64_t{ERR_NO_MEMORY} : probe.call(&record, room);
      fault::Disarm();
      EXPECT_TRUE(IsKnown(status)) << status;
      // What the call itself has set stays.
      for (const Damage& damage : damages)
        if (damage.Read(record) == damage.Read(damaged)) damage.Write(record, damage.Read(good));
      record.CachedRow = 0;  // a damaged place leads to another row, not out of the storage
      record.CachedRowOffset = 0;
      const bool same =
          record.Data == good.Data && record.MemoryHandle == good.MemoryHandle && record.Height == good.Height;
      if (!probe.puts && same) {
        Bytes after;
        EXPECT_EQ(engine::ReadPixels(record, after), "");
        EXPECT_EQ(after, rows) << "status " << status;
      }
      T_FreeDuplicateBitmap(&room.made, DUP_STORAGE | DUP_PALETTE | DUP_REGION | DUP_OVERLAYS);
      room.made = {};
      FreeWhatIsLeft(record, good, flags);
    }
    const std::string left = Changes(before, LookAround(scene_));
    if (!flags) {
      EXPECT_EQ(left, "");
    }
  }

  /// Every field with every value, `share` of the runs chosen by chance.
  void RunFields(uint64_t oneIn) {
    Random random(engine::RunSeed());
    for (const Kind kind : kHostileKinds) {
      for (const int32_t bits : kHostileDepths) {
        if (!Shape{kShape.width, kShape.height, bits}.Suits(kind)) continue;
        const BitmapHandle sample = Sample(kind, bits);
        for (const Field& field : kFields) {
          for (const uint64_t value : ValuesFor(field, Damage{&field, 0}.Read(sample), random)) {
            const Damage damage{&field, value};
            if (!damage.Changes(sample)) continue;
            for (const HostileProbe& probe : probes_) {
              if (!random.OneIn(oneIn)) continue;
              Run(probe, kind, bits, {damage});
              if (HasFailure()) return;
            }
          }
        }
      }
    }
  }

  void RunPairs(int count) {
    Random random(engine::Mix(engine::RunSeed(), 2));
    for (int i = 0; i < count && !HasFailure(); ++i) {
      const Kind kind = random.Pick(kHostileKinds);
      int32_t bits = random.Pick(kHostileDepths);
      while (!Shape{kShape.width, kShape.height, bits}.Suits(kind)) bits = random.Pick(kHostileDepths);
      const BitmapHandle sample = Sample(kind, bits);
      std::vector<Damage> damages;
      for (int part = 0; part < 2; ++part) {
        const Field& field = random.Pick(kFields);
        const std::vector<uint64_t> values = ValuesFor(field, Damage{&field, 0}.Read(sample), random);
        damages.push_back({&field, values[random.Below(values.size())]});
      }
      Run(probes_[random.Below(probes_.size())], kind, bits, damages);
    }
  }

 private:
  static void Furnish(BitmapHandle& record) {
    const Here here = TARN_HERE;
    if (record.BitsPerPixel <= 8) T_CreateBitmapGrayPalette(&record);
    if (record.BitsPerPixel != 12) return;
    record.LUTLength = 16;
    record.LUT = static_cast<T_PaletteEntry*>(T_GlobalAlloc(16, sizeof(T_PaletteEntry), here.line, here.file));
    record.Flags |= T_FLAG_LUT_IN_USE;
  }

  /// A good record to take values from; its storage is gone.
  static BitmapHandle Sample(Kind kind, int32_t bits) {
    Shape shape = kShape;
    shape.bits = bits;
    Picture picture;
    EXPECT_EQ(picture.Make(kind, shape, 3), "");
    Furnish(picture.record);
    return picture.record;
  }

  /// Frees the record. Where its flags told of other storage while a call let it go, the old storage is still there.
  static void FreeWhatIsLeft(BitmapHandle& record, const BitmapHandle& good, bool flags) {
    T_FreeBitmap(&record);
    if (!good.Data || !FindStorage(good.Data)) return;
    EXPECT_TRUE(flags) << "the old storage is left";
    BitmapHandle old = good;
    old.Palette = old.LUT = nullptr;
    old.GrayParams = nullptr;
    T_FreeBitmap(&old);
  }

  /// Those of this file and those of the other.
  static std::vector<HostileProbe> AllProbes() {
    std::vector<HostileProbe> all(std::begin(kRowProbes), std::end(kRowProbes));
    const std::vector<HostileProbe> others = PictureProbes();
    all.insert(all.end(), others.begin(), others.end());
    return all;
  }

  const std::vector<HostileProbe> probes_ = AllProbes();
  engine::Scene scene_;
};

#if defined(_WIN32)
constexpr uint64_t kSample = 300;  // files take long there
#else
constexpr uint64_t kSample = 100;
#endif

TEST_F(Hostile, RowsLongerThanTheStorageAreRefusedUnread) {
  for (int number = 0; number < engine::kKinds; ++number) {
    const auto kind = static_cast<Kind>(number);
    Shape shape = kShape;
    shape.bits = 1;
    Picture picture;
    if (!shape.Suits(kind)) continue;
    ASSERT_EQ(picture.Make(kind, shape, 3), "");
    BitmapHandle& record = picture.record;
    if ((record.Flags & (T_FLAG_COMPRESSED | T_FLAG_TILED | T_FLAG_SUPER_COMPRESSED)) == 0) continue;
    const uint32_t rowBytes = record.BytesPerLine;
    record.BytesPerLine = rowBytes + 4;
    BitmapHandle made{};
    EXPECT_EQ(T_ColorResBitmap(&record, &made, sizeof made, 8, T_RES_FIXED, nullptr, nullptr, 0, nullptr, nullptr),
              ERR_FILE_READ)
        << engine::NameOf(kind);
    record.BytesPerLine = rowBytes;
    EXPECT_EQ(T_ColorResBitmap(&record, &made, sizeof made, 8, T_RES_FIXED, nullptr, nullptr, 0, nullptr, nullptr),
              SUCCESS);
    T_FreeBitmap(&made);
  }
}

TEST_F(Hostile, DamagedFieldsAreRefusedOrDoNoHarm) { RunFields(kSample); }
TEST_F(Hostile, DamagedPairsAreRefusedOrDoNoHarm) { RunPairs(2500); }
TEST_F(Hostile, DISABLED_SweepOfDamagedFields) { RunFields(1); }
TEST_F(Hostile, DISABLED_SweepOfDamagedPairs) { RunPairs(300000); }

}  // namespace
}  // namespace tarn
