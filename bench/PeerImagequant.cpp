// libimagequant. It takes words of red, green, blue, alpha and chooses palettes of its own.

#include <libimagequant.h>

#include "Bench.h"
#include "Peers.h"

namespace bench {
namespace {

class Imagequant : public Peer {
 public:
  std::string Name() const override { return "libimagequant"; }

  std::vector<PeerJob> Reduce(const Pixels& source, const Reduction& reduction) override {
    using Way = Reduction::Way;
    if (source.format != kBgr24) return {};
    const auto words = std::make_shared<std::vector<uint8_t>>();
    for (int32_t row = 0; row < source.height; ++row) {
      const uint8_t* at = source.Row(row);
      for (int32_t x = 0; x < source.width; ++x, at += 3) words->insert(words->end(), {at[2], at[1], at[0], 255});
    }
    constexpr int kUsual = 4, kFastest = 10;
    if (reduction.way == Way::kChosen)
      return {Making(words, source, kUsual, 0, "speed 4"), Making(words, source, kFastest, 0, "speed 10")};
    if (reduction.way == Way::kFloydSteinberg && reduction.palette.size() > 216)
      return {Making(words, source, kFastest, 1, "speed 10, its own 256")};
    return {};
  }

 private:
  static PeerJob Making(const std::shared_ptr<std::vector<uint8_t>>& words, const Pixels& source, int speed,
                        float dithering, const std::string& call) {
    const auto made = std::make_shared<Pixels>(kPalette8, source.width, source.height);
    return {call,
            [=] {
              liq_attr* const attributes = liq_attr_create();
              liq_set_speed(attributes, speed);
              liq_image* const image = liq_image_create_rgba(attributes, words->data(), made->width, made->height, 0);
              liq_result* result = nullptr;
              Require(image && liq_image_quantize(image, attributes, &result) == LIQ_OK, "liq_image_quantize");
              liq_set_dithering_level(result, dithering);
              Require(liq_write_remapped_image(result, image, made->bytes.data(), made->bytes.size()) == LIQ_OK,
                      "liq_write_remapped_image");
              const liq_palette* const palette = liq_get_palette(result);
              made->palette.assign(256, {});
              for (unsigned int i = 0; i < palette->count; ++i) {
                const liq_color& color = palette->entries[i];
                made->palette[i] = {color.b, color.g, color.r, 0};
              }
              liq_result_destroy(result);
              liq_image_destroy(image);
              liq_attr_destroy(attributes);
            },
            [=] { return *made; }};
  }
};

}  // namespace

std::unique_ptr<Peer> ImagequantPeer() { return std::make_unique<Imagequant>(); }

}  // namespace bench
