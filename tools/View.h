#pragma once
// Places in a picture as it is seen: columns to the right and rows down from the upper left corner, whatever way its
// rows are stored. The way is the bitmap's view perspective, 1 to 8.

#include <cstdint>
#include <string>

namespace tarn::tool {

struct Area {
  int64_t left = 0;
  int64_t top = 0;
  int64_t width = 0;
  int64_t height = 0;
};

/// "X,Y" as an area of one pixel, and "X,Y,WxH"; X and Y may be negative. Anything else, sides below 1 and numbers
/// beyond 31 bits are failures (Exit::kUsage) that say what to write.
Area ParsePlace(const std::string& text);
Area ParseArea(const std::string& text);
/// A place or side for the library, which counts in 31 bits; `what` of the file is too far away otherwise.
int32_t Coordinate(int64_t value, const std::string& file, const char* what);

/// A size asked for: sides of which one may be 0, in proportion, or a percentage of what there is.
struct NewSize {
  int32_t width = 0;
  int32_t height = 0;
  double percent = 0;  // 0: the sides count
};
/// "800x600", "800x", "x600" or "50%".
bool ParseNewSize(const std::string& text, NewSize& size);
/// Degrees, with or without a fraction, as hundredths of a degree.
bool ParseAngle(const std::string& text, int32_t& hundredths);

/// Whether rows of storage are seen as columns.
inline bool SidesSwap(uint32_t perspective) noexcept { return perspective >= 5; }
/// The picture as it is seen.
/// @param width, height of the bitmap, as stored
inline Area SeenArea(uint32_t perspective, int64_t width, int64_t height) noexcept {
  const bool swap = SidesSwap(perspective);
  return {0, 0, swap ? height : width, swap ? width : height};
}
/// Where an area of the picture lies in storage.
/// @param width, height of the bitmap, as stored
Area StoredArea(const Area& seen, uint32_t perspective, int64_t width, int64_t height) noexcept;

}  // namespace tarn::tool
