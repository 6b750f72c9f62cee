// What the header of a device-independent bitmap says, with every figure checked before it is used.

#include <cstring>

#include "Common/Internal/Dib.h"

namespace tarn {
namespace {

constexpr uint64_t kMaskBytes = 4;
constexpr uint32_t kMasksOffset = sizeof(DibInfoHeader);  // within headers that have them, else right behind

/// Reads from the front of a block of limited length.
class Front {
 public:
  Front(const uint8_t* bytes, uint64_t limit) noexcept : bytes_(bytes), limit_(limit) {}
  [[nodiscard]] bool Has(uint64_t bytes) const noexcept { return bytes <= limit_; }
  [[nodiscard]] const uint8_t* At(uint64_t offset) const noexcept { return bytes_ + offset; }
  template <class T>
  [[nodiscard]] T Read(uint64_t offset) const noexcept {
    T value;
    std::memcpy(&value, bytes_ + offset, sizeof value);
    return value;
  }

 private:
  const uint8_t* bytes_;
  uint64_t limit_;
};

/// A run of set bits, or nothing.
bool IsContiguous(uint32_t mask) noexcept {
  if (mask == 0) return true;
  const uint32_t run = mask >> __builtin_ctz(mask);
  return (run & (run + 1)) == 0;
}

bool MasksHold(const uint32_t (&masks)[kDibChannels], int32_t bits) noexcept {
  uint32_t seen = 0;
  for (const uint32_t mask : masks) {
    if (!IsContiguous(mask) || (seen & mask)) return false;
    seen |= mask;
  }
  const bool colours = (masks[kDibRed] | masks[kDibGreen] | masks[kDibBlue]) != 0;
  return colours && (bits == 32 || seen <= 0xFFFF);
}

bool DepthFits(uint32_t compression, uint32_t bits) noexcept {
  switch (compression) {
    case kDibRgb:
      return bits == 1 || bits == 2 || bits == 4 || bits == 8 || bits == 16 || bits == 24 || bits == 32;
    case kDibRle8:
      return bits == 8;
    case kDibRle4:
      return bits == 4;
    case kDibMasks:
    case kDibAlphaMasks:
      return bits == 16 || bits == 32;
    default:  // pictures of other formats in a DIB's clothes, and what nobody knows
      return false;
  }
}

bool HasMasks(uint32_t compression) noexcept { return compression == kDibMasks || compression == kDibAlphaMasks; }

// The masks that a header of 40 bytes is followed by, or that a longer one holds. Returns where the colour table
// begins.
Status ReadMasks(const Front& front, uint32_t headerBytes, DibLayout& layout, uint64_t& table) noexcept {
  table = headerBytes;
  if (!HasMasks(layout.compression)) {
    // Blue lowest, five or eight bits each; what is above them is kept as it is.
    constexpr uint32_t kRgb16[kDibChannels] = {0x7C00, 0x03E0, 0x001F, 0x8000};
    constexpr uint32_t kRgb32[kDibChannels] = {0xFF0000, 0x00FF00, 0x0000FF, 0xFF000000};
    std::memcpy(layout.masks, layout.bits == 16 ? kRgb16 : kRgb32, sizeof layout.masks);
    return SUCCESS;
  }
  const uint64_t behind = kMasksOffset + (layout.compression == kDibAlphaMasks ? 4 : 3) * kMaskBytes;
  if (headerBytes == kMasksOffset) table = behind;
  if (!front.Has(behind > headerBytes ? behind : headerBytes)) return ERR_INVALID_PARAMETER;
  const bool alpha = headerBytes >= 56 || (headerBytes == kMasksOffset && layout.compression == kDibAlphaMasks);
  const uint32_t count = alpha ? 4 : 3;
  for (uint32_t i = 0; i < count; ++i) layout.masks[i] = front.Read<uint32_t>(kMasksOffset + i * kMaskBytes);
  return MasksHold(layout.masks, layout.bits) ? SUCCESS : ERR_UNSUPPORTED_FORMAT;
}

Status ReadCoreHeader(const Front& front, DibLayout& layout, uint32_t& colors) noexcept {
  const auto header = front.Read<DibCoreHeader>(0);
  if (header.planes != 1 || !DepthFits(kDibRgb, header.bits) || header.bits == 16 || header.bits == 32)
    return ERR_UNSUPPORTED_FORMAT;
  layout.width = header.width;
  layout.height = header.height;
  layout.bits = header.bits;
  layout.tableEntryBytes = 3;
  colors = header.bits <= 8 ? 1u << header.bits : 0;
  return SUCCESS;
}

Status ReadInfoHeader(const Front& front, DibLayout& layout, uint32_t& colors, uint32_t& imageBytes) noexcept {
  const auto header = front.Read<DibInfoHeader>(0);
  if (header.planes != 1 || !DepthFits(header.compression, header.bits)) return ERR_UNSUPPORTED_FORMAT;
  const bool runs = header.compression == kDibRle8 || header.compression == kDibRle4;
  if (header.height == INT32_MIN || (runs && header.height < 0)) return ERR_UNSUPPORTED_FORMAT;
  layout.width = header.width;
  layout.topDown = header.height < 0;
  layout.height = layout.topDown ? -header.height : header.height;
  layout.bits = header.bits;
  layout.compression = header.compression;
  layout.xPixelsPerMetre = header.xPixelsPerMetre;
  layout.yPixelsPerMetre = header.yPixelsPerMetre;
  layout.tableEntryBytes = 4;
  colors = header.colors == 0 && header.bits <= 8 ? 1u << header.bits : header.colors;
  imageBytes = header.imageBytes;
  return SUCCESS;
}

bool IsHeaderSize(uint32_t bytes) noexcept {
  return bytes == 12 || bytes == 40 || bytes == 52 || bytes == 56 || bytes == 108 || bytes == 124;
}

// Where the pixels are and how many bytes of them there are.
Status FindPixels(const DibBytes& bytes, uint64_t tableEnd, uint32_t imageBytes, DibLayout& layout) noexcept {
  uint64_t limit = bytes.bitsBytes;
  layout.pixels = bytes.bits;
  if (!bytes.bits) {
    if (tableEnd > bytes.infoBytes) return ERR_INVALID_PARAMETER;
    layout.pixels = bytes.info + tableEnd;
    limit = bytes.infoBytes == DibBytes::kUnlimited ? DibBytes::kUnlimited : bytes.infoBytes - tableEnd;
  }
  if (layout.compression == kDibRle8 || layout.compression == kDibRle4) {
    // Only the header can bound a stream in memory of unknown length.
    if (imageBytes == 0 && limit == DibBytes::kUnlimited) return ERR_UNSUPPORTED_FORMAT;
    layout.pixelBytes = imageBytes ? imageBytes : limit;
  } else {
    // Below 2^31 rows of 2^33 bytes.
    layout.pixelBytes = DibRowBytes(layout.width, layout.bits) * static_cast<uint32_t>(layout.height);
  }
  return layout.pixelBytes <= limit ? SUCCESS : ERR_INVALID_PARAMETER;
}

}  // namespace

Status ReadDibLayout(const DibBytes& bytes, DibLayout& layout) noexcept {
  layout = {};
  const Front front(bytes.info, bytes.infoBytes);
  if (!front.Has(sizeof(uint32_t))) return ERR_INVALID_PARAMETER;
  const auto headerBytes = front.Read<uint32_t>(0);
  if (!IsHeaderSize(headerBytes)) return ERR_UNSUPPORTED_FORMAT;
  if (!front.Has(headerBytes)) return ERR_INVALID_PARAMETER;
  uint32_t colors = 0;
  uint32_t imageBytes = 0;
  TARN_TRY(headerBytes == sizeof(DibCoreHeader) ? ReadCoreHeader(front, layout, colors)
                                                : ReadInfoHeader(front, layout, colors, imageBytes));
  if (layout.width <= 0 || layout.height <= 0) return ERR_UNSUPPORTED_FORMAT;
  uint64_t table = 0;
  TARN_TRY(ReadMasks(front, headerBytes, layout, table));
  if (layout.bits <= 8) {
    const uint32_t distinct = 1u << layout.bits;
    layout.tableEntries = colors < distinct ? colors : distinct;
    layout.table = front.At(table);
    if (!front.Has(table + uint64_t{layout.tableEntries} * layout.tableEntryBytes)) return ERR_INVALID_PARAMETER;
  }
  return FindPixels(bytes, table + uint64_t{colors} * layout.tableEntryBytes, imageBytes, layout);
}

}  // namespace tarn
