// Sequences of operations on every kind of storage against one block of memory as the model.

#include <cstring>
#include <vector>

#include "Platform/Fault.h"
#include "Targets.h"
#include "tarn/tarn.h"

using tarn::fuzz::Input;
using tarn::fuzz::Require;

namespace {

constexpr int32_t kDepths[] = {1, 1, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 24, 32, 48, 64};
constexpr uint32_t kTypes[] = {8, 4, 1, 128, 512, 256};

struct Pair {
  BitmapHandle model{};
  BitmapHandle subject{};
};

std::vector<uint8_t> Bytes(Input& input, size_t count) {
  std::vector<uint8_t> bytes(count);
  uint32_t state = input.Long();
  const uint32_t style = input.Byte() % 3;
  for (uint8_t& byte : bytes) {
    state = state * 1664525u + 1013904223u;
    byte = style == 0 ? static_cast<uint8_t>(state >> 24) : static_cast<uint8_t>(style == 1 ? 0 : 0xFF);
    if (style && state >> 28 == 0) byte = static_cast<uint8_t>(state >> 20);
  }
  return bytes;
}

// The bits behind the last pixel are nobody's: they are cut off before rows are compared.
std::vector<uint8_t> Line(BitmapHandle& bitmap, uint32_t row) {
  std::vector<uint8_t> line(bitmap.BytesPerLine);
  Require(T_GetBitmapRow(&bitmap, line.data(), row, line.size()) == static_cast<int64_t>(line.size()),
          "row read whole");
  const uint64_t bits = static_cast<uint64_t>(bitmap.Width) * static_cast<uint32_t>(bitmap.BitsPerPixel);
  line.resize((bits + 7) / 8);
  if (bits % 8) line.back() &= static_cast<uint8_t>(0xFF << (8 - bits % 8));
  return line;
}

void RequireSame(Pair& pair) {
  Require(pair.model.Height == pair.subject.Height, "heights");
  for (int32_t row = 0; row < pair.model.Height; ++row) {
    const auto at = static_cast<uint32_t>(row);
    Require(Line(pair.model, at) == Line(pair.subject, at), "rows");
  }
}

int32_t PutRows(BitmapHandle& bitmap, const std::vector<uint8_t>& bytes, uint32_t row, uint32_t column) {
  const int64_t put = T_PutBitmapRowCol(&bitmap, bytes.data(), row, column, bytes.size());
  return put == static_cast<int64_t>(bytes.size()) ? SUCCESS : ERR_FILE_WRITE;
}

// One operation on both; returns false when the subject refused it (under a fault), with the model left alone.
bool Step(Input& input, Pair& pair, bool faulty) {
  BitmapHandle& b = pair.subject;
  const auto height = static_cast<uint32_t>(b.Height);
  const auto width = static_cast<uint32_t>(b.Width);
  const auto arm = [&] {
    if (faulty) tarn::fault::Arm({1 + input.Below(12), 1 + input.Below(40)});
  };
  const auto done = [&](int32_t status) {
    tarn::fault::Disarm();
    Require(faulty || status == SUCCESS, "an operation without faults succeeds");
    return status == SUCCESS;
  };
  switch (input.Byte() % 6) {
    case 0: {  // rows, a whole number of them
      const uint32_t row = input.Below(height);
      const uint32_t rows = 1 + input.Below(height - row);
      const std::vector<uint8_t> bytes = Bytes(input, size_t{rows} * b.BytesPerLine);
      const int32_t status = PutRows(b, bytes, row, 0);
      return done(status) && PutRows(pair.model, bytes, row, 0) == SUCCESS;
    }
    case 1: {  // part of a row, from a column that begins a byte
      const uint32_t row = input.Below(height);
      const uint32_t column = input.Below(width) / 8 * 8;
      const uint64_t left = (static_cast<uint64_t>(width - column) * static_cast<uint32_t>(b.BitsPerPixel) + 7) / 8;
      const std::vector<uint8_t> bytes = Bytes(input, 1 + input.Below(static_cast<uint32_t>(left)));
      const int32_t status = PutRows(b, bytes, row, column);
      return done(status) && PutRows(pair.model, bytes, row, column) == SUCCESS;
    }
    case 2: {
      const uint32_t row = input.Below(height);
      const uint32_t segments[4] = {input.Below(width + 1), input.Below(width + 2), input.Below(width + 1),
                                    input.Word()};
      const std::vector<uint8_t> bytes = Bytes(input, b.BytesPerLine);
      const uint32_t offset = input.Byte() & 1 ? input.Below(width) / 8 * 8 : 0;
      const int32_t alpha = input.Byte() & 1;
      const int32_t status = T_PutBitmapRowSegments(&b, bytes.data(), row, offset, segments, 4, alpha);
      return done(status) &&
             T_PutBitmapRowSegments(&pair.model, bytes.data(), row, offset, segments, 4, alpha) == SUCCESS;
    }
    case 3: {
      const auto to = static_cast<int32_t>(1 + input.Below(90));
      arm();
      const int32_t status = T_ChangeBitmapHeight(&b, to);
      return done(status) && T_ChangeBitmapHeight(&pair.model, to) == SUCCESS;
    }
    case 4: {
      uint32_t type = kTypes[input.Byte() % 6];
      if (type == 512 && b.BitsPerPixel != 1) type = 128;
      const int64_t tile = input.Word();
      const uint32_t inMemory = input.Byte() % 8;
      const uint32_t views = input.Byte() % 4;
      const uint32_t flags = input.Byte() % 64;
      arm();
      return done(T_SetBitmapMemoryInfo(&b, type, tile, inMemory, inMemory, views, views, flags));
    }
    default: {
      if (b.BitsPerPixel != 1) return true;
      const uint32_t row = input.Below(height);
      std::vector<uint16_t> words(2, 0);
      uint32_t left = width;
      while (left) {
        const auto run = static_cast<uint16_t>(input.Below(left + 1));
        words.push_back(input.Empty() ? static_cast<uint16_t>(left) : run);
        left -= words.back();
      }
      const auto count = static_cast<uint32_t>(words.size() - 2);
      std::memcpy(words.data(), &count, 4);
      const int32_t status = T_PutBitmapRowCompressed(&b, nullptr, words.data(), row, 1);
      return done(status) && T_PutBitmapRowCompressed(&pair.model, nullptr, words.data(), row, 1) == SUCCESS;
    }
  }
}

}  // namespace

