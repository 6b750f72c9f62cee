// tarn colors: a picture in few colours, its own or those of a palette, dithered.

#include <cstdio>

#include "Colours.h"
#include "Command.h"

namespace tarn::tool {
namespace {

/// How a bitmap is brought to few colours.
struct Resolution {
  int32_t bits = 8;
  uint32_t flags = T_RES_OPTIMIZED;
  std::vector<T_PaletteEntry> palette;  // with T_RES_PALETTE
  uint32_t colours = 0;                 // 0: as many as the depth has room for
};

struct DestroyList {
  void operator()(T_BitmapList* list) const noexcept { T_DestroyBitmapList(list); }
};
using BitmapList = std::unique_ptr<T_BitmapList, DestroyList>;

class ColorsCommand final : public PictureCommand {
 public:
  const char* Name() const override { return "colors"; }
  const char* Help() const override { return "write a picture in few colours, dithered"; }

  void AddOwnOptions(Options& options) override {
    options.Number("--bits", bits_, 1, 8, "bits a pixel, 1 to 8; the fewest of files that the colours need, else 8");
    options.Number("--colors", colours_, 1, 256, "of an optimized palette, at most");
    options.Text("--palette", palette_, "COLOURS",
                 "optimized (the default), fixed, web, or a file: a picture with a palette, or lines of #rrggbb",
                 {"optimized", "fixed", "web"});
    options.Choice<uint32_t>("--dither", dithering_,
                             {{"none", DITHER_NONE},
                              {"floyd-steinberg", DITHER_FLOYD_STEINBERG},
                              {"stucki", DITHER_STUCKI},
                              {"burkes", DITHER_BURKES},
                              {"sierra", DITHER_SIERRA},
                              {"stevenson-arce", DITHER_STEVENSON_ARCE},
                              {"jarvis", DITHER_JARVIS},
                              {"ordered", DITHER_ORDERED},
                              {"clustered", DITHER_CLUSTERED}},
                             "METHOD",
                             "none, floyd-steinberg (the default), stucki, burkes, sierra, stevenson-arce, jarvis, "
                             "ordered or clustered");
  }

  void CheckOwnOptions() const override {
    const auto refuse = [](const std::string& reason) { throw Failure(Exit::kUsage, "", reason); };
    if (colours_ != 0 && palette_ != "optimized") refuse("--colors goes with an optimized palette");
    if (bits_ != 0 && colours_ > 1 << bits_) {
      refuse("--bits " + std::to_string(bits_) + " holds " + std::to_string(1 << bits_) + " colours");
    }
    if (palette_ == "web" && bits_ != 0 && bits_ != 8) refuse("the web palette goes with --bits 8");
  }

  bool TakesAllPages() const override { return true; }
  Shape Plan(const Shape& before) override;
  void ApplyToAll(FileToFile::Bitmaps& bitmaps, Console& console) override;

 private:
  void Decide();
  void ApplyToList(FileToFile::Bitmaps& bitmaps) const;
  const T_PaletteEntry* Palette() const { return resolution_.palette.empty() ? nullptr : resolution_.palette.data(); }

