// libswscale, which dithers on the way to packed bits and to bytes of 3-3-2 bits.

extern "C" {
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include <cstring>

#include "Bench.h"
#include "Peers.h"

namespace bench {
namespace {

using Context = std::shared_ptr<SwsContext>;

Context Open(const Pixels& source, AVPixelFormat from, AVPixelFormat to, const char* dither, int32_t width = 0,
             int32_t height = 0, int flags = SWS_POINT) {
  const Context context(sws_alloc_context(), [](SwsContext* it) { sws_freeContext(it); });
  Require(context != nullptr, "sws_alloc_context");
  for (const auto& [name, value] : {std::pair<const char*, int64_t>{"srcw", source.width},
                                    {"srch", source.height},
                                    {"dstw", width ? width : source.width},
                                    {"dsth", height ? height : source.height},
                                    {"src_format", from},
                                    {"dst_format", to},
                                    {"sws_flags", flags},
                                    {"threads", 1}})
    Require(av_opt_set_int(context.get(), name, value, 0) >= 0, name);
  Require(av_opt_set(context.get(), "sws_dither", dither, 0) >= 0, "sws_dither");
  Require(sws_init_context(context.get(), nullptr, nullptr) >= 0, "sws_init_context");
  return context;
}

/// Blue in the low two bits, then three of green, three of red, each spread over 0..255.
Palette Bytes332() {
  Palette palette(256);
  for (int i = 0; i < 256; ++i) {
    palette[static_cast<size_t>(i)] = {static_cast<uint8_t>((i & 3) * 85), static_cast<uint8_t>((i >> 2 & 7) * 255 / 7),
                                       static_cast<uint8_t>((i >> 5) * 255 / 7), 0};
  }
  return palette;
}

void Run(const Context& context, const Pixels& from, Pixels& to) {
  const uint8_t* const lines[4] = {from.bytes.data()};
  const int steps[4] = {static_cast<int>(from.rowBytes)};
  uint8_t* const targets[4] = {to.bytes.data()};
  const int targetSteps[4] = {static_cast<int>(to.rowBytes)};
  Require(sws_scale(context.get(), lines, steps, 0, from.height, targets, targetSteps) == to.height, "sws_scale");
}

class Swscale : public Peer {
 public:
  std::string Name() const override { return "swscale"; }

  std::vector<PeerJob> Resize(const Pixels& source, const Scaling& scaling) override {
    using Way = Scaling::Way;
    const AVPixelFormat format = source.format == kGray8    ? AV_PIX_FMT_GRAY8
                                 : source.format == kGray16 ? AV_PIX_FMT_GRAY16LE
                                 : source.format == kBgr24  ? AV_PIX_FMT_BGR24
                                 : source.format == kBgr32  ? AV_PIX_FMT_BGRA
                                                            : AV_PIX_FMT_NONE;
    if (format == AV_PIX_FMT_NONE || scaling.way == Way::kInk) return {};
    const int flags = scaling.way == Way::kNearest  ? SWS_POINT
                      : scaling.way == Way::kBox    ? SWS_AREA
                      : scaling.way == Way::kLinear ? SWS_BILINEAR
                                                    : SWS_BICUBIC;
    const Context context = Open(source, format, format, "none", scaling.width, scaling.height, flags);
    const auto from = std::make_shared<Pixels>(source);
    const auto to = std::make_shared<Pixels>(source.format, scaling.width, scaling.height);
    return {{"sws_scale", [=] { Run(context, *from, *to); }, [=] { return *to; }}};
  }

  std::vector<PeerJob> Reduce(const Pixels& source, const Reduction& reduction) override {
    using Way = Reduction::Way;
    const bool bits = reduction.palette.size() == 2 && source.format == kGray8;
    const bool bytes = reduction.palette.size() == 216 && source.format == kBgr24;
    if ((!bits && !bytes) || (reduction.way != Way::kFloydSteinberg && reduction.way != Way::kOrdered)) return {};
    const bool ordered = reduction.way == Way::kOrdered;
    const Context context = Open(source, bits ? AV_PIX_FMT_GRAY8 : AV_PIX_FMT_BGR24,
                                 bits ? AV_PIX_FMT_MONOBLACK : AV_PIX_FMT_RGB8, ordered ? "bayer" : "ed");
    const auto from = std::make_shared<Pixels>(source);
    const auto to = std::make_shared<Pixels>(bits ? kBits1 : kPalette8, source.width, source.height);
    if (bytes) to->palette = Bytes332();
    const auto pass = [=] { Run(context, *from, *to); };
    return {{std::string(ordered ? "bayer" : "error diffusion") + (bytes ? ", 3-3-2" : ""), pass, [=] { return *to; }}};
  }
};

}  // namespace

std::unique_ptr<Peer> SwscalePeer() { return std::make_unique<Swscale>(); }

}  // namespace bench
