// Bitmap lists: order, ownership, what stays after failures.

#include "Common/Internal/BitmapList.h"

#include <gtest/gtest.h>

#include "Platform/Fault.h"
#include "Scope.h"

using namespace tarn::test;

namespace {

/// A list that frees itself and a look at the widths of its bitmaps, which name them.
struct List {
  List() { EXPECT_EQ(T_CreateBitmapList(&handle), SUCCESS); }
  explicit List(std::vector<int32_t> widths) : List() {
    for (const int32_t width : widths) Append(width);
  }
  ~List() { T_DestroyBitmapList(handle); }
  List(const List&) = delete;
  static BitmapHandle Make(int32_t width) {
    BitmapHandle b{};
    EXPECT_EQ(T_CreateBitmap(&b, sizeof b, TYPE_CONV, width, 3, 8, 0, nullptr, 1, nullptr, 0), SUCCESS);
    Fill(b, static_cast<uint32_t>(width));
    return b;
  }
  void Append(int32_t width) {
    const BitmapHandle b = Make(width);
    EXPECT_EQ(T_InsertBitmapListItem(handle, T_LIST_END, &b), SUCCESS);
  }
  std::vector<int32_t> Widths() const {
    std::vector<int32_t> widths;
    uint32_t count = 0;
    EXPECT_EQ(T_GetBitmapListCount(handle, &count), SUCCESS);
    for (uint32_t i = 0; i < count; ++i) {
      BitmapHandle b;
      EXPECT_EQ(T_GetBitmapListItem(handle, i, &b, sizeof b), SUCCESS);
      widths.push_back(b.Width);
      EXPECT_EQ(FirstDifference(b, static_cast<uint32_t>(b.Width), 3), -1);
    }
    return widths;
  }
  T_BitmapList* handle = nullptr;
};
using Widths = std::vector<int32_t>;

TEST(BitmapList, ItemsGoInAndOutInOrder) {
  List list({10, 20, 30});
  const BitmapHandle first = List::Make(5), middle = List::Make(15);
  EXPECT_EQ(T_InsertBitmapListItem(list.handle, 0, &first), SUCCESS);
  EXPECT_EQ(T_InsertBitmapListItem(list.handle, 2, &middle), SUCCESS);
  EXPECT_EQ(list.Widths(), (Widths{5, 10, 15, 20, 30}));
  BitmapHandle taken;
  EXPECT_EQ(T_RemoveBitmapListItem(list.handle, 1, &taken), SUCCESS);
  EXPECT_EQ(taken.Width, 10);
  T_FreeBitmap(&taken);
  EXPECT_EQ(T_DeleteBitmapListItems(list.handle, 2, 100), SUCCESS);
  EXPECT_EQ(list.Widths(), (Widths{5, 15}));
  EXPECT_EQ(T_DeleteBitmapListItems(list.handle, 0, T_LIST_END), SUCCESS);
  EXPECT_EQ(list.handle->Items, nullptr);
  list.Append(7);
  EXPECT_EQ(list.Widths(), (Widths{7}));
}

TEST(BitmapList, ReplacesAndSets) {
  List list({10, 20});
  BitmapHandle fresh = List::Make(40), old;
  EXPECT_EQ(T_ReplaceBitmapListItem(list.handle, T_LIST_END, &fresh, &old, sizeof old), SUCCESS);
  EXPECT_EQ(old.Width, 20);
  T_FreeBitmap(&old);
  const auto before = tarn::platform::Held();
  fresh = List::Make(12);  // as large as the old one, which is freed
  EXPECT_EQ(T_ReplaceBitmapListItem(list.handle, 0, &fresh, nullptr, 0), SUCCESS);
  EXPECT_TRUE(SameHeld(before, tarn::platform::Held()));
  EXPECT_EQ(list.Widths(), (Widths{12, 40}));
  fresh = List::Make(60);
  for (int i = 0; i < 2; ++i) {  // behind the last: no item, whose bitmap is nobody's here
    EXPECT_EQ(T_ReplaceBitmapListItem(list.handle, 2, &fresh, nullptr, 0), SUCCESS);
    EXPECT_EQ(FirstDifference(fresh, 60, 3), -1);
  }
  EXPECT_EQ(list.Widths(), (Widths{12, 40}));
  EXPECT_EQ(T_ReplaceBitmapListItem(list.handle, 3, &fresh, nullptr, 0), ERR_INVALID_PARAMETER);
  list.Append(70);
  EXPECT_EQ(list.Widths(), (Widths{12, 40, 70}));
  T_FreeBitmap(&fresh);
  BitmapHandle item;
  T_GetBitmapListItem(list.handle, 1, &item, sizeof item);
  BitmapHandle wrong = item;
  wrong.StructSize = 211;
  EXPECT_EQ(T_SetBitmapListItem(list.handle, 1, &wrong), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(list.handle->Items[1].StructSize, 0u);  // zeroed
  EXPECT_EQ(T_SetBitmapListItem(list.handle, 1, &item), SUCCESS);
  EXPECT_EQ(T_SetBitmapListItem(list.handle, 1, nullptr), SUCCESS);
  EXPECT_EQ(list.handle->Items[1].StructSize, 0u);
  EXPECT_EQ(T_SetBitmapListItem(list.handle, 1, &item), SUCCESS);
  EXPECT_EQ(list.Widths(), (Widths{12, 40, 70}));
}

TEST(BitmapList, RunsMoveAndAreCopied) {
  List list({1, 2, 3, 4, 5});
  T_BitmapList *moved = nullptr, *copied = nullptr;
  EXPECT_EQ(T_CopyBitmapListItems(&copied, list.handle, 3, 9), SUCCESS);
  EXPECT_EQ(T_MoveBitmapListItems(&moved, list.handle, 1, 2), SUCCESS);
  EXPECT_EQ(list.Widths(), (Widths{1, 4, 5}));
  List a, b;
  std::swap(a.handle, moved);
  std::swap(b.handle, copied);
  T_DestroyBitmapList(moved);
  T_DestroyBitmapList(copied);
  EXPECT_EQ(a.Widths(), (Widths{2, 3}));
  EXPECT_EQ(b.Widths(), (Widths{4, 5}));
  moved = nullptr;
  EXPECT_EQ(T_MoveBitmapListItems(&moved, list.handle, 0, T_LIST_END), SUCCESS);
  EXPECT_EQ(list.handle->Items, nullptr);
  EXPECT_EQ(list.Widths(), Widths());
  T_DestroyBitmapList(moved);
}

TEST(BitmapList, Refuses) {
  List list({1, 2}), empty;
  BitmapHandle b = List::Make(3), wrong = b;
  wrong.StructSize = 0;
  T_BitmapList* made = nullptr;
  uint32_t count;
  EXPECT_EQ(T_CreateBitmapList(nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_DestroyBitmapList(nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetBitmapListCount(nullptr, &count), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetBitmapListCount(list.handle, nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetBitmapListItem(list.handle, 2, &b, 212), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetBitmapListItem(list.handle, 0, &wrong, 211), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_SetBitmapListItem(list.handle, 2, &b), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_InsertBitmapListItem(nullptr, 0, &b), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_InsertBitmapListItem(list.handle, 0, nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_InsertBitmapListItem(list.handle, 0, &wrong), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_RemoveBitmapListItem(empty.handle, 0, nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_DeleteBitmapListItems(list.handle, 0, 0), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_DeleteBitmapListItems(list.handle, 2, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ReplaceBitmapListItem(empty.handle, T_LIST_END, &b, nullptr, 0), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ReplaceBitmapListItem(list.handle, 0, &wrong, nullptr, 0), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_MoveBitmapListItems(&made, list.handle, 0, 0), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_CopyBitmapListItems(nullptr, list.handle, 0, 1), ERR_INVALID_PARAMETER);
  const uint32_t size = list.handle->Items[0].StructSize;
  list.handle->Items[0].StructSize = 0;
  EXPECT_EQ(T_InsertBitmapListItem(list.handle, 0, &b), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_RemoveBitmapListItem(list.handle, 1, nullptr), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_MoveBitmapListItems(&made, list.handle, 1, 1), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_DeleteBitmapListItems(list.handle, 0, 1), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_ReplaceBitmapListItem(list.handle, 0, &b, nullptr, 0), ERR_BAD_STRUCT_SIZE);
  list.handle->Items[0].StructSize = size;
  const int32_t refused[] = {T_GetBitmapListItem(nullptr, 0, &b, 212),
                             T_GetBitmapListItem(list.handle, 0, nullptr, 212),
                             T_SetBitmapListItem(nullptr, 0, &b),
                             T_RemoveBitmapListItem(nullptr, 0, nullptr),
                             T_DeleteBitmapListItems(nullptr, 0, 1),
                             T_ReplaceBitmapListItem(nullptr, 0, &b, nullptr, 0),
                             T_ReplaceBitmapListItem(list.handle, 0, nullptr, nullptr, 0),
                             T_MoveBitmapListItems(&made, nullptr, 0, 1),
                             T_MoveBitmapListItems(&made, list.handle, 2, 1),
                             T_MoveBitmapListItems(nullptr, list.handle, 0, 1),
                             T_CopyBitmapListItems(&made, nullptr, 0, 1),
                             T_CopyBitmapListItems(&made, list.handle, 2, 1),
                             T_CopyBitmapListItems(&made, list.handle, 0, 0)};
  for (const int32_t& status : refused) EXPECT_EQ(status, ERR_INVALID_PARAMETER) << &status - refused;
  EXPECT_EQ(made, nullptr);
  // Lists that are damaged, or full.
  T_BitmapList nothing = *list.handle;
  nothing.Items = nullptr;
  EXPECT_EQ(T_GetBitmapListItem(&nothing, 0, &b, 212), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_SetBitmapListItem(&nothing, 0, &b), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_CopyBitmapListItems(&made, &nothing, 0, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_RemoveBitmapListItem(&nothing, 0, nullptr), ERR_NULL_POINTER);
  list.handle->Count = T_LIST_END;
  EXPECT_EQ(T_InsertBitmapListItem(list.handle, 0, &b), ERR_NO_MEMORY);
  list.handle->Count = 2;
  EXPECT_EQ(list.Widths(), (Widths{1, 2}));
  T_FreeBitmap(&b);
}

TEST(BitmapList, FailedGrowthChangesNothing) {
  List list({1, 2, 3});
  const BitmapHandle b = List::Make(4);
  const auto before = tarn::platform::Held();
  // Each allocation refused in turn; one that is done without leads to the same result.
  const auto refuse = [&](auto call, auto undo) {
    int failures = 0;
    for (uint64_t n = 1; n < 40; ++n) {
      tarn::fault::Arm({.first = n, .last = n, .points = tarn::fault::kMemoryPoints});
      const int32_t status = call();
      tarn::fault::Disarm();
      if (status == SUCCESS) {
        undo();
      } else {
        EXPECT_EQ(status, ERR_NO_MEMORY);
        ++failures;
      }
      EXPECT_EQ(list.Widths(), (Widths{1, 2, 3}));
      EXPECT_TRUE(SameHeld(before, tarn::platform::Held()));
    }
    return failures;
  };
  T_BitmapList* made = nullptr;
  BitmapHandle back;
  EXPECT_GE(refuse([&] { return T_CopyBitmapListItems(&made, list.handle, 0, 3); }, [&] { T_DestroyBitmapList(made); }),
            7);
  EXPECT_GE(refuse([&] { return T_MoveBitmapListItems(&made, list.handle, 1, 2); },
                   [&] {
                     while (T_RemoveBitmapListItem(made, 0, &back) == SUCCESS)
                       T_InsertBitmapListItem(list.handle, T_LIST_END, &back);
                     T_DestroyBitmapList(made);
                   }),
            2);
  EXPECT_GE(refuse([&] { return T_InsertBitmapListItem(list.handle, 0, &b); },
                   [&] { T_RemoveBitmapListItem(list.handle, 0, nullptr); }),
            1);
  BitmapHandle last = b;
  T_FreeBitmap(&last);
}

}  // namespace
