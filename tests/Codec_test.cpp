// The codec library: rows come back as they were, whatever they are; damaged data are a status; buffers are kept to.

#include "tarn/codec.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "Codec/Entropy.h"
#include "Codec/Predict.h"
#include "engine/Random.h"
#include "tests/BinaryImage.h"

namespace tarn {
namespace {

using Bytes = std::vector<uint8_t>;
using engine::Random;

constexpr uint8_t kGuard = 0xA7;
constexpr size_t kGuardBytes = 40;

T_CodecBuffer JobOf(uint32_t rowBytes, uint32_t rows, uint32_t bits) {
  T_CodecBuffer job{};
  job.StructSize = sizeof job;
  job.BytesPerLine = rowBytes;
  job.Height = rows;
  job.BitsPerPixel = bits;
  return job;
}

/// Memory of exactly so many bytes at an odd address, watched on both sides.
class Guarded {
 public:
  explicit Guarded(size_t bytes) : bytes_(bytes), memory_(bytes + 2 * kGuardBytes + 1, kGuard) {}
  uint8_t* data() { return memory_.data() + kGuardBytes + 1; }
  bool Kept() const {
    const auto kept = [](uint8_t byte) { return byte == kGuard; };
    return std::all_of(memory_.begin(), memory_.begin() + kGuardBytes + 1, kept) &&
           std::all_of(memory_.end() - kGuardBytes, memory_.end(), kept) &&
           memory_.size() == bytes_ + 2 * kGuardBytes + 1;
  }

