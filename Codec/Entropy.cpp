#include "Codec/Entropy.h"

// Contexts in memory of the caller's are outside the interface that never changes: the library is linked statically.
#define ZSTD_STATIC_LINKING_ONLY
#include <zstd.h>

namespace tarn::codec {
namespace {

// What the fastest level takes, but only long matches: differences of photographs match by chance, and each such match
// costs more time than it saves room.
constexpr int kLevel = 1;
constexpr unsigned kShortestMatch = 7;

ZSTD_compressionParameters Parameters(uint64_t bytes) noexcept {
  ZSTD_compressionParameters parameters = ZSTD_getCParams(kLevel, bytes ? bytes : 1, 0);
  parameters.minMatch = kShortestMatch;
  return parameters;
}

}  // namespace

uint64_t FrameBound(uint64_t bytes) noexcept { return ZSTD_compressBound(bytes) + 4; }  // and the checksum

uint64_t CompressWork(uint64_t bytes) noexcept { return ZSTD_estimateCCtxSize_usingCParams(Parameters(bytes)); }
uint64_t ExpandWork() noexcept { return ZSTD_estimateDCtxSize(); }

uint64_t CompressFrame(uint8_t* target, uint64_t room, const uint8_t* source, uint64_t bytes, void* work,
                       uint64_t workBytes) noexcept {
  ZSTD_CCtx* const context = ZSTD_initStaticCCtx(work, workBytes);
  if (!context) return 0;
  const ZSTD_compressionParameters parameters = Parameters(bytes);
  const struct {
    ZSTD_cParameter parameter;
    unsigned value;
  } settings[] = {{ZSTD_c_windowLog, parameters.windowLog},
                  {ZSTD_c_hashLog, parameters.hashLog},
                  {ZSTD_c_chainLog, parameters.chainLog},
                  {ZSTD_c_searchLog, parameters.searchLog},
                  {ZSTD_c_minMatch, parameters.minMatch},
                  {ZSTD_c_targetLength, parameters.targetLength},
                  {ZSTD_c_strategy, static_cast<unsigned>(parameters.strategy)},
                  {ZSTD_c_checksumFlag, 1}};
  for (const auto& setting : settings) {
    if (ZSTD_isError(ZSTD_CCtx_setParameter(context, setting.parameter, static_cast<int>(setting.value)))) return 0;
  }
  const size_t written = ZSTD_compress2(context, target, room, source, bytes);
  return ZSTD_isError(written) ? 0 : written;
}

bool ExpandFrame(uint8_t* target, uint64_t bytes, const uint8_t* frame, uint64_t frameBytes, void* work,
                 uint64_t workBytes) noexcept {
  ZSTD_DCtx* const context = ZSTD_initStaticDCtx(work, workBytes);
  if (!context) return false;
  const size_t expanded = ZSTD_decompressDCtx(context, target, bytes, frame, frameBytes);
  return !ZSTD_isError(expanded) && expanded == bytes;
}

}  // namespace tarn::codec
