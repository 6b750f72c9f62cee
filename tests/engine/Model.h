#pragma once
// What rows must be: a plain vector and the rules of the row layer spelled out bit by bit, slow and obvious; and random
// sequences of operations on a bitmap of any storage, watched by it.

#include <cstdint>
#include <string>

#include "engine/Picture.h"
#include "engine/Random.h"

namespace tarn::engine {

/// Rules that depend on where pixels are.
enum class Rules { kOnePiece, kTiles, kCompressed };
Rules RulesOf(const BitmapHandle& record);

class Model {
 public:
  explicit Model(const Shape& shape)
      : Model(shape, Bytes(size_t{shape.RowBytes()} * static_cast<uint32_t>(shape.height))) {}
  Model(const Shape& shape, Bytes rows) : shape_(shape), rows_(std::move(rows)) {}
  const Shape& GetShape() const { return shape_; }
  const Bytes& Rows() const { return rows_; }

  /// Results as T_GetBitmapRowCol and T_PutBitmapRowCol give them; the row functions are column 0, a put of theirs that
  /// a tile could not take gives `failedTile`. Of `buffer` only `bytes` bytes count.
  int64_t Get(Rules rules, Bytes& buffer, uint32_t row, uint32_t column, uint64_t bytes) const;
  int64_t Put(Rules rules, const Bytes& buffer, uint32_t row, uint32_t column, uint64_t bytes, int64_t failedTile);
  int32_t PutSegments(const Bytes& buffer, uint32_t row, uint32_t columnOffset, const std::vector<uint32_t>& segments,
                      bool preserveAlpha);
  void ChangeHeight(int32_t height);
  /// Compressed rows keep no padding.
  void ClearPadding();

  bool Pixel(uint32_t row, uint32_t column) const { return Bit(rows_, uint64_t{row} * shape_.RowBytes() * 8 + column); }
  void SetPixel(uint32_t row, uint32_t column, bool value) {
    SetBit(rows_, uint64_t{row} * shape_.RowBytes() * 8 + column, value);
  }

  static bool Bit(const Bytes& bytes, uint64_t bit) { return bytes[bit / 8] >> (7 - bit % 8) & 1; }
  static void SetBit(Bytes& bytes, uint64_t bit, bool value) {
    const auto mask = static_cast<uint8_t>(0x80 >> bit % 8);
    bytes[bit / 8] = static_cast<uint8_t>(value ? bytes[bit / 8] | mask : bytes[bit / 8] & ~mask);
  }

 private:
  /// First byte of a transfer; false when it is refused.
  bool Start(Rules rules, uint32_t row, uint32_t column, uint64_t& start) const;

  Shape shape_;
  Bytes rows_;
};

/// A row's runs as a record, word by word; width below 65,528.
Bytes SlowRecord(const std::vector<bool>& pixels);
/// Reads a record of `width` pixels and moves on; false when its runs do not add up.
bool ReadRecord(const uint8_t*& at, const uint8_t* end, uint32_t width, std::vector<bool>& pixels);

/// `steps` random operations on a new bitmap of a kind, each result compared with the model's. Returns the first
/// difference with what repeats it. `digest` becomes a hash of all results.
std::string RunSequence(Kind kind, uint64_t seed, int steps, uint64_t& digest);

}  // namespace tarn::engine
