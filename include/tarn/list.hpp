/** @file
 *  A list of bitmaps that owns them: pages, frames. Part of tarn.hpp.
 */
#ifndef TARN_LIST_HPP
#define TARN_LIST_HPP

#include <concepts>

#include "bitmap.hpp"

namespace tarn {
inline namespace v15 {

/** Owns a list and its bitmaps. It moves, leaving one without a list; what adds to such a one makes the list. Items are
 *  numbered from 0. Statuses are those of list.h and colors.h. */
class BitmapList {
 public:
  BitmapList() noexcept = default;
  BitmapList(BitmapList&& other) noexcept : list_(other.release()) {}
  BitmapList& operator=(BitmapList&& other) noexcept {
    if (this != &other) {
      clear();
      list_ = other.release();
    }
    return *this;
  }
  ~BitmapList() { clear(); }

  /** Takes over a list; the list itself, null when there is none yet; gives it away. */
  static BitmapList adopt(T_BitmapList* list) noexcept {
    BitmapList made;
    made.list_ = list;
    return made;
  }
  T_BitmapList* handle() const noexcept { return list_; }
  T_BitmapList* release() noexcept { return std::exchange(list_, nullptr); }

  uint32_t size() const noexcept {
    uint32_t count = 0;
    return list_ && T_GetBitmapListCount(list_, &count) == SUCCESS ? count : 0;
  }
  bool empty() const noexcept { return size() == 0; }
  /** Frees every bitmap. T_DestroyBitmapList */
  void clear() noexcept {
    if (list_) T_DestroyBitmapList(std::exchange(list_, nullptr));
  }

  /** Puts a bitmap before an item, or at the end; after a failure it is the caller's. T_InsertBitmapListItem */
  Result<void> insert(uint32_t index, Bitmap&& bitmap) {
    if (bitmap.empty()) return Failure{ERR_NO_BITMAP};
    if (!list_) {
      if (const int32_t status = T_CreateBitmapList(&list_); status != SUCCESS) return Failure{status};
    }
    const int32_t status = T_InsertBitmapListItem(list_, index, bitmap.handle());
    if (status != SUCCESS) return Failure{status};
    static_cast<void>(bitmap.release());
    return {};
  }
  Result<void> append(Bitmap&& bitmap) { return insert(T_LIST_END, std::move(bitmap)); }
  /** Takes a bitmap out of the list. T_RemoveBitmapListItem */
  Result<Bitmap> take(uint32_t index) {
    BitmapHandle record;
    const int32_t status = T_RemoveBitmapListItem(list_, index, &record);
    if (status != SUCCESS) return Failure{status};
    return Bitmap::adopt(record);
  }
  /** Puts a bitmap in an item's place and gives back what was there. T_ReplaceBitmapListItem */
  Result<Bitmap> replace(uint32_t index, Bitmap&& bitmap) {
    if (bitmap.empty()) return Failure{ERR_NO_BITMAP};
    if (index >= size()) return Failure{ERR_INVALID_PARAMETER};
    BitmapHandle old;
    const int32_t status = T_ReplaceBitmapListItem(list_, index, bitmap.handle(), &old, sizeof old);
    if (status != SUCCESS) return Failure{status};
    static_cast<void>(bitmap.release());
    return Bitmap::adopt(old);
  }
  /** Frees so many bitmaps. T_DeleteBitmapListItems */
  Result<void> erase(uint32_t index, uint32_t count = 1) {
    return detail::done(T_DeleteBitmapListItems(list_, index, count));
  }
  /** Moves items into a list of their own, or copies them. T_MoveBitmapListItems, T_CopyBitmapListItems */
  Result<BitmapList> split(uint32_t index, uint32_t count = T_LIST_END) {
    T_BitmapList* moved = nullptr;
    const int32_t status = T_MoveBitmapListItems(&moved, list_, index, count);
    if (status != SUCCESS) return Failure{status};
    return adopt(moved);
  }
  Result<BitmapList> copy(uint32_t index = 0, uint32_t count = T_LIST_END) const {
    T_BitmapList* copied = nullptr;
    if (const auto made = detail::done(T_CopyBitmapListItems(&copied, list_, index, count)); !made)
      return made.failure();
    return adopt(copied);
  }

  /** Calls work(bitmap) with an item. Whatever it does to the bitmap, the list has it afterwards, also when `work`
   *  throws; a bitmap that it moves away leaves an empty one. The list must not be changed meanwhile. */
  template <std::invocable<Bitmap&> F>
  Result<void> edit(uint32_t index, F&& work) {
    Borrowed borrowed{list_, index, {}};
    BitmapHandle record;
    const int32_t status = T_GetBitmapListItem(list_, index, &record, sizeof record);
    if (status != SUCCESS) return borrowed.list = nullptr, Failure{status};
    borrowed.bitmap = Bitmap::adopt(record);
    work(borrowed.bitmap);
    return {};
  }

  /** One palette for all bitmaps. T_CreateBitmapListOptPal */
  Result<Palette> optimizedPalette(uint32_t colors = 256) const {
    if (colors < 1 || colors > Palette::kMost) return Failure{ERR_INVALID_PARAMETER};
    std::array<T_PaletteEntry, Palette::kMost> entries{};
    uint32_t optimized = 0;
    const int32_t status = T_CreateBitmapListOptPal(list_, entries.data(), &colors, nullptr, &optimized);
    if (const auto made = detail::done(status); !made) return made.failure();
    return Palette(std::span(entries).first(colors));
  }
  /** Every bitmap to the same depth with one palette. T_ColorResBitmapList */
  Result<void> convert(Depth depth, const ConvertOptions& options = {}) {
    const size_t given = options.palette.size();
    return detail::done(T_ColorResBitmapList(
        list_, static_cast<int32_t>(depth), static_cast<uint32_t>(options.kind) | T_RES_DITHER(options.dither),
        given ? options.palette.data() : nullptr, nullptr, given ? static_cast<uint32_t>(given) : options.colors));
  }

 private:
  struct Borrowed {  // puts the record back into the list, whose it is
    T_BitmapList* list;
    uint32_t index;
    Bitmap bitmap;
    ~Borrowed() {
      if (!list) return;
      const BitmapHandle record = bitmap.release();
      T_SetBitmapListItem(list, index, &record);
    }
  };

  T_BitmapList* list_ = nullptr;
};

}  // namespace v15
}  // namespace tarn

#endif
