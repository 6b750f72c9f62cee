// tarn convert: another file format, and on the way another layout of the pixels.

#include "Colours.h"
#include "Command.h"

namespace tarn::tool {
namespace {

enum class OrderChoice { kUnsaid, kRgb, kBgr, kGray };

bool HasGray(int bits) { return bits <= 8 || bits == 12 || bits == 16 || bits == 32; }

class ConvertCommand final : public PictureCommand {
 public:
  const char* Name() const override { return "convert"; }
  const char* Help() const override { return "write a picture in another format or depth"; }

 protected:
  void AddOwnOptions(Options& options) override {
    options.Number("--bits", bits_, 1, 64, "bits a pixel: 1 to 8, 12, 16, 24, 32, 48 or 64");
    options.Choice<OrderChoice>("--order", order_,
                                {{"rgb", OrderChoice::kRgb}, {"bgr", OrderChoice::kBgr}, {"gray", OrderChoice::kGray}},
                                "ORDER", "of the samples in memory: rgb, bgr or gray");
    options.Flag("--gray", gray_, "gray; of 8 bits unless --bits says 1 to 8, 12, 16 or 32");
    options.Text("--palette", palette_, "COLOURS",
                 "of up to 8 bits: fixed, web, or a file: a picture with a palette, or lines of #rrggbb",
                 {"fixed", "web"});
  }

  void CheckOwnOptions() const override {
    const auto refuse = [](const char* reason) { throw Failure(Exit::kUsage, "", reason); };
    const bool known =
        bits_ <= 8 || bits_ == 12 || bits_ == 16 || bits_ == 24 || bits_ == 32 || bits_ == 48 || bits_ == 64;
    const bool colourOrder = order_ == OrderChoice::kRgb || order_ == OrderChoice::kBgr;
    if (!known) refuse("--bits takes 1 to 8, 12, 16, 24, 32, 48 or 64");
    if (gray_ && colourOrder) refuse("--gray and a colour --order exclude each other");
    if (WantsGray() && !HasGray(bits_)) refuse("gray goes with --bits 1 to 8, 12, 16 or 32");
    if (colourOrder && bits_ != 0 && (bits_ <= 8 || bits_ == 12)) {
      refuse("--order rgb and bgr go with --bits 16, 24, 32, 48 or 64");
    }
    if (palette_.empty()) return;
    if (WantsGray() || colourOrder) refuse("--palette goes with neither --gray nor --order");
    if (bits_ > 8) refuse("--palette goes with --bits 1 to 8");
  }

  Shape Plan(const Shape& before) override;
  void Apply(std::unique_ptr<Bitmap>& bitmap, Console& console) override;

 private:
  bool WantsGray() const { return gray_ || order_ == OrderChoice::kGray; }
  Layout Wanted(const Layout& source) const;
  Layout WantedPalette() const;

  int bits_ = 0;  // 0: not given
  OrderChoice order_ = OrderChoice::kUnsaid;
  bool gray_ = false;
  std::string palette_;
  Layout target_;
};

/// The colours asked for; of the depth asked for, or the smallest one of files that has room for them.
Layout ConvertCommand::WantedPalette() const {
  if (palette_ == "fixed") return PaletteLayout(bits_ == 0 ? 8 : bits_, FixedPalette(bits_ == 0 ? 8 : bits_));
  Console quiet(false, true);
  const std::vector<T_PaletteEntry> colours = palette_ == "web" ? WebPalette() : ReadPalette(palette_, quiet);
  const int bits = bits_ == 0 ? DepthFor(colours.size()) : bits_;
  if (colours.size() > (size_t{1} << bits)) {
    throw Failure(Exit::kUsage, palette_ == "web" ? "" : palette_,
                  (palette_ == "web" ? "the web palette has " : "has ") + std::to_string(colours.size()) +
                      " colours; --bits " + std::to_string(bits) + " holds " + std::to_string(1 << bits));
  }
  return PaletteLayout(bits, colours);
}

Layout ConvertCommand::Wanted(const Layout& source) const {
  if (WantsGray()) return GrayLayout(bits_ == 0 ? 8 : bits_);
  if (!palette_.empty()) return WantedPalette();
  const uint32_t order = order_ == OrderChoice::kRgb ? T_ORDER_RGB : T_ORDER_BGR;
  if (order_ != OrderChoice::kUnsaid) {
    if (bits_ != 0) return {bits_, order, {}};
    if (source.Indexed() || source.order == T_ORDER_GRAY) {
      throw Failure(Exit::kUsage, Input(), "is " + NameOf(source) + "; --order rgb and bgr need --bits 16 or more");
    }
    return {source.bits, order, {}};
  }
  if (bits_ == 0) return source;
  // Depth alone: gray stays gray, a palette stays as long as it fits.
  if (bits_ == 12 || (source.Gray() && bits_ <= 16)) return GrayLayout(bits_);
  if (bits_ > 8) return {bits_, T_ORDER_BGR, {}};
  if (source.Indexed() && bits_ >= source.bits) return PaletteLayout(bits_, source.palette);
  return PaletteLayout(bits_, FixedPalette(bits_));
}

Shape ConvertCommand::Plan(const Shape& before) {
  target_ = Wanted(before.layout);
  Shape after = before;
  after.layout = target_;
  return after;
}

void ConvertCommand::Apply(std::unique_ptr<Bitmap>& bitmap, Console& console) {
  const Layout source = LayoutOf(bitmap->Handle());
  if (source == target_) return;
  Progress progress(console, Input(), static_cast<uint64_t>(bitmap->Handle().Height), "converting");
  bitmap = Converted(*bitmap, target_, Storage(target_.bits), Input(), progress);
  console.Note(Input(), NameOf(source) + " is converted to " + NameOf(target_) + ", " + SamplesOf(target_));
}

}  // namespace

std::unique_ptr<Command> MakeConvert() { return std::make_unique<ConvertCommand>(); }

}  // namespace tarn::tool
