#pragma once
// Turning pictures by any angle: what the commands that do it share.

#include <string>

#include "Command.h"

namespace tarn::tool {

/// Moves the rows so that the first one is seen on top, left to right; what is seen stays.
void MakeUpright(BitmapHandle& bitmap, const std::string& file);
Shape UprightShape(const Shape& before);

/// Colours of uncovered pixels.
struct Fill {
  std::string text = "#ffffff";

  void AddOption(Options& options);
  void Check() const;
  uint32_t Value() const;
};

struct Rotation {
  uint32_t method = ROTATE_BILINEAR;
  bool resize = false;
  Fill fill;

  void AddOptions(Options& options);
  /// @param angle hundredths of a degree, clockwise
  Shape After(const Shape& before, int32_t angle) const;
  void Apply(Bitmap& bitmap, int32_t angle, const std::string& file, Console& console) const;
};

}  // namespace tarn::tool
