#pragma once
// Pixel loops: plain pointers and counts, no record, no allocation. Every entry has a portable version; faster ones
// give the same bytes and are chosen once at load by what the processor has.

#include <cstdint>

#include "Kernels/Combine.h"
#include "Kernels/Dither.h"
#include "Kernels/Histogram.h"
#include "Kernels/Pixels.h"
#include "Kernels/Rotate.h"
#include "Kernels/Scale.h"
#include "Kernels/Turn.h"
#include "Kernels/Warp.h"

namespace tarn {

/// kAvx512: with byte permutes (VBMI, VBMI2), VNNI and GFNI, as processors have it since 2019.
enum class Isa : uint8_t { kPortable, kAvx2, kAvx512, kCount };

/// A palette of 1..kPreparedEntries entries, laid out for many searches.
constexpr uint32_t kPreparedEntries = 256;
struct PreparedPalette {
  alignas(32) int16_t blueRed[2 * kPreparedEntries];  // blue and red of an entry beside each other
  alignas(32) int16_t green[2 * kPreparedEntries];    // green and a zero
  const uint8_t* entries;
  uint32_t count;
};
/// Entries of four bytes: blue, green, red and one that does not count. They must stay while the palette is used.
void PreparePalette(PreparedPalette& prepared, const uint8_t* entries, uint32_t count) noexcept;

/// The place of a colour in a table of answers for all: bits 7..4 of red, green and blue, then bit 3 of each, bit 2 of
/// each, bits 1 and 0 of each. Colours that are close to each other are in one cache line (4 x 4 x 4), cell (8 x 8 x 8)
/// or page of memory (16 x 16 x 16).
constexpr uint32_t kCells = 32768;
constexpr uint32_t kCellColors = 512;
static constexpr uint32_t PlaceOfColor(uint32_t red, uint32_t green, uint32_t blue) noexcept {
  const uint32_t page = (red >> 4) << 20 | (green >> 4) << 16 | (blue >> 4) << 12;
  const uint32_t cell = (red & 8) << 8 | (green & 8) << 7 | (blue & 8) << 6;
  const uint32_t line = (red & 4) << 6 | (green & 4) << 5 | (blue & 4) << 4;
  return page | cell | line | (red & 3) << 4 | (green & 3) << 2 | (blue & 3);
}
/// Where a channel of a cell begins; 2 red, 1 green, 0 blue.
static constexpr uint32_t CellBegin(uint32_t cell, uint32_t channel) noexcept {
  return (cell >> (3 + 4 * channel) & 15) << 4 | (cell >> channel & 1) << 3;
}

/// Which of the three is largest, middle and smallest; 0..7.
uint32_t ColorOrderCode(uint32_t red, uint32_t green, uint32_t blue) noexcept;

struct KernelTable {
  /// Run lengths of `pixels` one-bit pixels that begin at bit firstBit (0..7) of source, alternating zeros, ones; the
  /// first run is of zeros. A run is closed before the byte of source that would take it past 65535 and goes on after a
  /// run of length 0. runs: 16-bit words at any address, at most pixels + 1 + 2 * (pixels / 65528); nothing is written
  /// beyond the words returned (1 for 0 pixels: a 0). Reads only the bytes that hold the pixels.
  uint32_t (*compressRuns)(void* runs, const uint8_t* source, uint32_t firstBit, uint32_t pixels) noexcept;
  /// Writes (pixels + 7) / 8 bytes: pixels firstPixel.. of the runs; what the runs lack, and the rest of the last byte,
  /// is 0. Runs may be of any content and lie at any address; only `words` of them are read.
  void (*expandRuns)(uint8_t* target, const void* runs, uint32_t words, uint32_t firstPixel, uint32_t pixels) noexcept;
  /// Copies `bits` bits that begin at bit sourceBit (0..7) of source to bit targetBit (0..7) of target; bit 0 of a byte
  /// is its most significant one. Other bits of the target stay, only bytes that hold some of the bits are touched.
  /// Target and source do not overlap; any alignment.
  using Shift = void (*)(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit,
                         uint64_t bits) noexcept;
  Shift shiftBits;
  /// The same where bit 0 of a byte is its least significant one, as pixels of 12 bits lie.
  Shift shiftLowBits;
  /// The same of lines whose picture is larger than the caches: what fills cache lines goes past them.
  Shift streamBits, streamLowBits;
  /// The entry at the smallest sum of squared differences from color (red << 16 | green << 8 | blue): the first one
  /// that is equal; else, of those at the smallest distance, the last whose order code is the colour's; else the first.
  /// Entries as for PreparePalette; count is at least 1.
  uint32_t (*nearestEntry)(const uint8_t* entries, uint32_t count, uint32_t color) noexcept;
  /// The same of a prepared palette.
  uint32_t (*nearestPrepared)(const PreparedPalette& palette, uint32_t color) noexcept;
  /// The same of all colours of a cell, each at its place in the cell.
  void (*nearestCell)(uint8_t* answers, const PreparedPalette& palette, uint32_t cell) noexcept;
  /// The bytes at the places of canonical colours in a table of all cells, in order of their numbers. Fills places as
  /// well; true when one of the bytes is 0.
  bool (*answerColors)(uint8_t* target, uint32_t* places, const uint8_t* colors, int64_t pixels,
                       const uint8_t* answers) noexcept;
  const PixelKernels* pixels;
  const DitherKernels* dither;
  CountKeys* countKeys;
  MarkColors* markColors;
  const TurnKernels* turn;
  const ScaleKernels* scale;
  const RotateKernels* rotate;
  const RotateSquares* rotateSquares;
  const WarpKernels* warp;
  const CombineKernels* combine;
};

/// The rule of long runs, for the rare run of more than 65535 pixels: writes the words up to its last piece and moves
/// runStart to where that begins. Positions count from a byte boundary of the row. Returns the place of the next word.
uint8_t* SplitLongRun(uint8_t* target, uint64_t& runStart, uint64_t runEnd) noexcept;

/// The table of a level, limited to what this processor has.
const KernelTable& KernelsFor(Isa limit) noexcept;
/// The best level of this processor.
Isa BestIsa() noexcept;
/// The table in force.
const KernelTable& Kernels() noexcept;
/// Forces a level (tests); returns the one in force, which is not above what the processor has.
Isa ForceIsa(Isa limit) noexcept;

}  // namespace tarn
