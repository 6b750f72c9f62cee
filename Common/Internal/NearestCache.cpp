#include "Common/Internal/NearestCache.h"

#include <cstring>
#include <new>

#include "Common/Internal/PaletteMap.h"
#include "Common/Internal/Settings.h"
#include "Platform/Here.h"

namespace tarn {

constexpr uint32_t kEntries = 256;
constexpr uint32_t kSlotBits = 16;
constexpr uint32_t kSlots = 1u << kSlotBits;
constexpr uint32_t kColorMask = 0xFFFFFF;
// Cells of 8 x 8 x 8 colours, and lists of the entries that can be nearest to a colour of the cell.
constexpr uint32_t kCells = 32768;
constexpr uint32_t kListBytes = 1u << 18;

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
  uint32_t slots[kSlots];  // color << 8 | index
  uint32_t lists[kCells];  // where a cell's list is in listBytes; 0: not made, or no room
  uint32_t listEnd;
  uint8_t listBytes[kListBytes];  // count - 1, then the entries in ascending order

  void* SearchPlace() noexcept {
    const auto at = reinterpret_cast<uintptr_t>(search);
    return search + (alignof(NearestSearch) - at % alignof(NearestSearch)) % alignof(NearestSearch);
  }
  const NearestSearch& Search() noexcept { return *std::launder(static_cast<const NearestSearch*>(SearchPlace())); }
};

namespace {

/// Spreads neighbouring colours: a picture's colours lie close together.
constexpr uint32_t SlotOf(uint32_t color) noexcept { return (color * 0x9E3779B1u) >> (32 - kSlotBits); }

// Slots that know nothing hold a colour that belongs to another one.
constexpr uint32_t kElsewhere = 0;
constexpr uint32_t kElsewhereToo = 1;
static_assert(SlotOf(kElsewhere) != SlotOf(kElsewhereToo));

void Forget(NearestCache& cache, const T_PaletteEntry* entries, uint32_t count) noexcept {
  std::memcpy(cache.palette, entries, count * sizeof(T_PaletteEntry));
  cache.count = count;
  cache.sourceCount = 0;
  new (cache.SearchPlace()) NearestSearch(cache.palette, count);
  for (uint32_t& slot : cache.slots) slot = kElsewhere << 8;
  cache.slots[SlotOf(kElsewhere)] = kElsewhereToo << 8;
  std::memset(cache.lists, 0, sizeof cache.lists);
  cache.listEnd = 1;
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

/// Squares of how near and how far a value is from eight neighbouring ones.
void Reach(int32_t value, int32_t low, int32_t& nearest, int32_t& farthest) noexcept {
  const int32_t below = low - value, above = value - (low + 7);
  const int32_t outside = below > above ? below : above;
  const int32_t near = outside > 0 ? outside : 0;
  const int32_t far = (below + 7 > above + 7 ? below + 7 : above + 7);
  nearest = near * near;
  farthest = far * far;
}

/// An entry farther from all colours of the cell than some other entry is from any of them cannot be nearest.
void MakeList(NearestCache& cache, uint32_t cell) noexcept {
  int32_t nearest[kEntries];
  int32_t bound = INT32_MAX;
  const auto low = [cell](uint32_t shift) { return static_cast<int32_t>((cell >> shift & 31) << 3); };
  for (uint32_t i = 0; i < cache.count; ++i) {
    const T_PaletteEntry& entry = cache.palette[i];
    int32_t n[3], f[3];
    Reach(entry.Red, low(10), n[0], f[0]);
    Reach(entry.Green, low(5), n[1], f[1]);
    Reach(entry.Blue, low(0), n[2], f[2]);
    nearest[i] = n[0] + n[1] + n[2];
    const int32_t farthest = f[0] + f[1] + f[2];
    bound = farthest < bound ? farthest : bound;
  }
  if (cache.listEnd + 1 + cache.count > kListBytes) return;
  uint8_t* const list = cache.listBytes + cache.listEnd;
  uint32_t count = 0;
  for (uint32_t i = 0; i < cache.count; ++i) {
    list[1 + count] = static_cast<uint8_t>(i);
    count += nearest[i] <= bound;
  }
  list[0] = static_cast<uint8_t>(count - 1);
  cache.lists[cell] = cache.listEnd;
  cache.listEnd += 1 + count;
}

/// The answer from a cell's list, by the rule of the whole search.
uint32_t FindInList(const NearestCache& cache, const uint8_t* list, uint32_t color) noexcept {
  const uint32_t count = list[0] + 1u;
  if (count == 1) return list[1];
  const auto red = static_cast<int32_t>(color >> 16), green = static_cast<int32_t>(color >> 8 & 255);
  const auto blue = static_cast<int32_t>(color & 255);
  int32_t best = INT32_MAX;
  uint32_t index = 0;
  for (uint32_t i = 1; i <= count && best > 0; ++i) {
    const T_PaletteEntry& entry = cache.palette[list[i]];
    const int32_t r = entry.Red - red, g = entry.Green - green, b = entry.Blue - blue;
    const int32_t distance = r * r + g * g + b * b;
    if (distance < best) {
      best = distance;
      index = list[i];
    } else if (distance == best && ColorOrderCode(entry.Red, entry.Green, entry.Blue) ==
                                       ColorOrderCode(color >> 16, color >> 8 & 255, color & 255)) {
      index = list[i];
    }
  }
  return index;
}

uint32_t FindNew(NearestCache& cache, uint32_t color) noexcept {
  if (color == 0 || color == kColorMask)
    return FindColor(cache.Search(), color);  // black and white have a rule of their own
  const uint32_t cell = (color >> 9 & 0x7C00) | (color >> 6 & 0x3E0) | (color >> 3 & 31);
  if (cache.lists[cell] == 0) MakeList(cache, cell);
  if (cache.lists[cell] == 0) return FindColor(cache.Search(), color);
  return FindInList(cache, cache.listBytes + cache.lists[cell], color);
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
  uint32_t* const slots = cache_->slots;
  for (int64_t i = 0; i < pixels; ++i) {
    const uint32_t color = ColorAt(colors, i);
    uint32_t& slot = slots[SlotOf(color)];
    if (slot >> 8 != color) slot = color << 8 | FindNew(*cache_, color);
    target[i] = static_cast<uint8_t>(slot);
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
