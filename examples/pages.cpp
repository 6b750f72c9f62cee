// Pages of a document: a list that owns them, changes of single ones, one palette for all.

#include <cstdio>
#include <tarn/tarn.hpp>

using namespace tarn;

namespace {

Bitmap page(Color paper, Color ink) {
  Bitmap made = Bitmap::create(300, 400, Depth::Bits24).value();
  made.fill(paper).value();
  for (int32_t y = 50; y < 350; ++y)
    for (int32_t x = 40; x < 260; x += 3) made.setPixel(y, x, ink).value();
  return made;
}

}  // namespace

int main() {
  const Color white = Color::rgb(255, 255, 255), black, red = Color::rgb(200, 0, 0), cream = Color::rgb(250, 240, 200);
  BitmapList document;
  document.append(page(white, black)).value();  // moved in: the list owns it now
  document.append(page(cream, red)).value();
  document.insert(0, page(red, white)).value();  // a cover

  document.edit(1, [](Bitmap& second) { second.rotateQuarter(Turn::Clockwise).value(); }).value();
  Bitmap cover = document.take(0).value();  // and out again
  if (document.size() != 2 || cover.pixel(0, 0).value() != red) return 1;

  const Palette common = document.optimizedPalette(16).value();
  document.convert(Depth::Bits4, {.kind = PaletteKind::Given, .palette = common}).value();

  int wrong = 0;
  for (uint32_t i = 0; i < document.size(); ++i) {
    document
        .edit(i,
              [&](Bitmap& bitmap) {
                std::printf("page %u: %d x %d, %u colours\n", i + 1, bitmap.width(), bitmap.height(),
                            bitmap.countColors().value());
                wrong += bitmap.depth() != Depth::Bits4 || bitmap.countColors().value() != 2;
                wrong += bitmap.width() != (i == 0 ? 400 : 300);
                wrong += bitmap.pixel(0, 0).value() != common.color(common.nearest(i == 0 ? white : cream));
              })
        .value();
  }
  return wrong != 0;
}
