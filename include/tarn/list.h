/** @file
 *  Bitmap lists: growable arrays of bitmap records, for pages and animations.
 *
 *  A list holds records by value and owns, through them, their storage: do not free a bitmap whose record was inserted,
 *  nor a record got from a list while the item remains in it. Indices start at 0. A list must not be changed by two
 *  threads at once. Every function returns a status; a failed growth leaves the list unchanged.
 */
#ifndef TARN_LIST_H
#define TARN_LIST_H

#include "types.h"

T_EXTERN_C_BEGIN

typedef struct T_BitmapList T_BitmapList;

/** As an index: at the end (inserting), the last item (replacing). As a count: all that follow. */
#define T_LIST_END UINT32_C(0xFFFFFFFF)

/** @param list gets an empty list, null after a failure. @return SUCCESS; ERR_INVALID_PARAMETER (null); ERR_NO_MEMORY.
 */
T_API int32_t T_CreateBitmapList(T_BitmapList** list) T_NOTHROW;

/** Frees every item's bitmap and the list. @return SUCCESS; ERR_INVALID_PARAMETER (null). */
T_API int32_t T_DestroyBitmapList(T_BitmapList* list) T_NOTHROW;

/** @return SUCCESS; ERR_INVALID_PARAMETER (null). */
T_API int32_t T_GetBitmapListCount(const T_BitmapList* list, uint32_t* count) T_NOTHROW;

/** Copies an item's record, which goes on sharing the item's storage.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null, index); ERR_BAD_STRUCT_SIZE (structSize not 212). */
T_API int32_t T_GetBitmapListItem(const T_BitmapList* list, uint32_t index, BitmapHandle* bitmap,
                                  uint32_t structSize) T_NOTHROW;

/** Overwrites an item; what it held is not freed. A null record leaves an empty (zeroed) item.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null list, index); ERR_BAD_STRUCT_SIZE, deliberately with the item zeroed.
 */
T_API int32_t T_SetBitmapListItem(T_BitmapList* list, uint32_t index, const BitmapHandle* bitmap) T_NOTHROW;

/** Inserts a record before `index`; an index beyond the end appends. The list then owns the record's storage.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null list); ERR_NULL_POINTER (damaged list); ERR_BAD_STRUCT_SIZE (first
 * item); ERR_INVALID_PARAMETER (null record); ERR_BAD_STRUCT_SIZE (record); ERR_NO_MEMORY. */
T_API int32_t T_InsertBitmapListItem(T_BitmapList* list, uint32_t index, const BitmapHandle* bitmap) T_NOTHROW;

/** Takes an item out.
 *  @param bitmap gets the record and with it the storage; null: nobody frees the storage
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null list, index); ERR_NULL_POINTER; ERR_BAD_STRUCT_SIZE (first item). */
T_API int32_t T_RemoveBitmapListItem(T_BitmapList* list, uint32_t index, BitmapHandle* bitmap) T_NOTHROW;

/** Removes up to `count` items from `index` on and frees their bitmaps.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null, index, count 0); what T_RemoveBitmapListItem gives: items before the
 *          failing one are gone. */
T_API int32_t T_DeleteBitmapListItems(T_BitmapList* list, uint32_t index, uint32_t count) T_NOTHROW;

/** Puts a record in an item's place.
 *  @param index T_LIST_END is the last item. Deliberate: the index just behind the last item is let through; the record
 *         is then kept in a spare place that is no item, and stays the caller's.
 *  @param old gets the replaced record and with it the storage (structSize bytes of it, at most 212); null: an
 * allocated bitmap there is freed
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null, empty list, index above Count); ERR_NULL_POINTER; ERR_BAD_STRUCT_SIZE
 *          (first item, record). */
T_API int32_t T_ReplaceBitmapListItem(T_BitmapList* list, uint32_t index, const BitmapHandle* bitmap, BitmapHandle* old,
                                      uint32_t structSize) T_NOTHROW;

/** Moves up to `count` items from `index` on into a new list.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null, index, count 0); ERR_NULL_POINTER; ERR_BAD_STRUCT_SIZE (first item);
 *          ERR_NO_MEMORY, with nothing moved. */
T_API int32_t T_MoveBitmapListItems(T_BitmapList** moved, T_BitmapList* list, uint32_t index, uint32_t count) T_NOTHROW;

/** Copies up to `count` items from `index` on, storage and all, into a new list.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null, index, count 0); what T_CopyBitmap gives; ERR_NO_MEMORY. The source is
 *          unchanged; after a failure there is no new list. */
T_API int32_t T_CopyBitmapListItems(T_BitmapList** copied, const T_BitmapList* list, uint32_t index,
                                    uint32_t count) T_NOTHROW;

T_EXTERN_C_END

#endif
