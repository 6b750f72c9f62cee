#include "Common/Internal/PerspectiveCopy.h"

#include <cstring>

#include "Common/Internal/TrackedBuffer.h"

namespace tarn {
namespace {

/// A perspective as the first one turned clockwise by quarter turns, some after their rows were exchanged top to
/// bottom.
struct Layout {
  bool flipped;
  int quarters;
};
constexpr Layout kLayouts[9] = {{false, 0}, {false, 0}, {true, 2}, {false, 2}, {true, 0},
                                {true, 1},  {false, 1}, {true, 3}, {false, 3}};

/// What brings stored rows from one perspective to another: first the flip, then the turns.
Layout Change(const Layout& from, const Layout& to) noexcept {
  const int turns = from.quarters - to.quarters;
  return {from.flipped != to.flipped, (to.flipped ? -turns : turns) & 3};
}

struct Place {
  int64_t x;
  int64_t y;
};

/// Where a pixel of rows of `width` by `height` goes.
Place Moved(const Layout& change, Place at, int64_t width, int64_t height) noexcept {
  if (change.flipped) at.y = height - 1 - at.y;
  switch (change.quarters) {
    case 0:
      return at;
    case 1:
      return {height - 1 - at.y, at.x};
    case 2:
      return {width - 1 - at.x, height - 1 - at.y};
    default:
      return {at.y, width - 1 - at.x};
  }
}

void CopyPixel(uint8_t* target, int64_t targetColumn, const uint8_t* source, int64_t sourceColumn,
               int32_t bits) noexcept {
  if (bits >= 8 && bits != 12) {
    const size_t bytes = static_cast<size_t>(bits) / 8;
    std::memcpy(target + static_cast<size_t>(targetColumn) * bytes, source + static_cast<size_t>(sourceColumn) * bytes,
                bytes);
    return;
  }
  // Bit by bit, in the order in which pixels of 12 bits and of fewer than 8 count theirs.
  const int flip = bits == 12 ? 0 : 7;
  for (int32_t i = 0; i < bits; ++i) {
    const int64_t from = sourceColumn * bits + i;
    const int64_t to = targetColumn * bits + i;
    const int bit = source[from / 8] >> (from % 8 ^ flip) & 1;
    target[to / 8] = static_cast<uint8_t>(target[to / 8] | bit << (to % 8 ^ flip));
  }
}

}  // namespace

Status CopyInPerspective(ScratchBitmap& copy, BitmapHandle& source, uint32_t perspective) noexcept {
  const uint32_t before = source.ViewPerspective;
  if (before < 1 || before > 8 || perspective < 1 || perspective > 8) return ERR_INVALID_PARAMETER;
  const Layout change = Change(kLayouts[before], kLayouts[perspective]);
  const int32_t width = source.Width;
  const int32_t height = source.Height;
  const int32_t bits = source.BitsPerPixel;
  const bool exchanged = change.quarters % 2 != 0;
  TARN_TRY(copy.Create(source, exchanged ? height : width, exchanged ? width : height, bits));
  BitmapHandle& made = copy.Record();
  made.ViewPerspective = perspective;
  const uint64_t stride = made.BytesPerLine;
  auto image = TrackedBuffer<uint8_t>::Zeroed(stride * static_cast<uint32_t>(made.Height), TARN_HERE);
  if (!image) return ERR_NO_MEMORY;
  {
    const BitmapLock lock(source);
    RowReader reader(source, TARN_HERE);
    TARN_TRY(reader.Open());
    for (int32_t row = 0; row < height; ++row) {
      const uint8_t* const line = reader.Row(row);
      if (!line) return reader.status();
      for (int32_t column = 0; column < width; ++column) {
        const Place at = Moved(change, {column, row}, width, height);
        CopyPixel(image.data() + static_cast<uint64_t>(at.y) * stride, at.x, line, column, bits);
      }
    }
  }
  const BitmapLock lock(made);
  RowWriter writer(made, TARN_HERE);
  TARN_TRY(writer.Open());
  for (int32_t row = 0; row < made.Height; ++row) {
    std::memcpy(writer.Row(row), image.data() + static_cast<uint64_t>(row) * stride, stride);
    TARN_TRY(writer.Commit());
  }
  return SUCCESS;
}

}  // namespace tarn
