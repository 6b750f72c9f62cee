// tarn palette: the colours of a picture's palette.

#include <algorithm>
#include <cstdio>

#include "Colours.h"
#include "Command.h"
#include "Files.h"

namespace tarn::tool {
namespace {

constexpr int32_t kCell = 32;     // pixels of a swatch's side
constexpr int32_t kColumns = 16;  // at most

const char* GrayClass(const std::vector<T_PaletteEntry>& palette) {
  switch (T_IsGrayScalePalette(palette.data(), static_cast<uint32_t>(palette.size()))) {
    case 1:
      return "gray class 1: ramp from black";
    case 2:
      return "gray class 2: ramp from white";
    case 3:
      return "gray class 3: no even ramp";
    default:
      return "gray class 0: colours";
  }
}

class PaletteCommand final : public Command {
 public:
  const char* Name() const override { return "palette"; }
  const char* Help() const override { return "list the colours of a picture with a palette"; }

  void AddOptions(Options& options) override {
    options.Argument("file", file_, "FILE", "PNG, JPEG, TIFF or BMP file of up to 8 bits a pixel; - is standard input");
    options.Text("--swatch", swatch_, "OUT", "also write a picture of the colours; .png, .jpg, .tif or .bmp");
    reading_.AddPage(options);
  }
  void CheckOptions() const override {
    if (swatch_ == kStandardStream)
      throw Failure(Exit::kUsage, "", "--swatch needs a file; the list takes standard output");
    if (!swatch_.empty()) FormatOf(swatch_);
  }
  std::string Subject() const override { return file_; }

  int Run(Console& console) override {
    InputFile input(file_);
    const Picture picture = OpenPicture(input, console, reading_.page)->Info();
    if (picture.palette.empty()) throw Failure(Exit::kDepth, file_, "has no palette, it is " + DepthName(picture));
    // The picture first: a list beside a failure would look like success to who reads the list.
    if (!swatch_.empty()) WriteSwatch(picture, console);
    std::printf("; %zu colours, %d %s a pixel, %s\n", picture.palette.size(), static_cast<int>(picture.bits),
                picture.bits == 1 ? "bit" : "bits", GrayClass(picture.palette));
    for (size_t i = 0; i < picture.palette.size(); ++i) {
      std::printf("%3zu %s\n", i, ColourName(picture.palette[i]).c_str());
    }
    FinishOutput();
    return static_cast<int>(Exit::kOk);
  }

 private:
  /// Cells of one colour each, row by row, in a bitmap of the same depth and palette.
  void WriteSwatch(const Picture& picture, Console& console) const {
    const Format format = FormatOf(swatch_);
    const auto count = static_cast<int32_t>(picture.palette.size());
    const int32_t columns = std::min(count, kColumns);
    Picture cells;
    cells.bits = picture.bits;
    cells.palette = picture.palette;
    cells.width = columns * kCell;
    cells.height = count / columns * kCell;
    RequireHolds(format, {}, cells, swatch_);
    OutputFile output(swatch_);
    Bitmap bitmap(cells, {}, swatch_);
    RowConverter indices({8, T_ORDER_RGB, PaletteLayout(8, cells.palette).palette}, LayoutOf(cells), cells.width);
    for (int32_t row = 0; row < cells.height; ++row) {
      for (int32_t x = 0; x < cells.width; ++x) {
        indices.Line()[x] = static_cast<uint8_t>(row / kCell * columns + x / kCell);
      }
      indices.Convert(swatch_);
      bitmap.PutRow(row, indices.Line());
    }
    Progress progress(console, swatch_, static_cast<uint64_t>(cells.height), "writing");
    WritePicture(format, {}, cells, bitmap, output, console, progress);
    output.Commit();
  }

  std::string file_;
  std::string swatch_;
  ReadOptions reading_;
};

}  // namespace

std::unique_ptr<Command> MakePalette() { return std::make_unique<PaletteCommand>(); }

}  // namespace tarn::tool
