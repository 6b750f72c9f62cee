#pragma once
// One-bit rows as run lengths: workers on the words of one row, without a record's 32-bit count.
//
// A word list alternates zeros, ones, zeros, ... and begins with zeros. "Canonical" is the list that compressing the
// same pixels gives: no run of length 0 but a first one and the joints of split runs, and the runs add up to the row.
// Pixels lie on a grid of bytes; a run longer than 65535 pixels is closed where the next byte of the grid would take it
// past 65535, so the joints depend on where the run begins on the grid.
//
// Word lists may lie at any address. Lists that are read may be of any content: pixels beyond the row are cut, missing
// ones are zeros. Targets overlap nothing that is read; nothing is written beyond the words that are returned. All
// functions return the words written, at least 1. Nothing is allocated.

#include <cstdint>

namespace tarn {

/// Words that the canonical list of a row never exceeds.
constexpr uint64_t MaxRunWords(uint32_t pixels) noexcept { return uint64_t{pixels} + 1 + 2 * uint64_t{pixels / 65528}; }

/// A closer bound where the canonical list is made of `count` other words.
constexpr uint64_t MaxRunWords(uint64_t count, uint32_t pixels) noexcept {
  const uint64_t fromWords = count + 1 + 2 * uint64_t{pixels / 65528};
  return fromWords < MaxRunWords(pixels) ? fromWords : MaxRunWords(pixels);
}

/// Canonical list of `pixels` packed pixels from bit firstBit (0..7) of packed on. Room: MaxRunWords(pixels).
uint32_t CompressRuns(void* target, const uint8_t* packed, uint32_t firstBit, uint32_t pixels) noexcept;

/// Packs pixels firstPixel.. of a list into (pixels + 7) / 8 bytes; the unused bits of the last byte are 0.
void ExpandRuns(uint8_t* packed, const void* words, uint32_t count, uint32_t firstPixel, uint32_t pixels) noexcept;

/// Canonical list of the first `pixels` pixels of a list. Without words (null, 0): a row of zeros.
/// Room: MaxRunWords(count, pixels).
uint32_t CanonicalRuns(void* target, const void* words, uint32_t count, uint32_t pixels) noexcept;

/// Canonical list of pixels firstPixel.. of a list, as CompressRuns gives it when the first of them is bit firstBit
/// (0..7) of a byte. Room: MaxRunWords(count, pixels).
uint32_t SliceRuns(void* target, const void* words, uint32_t count, uint32_t firstPixel, uint32_t pixels,
                   uint32_t firstBit) noexcept;

/// Canonical list of a row whose pixels firstPixel .. firstPixel + insertPixels - 1 are replaced by the first
/// insertPixels pixels of another list; what lies beyond the row is cut.
/// Room: MaxRunWords(uint64_t{rowCount} + insertCount + 2, rowPixels).
uint32_t SpliceRuns(void* target, const void* rowWords, uint32_t rowCount, uint32_t rowPixels, const void* insertWords,
                    uint32_t insertCount, uint32_t firstPixel, uint32_t insertPixels) noexcept;

/// The runs in reverse order, as T_MirrorCompressedBuffer states; not canonical when a run was split. The row should
/// hold exactly its width in pixels. Room: count + 1 words.
uint32_t MirrorRuns(void* target, const void* words, uint32_t count) noexcept;

}  // namespace tarn
