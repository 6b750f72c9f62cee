// Lists of bitmap records.

#include "Common/Internal/BitmapList.h"

#include <cstring>

#include "Common/Internal/Status.h"
#include "Platform/Here.h"
#include "tarn/bitmap.h"
#include "tarn/copy.h"
#include "tarn/memory.h"

namespace tarn {
namespace {

constexpr uint64_t kRecord = sizeof(BitmapHandle);

/// Room for so many items and the spare place behind them.
constexpr uint64_t BytesFor(uint64_t count) noexcept { return (count + 1) * kRecord; }

/// A list whose items can be looked at.
Status RequireItems(const T_BitmapList* list, uint32_t index) noexcept {
  if (!list || index >= list->Count) return ERR_INVALID_PARAMETER;
  if (!list->Items) return ERR_NULL_POINTER;
  return list->Items[0].StructSize == kRecord ? SUCCESS : ERR_BAD_STRUCT_SIZE;
}

/// Makes room for items; the list is unchanged when there is none.
Status Resize(T_BitmapList& list, uint64_t count) noexcept {
  const Here here = TARN_HERE;
  void* const items = list.Items ? T_GlobalRealloc(list.Items, BytesFor(count), here.line, here.file)
                                 : T_GlobalAllocInit(1, BytesFor(count), here.line, here.file);
  if (!items) return ERR_NO_MEMORY;
  list.Items = static_cast<BitmapHandle*>(items);
  return SUCCESS;
}

/// Takes `count` items from `index` on out of the array.
void Close(T_BitmapList& list, uint32_t index, uint32_t count) noexcept {
  const uint32_t left = list.Count - count;
  std::memmove(list.Items + index, list.Items + index + count, (left - index) * kRecord);
  list.Count = left;
  if (left == 0) {
    const Here here = TARN_HERE;
    T_GlobalFree(list.Items, here.line, here.file);
    list.Items = nullptr;
    return;
  }
  std::memset(static_cast<void*>(list.Items + left), 0, kRecord);
  (void)Resize(list, left).Ok();  // the larger block serves as well
}

uint32_t Clamped(const T_BitmapList& list, uint32_t index, uint32_t count) noexcept {
  const uint32_t left = list.Count - index;
  return count < left ? count : left;
}

}  // namespace
}  // namespace tarn

using namespace tarn;

int32_t T_CreateBitmapList(T_BitmapList** list) noexcept {
  if (!list) return ERR_INVALID_PARAMETER;
  const Here here = TARN_HERE;
  *list = static_cast<T_BitmapList*>(T_GlobalAllocInit(1, sizeof(T_BitmapList), here.line, here.file));
  return *list ? SUCCESS : ERR_NO_MEMORY;
}

int32_t T_DestroyBitmapList(T_BitmapList* list) noexcept {
  if (!list) return ERR_INVALID_PARAMETER;
  // Empty items, zeroed, are skipped: T_FreeBitmap ignores what has no size.
  for (uint32_t i = 0; list->Items && i < list->Count; ++i) T_FreeBitmap(&list->Items[i]);
  const Here here = TARN_HERE;
  if (list->Items) T_GlobalFree(list->Items, here.line, here.file);
  T_GlobalFree(list, here.line, here.file);
  return SUCCESS;
}

int32_t T_GetBitmapListCount(const T_BitmapList* list, uint32_t* count) noexcept {
  if (!list || !count) return ERR_INVALID_PARAMETER;
  *count = list->Count;
  return SUCCESS;
}

int32_t T_GetBitmapListItem(const T_BitmapList* list, uint32_t index, BitmapHandle* bitmap,
                            uint32_t structSize) noexcept {
  if (!list || index >= list->Count || !bitmap || !list->Items) return ERR_INVALID_PARAMETER;
  if (structSize != kRecord) return ERR_BAD_STRUCT_SIZE;
  *bitmap = list->Items[index];
  bitmap->StructSize = kRecord;
  return SUCCESS;
}

int32_t T_SetBitmapListItem(T_BitmapList* list, uint32_t index, const BitmapHandle* bitmap) noexcept {
  if (!list || index >= list->Count || !list->Items) return ERR_INVALID_PARAMETER;
  BitmapHandle& item = list->Items[index];
  const BitmapHandle record = bitmap ? *bitmap : BitmapHandle{};  // it may be the item itself
  std::memset(static_cast<void*>(&item), 0, kRecord);
  if (!bitmap) return SUCCESS;
  if (record.StructSize != kRecord) return ERR_BAD_STRUCT_SIZE;  // deliberate: the item stays zeroed
  item = record;
  return SUCCESS;
}

