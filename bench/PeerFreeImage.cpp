// FreeImage. Its rows lie from the bottom up.

#include <FreeImage.h>

#include <cstring>

#include "Bench.h"
#include "Peers.h"

namespace bench {
namespace {

using Shared = std::shared_ptr<FIBITMAP>;

Shared Own(FIBITMAP* bitmap) { return {bitmap, FreeImage_Unload}; }

/// Null for pixels that it does not have.
Shared ImageOf(const Pixels& pixels) {
  const int32_t bits = pixels.format.bits;
  if (bits != 1 && bits != 8 && bits != 24 && bits != 32) return nullptr;
  Shared image = Own(FreeImage_Allocate(pixels.width, pixels.height, bits));
  Require(image != nullptr, "FreeImage_Allocate");
  for (int32_t row = 0; row < pixels.height; ++row)
    std::memcpy(FreeImage_GetScanLine(image.get(), pixels.height - 1 - row), pixels.Row(row),
                FreeImage_GetLine(image.get()));
  return image;
}

Pixels PixelsOf(FIBITMAP* image, Format format) {
  Pixels pixels(format, static_cast<int32_t>(FreeImage_GetWidth(image)),
                static_cast<int32_t>(FreeImage_GetHeight(image)));
  for (int32_t row = 0; row < pixels.height; ++row)
    std::memcpy(pixels.Row(row), FreeImage_GetScanLine(image, pixels.height - 1 - row), FreeImage_GetLine(image));
  return pixels;
}

/// A job whose result is a new picture, with its palette if the format has one; the one before is freed first.
PeerJob Making(const std::string& call, Format format, const std::function<FIBITMAP*()>& make) {
  const auto made = std::make_shared<Shared>();
  return {call + ", fresh",
          [=] {
            made->reset();
            *made = Own(make());
            Require(*made != nullptr, call.c_str());
          },
          [=] {
            Pixels pixels = PixelsOf(made->get(), format);
            const unsigned colors = FreeImage_GetColorsUsed(made->get());
            const RGBQUAD* const palette = FreeImage_GetPalette(made->get());
            for (unsigned i = 0; i < colors; ++i)
              pixels.palette.push_back({palette[i].rgbBlue, palette[i].rgbGreen, palette[i].rgbRed, 0});
            return pixels;
          }};
}

class FreeImage : public Peer {
 public:
  std::string Name() const override { return "FreeImage"; }

  std::vector<PeerJob> Reduce(const Pixels& source, const Reduction& reduction) override {
    using Way = Reduction::Way;
    const Shared image = ImageOf(source);
    if (!image) return {};
    if (source.format == kGray8) {
      const bool ordered = reduction.way == Way::kOrdered;
      if (!ordered && reduction.way != Way::kFloydSteinberg) return {};
      return {Making(ordered ? "Dither FID_BAYER8x8" : "Dither FID_FS", kBits1,
                     [=] { return FreeImage_Dither(image.get(), ordered ? FID_BAYER8x8 : FID_FS); })};
    }
    if (source.format != kBgr24 || reduction.way != Way::kChosen) return {};
    return {Making("ColorQuantize FIQ_WUQUANT", kPalette8,
                   [=] { return FreeImage_ColorQuantize(image.get(), FIQ_WUQUANT); })};
  }

  std::vector<PeerJob> Turn(const Pixels& source, const TurnTask& task) override {
    const Shared image = ImageOf(source);
    if (!image) return {};
    using Way = TurnTask::Way;
    const Format format = source.format;
    const auto inPlace = [&](const char* name, BOOL(DLL_CALLCONV * call)(FIBITMAP*)) -> std::vector<PeerJob> {
      return {{std::string(name) + " in place", [=] { Require(call(image.get()), name); },
               [=] { return PixelsOf(image.get(), format); }}};
    };
    const auto rotate = [&](double degrees) -> std::vector<PeerJob> {
      const auto made = std::make_shared<Shared>();
      return {{"Rotate, fresh",
               [=] {
                 made->reset();
                 *made = Own(FreeImage_Rotate(image.get(), -degrees, nullptr));
                 Require(*made != nullptr, "FreeImage_Rotate");
               },
               [=] { return PixelsOf(made->get(), format); }}};
    };
    switch (task.way) {
      case Way::kFlip:
        return inPlace("FlipVertical", FreeImage_FlipVertical);
      case Way::kMirror:
        return inPlace("FlipHorizontal", FreeImage_FlipHorizontal);
      case Way::kHalf:
        return rotate(180);
      case Way::kQuarter:
        return rotate(90);
      default:
        return {};
    }
  }

  std::vector<PeerJob> Resize(const Pixels& source, const Scaling& scaling) override {
    using Way = Scaling::Way;
    const auto from = ImageOf(source);
    if (!from || source.format.bits < 8 || source.format == kPalette8 || scaling.way == Way::kNearest ||
        scaling.way == Way::kInk)
      return {};
    const FREE_IMAGE_FILTER filter = scaling.way == Way::kBox      ? FILTER_BOX
                                     : scaling.way == Way::kLinear ? FILTER_BILINEAR
                                                                   : FILTER_CATMULLROM;
    const auto made = std::make_shared<Shared>();
    return {{"FreeImage_Rescale, fresh",
             [=] {
               made->reset();
               *made = Own(FreeImage_Rescale(from.get(), scaling.width, scaling.height, filter));
               Require(*made != nullptr, "FreeImage_Rescale");
             },
             [=, format = source.format] { return PixelsOf(made->get(), format); }}};
  }
};

}  // namespace

std::unique_ptr<Peer> FreeImagePeer() { return std::make_unique<FreeImage>(); }

}  // namespace bench
