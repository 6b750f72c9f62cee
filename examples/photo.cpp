#include <cstdio>
#include <tarn/tarn.hpp>

using namespace tarn;

int main() {
  Result<Bitmap> photo = Bitmap::create(640, 480, Depth::Bits24);      /* three bytes a pixel: red, green, blue */
  if (!photo) return std::puts(photo.name()), 1;                       /* a failure is a status with a name */
  auto drawn = photo->editRows([](int32_t y, std::span<uint8_t> row) { /* where they lie, or through a buffer */
                                                                       for (size_t i = 0; i < row.size(); ++i)
                                                                         row[i] = static_cast<uint8_t>(
                                                                             i % 3 == 0 ? y / 2 : i / 8);
  });
  if (!drawn) return 1;

  Palette mine; /* the sixteen colours of a terminal */
  for (int i = 0; i < 16; ++i) {
    auto level = [i](int bit) { return static_cast<uint8_t>((i >> bit & 1) * 170 + (i >> 3) * 85); };
    mine.add(Color::rgb(level(2), level(1), level(0)));
  }
  photo->convert(Depth::Bits4, {.kind = PaletteKind::Given, .palette = mine, .dither = Dither::FloydSteinberg})
      .value(); /* where exceptions suit better */
  std::printf("%u colours\n", photo->countColors().value());
  return photo->palette() == mine ? 0 : 1;
} /* freed here */
