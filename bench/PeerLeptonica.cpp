// Leptonica. Its colour pixels are words of 32 bits, red on top; most of its results are new pictures.

#include <leptonica/allheaders.h>

#include <cstring>

#include "Bench.h"
#include "Peers.h"

namespace bench {
namespace {

struct Destroy {
  void operator()(Pix* pix) const { pixDestroy(&pix); }
};
using Owned = std::unique_ptr<Pix, Destroy>;
using Shared = std::shared_ptr<Pix>;

PixColormap* ColormapOf(const T_PaletteEntry* entries, uint32_t count) {
  PixColormap* const map = pixcmapCreate(8);
  for (uint32_t i = 0; i < count; ++i) pixcmapAddColor(map, entries[i].Red, entries[i].Green, entries[i].Blue);
  return map;
}

/// Null for pixels that it does not have.
Shared PixOf(const Pixels& pixels) {
  const bool color = pixels.format == kBgr24 || pixels.format == kBgr32;
  if (!color && pixels.format.bits != 1 && pixels.format.bits != 8 && pixels.format != kGray16) return nullptr;
  Shared pix(pixCreate(pixels.width, pixels.height, color ? 32 : pixels.format.bits), Destroy{});
  Require(pix != nullptr, "pixCreate");
  for (int32_t row = 0; row < pixels.height; ++row) {
    l_uint32* const line = pixGetData(pix.get()) + int64_t{row} * pixGetWpl(pix.get());
    const uint8_t* at = pixels.Row(row);
    if (color) {
      for (int32_t x = 0; x < pixels.width; ++x, at += pixels.format.bits / 8)
        composeRGBPixel(at[2], at[1], at[0], line + x);
    } else if (pixels.format == kGray16) {
      for (int32_t x = 0; x < pixels.width; ++x, at += 2) SET_DATA_TWO_BYTES(line, x, at[0] | at[1] << 8);
    } else {
      for (uint32_t i = 0; i < pixels.rowBytes; ++i) SET_DATA_BYTE(line, i, at[i]);
    }
  }
  if (pixels.format == kPalette8) pixSetColormap(pix.get(), ColormapOf(pixels.Entries(), 256));
  return pix;
}

/// Colour comes out with 24 bits, one-bit pictures as ones for black, whatever stands for it in the source.
Pixels PixelsOf(Pix* pix) {
  const Owned plain(pixGetColormap(pix) ? pixRemoveColormap(pix, REMOVE_CMAP_TO_FULL_COLOR) : pixClone(pix));
  const l_int32 depth = pixGetDepth(plain.get());
  Pixels pixels(depth == 32   ? kBgr24
                : depth == 16 ? kGray16
                : depth == 8  ? kGray8
                              : kBits1,
                pixGetWidth(plain.get()), pixGetHeight(plain.get()));
  for (int32_t row = 0; row < pixels.height; ++row) {
    l_uint32* const line = pixGetData(plain.get()) + int64_t{row} * pixGetWpl(plain.get());
    uint8_t* at = pixels.Row(row);
    if (depth == 32) {
      for (int32_t x = 0; x < pixels.width; ++x, at += 3) {
        l_int32 red = 0, green = 0, blue = 0;
        extractRGBValues(line[x], &red, &green, &blue);
        at[0] = static_cast<uint8_t>(blue);
        at[1] = static_cast<uint8_t>(green);
        at[2] = static_cast<uint8_t>(red);
      }
    } else if (depth == 16) {
      for (int32_t x = 0; x < pixels.width; ++x, at += 2) {
        at[0] = static_cast<uint8_t>(GET_DATA_TWO_BYTES(line, x));
        at[1] = static_cast<uint8_t>(GET_DATA_TWO_BYTES(line, x) >> 8);
      }
    } else {
      for (uint32_t i = 0; i < pixels.rowBytes; ++i) at[i] = static_cast<uint8_t>(GET_DATA_BYTE(line, i));
    }
  }
  return pixels;
}

/// A job whose result is a new picture; the one before is freed first.
PeerJob Making(const std::string& call, std::function<Pix*()> make) {
  const auto made = std::make_shared<Owned>();
  return {call + ", fresh",
          [=] {
            made->reset();
            made->reset(make());
            Require(*made != nullptr, call.c_str());
          },
          [=] { return PixelsOf(made->get()); }};
}

class Leptonica : public Peer {
 public:
  Leptonica() { setMsgSeverity(L_SEVERITY_ERROR); }
  std::string Name() const override { return "Leptonica"; }

