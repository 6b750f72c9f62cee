// Run-length records of any content: expanding, mirroring, flipping, compressing again.

#include <cstring>
#include <vector>

#include "Targets.h"
#include "tarn/tarn.h"

using tarn::fuzz::Input;
using tarn::fuzz::Require;

namespace {

std::vector<uint8_t> RecordOf(const std::vector<uint16_t>& words) {
  std::vector<uint8_t> record(4 + words.size() * 2);
  const auto count = static_cast<uint32_t>(words.size());
  std::memcpy(record.data(), &count, 4);
  if (count) std::memcpy(record.data() + 4, words.data(), words.size() * 2);
  return record;
}

// Pixel by pixel.
std::vector<uint8_t> SlowExpand(const std::vector<uint16_t>& words, uint32_t first, uint32_t pixels) {
  std::vector<uint8_t> packed((pixels + 7) / 8, 0);
  uint64_t at = 0;
  for (size_t i = 0; i < words.size(); ++i) {
    for (uint32_t k = 0; k < words[i]; ++k, ++at) {
      if (at >= first && at - first < pixels && i % 2)
        packed[(at - first) / 8] |= static_cast<uint8_t>(0x80 >> (at - first) % 8);
    }
  }
  return packed;
}

}  // namespace

void FuzzRuns(const uint8_t* data, size_t size) {
  Input input(data, size);
  const uint32_t width = 1 + input.Below(3000);
  const uint32_t first = input.Below(width);
  const uint32_t pixels = input.Below(width - first + 1);
  const bool wide = input.Byte() & 1;
  std::vector<uint16_t> words;
  while (!input.Empty() && words.size() < 4000) words.push_back(wide ? input.Word() : input.Byte());
  if (wide && words.size() > 8) words.resize(8);  // keeps the slow model fast
  const std::vector<uint8_t> record = RecordOf(words);

  std::vector<uint8_t> packed((pixels + 7) / 8, 0xEE);
  uint8_t none = 0;
  Require(T_ExpandRow(record.data(), packed.empty() ? &none : packed.data(), first, pixels) == SUCCESS, "expand");
  Require(packed == SlowExpand(words, first, pixels), "expanded pixels");

  // Through a compressed bitmap, whatever the record adds up to.
  BitmapHandle bitmap{};
  Require(T_InitBitmap(&bitmap, sizeof bitmap, static_cast<int32_t>(width), 3, 1) == SUCCESS, "init");
  Require(T_AllocateBitmap(&bitmap, TYPE_COMPRESSED) == SUCCESS, "allocate");
  Require(T_PutBitmapRowCompressed(&bitmap, nullptr, record.data(), 1, 1) == SUCCESS, "put record");
  std::vector<uint8_t> row(bitmap.BytesPerLine, 0xEE);
  Require(T_GetBitmapRow(&bitmap, row.data(), 1, row.size()) == static_cast<int64_t>(row.size()), "get row");
  std::vector<uint8_t> want = SlowExpand(words, 0, width);
  want.resize(row.size(), 0);
  Require(row == want, "stored pixels");
  if (pixels) {
    Require(T_PutBitmapRowColCompressed(&bitmap, nullptr, record.data(), 0, first, pixels) ==
                static_cast<int32_t>((pixels + 7) / 8),
            "splice");
  }
  T_FreeBitmap(&bitmap);

  // Compressing the pixels and expanding again gives them back.
  std::vector<uint16_t> again(2 + width + 1 + 2 * (width / 65528));
  Require(T_CompressRow(again.data(), want.data(), 0, width) == static_cast<int32_t>(width), "compress");
  std::vector<uint8_t> back((width + 7) / 8, 0xEE);
  Require(T_ExpandRow(again.data(), back.data(), 0, width) == SUCCESS, "expand again");
  want.resize(back.size());
  Require(back == want, "round trip");

  // Mirroring twice gives the pixels back; flipping twice gives the bytes back.
  std::vector<uint8_t> mirrored(record.size() + 2);
  Require(T_MirrorCompressedBuffer(record.data(), mirrored.data(), 1) == SUCCESS, "mirror");
  std::vector<uint8_t> two(record);
  two.insert(two.end(), {1, 0, 0, 0, 7, 0});
  std::vector<uint8_t> flipped(two.size());
  std::vector<uint8_t> twice(two.size());
  Require(T_FlipCompressedBuffer(two.data(), flipped.data(), 2) == SUCCESS, "flip");
  Require(T_FlipCompressedBuffer(flipped.data(), twice.data(), 2) == SUCCESS, "flip back");
  Require(two == twice, "flipped twice");
}
