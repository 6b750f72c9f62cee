#include "Common/Internal/NearestCache.h"

#include <cstring>
#include <new>

#include "Common/Internal/PaletteMap.h"
#include "Common/Internal/Settings.h"
#include "Platform/Here.h"

namespace tarn {

constexpr uint32_t kEntries = 256;
constexpr uint32_t kColorMask = 0xFFFFFF;

/// 16 MB, of which only the cells that occur are ever touched; a system gives memory when it is.
struct NearestCache {
  T_PaletteEntry palette[kEntries];
  uint32_t count;                                                  // 0: nothing is known yet
  uint8_t search[sizeof(NearestSearch) + alignof(NearestSearch)];  // blocks of the heap are aligned to 16 only
  // The last map: sourceCount 0 when there is none; of gray levels when fromGray.
  uint32_t sourceCount;
  bool fromGray;
  bool identity;
  T_PaletteEntry source[kEntries];
  uint8_t map[kEntries];
  bool known[kCells];
  uint8_t answers[kCells * kCellColors];  // 0 in the cells that are not known

  void* SearchPlace() noexcept {
    const auto at = reinterpret_cast<uintptr_t>(search);
    return search + (alignof(NearestSearch) - at % alignof(NearestSearch)) % alignof(NearestSearch);
  }
  const NearestSearch& Search() noexcept { return *std::launder(static_cast<const NearestSearch*>(SearchPlace())); }
};

namespace {

void Forget(NearestCache& cache, const T_PaletteEntry* entries, uint32_t count) noexcept {
  std::memcpy(cache.palette, entries, count * sizeof(T_PaletteEntry));
  cache.count = count;
  cache.sourceCount = 0;
  new (cache.SearchPlace()) NearestSearch(cache.palette, count);
  for (uint32_t cell = 0; cell < kCells; ++cell) {
    if (!cache.known[cell]) continue;
    cache.known[cell] = false;
    std::memset(cache.answers + uint64_t{cell} * kCellColors, 0, kCellColors);
  }
}

NearestCache* CacheOfThread() noexcept {
  Settings& settings = ThreadSettings();
  if (!settings.slots) return nullptr;  // the process-wide record is not one thread's
  if (!settings.nearestCache) {
    const Here here = TARN_HERE;
    settings.nearestCache = static_cast<NearestCache*>(T_LocalAllocInit(1, sizeof(NearestCache), here.line, here.file));
  }
  return settings.nearestCache;
}

uint32_t ColorAt(const uint8_t* colors, int64_t pixel) noexcept {
  uint32_t word;
  std::memcpy(&word, colors + 4 * pixel, 4);
  return word & kColorMask;
}

uint32_t FindColor(const NearestSearch& search, uint32_t color) noexcept {
  return search.Find(color >> 16, color >> 8 & 255, color & 255);
}

void LearnCell(NearestCache& cache, uint32_t cell) noexcept {
  cache.Search().FindCell(cell, cache.answers + uint64_t{cell} * kCellColors);
  cache.known[cell] = true;
}

}  // namespace

void FreeNearestCache(NearestCache* cache) noexcept {
  const Here here = TARN_HERE;
  if (cache) T_LocalFree(cache, here.line, here.file);
}

void NearestMap::Open(const T_PaletteEntry* entries, uint32_t count) noexcept {
  entries_ = entries;
  count_ = count;
  cache_ = CacheOfThread();
  if (!cache_) return;
  if (cache_->count != count || std::memcmp(cache_->palette, entries, count * sizeof(T_PaletteEntry)) != 0)
    Forget(*cache_, entries, count);
}

void NearestMap::Map(uint8_t* target, const uint8_t* colors, int64_t pixels) const noexcept {
  if (!cache_) {
    const NearestSearch search(entries_, count_);
    for (int64_t i = 0; i < pixels; ++i) target[i] = static_cast<uint8_t>(FindColor(search, ColorAt(colors, i)));
    return;
  }
  NearestCache& cache = *cache_;
  const KernelTable& kernels = Kernels();
  constexpr int64_t kBatch = 512;
  uint32_t places[kBatch];
  for (int64_t first = 0; first < pixels; first += kBatch) {
    const int64_t count = pixels - first < kBatch ? pixels - first : kBatch;
    if (!kernels.answerColors(target + first, places, colors + 4 * first, count, cache.answers)) continue;
    for (int64_t i = 0; i < count; ++i) {  // what is 0 may not be known
      if (target[first + i] != 0) continue;
      const uint32_t cell = places[i] / kCellColors;
      if (!cache.known[cell]) LearnCell(cache, cell);
      target[first + i] = cache.answers[places[i]];
    }
  }
}

bool NearestMap::IndexMap(const T_PaletteEntry* source, uint32_t sourceCount, uint8_t* map) const noexcept {
  if (!cache_) return BuildPaletteIndexMap(source, sourceCount, entries_, count_, map);
  NearestCache& cache = *cache_;
  const bool known = cache.sourceCount == sourceCount && cache.fromGray == !source &&
                     (!source || std::memcmp(cache.source, source, sourceCount * sizeof(T_PaletteEntry)) == 0);
  if (!known) {
    cache.identity = BuildPaletteIndexMap(source, sourceCount, entries_, count_, cache.map);
    cache.sourceCount = sourceCount;
    cache.fromGray = !source;
    if (source) std::memcpy(cache.source, source, sourceCount * sizeof(T_PaletteEntry));
  }
  std::memcpy(map, cache.map, sourceCount);
  return cache.identity;
}

}  // namespace tarn