void FuzzStorage(const uint8_t* data, size_t size) {
  Input input(data, size);
  const int32_t bits = kDepths[input.Byte() % 16];
  const auto width = static_cast<int32_t>(1 + input.Below(200));
  const auto height = static_cast<int32_t>(1 + input.Below(60));
  const bool faulty = input.Byte() & 1;
  T_SetMemoryThresholds(0, input.Byte() & 1 ? 100 : 0x7FFFFFFF, 1 + input.Below(2000), input.Byte() % 5,
                        1 + input.Byte() % 3, 31);
  Pair pair;
  Require(T_InitBitmap(&pair.model, sizeof pair.model, width, height, bits) == SUCCESS, "init");
  pair.subject = pair.model;
  uint32_t type = kTypes[input.Byte() % 6];
  if (type == 512 && bits != 1) type = 4;
  Require(T_AllocateBitmap(&pair.subject, type) == SUCCESS, "allocate");
  T_SetMemoryThresholds(0, 0x7FFFFFFF, 1 + input.Below(2000), 2, 1, 31);
  Require(T_AllocateBitmap(&pair.model, TYPE_NOTILED) == SUCCESS, "allocate model");
  for (int step = 0; step < 24 && !input.Empty(); ++step) {
    (void)Step(input, pair, faulty);
    RequireSame(pair);
  }
  T_FreeBitmap(&pair.subject);
  T_FreeBitmap(&pair.model);
  T_SetMemoryThresholds(0, 0x7FFFFFFF, 0, -100, 1, 31);
}
