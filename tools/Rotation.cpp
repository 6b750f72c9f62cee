#include "Rotation.h"

#include <utility>

#include "Colours.h"
#include "View.h"

namespace tarn::tool {

void MakeUpright(BitmapHandle& bitmap, const std::string& file) {
  const int32_t status = T_ChangeBitmapViewPerspective(nullptr, &bitmap, sizeof bitmap, 1);
  if (status != SUCCESS) ThrowStatus(status, file, "turning it upright");
}

Shape UprightShape(const Shape& before) {
  Shape after = before;
  if (SidesSwap(before.orientation)) std::swap(after.width, after.height);
  after.orientation = 1;
  return after;
}

// ---- Fill ----------------------------------------------------------------------------------------------------------

void Fill::AddOption(Options& options) {
  options.Text("--fill", text, "COLOUR", "of uncovered pixels: #rrggbb, or gray:N of 0 to 65535; white unless told");
}

void Fill::Check() const {
  uint32_t value = 0;
  if (!ParseColourValue(text, value)) {
    throw Failure(Exit::kUsage, "", "'" + text + "' is not a colour; write #rrggbb or gray:N");
  }
}

uint32_t Fill::Value() const {
  uint32_t value = 0;
  ParseColourValue(text, value);
  return value;
}

// ---- Rotation ------------------------------------------------------------------------------------------------------

void Rotation::AddOptions(Options& options) {
  options.Choice<uint32_t>("--method", method,
                           {{"nearest", 0}, {"correct", ROTATE_CORRECT}, {"bilinear", ROTATE_BILINEAR}}, "METHOD",
                           "nearest, correct (the nearest, moved towards neighbours) or bilinear (the default); "
                           "below 8 bits and in palettes of colours always nearest");
  options.Flag("--resize", resize, "make room for all of the turned picture; else the sides stay and corners are lost");
  fill.AddOption(options);
}

Shape Rotation::After(const Shape& before, int32_t angle) const {
  Shape after = UprightShape(before);
  if (!resize || angle % 18000 == 0) return after;
  if (angle % 9000 == 0) {
    std::swap(after.width, after.height);
  } else {
    after.width = after.height = 0;  // the library tells
  }
  return after;
}

void Rotation::Apply(Bitmap& bitmap, int32_t angle, const std::string& file, Console& console) const {
  const LibraryProgress progress(console, file, "rotating");
  // The sides that stay are those of the picture as it is seen.
  MakeUpright(bitmap.Handle(), file);
  const int32_t status =
      T_RotateBitmap(&bitmap.Handle(), angle, method | (resize ? uint32_t{ROTATE_RESIZE} : 0), fill.Value());
  if (status != SUCCESS) ThrowStatus(status, file, "rotating it");
}

}  // namespace tarn::tool
