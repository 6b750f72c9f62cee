#pragma once
// Error diffusion and ordered dithering of blocks of pixels. Canonical pixels are B, G, R and a zero, a byte each;
// errors and sums have the same four lanes.
//
// Diffusion keeps errors, not sums: what reaches a pixel is gathered from the errors around it. `Above` gathers from
// the lines above, for a whole block at once; `Diffuse` walks along the block and adds what comes from the left. Lines
// below each other may be walked in one call as long as each block lies so far to the left of the one above it that
// everything above is known.

#include <cstdint>

namespace tarn {

constexpr int kDitherReach = 4;     // pixels to either side that a kernel reaches, and margin of rows of errors
constexpr int kDitherGroup = 4;     // lines that Diffuse walks at once at the most
constexpr int kDitherBlock = 128;   // pixels of a block at the most
constexpr int kWaveLines = 32;      // lines of a wave at the most
constexpr int kWaveLag = 8;         // pixels that each line of a wave is behind the one above; also pixels of a walk
constexpr int kWaveRows = 2;        // lines above that a kernel counts, in a wave
constexpr uint32_t kUnknown = 255;  // in DitherColors::table: ask `resolve`
constexpr uint32_t kNoneUnknown = 256;

/// Weights of errors by where they come from: line above (0: the same line) and pixels to the left (negative: right).
struct DitherKernel {
  int16_t left[2];      // from 1 and 2 pixels to the left in the same line
  int16_t above[3][7];  // from lines 1 to 3 above, pixels 3 to the left to 3 to the right
  int32_t rows;         // lines above that count
  int32_t divisor;
  int32_t multiplier;  // trunc(|sum| / divisor) = |sum| * multiplier >> (16 + shift) in 16-bit lanes (sum <= 12240), or
  int32_t shift;       // >> shift in 32-bit lanes (wide; sum <= 51000)
  bool wide;
};

/// One channel by itself: what becomes of a value.
struct DitherStep {
  int16_t carried;  // error * left[0]
  int16_t error;
  uint16_t share;  // of the position
  uint16_t unused;
};
constexpr int kStepValues = 768;  // up to 256 below black, up to 256 above white

/// From a clamped colour to a target entry.
struct DitherColors {
  /// kTable: the key's entry. kSteps: each channel by itself, step = level * scale >> 16, chosen component
  /// (step * rise + 1) >> 2, position the sum of step * weight. Else by the gray value: its top bit, its top two bits.
  enum Rule : uint8_t { kTable, kSteps, kGray1, kGray2 } rule;
  struct Channel {
    uint16_t scale, rise, weight;
  };
  Channel channels[3];         // kSteps: of blue, green, red
  const DitherStep* steps[3];  // kSteps, for a kernel that is not wide: of values from -256 on
  uint32_t mask;               // kTable: bits of the word B | G << 8 | R << 16 that make the key, lowest first
  const uint8_t* table;        // key to position
  uint32_t unknown;            // kUnknown or kNoneUnknown
  /// Position for a key whose table entry is kUnknown.
  uint32_t (*resolve)(void* owner, uint32_t key) noexcept;
  void* owner;
  const int16_t (*colors)[4];  // of positions
  const uint8_t* indices;      // of positions
  bool renamed;                // indices differ from positions (but that of 0); not kTable: of 16 positions at most
  /// kTable, for waves: keys to blue | green << 8 | red << 16 | index << 24; `unseen` where that is not known yet.
  /// `see` fills in a key.
  const uint32_t* words;
  uint32_t unseen;
  void (*see)(void* owner, uint32_t key) noexcept;
};

struct DitherBlock {
  const uint8_t* pixels;  // canonical
  void* sums;             // four lanes of 16 bits a pixel, or 32 (wide): what Above gave
  int16_t* errors;        // four lanes a pixel; the two pixels to the left are read, count pixels are written
  uint8_t* indices;       // written
  int32_t count;
};

/// Lines below each other in the lanes of registers: at any step each line is kWaveLag pixels behind the one above it.
/// What it gets from there is then so old that it comes from memory, shifted by a lane by where it is loaded from.
struct DitherWave {
  static constexpr int kSteps = 32;  // remembered; 2 * kWaveLag + 3 are needed
  static constexpr int kFirst = 16;  // place of the first line; the lines above the wave are at the places before it
  alignas(64) int16_t errors[kSteps][3][kFirst + kWaveLines + 16];  // of steps modulo kSteps, by channel (gray: one)
  /// Of each line, at x modulo the size: canonical pixels, or levels, where it has any; and what was found, twice as
  /// much so that what is found beyond the ends of lines does no harm.
  alignas(64) uint8_t pixels[kWaveLines][4 * kDitherBlock];
  alignas(64) uint8_t indices[kWaveLines][2 * kDitherBlock];
  int64_t step;  // a multiple of kWaveLag
  int64_t width;
  int32_t lines;
};

struct DitherKernels {
  /// sums of `count` pixels from errors in rows[0] (the line above), rows[1], rows[2] as far as the kernel counts them;
  /// each row is readable kDitherReach pixels to either side.
  void (*above)(void* sums, const int16_t* const* rows, int32_t count, const DitherKernel& kernel) noexcept;
  /// Blocks of 1 to kDitherGroup lines.
  void (*diffuse)(const DitherBlock* blocks, int lines, const DitherKernel& kernel,
                  const DitherColors& colors) noexcept;
  /// Gray levels to the ramp of 1 or 2 bits: pixels, sums and errors have one lane. Kernels that are not wide.
  void (*aboveGray)(int16_t* sums, const int16_t* const* rows, int32_t count, const DitherKernel& kernel) noexcept;
  void (*diffuseGray)(const DitherBlock* blocks, int lines, const DitherKernel& kernel, uint32_t bits) noexcept;
  /// The next kWaveLag steps of a wave: line i is at the pixels step - kWaveLag * i and on. Errors of pixels that a
  /// line does not have become 0. Not wide; null where single lines are as fast.
  void (*walk)(DitherWave& wave, const DitherKernel& kernel, const DitherColors& colors) noexcept;
  void (*walkGray)(DitherWave& wave, const DitherKernel& kernel, uint32_t bits) noexcept;
  /// Without diffusion: adds offsets[x & 7] to all three channels, clamps, finds the index.
  void (*ordered)(uint8_t* indices, const uint8_t* pixels, int64_t count, const int16_t* offsets,
                  const DitherColors& colors) noexcept;
  /// 1 where the level is above limits[x & 7].
  void (*threshold)(uint8_t* indices, const uint8_t* levels, int64_t count, const uint8_t* limits) noexcept;
  /// map[red | green << 1 | blue << 2], bits set where the channel is above limits[x & 7].
  void (*thresholds)(uint8_t* indices, const uint8_t* pixels, int64_t count, const uint8_t* limits,
                     const uint8_t* map) noexcept;
};

void WalkWave_Avx2(DitherWave& wave, const DitherKernel& kernel, const DitherColors& colors) noexcept;
void WalkGrayWave_Avx2(DitherWave& wave, const DitherKernel& kernel, uint32_t bits) noexcept;

extern const DitherKernels kDitherPortable;
extern const DitherKernels kDitherAvx2;

}  // namespace tarn
