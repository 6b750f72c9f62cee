#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "Holding.h"
#include "tarn/huge.h"
#include "tarn/types.h"

using namespace tarn;
using namespace tarn::test;
using fault::Point;

namespace {

enum class Kind { kPlain, kPageFile, kSwapFile };

struct Free {
  void operator()(T_HugeMemory* block) const { T_FreeHugeMemory(block); }
};
using Huge = std::unique_ptr<T_HugeMemory, Free>;

/// The heap gives the record and refuses the block; for a swap file the system refuses a section too.
Huge Make(Kind kind, uint32_t size) {
  if (kind == Kind::kPlain) return Huge(T_AllocHugeMemory(size));
  const Armed refusing(
      {.first = 2, .last = kind == Kind::kPageFile ? 2u : 3u, .points = Mask(Point::kMemory) | Mask(Point::kSection)});
  return Huge(T_AllocHugeMemory(size));
}

const uint32_t kPage = platform::AllocationGranularity();

}  // namespace

TEST(HugeMemory, TakesWhatItCanGet) {
  for (Kind kind : {Kind::kPlain, Kind::kPageFile, Kind::kSwapFile}) {
    SCOPED_TRACE(int(kind));
    const Recording recording;
    {
      const Huge block = Make(kind, 3 * kPage + 100);
      ASSERT_NE(block, nullptr);
      EXPECT_EQ(block->Mapped, kind == Kind::kPlain ? 0u : 1u);
      EXPECT_EQ(block->Size, 3 * kPage + 100);
      EXPECT_NE(block->Address, nullptr);
      EXPECT_EQ(block->Section != 0, kind != Kind::kPlain);
      EXPECT_EQ(block->SwapFile != -1, kind == Kind::kSwapFile);
      if (kind != Kind::kPlain) {
        EXPECT_EQ(block->Granularity, kPage);
        EXPECT_EQ(block->ViewStart, 0u);
        EXPECT_EQ(block->ViewLength, kPage);
      }
      EXPECT_EQ(ledger::Now().objects, 2u + (kind == Kind::kSwapFile));
    }
    EXPECT_EQ(recording.Left(), "");
  }
}

TEST(HugeMemory, SmallBlocksAreNeverSeenWhole) {
  for (Kind kind : {Kind::kPageFile, Kind::kSwapFile})
    for (uint32_t size : {1u, 100u, kPage - 1, kPage}) {
      const Huge block = Make(kind, size);
      ASSERT_NE(block, nullptr);
      EXPECT_EQ(block->ViewLength, size);
      void* last = nullptr;
      EXPECT_EQ(T_AccessHugeMemory(block.get(), &last, size - 1, 1), SUCCESS);
      *static_cast<uint8_t*>(last) = 1;
      EXPECT_EQ(T_AccessHugeMemory(block.get(), &last, size - 1, 2), ERR_INVALID_PARAMETER);
    }
  const Recording recording;
  const Huge empty(T_AllocHugeMemory(0));
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(empty->Mapped, 0u);
  EXPECT_EQ(T_ZeroHugeMemory(empty.get(), 0, 0), SUCCESS);
  EXPECT_EQ(Make(Kind::kPageFile, 0), nullptr);
}

TEST(HugeMemory, KeepsBytesAcrossViews) {
  for (Kind kind : {Kind::kPageFile, Kind::kSwapFile}) {
    SCOPED_TRACE(int(kind));
    const uint32_t size = 20 * kPage + 123;
    const Huge block = Make(kind, size);
    ASSERT_NE(block, nullptr);
    const int64_t views = platform::Held().views;
    void* at = nullptr;
    for (uint32_t offset = 0; offset < size; offset += 1001) {
      const uint32_t length = std::min(1001u, size - offset);
      ASSERT_EQ(T_AccessHugeMemory(block.get(), &at, offset, length), SUCCESS);
      std::memset(at, int(offset % 251), length);
    }
    for (uint32_t offset = 0; offset < size; offset += 1001) {
      const uint32_t back = (size - 1 - offset) / 1001 * 1001;
      ASSERT_EQ(T_AccessHugeMemory(block.get(), &at, back, 1), SUCCESS);
      EXPECT_EQ(*static_cast<uint8_t*>(at), back % 251);
    }
    EXPECT_EQ(platform::Held().views, views);
  }
}