  PeerJob Convert(const Pixels& source, Format target, const Palette& palette) override {
    const Shared pix = PixOf(source);
    if (!pix) return {};
    const bool toColor = target == kBgr24 || target == kBgr32;
    const bool fromColor = source.format == kBgr24 || source.format == kBgr32;
    if (source.format == kBits1 && target == kGray8)
      return Making("pixConvert1To8", [=] { return pixConvert1To8(nullptr, pix.get(), 0, 255); });
    if (source.format == kBits1 && toColor)
      return Making("pixConvert1To32", [=] { return pixConvert1To32(nullptr, pix.get(), 0, 0xFFFFFF00); });
    if (source.format == kPalette8 && toColor)
      return Making("pixRemoveColormap to 32", [=] { return pixRemoveColormap(pix.get(), REMOVE_CMAP_TO_FULL_COLOR); });
    if (source.format == kGray8 && toColor)
      return Making("pixConvert8To32", [=] { return pixConvert8To32(pix.get()); });
    if (source.format == kGray8 && target == kGray16)
      return Making("pixConvert8To16", [=] { return pixConvert8To16(pix.get(), 8); });
    if (source.format == kGray16 && target == kGray8)
      return Making("pixConvert16To8", [=] { return pixConvert16To8(pix.get(), L_MS_BYTE); });
    if (fromColor && target == kGray8)
      return Making("pixConvertRGBToLuminance (from 32)", [=] { return pixConvertRGBToLuminance(pix.get()); });
    if (fromColor && target == kPalette8) return ToNearest(pix, palette);
    return {};
  }

  std::vector<PeerJob> Copy(const Pixels& source, int32_t column) override {
    const Shared pix = PixOf(source);
    if (!pix) return {};
    if (column == 0) return {Making("pixCopy", [=] { return pixCopy(nullptr, pix.get()); })};
    const int32_t width = source.width - column;
    const int32_t height = source.height;
    const Shared ready(pixCreate(width, height, pixGetDepth(pix.get())), Destroy{});
    const PeerJob into{"pixRasterop",
                       [=] { pixRasterop(ready.get(), 0, 0, width, height, PIX_SRC, pix.get(), column, 0); },
                       [=] { return PixelsOf(ready.get()); }};
    const auto clip = [=] {
      Box* box = boxCreate(column, 0, width, height);
      Pix* const clipped = pixClipRectangle(pix.get(), box, nullptr);
      boxDestroy(&box);
      return clipped;
    };
    return {into, Making("pixClipRectangle", clip)};
  }

  std::vector<PeerJob> Turn(const Pixels& source, const TurnTask& task) override {
    const Shared pix = PixOf(source);
    if (!pix) return {};
    using Way = TurnTask::Way;
    const auto inPlace = [&](const char* name, Pix* (*call)(Pix*, Pix*)) -> std::vector<PeerJob> {
      return {
          {std::string(name) + " in place", [=] { call(pix.get(), pix.get()); }, [=] { return PixelsOf(pix.get()); }}};
    };
    const auto radians = static_cast<float>(task.degrees * 3.14159265358979323846 / 180);
    const int32_t width = source.width, height = source.height;
    const l_int32 zeros = source.format.bits == 1 ? L_BRING_IN_WHITE : L_BRING_IN_BLACK;
    const auto rotate = [&](const char* name, l_int32 type) -> std::vector<PeerJob> {
      return {Making(name, [=] { return pixRotate(pix.get(), radians, type, zeros, width, height); })};
    };
    switch (task.way) {
      case Way::kFlip:
        return inPlace("pixFlipTB", pixFlipTB);
      case Way::kMirror:
        return inPlace("pixFlipLR", pixFlipLR);
      case Way::kHalf:
        return inPlace("pixRotate180", pixRotate180);
      case Way::kQuarter:
        return {Making("pixRotate90", [=] { return pixRotate90(pix.get(), 1); })};
      case Way::kNearest:
        return rotate("pixRotate, sampling", L_ROTATE_SAMPLING);
      case Way::kBilinear:
        return rotate("pixRotate, area map", L_ROTATE_AREA_MAP);
      case Way::kShear: {
        const Shared ready(pixCreate(task.width, task.height, pixGetDepth(pix.get())), Destroy{});
        const PeerJob into{
            "pixHShear", [=] { pixHShear(ready.get(), pix.get(), height, radians, L_BRING_IN_WHITE); }, {}};
        PeerJob made =
            Making("pixHShear", [=] { return pixHShear(nullptr, pix.get(), height, radians, L_BRING_IN_WHITE); });
        made.result = nullptr;  // keeps its width
        return {into, made};
      }
      default:
        return {};
    }
  }

