// The nearest entry of a palette.

#include <cstring>

#include "Kernels/Kernels.h"

namespace tarn {

namespace {

void Swap(uint32_t& a, uint32_t& b) noexcept {
  const uint32_t kept = a;
  a = b;
  b = kept;
}

/// Squares of differences of bytes: three of them are at most 195075.
uint32_t Square(uint32_t a, uint32_t b) noexcept { return (a - b) * (a - b); }

/// Squares of how near and how far a value is from eight neighbouring ones.
void Reach(int32_t value, int32_t low, int32_t& nearest, int32_t& farthest) noexcept {
  const int32_t below = low - value, above = value - (low + 7);
  const int32_t outside = below > above ? below : above;
  const int32_t near = outside > 0 ? outside : 0;
  const int32_t far = (below + 7 > above + 7 ? below + 7 : above + 7);
  nearest = near * near;
  farthest = far * far;
}

/// The entries that can be nearest to a colour of the cell, in ascending order: one that is farther from all of them
/// than some other entry is from any cannot.
uint32_t Candidates(const PreparedPalette& palette, uint32_t cell, uint8_t* list) noexcept {
  int32_t nearest[kPreparedEntries];
  int32_t bound = INT32_MAX;
  const auto low = [cell](uint32_t channel) { return static_cast<int32_t>(CellBegin(cell, channel)); };
  for (uint32_t i = 0; i < palette.count; ++i) {
    const uint8_t* const entry = palette.entries + 4 * i;
    int32_t n[3], f[3];
    Reach(entry[2], low(2), n[0], f[0]);
    Reach(entry[1], low(1), n[1], f[1]);
    Reach(entry[0], low(0), n[2], f[2]);
    nearest[i] = n[0] + n[1] + n[2];
    const int32_t farthest = f[0] + f[1] + f[2];
    bound = farthest < bound ? farthest : bound;
  }
  uint32_t count = 0;
  for (uint32_t i = 0; i < palette.count; ++i) {
    list[count] = static_cast<uint8_t>(i);
    count += nearest[i] <= bound;
  }
  return count;
}

}  // namespace

uint32_t ColorOrderCode(uint32_t red, uint32_t green, uint32_t blue) noexcept {
  uint32_t code = 0;
  if (red < blue) {
    Swap(red, blue);
    code = 4;
  }
  if (green < blue) {
    Swap(green, blue);
    code = code ? 6 : 2;
  }
  return red < green ? code | 1 : code;
}

void PreparePalette(PreparedPalette& prepared, const uint8_t* entries, uint32_t count) noexcept {
  prepared.entries = entries;
  prepared.count = count;
  // Places behind the last entry, up to a whole vector, are farther away than any colour.
  constexpr uint32_t kLanes = 8;
  constexpr int16_t kFar = 8000;
  for (uint32_t i = 0; i < count; ++i) {
    const uint8_t* const entry = entries + 4 * i;
    prepared.blueRed[2 * i] = entry[0];
    prepared.blueRed[2 * i + 1] = entry[2];
    prepared.green[2 * i] = entry[1];
    prepared.green[2 * i + 1] = 0;
  }
  for (uint32_t i = count; i % kLanes != 0; ++i) {
    prepared.blueRed[2 * i] = prepared.blueRed[2 * i + 1] = prepared.green[2 * i] = kFar;
    prepared.green[2 * i + 1] = 0;
  }
}

uint32_t NearestEntry_Portable(const uint8_t* entries, uint32_t count, uint32_t color) noexcept {
  const uint32_t red = color >> 16 & 255;
  const uint32_t green = color >> 8 & 255;
  const uint32_t blue = color & 255;
  const uint32_t code = ColorOrderCode(red, green, blue);
  uint32_t nearest = UINT32_MAX;
  uint32_t index = 0;
  for (uint32_t i = 0; i < count && nearest != 0; ++i) {
    const uint8_t* const entry = entries + uint64_t{4} * i;
    const uint32_t distance = Square(entry[0], blue) + Square(entry[1], green) + Square(entry[2], red);
    if (distance > nearest) continue;
    if (distance < nearest || ColorOrderCode(entry[2], entry[1], entry[0]) == code) {
      nearest = distance;
      index = i;
    }
  }
  return index;
}

uint32_t NearestPrepared_Portable(const PreparedPalette& palette, uint32_t color) noexcept {
  return NearestEntry_Portable(palette.entries, palette.count, color);
}

void NearestCell_Portable(uint8_t* answers, const PreparedPalette& palette, uint32_t cell) noexcept {
  uint8_t list[kPreparedEntries + 1];
  const uint32_t count = Candidates(palette, cell, list);
  if (count == 1) {
    std::memset(answers, list[0], kCellColors);
    return;
  }
  uint8_t entries[4 * kPreparedEntries];  // those of the list, in their order: the rule holds among them
  for (uint32_t i = 0; i < count; ++i) std::memcpy(entries + 4 * i, palette.entries + 4 * list[i], 4);
  for (uint32_t i = 0; i < kCellColors; ++i) {
    const uint32_t red = i >> 6, green = i >> 3 & 7, blue = i & 7;
    const uint32_t color =
        (CellBegin(cell, 2) | red) << 16 | (CellBegin(cell, 1) | green) << 8 | CellBegin(cell, 0) | blue;
    // NOLINTNEXTLINE: the answer is below count
    answers[PlaceOfColor(red, green, blue)] = list[NearestEntry_Portable(entries, count, color)];
  }
}

bool AnswerColors_Portable(uint8_t* target, uint32_t* places, const uint8_t* colors, int64_t pixels,
                           const uint8_t* answers) noexcept {
  for (int64_t i = 0; i < pixels; ++i) {
    uint32_t color;
    std::memcpy(&color, colors + 4 * i, 4);
    places[i] = PlaceOfColor(color >> 16 & 255, color >> 8 & 255, color & 255);
  }
  bool any = false;
  for (int64_t i = 0; i < pixels; ++i) {
    target[i] = answers[places[i]];
    any |= target[i] == 0;
  }
  return any;
}

}  // namespace tarn
