#pragma once
// What the stages of a conversion look at: sides, ranges and tables, made once a line or once a picture.

#include <cstdint>

#include "Common/Internal/GrayParams.h"
#include "Common/Internal/NearestCache.h"
#include "Kernels/Kernels.h"

namespace tarn {

/// What a reader gives: an index or an 8-bit level a byte; raw gray samples of 32 bits; B, G, R, A of 8 or 16 bits.
enum class Domain : uint8_t { kIndex, kLevel8, kDeep, kColor8, kColor16 };
/// What a writer takes: target bytes; gray samples of 32 bits in place; B, G, R, A of 8 or 16 bits.
enum class Form : uint8_t { kBytes, kValues, kColor8, kColor16 };

struct LineSide {
  int32_t bits;  // of storage: 8 for 0
  bool gray;     // order 2, at any depth
  bool rgb;      // red first
  bool wide;     // order 5
  bool color;    // 16 to 64 bits of colour
  bool ranged;
};

struct LineContext {
  const PixelKernels* kernels;
  Domain domain;
  Form form;
  LineSide source, target;
  bool toWide, fromWide;
  bool keepAlpha;
  uint8_t alpha;       // 0 or 255: of a target whose source has none
  GrayParams deep;     // of a deep source, as many bits as the form can use
  GrayParams samples;  // of a gray target
  bool nearest;        // colour becomes an index
  bool bytesSame;      // bytes[i] = i
  NearestMap map;
  alignas(32) uint8_t bytes[256];  // index or 8-bit level to the target's byte
  uint32_t values[256];            // index or 8-bit level to the target's gray sample
  uint32_t colors[256];            // canonical colours of indices
  uint32_t packed[256];            // the same as pixels of 24 or 32 bits of the target

  [[nodiscard]] bool SameOrder() const noexcept { return source.rgb == target.rgb; }
};

constexpr int kLineBlock = 512;  // pixels, a multiple of 8

// ---- Stages of one block -------------------------------------------------------------------------------------------

using LineRead = void (*)(uint8_t* block, const uint8_t* packed, int count, const LineContext& k) noexcept;
using LineStep = void (*)(uint8_t* form, const uint8_t* block, int count, const LineContext& k) noexcept;
using LineWrite = void (*)(uint8_t* packed, const uint8_t* form, int count, const LineContext& k) noexcept;

LineRead LineReader(int32_t storedBits, bool color) noexcept;
LineStep LineStepOf(Domain domain, Form form) noexcept;  // null: the domain is the form
LineWrite LineWriter(int32_t storedBits, bool color) noexcept;
/// Canonical pixels, in place: B, G, R to the wide-gamut samples and back.
void ToWideGamut(uint8_t* block, int count, bool words) noexcept;
void FromWideGamut(uint8_t* block, int count, bool words) noexcept;

// ---- Whole lines in one kernel -------------------------------------------------------------------------------------

/// In place too.
using LineWhole = void (*)(uint8_t* target, const uint8_t* source, int64_t count, const LineContext& k) noexcept;
/// Null when the pair goes in stages. Fills what the kernel needs beyond the tables of the stages.
LineWhole FuseLine(LineContext& k) noexcept;

}  // namespace tarn