TEST(HugeMemory, RemapsOnlyWhenTheViewDoesNotHoldTheRange) {
  const Huge block = Make(Kind::kPageFile, 10 * kPage);
  ASSERT_NE(block, nullptr);
  T_HugeMemory& huge = *block;
  void* at = nullptr;
  const auto view = [&] { return std::pair(huge.ViewStart, huge.ViewLength); };
  EXPECT_EQ(T_AccessHugeMemory(&huge, &at, 0, kPage), SUCCESS);
  EXPECT_EQ(view(), std::pair(0u, kPage));
  EXPECT_EQ(at, huge.Address);
  // Straddling the end: from the page of the offset to the end of the block.
  EXPECT_EQ(T_AccessHugeMemory(&huge, &at, kPage - 1, 2), SUCCESS);
  EXPECT_EQ(view(), std::pair(0u, 10 * kPage));
  EXPECT_EQ(T_AccessHugeMemory(&huge, &at, 4 * kPage + 5, 100), SUCCESS);
  EXPECT_EQ(view(), std::pair(0u, 10 * kPage));
  EXPECT_EQ(at, static_cast<uint8_t*>(huge.Address) + 4 * kPage + 5);

  const Huge other = Make(Kind::kPageFile, 10 * kPage);
  T_HugeMemory& second = *other;
  EXPECT_EQ(T_AccessHugeMemory(&second, &at, 4 * kPage + 5, 100), SUCCESS);
  EXPECT_EQ(second.ViewStart, 4 * kPage);
  EXPECT_EQ(second.ViewLength, 6 * kPage);
  EXPECT_EQ(at, static_cast<uint8_t*>(second.Address) + 5);
  EXPECT_EQ(T_AccessHugeMemory(&second, &at, 10 * kPage - 1, 1), SUCCESS);
  EXPECT_EQ(second.ViewStart, 4 * kPage);
  EXPECT_EQ(T_AccessHugeMemory(&second, &at, 4 * kPage - 1, 1), SUCCESS);
  EXPECT_EQ(second.ViewStart, 3 * kPage);
}

