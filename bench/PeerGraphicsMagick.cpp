// GraphicsMagick. Its pixels are 8 or 16 bits a channel, as it was built; results are new pictures.

#include <magick/api.h>

#include <cstring>

#include "Bench.h"
#include "Peers.h"

namespace bench {
namespace {

using Shared = std::shared_ptr<Image>;

Shared Own(Image* image) { return {image, DestroyImage}; }

class GraphicsMagick : public Peer {
 public:
  GraphicsMagick() {
    InitializeMagick(nullptr);
    SetMagickResourceLimit(ThreadsResource, 1);
  }
  ~GraphicsMagick() override = default;
  std::string Name() const override { return "GraphicsMagick"; }

  std::vector<PeerJob> Reduce(const Pixels& source, const Reduction& reduction) override {
    using Way = Reduction::Way;
    if (source.format != kBgr24) return {};
    // Without diffusion it takes a minute and a half.
    if (reduction.way != Way::kFloydSteinberg || reduction.palette.size() <= 216) return {};
    const Shared image = ImageOf(source);
    const auto made = std::make_shared<Shared>();
    const auto reduce = [=] {
      ExceptionInfo problem;
      GetExceptionInfo(&problem);
      made->reset();
      *made = Own(CloneImage(image.get(), 0, 0, MagickTrue, &problem));
      QuantizeInfo how;
      GetQuantizeInfo(&how);
      how.number_colors = 256;
      how.dither = MagickTrue;
      Require(*made && QuantizeImage(&how, made->get()) == MagickPass, "QuantizeImage");
      DestroyExceptionInfo(&problem);
    };
    return {{"QuantizeImage, its own 256, fresh", reduce, [=] { return PixelsOf(made->get()); }}};
  }

  PeerJob CountColours(const Pixels& source) override {
    if (source.format != kBgr24) return {};
    return {"GetNumberColors",
            [image = ImageOf(source)] {
              ExceptionInfo problem;
              GetExceptionInfo(&problem);
              Require(GetNumberColors(image.get(), nullptr, &problem) > 1, "GetNumberColors");
              DestroyExceptionInfo(&problem);
            },
            {}};
  }

 private:
  static Shared ImageOf(const Pixels& pixels) {
    std::vector<uint8_t> packed;
    packed.reserve(static_cast<size_t>(3 * pixels.Count()));
    for (int32_t row = 0; row < pixels.height; ++row)
      packed.insert(packed.end(), pixels.Row(row), pixels.Row(row) + 3 * int64_t{pixels.width});
    ExceptionInfo problem;
    GetExceptionInfo(&problem);
    Shared image =
        Own(ConstituteImage(static_cast<unsigned long>(pixels.width), static_cast<unsigned long>(pixels.height), "BGR",
                            CharPixel, packed.data(), &problem));
    Require(image != nullptr, "ConstituteImage");
    DestroyExceptionInfo(&problem);
    return image;
  }
  static Pixels PixelsOf(Image* image) {
    const auto width = static_cast<int32_t>(image->columns), height = static_cast<int32_t>(image->rows);
    Pixels pixels(kBgr24, width, height);
    ExceptionInfo problem;
    GetExceptionInfo(&problem);
    for (int32_t row = 0; row < height; ++row)
      Require(
          DispatchImage(image, 0, row, image->columns, 1, "BGR", CharPixel, pixels.Row(row), &problem) == MagickPass,
          "DispatchImage");
    DestroyExceptionInfo(&problem);
    return pixels;
  }
};

}  // namespace

std::unique_ptr<Peer> GraphicsMagickPeer() { return std::make_unique<GraphicsMagick>(); }

}  // namespace bench
