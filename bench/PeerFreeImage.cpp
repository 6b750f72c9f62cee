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

class FreeImage : public Peer {
 public:
  std::string Name() const override { return "FreeImage"; }

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