 private:
  size_t bytes_;
  Bytes memory_;
};

Bytes Saved(T_CodecBuffer job, const Bytes& rows) {
  EXPECT_EQ(fltSaveBuffer(&job), SUCCESS);
  Guarded data(job.DataBytes);
  Guarded work(job.WorkBytes);
  Bytes copy = rows;
  job.Pixels = copy.data();
  job.Data = data.data();
  job.Work = work.data();
  const int64_t written = fltSaveBuffer(&job);
  EXPECT_GT(written, 0);
  EXPECT_LE(written, static_cast<int64_t>(job.DataBytes));
  EXPECT_TRUE(data.Kept() && work.Kept());
  EXPECT_EQ(copy, rows);
  return Bytes(data.data(), data.data() + std::max<int64_t>(written, 0));
}

/// The status, and the rows when it is a count.
int64_t Load(T_CodecBuffer job, const Bytes& data, Bytes& rows) {
  EXPECT_EQ(fltLoadBuffer(&job), SUCCESS);
  Guarded pixels(size_t{job.BytesPerLine} * job.Height);
  Guarded work(job.WorkBytes);
  Bytes copy = data;
  copy.shrink_to_fit();
  copy.reserve(1);
  job.Pixels = pixels.data();
  job.Data = copy.data();
  job.DataBytes = copy.size();
  job.Work = work.data();
  const int64_t result = fltLoadBuffer(&job);
  EXPECT_TRUE(pixels.Kept() && work.Kept());
  EXPECT_EQ(copy, data);
  rows.assign(pixels.data(), pixels.data() + size_t{job.BytesPerLine} * job.Height);
  return result;
}

enum class Content { kZero, kNoise, kSmooth, kRuns, kSteps, kCount };

Bytes MakeRows(Content content, uint32_t rowBytes, uint32_t rows, Random& random) {
  Bytes bytes(size_t{rowBytes} * rows);
  for (size_t i = 0; i < bytes.size(); ++i) {
    const auto x = static_cast<uint32_t>(i % rowBytes);
    const auto y = static_cast<uint32_t>(i / rowBytes);
    switch (content) {
      case Content::kNoise:
        bytes[i] = random.Byte();
        break;
      case Content::kSmooth:
        bytes[i] = static_cast<uint8_t>(x / 3 + 2 * y + random.Below(4));
        break;
      case Content::kRuns:
        bytes[i] = i && !random.OneIn(9) ? bytes[i - 1] : static_cast<uint8_t>(random.OneIn(2) ? 0 : 255);
        break;
      case Content::kSteps:  // whatever wraps
        bytes[i] = static_cast<uint8_t>((x % 7 < 3) ^ (y % 5 < 2) ? 250 + random.Below(6) : random.Below(6));
        break;
      default:
        break;
    }
  }
  return bytes;
}

struct Shape {
  uint32_t rowBytes;
  uint32_t rows;
};
constexpr Shape kShapes[] = {{1, 1},  {2, 3},   {3, 2},   {4, 1},   {7, 9},     {12, 8},    {31, 5},     {32, 7},
                             {33, 8}, {35, 17}, {64, 16}, {99, 33}, {136, 100}, {1111, 40}, {12289, 12}, {400000, 1}};
constexpr uint32_t kBits[] = {1, 8, 24};

TEST(Codec, RowsComeBackAsTheyWere) {
  Random random(7);
  for (const Shape& shape : kShapes) {
    for (const uint32_t bits : kBits) {
      for (int content = 0; content < static_cast<int>(Content::kCount); ++content) {
        SCOPED_TRACE(testing::Message() << shape.rowBytes << " x " << shape.rows << ", " << bits << " bits, content "
                                        << content);
        const Bytes rows = MakeRows(static_cast<Content>(content), shape.rowBytes, shape.rows, random);
        const T_CodecBuffer job = JobOf(shape.rowBytes, shape.rows, bits);
        const Bytes data = Saved(job, rows);
        Bytes back;
        ASSERT_EQ(Load(job, data, back), static_cast<int64_t>(rows.size()));
        ASSERT_EQ(back, rows);
        ASSERT_EQ(Saved(job, rows), data) << "another time";
      }
    }
  }
}

TEST(Codec, TakesLittleForWhatIsRegular) {
  Random random(3);
  const struct {
    Content content;
    uint32_t bits;
    double most;  // of the plain size
  } cases[] = {{Content::kZero, 24, 0.01},  {Content::kSmooth, 24, 0.6}, {Content::kSmooth, 8, 0.4},
               {Content::kRuns, 1, 0.25},   {Content::kSteps, 8, 0.55},  {Content::kNoise, 24, 1.002},
               {Content::kNoise, 8, 1.002}, {Content::kNoise, 1, 1.002}};
  for (const auto& c : cases) {
    const Bytes rows = MakeRows(c.content, 3072, 40, random);
    EXPECT_LE(static_cast<double>(Saved(JobOf(3072, 40, c.bits), rows).size()), c.most * 3072 * 40)
        << c.bits << " bits, content " << static_cast<int>(c.content);
  }
}

TEST(Codec, ArgumentsAreTestedInTheirOrder) {
  uint8_t some[8] = {};
  for (const auto call : {fltSaveBuffer, fltLoadBuffer}) {
    const bool saving = call == fltSaveBuffer;
    EXPECT_EQ(call(nullptr), ERR_INVALID_PARAMETER);
    T_CodecBuffer job = JobOf(0, 0, 4);
    job.StructSize = 63;
    EXPECT_EQ(call(&job), ERR_BAD_STRUCT_SIZE);
    job.StructSize = 64;
    EXPECT_EQ(call(&job), ERR_BAD_BITS_PER_PIXEL);
    job.BitsPerPixel = 8;
    EXPECT_EQ(call(&job), ERR_EMPTY_AREA);
    job.BytesPerLine = ~0u;
    EXPECT_EQ(call(&job), ERR_EMPTY_AREA);
    job.Height = 1;
    EXPECT_EQ(call(&job), ERR_IMAGE_TOO_LARGE);
    job.BytesPerLine = 4;
    EXPECT_EQ(call(&job), SUCCESS);
    const T_CodecBuffer asked = job;
    Bytes work(asked.WorkBytes);
    Bytes data(asked.DataBytes + 1);
    const auto with = [&](void* pixels, void* to, void* at, uint64_t dataBytes, uint64_t workBytes) {
      T_CodecBuffer with = asked;
      with.Pixels = pixels;
      with.Data = to;
      with.Work = at;
      with.DataBytes = dataBytes;
      with.WorkBytes = workBytes;
      return call(&with);
    };
    const uint64_t room = asked.DataBytes;
    EXPECT_EQ(with(nullptr, data.data(), work.data(), room, work.size()), ERR_INVALID_PARAMETER);
    EXPECT_EQ(with(some, nullptr, work.data(), room, work.size()), ERR_INVALID_PARAMETER);
    EXPECT_EQ(with(some, data.data(), nullptr, room, work.size()), ERR_INVALID_PARAMETER);
    EXPECT_EQ(with(some, data.data(), work.data(), room, work.size() - 1), ERR_NO_MEMORY);
    if (!saving) continue;
    EXPECT_EQ(with(some, data.data(), work.data(), room - 1, work.size()), ERR_NO_MEMORY);
    EXPECT_GT(with(some, data.data(), work.data(), room, work.size()), 0);
  }
}

// Whatever is wrong with the data: a status, or in the rare case that the damage means the same the same rows.
TEST(Codec, DamagedDataAreAStatus) {
  Random random(11);
  for (const uint32_t bits : kBits) {
    for (const Content content : {Content::kSmooth, Content::kNoise, Content::kRuns}) {
      const Bytes rows = MakeRows(content, 200, 11, random);
      const T_CodecBuffer job = JobOf(200, 11, bits);
      const Bytes data = Saved(job, rows);
      const auto check = [&](const Bytes& damaged, const std::string& how) {
        SCOPED_TRACE(std::to_string(bits) + " bits, " + how);
        Bytes back;
        const int64_t result = Load(job, damaged, back);
        if (result == static_cast<int64_t>(rows.size())) {
          EXPECT_EQ(back, rows);
        } else {
          EXPECT_EQ(result, ERR_UNSUPPORTED_FORMAT);
        }
      };
      for (size_t bytes = 0; bytes < data.size(); bytes += 1 + bytes / 40)
        check(Bytes(data.begin(), data.begin() + static_cast<ptrdiff_t>(bytes)), "cut at " + std::to_string(bytes));
      Bytes longer = data;
      longer.push_back(0);
      check(longer, "a byte more");
      for (size_t at = 0; at < data.size(); at += 1 + at / 60) {
        Bytes changed = data;
        changed[at] ^= static_cast<uint8_t>(1u << random.Below(8));
        check(changed, "bit of byte " + std::to_string(at));
      }
      for (int i = 0; i < 60; ++i) {
        Bytes changed = data;
        for (uint64_t hits = 1 + random.Below(8); hits-- > 0;) changed[random.Below(changed.size())] = random.Byte();
        check(changed, "noise " + std::to_string(i));
      }
      Bytes back;
      for (const T_CodecBuffer& other :
           {JobOf(200, 12, bits), JobOf(400, 11, bits), JobOf(100, 22, bits), JobOf(200, 11, bits == 8 ? 24 : 8)})
        EXPECT_EQ(Load(other, data, back), ERR_UNSUPPORTED_FORMAT);
    }
  }
}

// The same under a checksum that fits, as somebody makes it who means to.
TEST(Codec, HeadersThatLieAreAStatus) {
  constexpr size_t kHeader = 32, kSummed = 28;
  constexpr Shape kSmall[] = {{200, 11}, {2, 5}};
  Random random(12);
  for (const uint32_t bits : kBits) {
    for (const Shape& shape : kSmall) {
      const Bytes rows = MakeRows(Content::kSmooth, shape.rowBytes, shape.rows, random);
      const T_CodecBuffer job = JobOf(shape.rowBytes, shape.rows, bits);
      const Bytes data = Saved(job, rows);
      ASSERT_GE(data.size(), kHeader);
      for (size_t at = 0; at < kSummed; ++at) {
        for (const int value : {0, 1, 2, 3, 128, 255, data[at] - 1, data[at] + 1}) {
          Bytes changed = data;
          changed[at] = static_cast<uint8_t>(value);
          uint32_t check = 0x811C9DC5;
          for (size_t i = 0; i < kSummed; ++i) check = (check ^ changed[i]) * 0x01000193;
          std::memcpy(&changed[kSummed], &check, sizeof check);
          Bytes back;
          const int64_t result = Load(job, changed, back);
          if (changed[at] == data[at]) {
            EXPECT_EQ(back, rows);
          } else if (result != static_cast<int64_t>(rows.size())) {  // another way of the same length is one
            EXPECT_EQ(result, ERR_UNSUPPORTED_FORMAT) << bits << " bits, byte " << at << ", " << value;
          }
        }
      }
    }
  }
}

TEST(Codec, FramesNeedTheirRoom) {
  Random random(13);
  const Bytes rows = MakeRows(Content::kNoise, 500, 1, random);
  Bytes work(codec::CompressWork(rows.size())), expanding(codec::ExpandWork());
  Bytes frame(codec::FrameBound(rows.size())), back(rows.size());
  EXPECT_EQ(codec::CompressFrame(frame.data(), frame.size(), rows.data(), rows.size(), work.data(), 100), 0u);
  EXPECT_EQ(codec::CompressFrame(frame.data(), 50, rows.data(), rows.size(), work.data(), work.size()), 0u);
  const uint64_t bytes =
      codec::CompressFrame(frame.data(), frame.size(), rows.data(), rows.size(), work.data(), work.size());
  ASSERT_GT(bytes, 0u);
  const auto expand = [&](uint64_t room, uint64_t workBytes) {
    return codec::ExpandFrame(back.data(), room, frame.data(), bytes, expanding.data(), workBytes);
  };
  EXPECT_FALSE(expand(back.size(), 100));
  EXPECT_FALSE(expand(back.size() - 1, expanding.size()));
  ASSERT_TRUE(expand(back.size(), expanding.size()));
  EXPECT_EQ(back, rows);
}

// What runs on vector registers gives the same as what is written out.
TEST(Codec, VectorsExpandLikePlainCode) {
  Random random(5);
  for (uint32_t bytes = 1; bytes <= 150; ++bytes) {
    const Bytes residuals = MakeRows(Content::kNoise, bytes, 1, random);
    for (const Content content : {Content::kNoise, Content::kSteps}) {
      const Bytes above = MakeRows(content, bytes, 1, random);
      for (const uint8_t* row : {above.data(), static_cast<const uint8_t*>(nullptr)}) {
        Guarded fast(bytes);
        Bytes slow(bytes);
        codec::ExpandGray(fast.data(), residuals.data(), row, bytes);
        codec::ExpandGray_Portable(slow.data(), residuals.data(), row, bytes);
        ASSERT_EQ(Bytes(fast.data(), fast.data() + bytes), slow) << bytes;
        ASSERT_TRUE(fast.Kept());
      }
    }
    const Bytes red = MakeRows(Content::kSteps, bytes, 1, random);
    const Bytes blue = MakeRows(Content::kNoise, bytes, 1, random);
    const uint8_t* const planes[codec::kPlanes] = {residuals.data(), red.data(), blue.data()};
    std::vector<uint16_t> above(size_t{4} * bytes);
    for (size_t i = 0; i < above.size(); ++i) above[i] = i % 4 == 3 ? 0 : random.Byte();
    std::vector<uint16_t> same = above;
    Guarded fast(size_t{3} * bytes);
    Bytes slow(size_t{3} * bytes);
    codec::ExpandColors(fast.data(), planes, above.data(), bytes);
    codec::ExpandColors_Portable(slow.data(), planes, same.data(), bytes);
    ASSERT_EQ(Bytes(fast.data(), fast.data() + slow.size()), slow) << bytes << " pixels";
    ASSERT_TRUE(fast.Kept());
    ASSERT_EQ(above, same);
  }
}

TEST(Codec, LinesOfNoWholePixelStay) {
  const uint8_t* const planes[codec::kPlanes] = {nullptr, nullptr, nullptr};
  uint8_t row[2] = {7, 8};
  for (const auto expand : {codec::ExpandColors, codec::ExpandColors_Portable}) expand(row, planes, nullptr, 0);
  EXPECT_EQ(row[0] << 8 | row[1], 0x708);
}

TEST(Codec, SquaresAndEdgesAreTransposed) {
  Random random(6);
  for (const Shape& shape : kShapes) {
    if (shape.rowBytes > 2000) continue;
    const Bytes rows = MakeRows(Content::kNoise, shape.rowBytes, shape.rows, random);
    Guarded columns(rows.size());
    codec::Transpose(columns.data(), rows.data(), shape.rows, shape.rowBytes);
    for (size_t i = 0; i < rows.size(); ++i)
      ASSERT_EQ(columns.data()[i % shape.rowBytes * shape.rows + i / shape.rowBytes], rows[i]) << i;
    ASSERT_TRUE(columns.Kept());
  }
}

TEST(Codec, LibraryExportsItsTwoNames) {
  const test::BinaryImage image = test::ReadBinaryImage(TARN_CODEC_PATH);
  ASSERT_EQ(image.error, "");
  EXPECT_EQ(image.exports, (std::vector<std::string>{"fltLoadBuffer", "fltSaveBuffer"}));
}

}  // namespace
}  // namespace tarn