int32_t T_InsertBitmapListItem(T_BitmapList* list, uint32_t index, const BitmapHandle* bitmap) noexcept {
  if (!list) return ERR_INVALID_PARAMETER;
  if (list->Count > 0) TARN_TRY(RequireItems(list, 0));
  if (!bitmap) return ERR_INVALID_PARAMETER;
  if (bitmap->StructSize != kRecord) return ERR_BAD_STRUCT_SIZE;
  const BitmapHandle record = *bitmap;  // it may lie in the array that moves
  const uint32_t count = list->Count;
  if (count == T_LIST_END) return ERR_NO_MEMORY;
  TARN_TRY(Resize(*list, uint64_t{count} + 1));
  const uint32_t place = index < count ? index : count;
  std::memmove(list->Items + place + 1, list->Items + place, (count - place) * kRecord);
  list->Items[place] = record;
  list->Count = count + 1;
  std::memset(static_cast<void*>(list->Items + count + 1), 0, kRecord);
  return SUCCESS;
}

int32_t T_RemoveBitmapListItem(T_BitmapList* list, uint32_t index, BitmapHandle* bitmap) noexcept {
  TARN_TRY(RequireItems(list, index));
  const BitmapHandle record = list->Items[index];
  Close(*list, index, 1);
  if (bitmap) *bitmap = record;
  return SUCCESS;
}

int32_t T_DeleteBitmapListItems(T_BitmapList* list, uint32_t index, uint32_t count) noexcept {
  if (!list || index >= list->Count || count == 0) return ERR_INVALID_PARAMETER;
  for (uint32_t left = Clamped(*list, index, count); left > 0; --left) {
    BitmapHandle removed;
    TARN_TRY(T_RemoveBitmapListItem(list, index, &removed));
    T_FreeBitmap(&removed);
  }
  return SUCCESS;
}

int32_t T_ReplaceBitmapListItem(T_BitmapList* list, uint32_t index, const BitmapHandle* bitmap, BitmapHandle* old,
                                uint32_t structSize) noexcept {
  if (!list || list->Count == 0 || !bitmap) return ERR_INVALID_PARAMETER;
  const uint32_t place = index == T_LIST_END ? list->Count - 1 : index;
  if (place > list->Count) return ERR_INVALID_PARAMETER;
  TARN_TRY(RequireItems(list, 0));
  const BitmapHandle record = *bitmap;
  if (record.StructSize != kRecord) return ERR_BAD_STRUCT_SIZE;
  BitmapHandle replaced = list->Items[place];
  if (old) {
    std::memcpy(static_cast<void*>(old), &replaced, structSize < kRecord ? structSize : kRecord);
  } else if (replaced.Flags & T_FLAG_ALLOCATED) {
    if (place < list->Count) T_FreeBitmap(&replaced);
  }
  list->Items[place] = record;
  return SUCCESS;
}

int32_t T_MoveBitmapListItems(T_BitmapList** moved, T_BitmapList* list, uint32_t index, uint32_t count) noexcept {
  if (!list || index >= list->Count || count == 0 || !moved) return ERR_INVALID_PARAMETER;
  TARN_TRY(RequireItems(list, index));
  const uint32_t taken = Clamped(*list, index, count);
  T_BitmapList* made = nullptr;
  TARN_TRY(T_CreateBitmapList(&made));
  if (const Status room = Resize(*made, taken); !room.Ok()) {
    T_DestroyBitmapList(made);
    return room.code;
  }
  std::memcpy(static_cast<void*>(made->Items), list->Items + index, taken * kRecord);
  made->Count = taken;
  Close(*list, index, taken);
  *moved = made;
  return SUCCESS;
}

int32_t T_CopyBitmapListItems(T_BitmapList** copied, const T_BitmapList* list, uint32_t index,
                              uint32_t count) noexcept {
  if (!list || index >= list->Count || count == 0 || !copied || !list->Items) return ERR_INVALID_PARAMETER;
  T_BitmapList* made = nullptr;
  TARN_TRY(T_CreateBitmapList(&made));
  const uint32_t end = index + Clamped(*list, index, count);
  for (uint32_t i = index; i < end; ++i) {
    BitmapHandle record;
    Status status = T_CopyBitmap(&record, &list->Items[i], kRecord);
    if (status.Ok()) {
      status = T_InsertBitmapListItem(made, T_LIST_END, &record);
      if (!status.Ok()) T_FreeBitmap(&record);
    }
    if (!status.Ok()) {
      T_DestroyBitmapList(made);
      return status.code;
    }
  }
  *copied = made;
  return SUCCESS;
}
