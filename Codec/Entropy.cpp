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

bool Set(ZSTD_CCtx* context, ZSTD_cParameter parameter, unsigned value) noexcept {
  return !ZSTD_isError(ZSTD_CCtx_setParameter(context, parameter, static_cast<int>(value)));
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
  const bool set =
      Set(context, ZSTD_c_windowLog, parameters.windowLog) && Set(context, ZSTD_c_hashLog, parameters.hashLog) &&
      Set(context, ZSTD_c_chainLog, parameters.chainLog) && Set(context, ZSTD_c_searchLog, parameters.searchLog) &&
      Set(context, ZSTD_c_minMatch, parameters.minMatch) &&
      Set(context, ZSTD_c_targetLength, parameters.targetLength) &&
      Set(context, ZSTD_c_strategy, parameters.strategy) && Set(context, ZSTD_c_checksumFlag, 1);
  if (!set) return 0;
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
