// stb_image_resize, which is one header.

#define STB_IMAGE_RESIZE_STATIC
#define STB_IMAGE_RESIZE_IMPLEMENTATION
#include <stb/stb_image_resize.h>

#include "Bench.h"
#include "Peers.h"

namespace bench {
namespace {

class Stb : public Peer {
 public:
  std::string Name() const override { return "stb"; }

  std::vector<PeerJob> Resize(const Pixels& source, const Scaling& scaling) override {
    using Way = Scaling::Way;
    const int channels = source.format == kGray8 ? 1 : source.format == kBgr24 ? 3 : source.format == kBgr32 ? 4 : 0;
    if (channels == 0 || scaling.way == Way::kNearest || scaling.way == Way::kInk) return {};
    const stbir_filter filter = scaling.way == Way::kBox      ? STBIR_FILTER_BOX
                                : scaling.way == Way::kLinear ? STBIR_FILTER_TRIANGLE
                                                              : STBIR_FILTER_CATMULLROM;
    const auto from = std::make_shared<Pixels>(source);
    const auto to = std::make_shared<Pixels>(source.format, scaling.width, scaling.height);
    const auto pass = [=] {
      Require(stbir_resize_uint8_generic(from->bytes.data(), from->width, from->height,
                                         static_cast<int>(from->rowBytes), to->bytes.data(), to->width, to->height,
                                         static_cast<int>(to->rowBytes), channels, STBIR_ALPHA_CHANNEL_NONE, 0,
                                         STBIR_EDGE_CLAMP, filter, STBIR_COLORSPACE_LINEAR, nullptr) == 1,
              "stbir_resize_uint8_generic");
    };
    return {{"stbir_resize_uint8_generic", pass, [=] { return *to; }}};
  }
};

}  // namespace

std::unique_ptr<Peer> StbPeer() { return std::make_unique<Stb>(); }

}  // namespace bench