  int bits_ = 0;     // 0: not given
  int colours_ = 0;  // 0: not given
  std::string palette_ = "optimized";
  uint32_t dithering_ = DITHER_FLOYD_STEINBERG;
  bool decided_ = false;
  Resolution resolution_;
};

void ColorsCommand::Decide() {
  decided_ = true;
  Resolution& made = resolution_;
  made.flags = T_RES_DITHER(dithering_);
  made.bits = bits_ == 0 ? 8 : bits_;
  if (palette_ == "optimized") {
    made.flags |= T_RES_OPTIMIZED;
    made.colours = static_cast<uint32_t>(colours_);
    if (bits_ == 0 && colours_ != 0) made.bits = DepthFor(made.colours);
  } else if (palette_ == "fixed") {
    made.flags |= T_RES_FIXED;
  } else if (palette_ == "web") {
    made.flags |= T_RES_WEB;
  } else {
    Console quiet(false, true);
    made.palette = ReadPalette(palette_, quiet);
    made.flags |= T_RES_PALETTE;
    made.colours = static_cast<uint32_t>(made.palette.size());
    if (bits_ == 0) made.bits = DepthFor(made.colours);
    if (made.colours > 1u << made.bits) {
      throw Failure(Exit::kUsage, palette_,
                    "has " + std::to_string(made.colours) + " colours; --bits " + std::to_string(made.bits) +
                        " holds " + std::to_string(1 << made.bits));
    }
  }
}

Shape ColorsCommand::Plan(const Shape& before) {
  if (!decided_) Decide();
  // An optimized palette is known later; colours that are no gray ramp stand for it.
  const std::vector<T_PaletteEntry> colours =
      resolution_.palette.empty() ? FixedPalette(resolution_.bits) : resolution_.palette;
  Shape after = before;
  after.layout = PaletteLayout(resolution_.bits, colours);
  return after;
}

/// Several pages get one palette: the list has them while it is made.
void ColorsCommand::ApplyToList(FileToFile::Bitmaps& bitmaps) const {
  const std::string doing = "bringing its pages to few colours";
  const auto require = [&](int32_t status) {
    if (status != SUCCESS) ThrowStatus(status, way_.input, doing);
  };
  T_BitmapList* made = nullptr;
  require(T_CreateBitmapList(&made));
  const BitmapList list(made);
  for (const std::unique_ptr<Bitmap>& bitmap : bitmaps) {
    require(T_InsertBitmapListItem(list.get(), T_LIST_END, &bitmap->Handle()));
    bitmap->Release();
  }
  require(T_ColorResBitmapListExt(list.get(), resolution_.bits, resolution_.flags, Palette(), nullptr,
                                  resolution_.colours, nullptr, nullptr));
  for (std::unique_ptr<Bitmap>& bitmap : bitmaps) {
    bitmap = std::make_unique<Bitmap>(
        [&](BitmapHandle* record, uint32_t) { return T_RemoveBitmapListItem(list.get(), 0, record); },
        way_.reading.storage, way_.input, doing);
  }
}

void ColorsCommand::ApplyToAll(FileToFile::Bitmaps& bitmaps, Console& console) {
  {
    const LibraryProgress progress(console, way_.input, "choosing colours");
    if (bitmaps.size() > 1) {
      ApplyToList(bitmaps);
    } else {
      BitmapHandle& handle = bitmaps.front()->Handle();
      const int32_t status = T_ColorResBitmap(&handle, nullptr, sizeof handle, resolution_.bits, resolution_.flags,
                                              Palette(), nullptr, resolution_.colours, nullptr, nullptr);
      if (status != SUCCESS) ThrowStatus(status, way_.input, "bringing it to few colours");
    }
  }
  const Layout layout = LayoutOf(bitmaps.front()->Handle());
  console.Note(way_.input, "is brought to " + NameOf(layout));
  if (way_.reading.storage.kind != StorageKind::kCompressed || layout.bits != 1) return;
  for (std::unique_ptr<Bitmap>& bitmap : bitmaps) {
    Progress progress(console, way_.input, static_cast<uint64_t>(bitmap->Handle().Height), "compressing");
    bitmap = Converted(*bitmap, layout, way_.reading.storage, way_.input, progress);
  }
}

// ---- Counting ------------------------------------------------------------------------------------------------------

class CountColorsCommand final : public Command {
 public:
  const char* Name() const override { return "count-colors"; }
  const char* Help() const override { return "tell how many colours occur in a picture"; }

  void AddOptions(Options& options) override {
    options.Argument("file", file_, "FILE", kInputHelp);
    reading_.AddKind(options);
    reading_.AddPage(options);
    reading_.AddLimits(options);
  }
  void CheckOptions() const override { reading_.Check(); }
  std::string Subject() const override { return file_; }

  int Run(Console& console) override {
    const Loaded loaded = Load(file_, reading_, console);
    uint32_t count = 0;
    const int32_t status = T_GetBitmapColorCountExt(&loaded.bitmap->Handle(), &count, nullptr);
    if (status != SUCCESS) ThrowStatus(status, file_, "counting colours");
    std::printf("%u\n", count);
    FinishOutput();
    return static_cast<int>(Exit::kOk);
  }

 private:
  std::string file_;
  ReadOptions reading_;
};

}  // namespace

std::unique_ptr<Command> MakeColors() { return std::make_unique<ColorsCommand>(); }
std::unique_ptr<Command> MakeCountColors() { return std::make_unique<CountColorsCommand>(); }

}  // namespace tarn::tool
