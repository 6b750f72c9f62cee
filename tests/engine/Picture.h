#pragma once
// The picture maker: bitmaps of every depth and storage kind with seeded contents, and a way to read them back.

#include <cstdint>
#include <string>
#include <vector>

#include "engine/Random.h"
#include "tarn/tarn.h"

namespace tarn::engine {

using Bytes = std::vector<uint8_t>;

/// Where the pixels are. Tiles are three rows high; of mixed tiles the first lie in memory and the others share two
/// views; of swap tiles one view exists. While a Scene lives strips are three rows high too, and one is kept expanded.
enum class Kind : uint8_t {
  kBlock,
  kCaller,
  kMovable,
  kMemoryTiles,
  kMixedTiles,
  kSwapTiles,
  kDisk,
  kCompressed,
  kSuper,
  kCount
};
constexpr int kKinds = static_cast<int>(Kind::kCount);
constexpr int32_t kTileRows = 3;

constexpr uint32_t Bit(Kind kind) { return 1u << static_cast<int>(kind); }
constexpr uint32_t kAllKinds = (1u << kKinds) - 1;
constexpr uint32_t kTiledKinds = Bit(Kind::kMemoryTiles) | Bit(Kind::kMixedTiles) | Bit(Kind::kSwapTiles);
/// Storage that the library owns.
constexpr uint32_t kOwnKinds = kAllKinds & ~(Bit(Kind::kCaller) | Bit(Kind::kMovable));
const char* NameOf(Kind kind);

constexpr int32_t kDepths[] = {1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 24, 32, 48, 64};
constexpr uint64_t DepthBit(int32_t bits) { return uint64_t{1} << (bits - 1); }
constexpr uint64_t kAllDepths = ~uint64_t{};
constexpr uint64_t kPaletteDepths = 0xFF;

constexpr uint64_t kSuperDepths = DepthBit(1) | DepthBit(8) | DepthBit(24);
constexpr uint64_t DepthsOf(Kind kind) {
  return kind == Kind::kCompressed ? DepthBit(1) : kind == Kind::kSuper ? kSuperDepths : kAllDepths;
}

struct Shape {
  int32_t width;
  int32_t height;
  int32_t bits;
  uint32_t RowBytes() const { return static_cast<uint32_t>((int64_t{width} * bits + 31) / 8) & ~3u; }
  /// Tiles need more rows than one tile has, compressed rows one bit, super-compressed ones 1, 8 or 24.
  bool Suits(Kind kind) const;
};
std::string Text(const Shape& shape);

/// The rows of a picture, padding zero: blank and full rows, long runs, noise, single pixels at the edges.
Bytes MakeContent(const Shape& shape, uint64_t seed);
/// A packed row with everything behind its last pixel cleared.
void ClearPadding(uint8_t* row, const Shape& shape);

/// A bitmap that frees itself, with the caller's memory when that is where its pixels are.
class Picture {
 public:
  Picture() = default;
  ~Picture() { Free(); }
  Picture(const Picture&) = delete;
  Picture& operator=(const Picture&) = delete;

  /// Storage of a kind, zero-filled. Returns what went wrong, nothing when nothing did.
  std::string MakeBlank(Kind kind, const Shape& shape);
  /// The same with MakeContent's rows.
  std::string Make(Kind kind, const Shape& shape, uint64_t seed);
  void Free();
  void Exchange(Picture& other);

  BitmapHandle record{};

 private:
  Bytes memory_;
};

/// Makes the levels of a 12- or 16-bit bitmap gray, and colours of them by a table.
void GiveTable(BitmapHandle& record, Random& random);

/// All rows through the row layer. The record is not touched, which its row-offset cache would be.
/// Returns what went wrong.
std::string ReadPixels(const BitmapHandle& record, Bytes& pixels);

/// The thread's storage thresholds and temporary directory, put back at the end.
class ThresholdScope {
 public:
  ThresholdScope();
  ~ThresholdScope();
  ThresholdScope(const ThresholdScope&) = delete;
  ThresholdScope& operator=(const ThresholdScope&) = delete;

 private:
  int32_t threshold_, conventional_, views_;
  int64_t block_, tile_;
};

}  // namespace tarn::engine
