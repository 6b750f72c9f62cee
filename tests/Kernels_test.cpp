// Every level of every kernel against a slow reference: widths, alignments, guards.

#include "Kernels/Kernels.h"

#include <gtest/gtest.h>

#include "Levels.h"
#include "RunReference.h"

using namespace runref;
using tarn::Isa;

namespace {

class Level : public testing::TestWithParam<Isa> {
 protected:
  void SetUp() override {
    if (GetParam() > tarn::BestIsa()) GTEST_SKIP() << "not on this processor";
  }
  const tarn::KernelTable& kernels = tarn::KernelsFor(GetParam());

  /// Compresses the picture as the first `pixels` pixels behind firstBit, between ones, and expands it again.
  void CheckRoundTrip(const Pixels& pixels, uint32_t firstBit, size_t alignment) {
    const std::vector<uint8_t> packed = Pack(pixels, firstBit, true);
    const uint32_t count = static_cast<uint32_t>(pixels.size());
    const Words expected = Compress(packed.data(), firstBit, count);
    Exact source(packed.data(), count ? packed.size() : 0, alignment);
    Guarded runs(2 * expected.size(), alignment / 2 + 1);
    const uint32_t words = kernels.compressRuns(runs.data(), source.data(), firstBit, count);
    ASSERT_EQ(words, expected.size());
    ASSERT_TRUE(Same(runs.data(), expected.data(), 2 * words));
    ASSERT_TRUE(runs.GuardsKept());

    const std::vector<uint8_t> wanted = Pack(pixels);
    Guarded target(wanted.size(), alignment);
    kernels.expandRuns(target.data(), runs.data(), words, 0, count);
    ASSERT_TRUE(Same(target.data(), wanted.data(), wanted.size()));
    ASSERT_TRUE(target.GuardsKept());
  }
};

TEST_P(Level, NarrowRowsFromEveryBit) {
  Random random(1);
  for (uint32_t width = 0; width <= 130; ++width) {
    for (uint32_t firstBit = 0; firstBit < 8; ++firstBit) {
      for (int kind = 0; kind < 6; ++kind) {
        SCOPED_TRACE(testing::Message() << "width " << width << " bit " << firstBit << " picture " << kind);
        CheckRoundTrip(Picture(kind, width, random), firstBit, width + 5 * firstBit);
        if (HasFatalFailure()) return;
      }
    }
  }
}

TEST_P(Level, EveryAlignment) {
  Random random(2);
  for (const uint32_t width : {1u, 63u, 64u, 65u, 255u, 256u, 257u, 300u, 511u, 512u, 777u}) {
    for (size_t alignment = 0; alignment < 64; ++alignment) {
      SCOPED_TRACE(testing::Message() << "width " << width << " alignment " << alignment);
      CheckRoundTrip(Picture(static_cast<int>(alignment % 6), width, random), alignment % 8, alignment);
      if (HasFatalFailure()) return;
    }
  }
}

// Ends of groups and blocks of the scan, with and without transitions next to them.
TEST_P(Level, RowsAroundBlocks) {
  Random random(3);
  for (const uint32_t center : {248u, 256u, 2048u, 8192u, 16384u}) {
    for (uint32_t width = center - 10; width <= center + 10; ++width) {
      for (int kind = 0; kind < 8; ++kind) {
        SCOPED_TRACE(testing::Message() << "width " << width << " picture " << kind);
        CheckRoundTrip(Picture(kind, width, random), Below(random, 8), width);
        Pixels edge(width, kind % 2);
        edge[std::min(width - 1, center - 4 + kind)] = !(kind % 2);
        CheckRoundTrip(edge, Below(random, 8), width);
        if (HasFatalFailure()) return;
      }
    }
  }
}

TEST_P(Level, LongRunsAreSplitByBytes) {
  Random random(4);
  for (const uint32_t width : {65527u, 65528u, 65535u, 65536u, 65544u, 131063u, 131064u, 131071u, 200000u}) {
    for (const int kind : {0, 1, 3, 6, 7, 8}) {
      SCOPED_TRACE(testing::Message() << "width " << width << " picture " << kind);
      CheckRoundTrip(Picture(kind, width, random), Below(random, 8), width);
      if (HasFatalFailure()) return;
    }
  }
  // One run of ones that begins at every bit and ends before, at and behind the place where it is split.
  for (uint32_t begin = 0; begin < 9; ++begin) {
    for (const uint32_t length : {65527u, 65528u, 65529u, 65533u, 65535u, 65536u, 65537u, 65543u, 65544u}) {
      for (const uint32_t behind : {0u, 1u}) {
        SCOPED_TRACE(testing::Message() << "begin " << begin << " length " << length << " behind " << behind);
        Pixels pixels(begin + length + behind, true);
        std::fill_n(pixels.begin(), begin, false);
        std::fill_n(pixels.rbegin(), behind, false);
        CheckRoundTrip(pixels, length % 8, begin);
        if (HasFatalFailure()) return;
      }
    }
  }
}

TEST_P(Level, ExpandsAnyWordsFromAnyPixel) {
  Random random(5);
  for (int round = 0; round < 6000; ++round) {
    const Words words = AnyWords(Below(random, 60), random);
    uint64_t sum = 0;
    for (const uint16_t word : words) sum += word;
    const uint32_t near = static_cast<uint32_t>(std::min<uint64_t>(sum, 5000)) + 70;
    const uint32_t first = Below(random, 2) ? 0 : Below(random, near);
    const uint32_t count = Below(random, near);
    SCOPED_TRACE(testing::Message() << Text(words) << " from " << first << " pixels " << count);
    const std::vector<uint8_t> wanted = Pack(Expand(words, first, count));
    Exact source(words.data(), 2 * words.size(), random() % 64);
    Guarded target(wanted.size(), random() % 64);
    kernels.expandRuns(target.data(), source.data(), static_cast<uint32_t>(words.size()), first, count);
    ASSERT_TRUE(Same(target.data(), wanted.data(), wanted.size()));
    ASSERT_TRUE(target.GuardsKept());
    // A row that ends where its memory ends: the address sanitizer sees reads behind it too.
    Exact tight(wanted.data(), wanted.size(), random() % 64);
    kernels.expandRuns(tight.data(), source.data(), static_cast<uint32_t>(words.size()), first, count);
    ASSERT_TRUE(Same(tight.data(), wanted.data(), wanted.size()));
  }
}

// Bits before, between and behind come from three different contents, so that one in the wrong place shows.
TEST_P(Level, ShiftsBitsBetweenAnyBits) {
  Random random(6);
  const auto bitAt = [](const uint8_t* bytes, uint64_t bit, bool lowFirst) {
    return bytes[bit / 8] >> (lowFirst ? bit % 8 : 7 - bit % 8) & 1;
  };
  for (const bool lowFirst : {false, true}) {
    for (uint32_t count = 0; count < 4200; count += count < 40 ? 1 : count < 1100 ? 13 : 631) {
      for (uint32_t bits = 0; bits < 64; ++bits) {
        const uint32_t from = bits % 8, to = bits / 8;
        SCOPED_TRACE(testing::Message() << count << " bits from " << from << " to " << to << " low " << lowFirst);
        std::vector<uint8_t> bytes((from + count + 7) / 8);
        for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
        Exact source(bytes.data(), count ? bytes.size() : 0, random() % 64);
        std::vector<uint8_t> before(count ? (to + count + 7) / 8 : 0);
        for (uint8_t& byte : before) byte = static_cast<uint8_t>(random());
        Guarded target(before.size(), random() % 64);
        if (!before.empty()) std::memcpy(target.data(), before.data(), before.size());
        const bool streamed = random() % 2 != 0;
        const auto shift = lowFirst ? kernels.shiftLowBits : kernels.shiftBits;
        const auto stream = lowFirst ? kernels.streamLowBits : kernels.streamBits;
        (streamed ? stream : shift)(target.data(), to, source.data(), from, count);
        ASSERT_TRUE(target.GuardsKept());
        for (uint64_t bit = 0; bit < before.size() * 8; ++bit) {
          const bool inside = bit >= to && bit < to + count;
          ASSERT_EQ(bitAt(target.data(), bit, lowFirst),
                    inside ? bitAt(source.data(), bit - to + from, lowFirst) : bitAt(before.data(), bit, lowFirst))
              << "bit " << bit;
        }
      }
    }
  }
}

TEST_P(Level, MarksEveryColorOnce) {
  Random random(7);
  for (const bool near : {false, true}) {
    std::vector<uint32_t> set(1u << 19), wanted(1u << 19);
    for (const int64_t count : {0, 1, 7, 8, 9, 250, 3000}) {
      std::vector<uint32_t> colors(static_cast<size_t>(count));
      for (uint32_t& color : colors) color = random() & (random() % 2 ? 0x030303 : 0xFFFFFF);
      uint32_t fresh = 0;
      for (const uint32_t color : colors) {
        const uint32_t red = color >> 16, green = color >> 8 & 255, blue = color & 255;
        const uint32_t bit = near ? (red >> 3) << 19 | (green >> 3) << 14 | (blue >> 3) << 9 | (red & 7) << 6 |
                                        (green & 7) << 3 | (blue & 7)
                                  : color;
        fresh += !(wanted[bit / 32] >> bit % 32 & 1);
        wanted[bit / 32] |= 1u << bit % 32;
      }
      Exact pixels(reinterpret_cast<const uint8_t*>(colors.data()), 4 * colors.size(), 4);
      EXPECT_EQ(kernels.markColors(set.data(), pixels.data(), count, near), fresh);
      EXPECT_TRUE(set == wanted) << count << " near " << near;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Kernels, Level, testing::ValuesIn(tarn::test::kLevels), tarn::test::NameOfLevel);

TEST(Kernels, LevelIsNeverAboveTheProcessor) {
  const Isa best = tarn::BestIsa();
  EXPECT_LT(best, Isa::kCount);
  EXPECT_EQ(tarn::ForceIsa(Isa::kPortable), Isa::kPortable);
  EXPECT_EQ(&tarn::Kernels(), &tarn::KernelsFor(Isa::kPortable));
  EXPECT_EQ(tarn::ForceIsa(Isa::kCount), best);
  EXPECT_EQ(&tarn::Kernels(), &tarn::KernelsFor(best));
  EXPECT_EQ(&tarn::KernelsFor(Isa::kCount), &tarn::KernelsFor(best));
}

}  // namespace
