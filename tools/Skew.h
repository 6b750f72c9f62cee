#pragma once
// How far the lines of a scanned page are from level.

#include <cstdint>
#include <string>

namespace tarn::tool {

class Bitmap;

constexpr int32_t kMostSkew = 1000;  // hundredths of a degree; pages that are turned further are not recognised

/// The angle by which the page is turned clockwise, in hundredths of a degree, -kMostSkew to kMostSkew; 0 for a page
/// without lines. Rows are taken as they are stored. Pages of more than one bit are divided into paper and ink first.
/// Throws Failure, naming `file`.
int32_t SkewOf(Bitmap& bitmap, const std::string& file);

}  // namespace tarn::tool