  std::vector<PeerJob> Reduce(const Pixels& source, const Reduction& reduction) override {
    const Shared pix = PixOf(source);
    if (!pix) return {};
    using Way = Reduction::Way;
    if (source.format == kGray8 && reduction.way == Way::kFloydSteinberg) {
      PeerJob job = Making("pixDitherToBinary", [=] { return pixDitherToBinary(pix.get()); });
      job.result = [inked = job.result] {  // its ones are black
        Pixels pixels = inked();
        for (uint8_t& byte : pixels.bytes) byte = static_cast<uint8_t>(~byte);
        return pixels;
      };
      return {job};
    }
    if (source.format != kBgr24) return {};
    if (reduction.way == Way::kNearest) return {ToNearest(pix, reduction.palette)};
    const int dither = reduction.way == Way::kFloydSteinberg;
    std::vector<PeerJob> jobs;
    if (reduction.way == Way::kChosen || (dither && reduction.palette.size() > 216)) {
      constexpr l_int32 kColours = 240;  // the most it makes well
      jobs.push_back(
          Making("pixOctreeColorQuant, its own 240", [=] { return pixOctreeColorQuant(pix.get(), kColours, dither); }));
      jobs.push_back(Making("pixMedianCutQuant, its own 256", [=] { return pixMedianCutQuant(pix.get(), dither); }));
    } else if (dither && reduction.palette.size() == 216) {
      jobs.push_back(Making("pixFixedOctcubeQuant256, 3-3-2", [=] { return pixFixedOctcubeQuant256(pix.get(), 1); }));
    }
    return jobs;
  }

  std::vector<PeerJob> Resize(const Pixels& source, const Scaling& scaling) override {
    using Way = Scaling::Way;
    const Shared pix = PixOf(source);
    if (!pix || source.format == kGray16) return {};
    std::vector<PeerJob> jobs;
    const bool ones = source.format == kBits1;
    const auto x = static_cast<l_float32>(scaling.width) / static_cast<l_float32>(source.width);
    const auto y = static_cast<l_float32>(scaling.height) / static_cast<l_float32>(source.height);
    if (scaling.way == Way::kInk) {
      jobs.push_back(Smaller(pix, source.width / scaling.width));
      if (source.width % scaling.width) {  // its size is another
        jobs.back().result = nullptr;
        return jobs;
      }
      jobs.back().result = [inner = jobs.back().result, palette = source.palette] {
        Pixels pixels = inner();
        pixels.palette = palette;
        return pixels;
      };
      return jobs;
    }
    if (scaling.way == Way::kNearest && ones && scaling.width == 2 * source.width) {
      jobs.push_back(Making("pixExpandBinaryReplicate", [=] { return pixExpandBinaryReplicate(pix.get(), 2, 2); }));
    } else if (scaling.way == Way::kNearest) {
      jobs.push_back(Making("pixScaleBySampling", [=] { return pixScaleBySampling(pix.get(), x, y); }));
    } else if (scaling.way == Way::kBox && !ones) {
      jobs.push_back(Making("pixScaleAreaMap", [=] { return pixScaleAreaMap(pix.get(), x, y); }));
    } else if (scaling.way == Way::kLinear && !ones) {
      jobs.push_back(Making("pixScaleLI", [=] { return pixScaleLI(pix.get(), x, y); }));
    }
    for (PeerJob& job : jobs) job.result = nullptr;  // its size may be a pixel off
    return jobs;
  }

  PeerJob CountColours(const Pixels& source) override {
    const Shared pix = PixOf(source);
    if (source.format != kBgr24) return {};
    return {"pixCountRGBColorsByHash",
            [=] {
              l_int32 colours = 0;
              Require(pixCountRGBColorsByHash(pix.get(), &colours) == 0, "pixCountRGBColorsByHash");
            },
            {}};
  }

 private:
  /// A page whose pixels are ink when some of 2 x 2, 3 x 3 or 4 x 4 are: 1, 2 and, here two times 1 of 4, 3.
  static PeerJob Smaller(const Shared& pix, int parts) {
    if (parts == 2) return Making("pixReduceRankBinary2", [=] { return pixReduceRankBinary2(pix.get(), 1, nullptr); });
    if (parts == 4) {
      return Making("pixReduceRankBinaryCascade 1, 1",
                    [=] { return pixReduceRankBinaryCascade(pix.get(), 1, 1, 0, 0); });
    }
    constexpr l_int32 kTwoOfNine = 255 - 255 * 3 / 18;
    return Making("pixScaleToGray3, pixThresholdToBinary", [=] {
      const Owned gray(pixScaleToGray3(pix.get()));
      return pixThresholdToBinary(gray.get(), kTwoOfNine);
    });
  }

  /// The nearest of the given colours to the middle of each cube of 32 in 256.
  static PeerJob ToNearest(const Shared& pix, const Palette& palette) {
    constexpr l_int32 kLevel = 5;
    const std::shared_ptr<PixColormap> map(ColormapOf(palette.data(), static_cast<uint32_t>(palette.size())),
                                           [](PixColormap* it) { pixcmapDestroy(&it); });
    return Making("pixOctcubeQuantFromCmap",
                  [=] { return pixOctcubeQuantFromCmap(pix.get(), map.get(), 8, kLevel, L_EUCLIDEAN_DISTANCE); });
  }
};

}  // namespace

std::unique_ptr<Peer> LeptonicaPeer() { return std::make_unique<Leptonica>(); }

}  // namespace bench