TEST(HugeMemory, ChecksItsArguments) {
  const Huge mapped = Make(Kind::kPageFile, 2 * kPage);
  const Huge plain = Make(Kind::kPlain, 100);
  void* at = nullptr;
  EXPECT_EQ(T_AccessHugeMemory(nullptr, &at, 0, 1), ERR_NULL_POINTER);
  EXPECT_EQ(T_AccessHugeMemory(nullptr, nullptr, 0, 1), ERR_NULL_POINTER);
  EXPECT_EQ(T_ZeroHugeMemory(nullptr, 0, 1), ERR_NULL_POINTER);
  T_FreeHugeMemory(nullptr);
  const struct {
    uint32_t offset, length;
    int32_t status;
  } cases[] = {
      {0, 2 * kPage, SUCCESS},
      {2 * kPage - 1, 1, SUCCESS},
      {2 * kPage, 0, SUCCESS},
      {0, 0, SUCCESS},
      {0, 2 * kPage + 1, ERR_INVALID_PARAMETER},
      {2 * kPage, 1, ERR_INVALID_PARAMETER},
      {2 * kPage + 1, 0, ERR_INVALID_PARAMETER},
      {0xFFFFFFFF, 2, ERR_INVALID_PARAMETER},  // the sum is 1 in 32 bits
      {1, 0xFFFFFFFF, ERR_INVALID_PARAMETER},
  };
  for (const auto& row : cases)
    EXPECT_EQ(T_AccessHugeMemory(mapped.get(), &at, row.offset, row.length), row.status)
        << row.offset << " " << row.length;
  EXPECT_EQ(T_AccessHugeMemory(mapped.get(), nullptr, 0, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_AccessHugeMemory(plain.get(), nullptr, 0, 1), ERR_INVALID_PARAMETER);
  // A plain block takes any offset.
  EXPECT_EQ(T_AccessHugeMemory(plain.get(), &at, 5000, 1000), SUCCESS);
  EXPECT_EQ(at, static_cast<uint8_t*>(plain->Address) + 5000);
}

TEST(HugeMemory, ClearsRangesOfMappedBlocksAndStartsOfPlainOnes) {
  const uint32_t size = 5 * kPage + 10;
  for (Kind kind : {Kind::kPageFile, Kind::kSwapFile}) {
    SCOPED_TRACE(int(kind));
    const Huge block = Make(kind, size);
    void* at = nullptr;
    std::memset(block->Address, 0xEE, kPage);
    ASSERT_EQ(T_AccessHugeMemory(block.get(), &at, kPage, size - kPage), SUCCESS);
    std::memset(at, 0xEE, size - kPage);
    {
      const Armed refusing({.first = 1, .points = Mask(Point::kView)});
      EXPECT_EQ(T_AccessHugeMemory(block.get(), &at, 0, 1), ERR_NO_MEMORY);  // now there is no view
    }
    {
      // The first views are refused for their length, so that the range takes several.
      const Armed refusing({.first = 1, .last = 2, .points = Mask(Point::kView)});
      EXPECT_EQ(T_ZeroHugeMemory(block.get(), 10, 3 * kPage), SUCCESS);
      EXPECT_EQ(fault::Answered(), 2u);
    }
    EXPECT_EQ(T_ZeroHugeMemory(block.get(), size - 4, 5), ERR_INVALID_PARAMETER);  // clears the four that are there
    ASSERT_EQ(T_AccessHugeMemory(block.get(), &at, 0, size), SUCCESS);
    const uint8_t* const bytes = static_cast<uint8_t*>(at);
    for (uint32_t i = 0; i < size; ++i)
      ASSERT_EQ(bytes[i], (i >= 10 && i < 10 + 3 * kPage) || i >= size - 4 ? 0 : 0xEE) << i;
  }
  const Huge plain = Make(Kind::kPlain, 100);
  std::memset(plain->Address, 0xEE, 100);
  EXPECT_EQ(T_ZeroHugeMemory(plain.get(), 0x103, 10), SUCCESS);
  const uint8_t* const bytes = static_cast<uint8_t*>(plain->Address);
  for (uint32_t i = 0; i < 100; ++i) ASSERT_EQ(bytes[i], i < 10 ? 3 : 0xEE) << i;
}

TEST(HugeMemory, MapsLessWhenTheSystemHasLess) {
  const uint32_t size = 16 * kPage;
  const Huge block = Make(Kind::kPageFile, size);
  T_HugeMemory& huge = *block;
  void* at = nullptr;
  // The whole is refused three times: 16, 8, 4 pages. The range lies behind half of that: the view still holds it.
  {
    const Armed refusing({.first = 1, .last = 3, .points = Mask(Point::kView)});
    ASSERT_EQ(T_AccessHugeMemory(&huge, &at, kPage - 10, kPage), SUCCESS);
  }
  EXPECT_EQ(huge.ViewStart, 0u);
  EXPECT_EQ(huge.ViewLength, 2 * kPage);
  std::memset(at, 1, kPage);

  // 13 pages are halved four times; the last try is for the range itself, counted from the start of the view.
  {
    const Armed refusing({.first = 1, .last = 4, .points = Mask(Point::kView)});
    ASSERT_EQ(T_AccessHugeMemory(&huge, &at, 3 * kPage + 7, kPage - 9), SUCCESS);
  }
  EXPECT_EQ(huge.ViewStart, 3 * kPage);
  EXPECT_EQ(huge.ViewLength, kPage - 2);
  std::memset(at, 2, kPage - 9);

  const Recording recording;
  {
    const Armed refusing({.first = 1});
    EXPECT_EQ(T_AccessHugeMemory(&huge, &at, 9 * kPage, 10), ERR_NO_MEMORY);
    EXPECT_EQ(huge.Address, nullptr);
    EXPECT_EQ(T_ZeroHugeMemory(&huge, 9 * kPage, 10), ERR_NO_MEMORY);
  }
  ASSERT_EQ(T_AccessHugeMemory(&huge, &at, kPage - 10, 1), SUCCESS);
  EXPECT_EQ(*static_cast<uint8_t*>(at), 1);
  EXPECT_EQ(T_AccessHugeMemory(&huge, &at, 3 * kPage + 7, 1), SUCCESS);
  EXPECT_EQ(*static_cast<uint8_t*>(at), 2);
}

TEST(HugeMemory, AFailedAllocationLeavesNothing) {
  const uint32_t memory = Mask(Point::kMemory), section = Mask(Point::kSection);
  const struct {
    const char* name;
    uint32_t points;
    uint64_t first, last;
  } cases[] = {
      {"record", memory, 1, 1},
      {"section's view", memory | Mask(Point::kView), 2, 3},
      {"swap file", memory | section | Mask(Point::kOpen), 2, 4},
      {"its space", memory | section | Mask(Point::kSize), 2, 4},
      {"its section", memory | section, 2, 4},
      {"everything", fault::kAllPoints, 1, ~uint64_t{}},
      {"everything but the record", fault::kAllPoints, 2, ~uint64_t{}},
  };
  for (const auto& row : cases)
    for (fault::Answer answer : {fault::Answer::kRefuse, fault::Answer::kDiskFull}) {
      SCOPED_TRACE(row.name);
      const Recording recording;
      {
        const Armed refusing({.first = row.first, .last = row.last, .answer = answer, .points = row.points});
        EXPECT_EQ(Huge(T_AllocHugeMemory(3 * kPage)), nullptr);
        EXPECT_GE(fault::Answered(), row.last == ~uint64_t{} ? 1 : row.last - row.first + 1);
      }
      EXPECT_EQ(recording.Left(), "");
      EXPECT_NE(Huge(T_AllocHugeMemory(3 * kPage)), nullptr);
    }
}
