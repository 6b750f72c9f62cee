// Which kernels run: the best level of the processor, found out on first use. Nothing here needs a constructor, so
// kernels work for whoever calls before the library's own start.

#include <cpuid.h>

#include <atomic>
#include <cstdint>

#include "Kernels/Kernels.h"

namespace tarn {

uint32_t CompressRuns_Portable(void* runs, const uint8_t* source, uint32_t firstBit, uint32_t pixels) noexcept;
void ExpandRuns_Portable(uint8_t* target, const void* runs, uint32_t words, uint32_t firstPixel,
                         uint32_t pixels) noexcept;
void ShiftBits_Portable(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit,
                        uint64_t bits) noexcept;
void ShiftLowBits_Portable(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit,
                           uint64_t bits) noexcept;
uint32_t CompressRuns_Avx2(void* runs, const uint8_t* source, uint32_t firstBit, uint32_t pixels) noexcept;
uint32_t NearestEntry_Portable(const uint8_t* entries, uint32_t count, uint32_t color) noexcept;
uint32_t NearestEntry_Avx2(const uint8_t* entries, uint32_t count, uint32_t color) noexcept;
uint32_t NearestEntry_Avx512(const uint8_t* entries, uint32_t count, uint32_t color) noexcept;
uint32_t NearestPrepared_Portable(const PreparedPalette& palette, uint32_t color) noexcept;
uint32_t NearestPrepared_Avx2(const PreparedPalette& palette, uint32_t color) noexcept;
void NearestCell_Portable(uint8_t* answers, const PreparedPalette& palette, uint32_t cell) noexcept;
void NearestCell_Avx2(uint8_t* answers, const PreparedPalette& palette, uint32_t cell) noexcept;
bool AnswerColors_Portable(uint8_t* target, uint32_t* places, const uint8_t* colors, int64_t pixels,
                           const uint8_t* answers) noexcept;
bool AnswerColors_Avx2(uint8_t* target, uint32_t* places, const uint8_t* colors, int64_t pixels,
                       const uint8_t* answers) noexcept;
bool AnswerColors_Avx512(uint8_t* target, uint32_t* places, const uint8_t* colors, int64_t pixels,
                         const uint8_t* answers) noexcept;
void ShiftBits_Avx2(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit,
                    uint64_t bits) noexcept;
void ShiftLowBits_Avx2(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit,
                       uint64_t bits) noexcept;
void ShiftBits_Avx512(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit,
                      uint64_t bits) noexcept;
void ShiftLowBits_Avx512(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit,
                         uint64_t bits) noexcept;
void StreamBits_Avx512(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit,
                       uint64_t bits) noexcept;
void StreamLowBits_Avx512(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit,
                          uint64_t bits) noexcept;

namespace {

constexpr RotateSquares kNoRotateSquares{};

constexpr KernelTable MakeTable(Isa limit) noexcept {
  KernelTable table{.compressRuns = CompressRuns_Portable,
                    .expandRuns = ExpandRuns_Portable,
                    .shiftBits = ShiftBits_Portable,
                    .shiftLowBits = ShiftLowBits_Portable,
                    .streamBits = ShiftBits_Portable,
                    .streamLowBits = ShiftLowBits_Portable,
                    .nearestEntry = NearestEntry_Portable,
                    .nearestPrepared = NearestPrepared_Portable,
                    .nearestCell = NearestCell_Portable,
                    .answerColors = AnswerColors_Portable,
                    .pixels = &kPixelsPortable,
                    .dither = &kDitherPortable,
                    .countKeys = CountKeys_Portable,
                    .markColors = MarkColors_Portable,
                    .turn = &kTurnPortable,
                    .scale = &kScalePortable,
                    .rotate = &kRotatePortable,
                    .rotateSquares = &kNoRotateSquares,
                    .warp = &kWarpPortable,
                    .combine = &kCombinePortable};
  if (limit >= Isa::kAvx2) {
    table.compressRuns = CompressRuns_Avx2;  // expanding goes run by run: wider registers do not help it
    table.shiftBits = ShiftBits_Avx2;
    table.shiftLowBits = ShiftLowBits_Avx2;
    table.streamBits = ShiftBits_Avx2;
    table.streamLowBits = ShiftLowBits_Avx2;
    table.nearestEntry = NearestEntry_Avx2;
    table.nearestPrepared = NearestPrepared_Avx2;
    table.nearestCell = NearestCell_Avx2;
    table.answerColors = AnswerColors_Avx2;
    table.pixels = &kPixelsAvx2;
    table.dither = &kDitherAvx2;
    table.countKeys = CountKeys_Avx2;
    table.markColors = MarkColors_Avx2;
    table.turn = &kTurnAvx2;
    table.scale = &kScaleAvx2;
    table.rotate = &kRotateAvx2;
    table.warp = &kWarpAvx2;
    table.combine = &kCombineAvx2;
  }
  if (limit >= Isa::kAvx512) {
    table.shiftBits = ShiftBits_Avx512;
    table.shiftLowBits = ShiftLowBits_Avx512;
    table.streamBits = StreamBits_Avx512;
    table.streamLowBits = StreamLowBits_Avx512;
    table.nearestEntry = NearestEntry_Avx512;
    table.answerColors = AnswerColors_Avx512;
    table.pixels = &kPixelsAvx512;
    table.turn = &kTurnAvx512;
    table.scale = &kScaleAvx512;
    table.rotateSquares = &kRotateSquaresAvx512;
  }
  return table;
}
constexpr KernelTable kTables[] = {MakeTable(Isa::kPortable), MakeTable(Isa::kAvx2), MakeTable(Isa::kAvx512)};
static_assert(sizeof kTables / sizeof kTables[0] == static_cast<size_t>(Isa::kCount));

/// kCount until somebody asks: asking a processor takes microseconds on a virtual machine. Threads that ask at once
/// find the same answer.
std::atomic<Isa> best{Isa::kCount};
std::atomic<Isa> level{Isa::kCount};

/// Registers that the system saves when it switches threads.
uint64_t SavedRegisters() noexcept {
  uint32_t low, high;
  __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
  return uint64_t{high} << 32 | low;
}

/// Everything that files of this level are compiled for: AVX2, BMI, BMI2, LZCNT, POPCNT, PCLMULQDQ.
bool HasAvx2() noexcept {
  constexpr uint32_t kBasic = bit_PCLMUL | bit_POPCNT | bit_OSXSAVE | bit_AVX;
  constexpr uint32_t kExtended = bit_AVX2 | bit_BMI | bit_BMI2;
  constexpr uint64_t kVectorState = 6;
  uint32_t basic = 0, extended = 0, more = 0, a, b, c, d;  // what a processor does not tell stays 0
  __get_cpuid(1, &a, &b, &basic, &d);
  if ((basic & kBasic) != kBasic) return false;
  __get_cpuid_count(7, 0, &a, &extended, &c, &d);
  __get_cpuid(0x80000001, &a, &b, &more, &d);
  const bool saved = (SavedRegisters() & kVectorState) == kVectorState;
  return saved & ((extended & kExtended) == kExtended) & ((more & bit_LZCNT) != 0);
}

/// Beyond AVX2: AVX-512 F, CD, BW, DQ, VL, VBMI, VBMI2, VNNI and GFNI; the system saves masks and all of the wide
/// registers.
bool HasAvx512() noexcept {
  constexpr uint32_t kWords = bit_AVX512F | bit_AVX512CD | bit_AVX512BW | bit_AVX512DQ | bit_AVX512VL;
  constexpr uint32_t kBytes = bit_AVX512VBMI | bit_AVX512VBMI2 | bit_AVX512VNNI | bit_GFNI;
  constexpr uint64_t kWideState = 0xE6;
  uint32_t a, b = 0, c = 0, d;
  __get_cpuid_count(7, 0, &a, &b, &c, &d);
  const bool saved = (SavedRegisters() & kWideState) == kWideState;
  return saved & ((b & kWords) == kWords) & ((c & kBytes) == kBytes);
}

Isa Limited(Isa limit) noexcept {
  const Isa most = BestIsa();
  return limit < most ? limit : most;
}

}  // namespace

Isa BestIsa() noexcept {
  Isa known = best.load(std::memory_order_relaxed);
  if (known == Isa::kCount) {
    known = !HasAvx2() ? Isa::kPortable : HasAvx512() ? Isa::kAvx512 : Isa::kAvx2;
    best.store(known, std::memory_order_relaxed);
  }
  return known;
}

const KernelTable& KernelsFor(Isa limit) noexcept { return kTables[static_cast<size_t>(Limited(limit))]; }

const KernelTable& Kernels() noexcept {
  const Isa current = level.load(std::memory_order_relaxed);
  return current == Isa::kCount ? KernelsFor(ForceIsa(Isa::kCount)) : kTables[static_cast<size_t>(current)];
}

Isa ForceIsa(Isa limit) noexcept {
  const Isa chosen = Limited(limit);
  level.store(chosen, std::memory_order_relaxed);
  return chosen;
}

}  // namespace tarn
