// tarn diff: how far two pictures are apart.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Command.h"

namespace tarn::tool {
namespace {

constexpr int kChannels = 4;  // blue, green, red, opacity, as in the common layout

struct Errors {
  uint64_t sum = 0;
  uint64_t squares = 0;  // at most 2^32 pixels of 2^32 each, and then all of them of one channel
  uint32_t most = 0;

  void Add(const Errors& other) {
    sum += other.sum;
    squares += other.squares;
    most = std::max(most, other.most);
  }
};

struct Comparison {
  std::array<Errors, kChannels> channels;
  uint64_t differing = 0;
  uint64_t beyond = 0;  // pixels with an error above the tolerance
};

/// Rows of four samples a pixel, of which the first one, three or four count.
template <class Sample>
void CompareRows(const uint8_t* a, const uint8_t* b, int32_t width, int count, uint32_t tolerance,
                 Comparison& comparison) {
  constexpr size_t kPixelBytes = kChannels * sizeof(Sample);
  for (int32_t x = 0; x < width; ++x, a += kPixelBytes, b += kPixelBytes) {
    Sample pixelA[kChannels], pixelB[kChannels];
    std::memcpy(pixelA, a, kPixelBytes);
    std::memcpy(pixelB, b, kPixelBytes);
    uint32_t most = 0;
    for (int c = 0; c < count; ++c) {
      const auto error = static_cast<uint32_t>(std::abs(int32_t{pixelA[c]} - int32_t{pixelB[c]}));
      Errors& errors = comparison.channels[static_cast<size_t>(c)];
      errors.sum += error;
      errors.squares += uint64_t{error} * error;
      errors.most = std::max(errors.most, error);
      most = std::max(most, error);
    }
    if (most > 0) ++comparison.differing;
    if (most > tolerance) ++comparison.beyond;
  }
}

void PrintErrors(const char* name, const Errors& errors, uint64_t samples, uint32_t peak) {
  const double mean = static_cast<double>(errors.sum) / static_cast<double>(samples);
  std::printf("  %-8s %10u %12.4f ", name, errors.most, mean);
  if (errors.squares == 0) {
    std::printf("%12s\n", "inf");
    return;
  }
  const double square = static_cast<double>(errors.squares) / static_cast<double>(samples);
  std::printf("%12.2f\n", 10 * std::log10(static_cast<double>(peak) * peak / square));
}

bool Deep(const Layout& layout) {
  return layout.bits == 12 || layout.bits == 48 || layout.bits == 64 || (layout.bits == 16 && layout.Gray());
}

class DiffCommand final : public Command {
 public:
  const char* Name() const override { return "diff"; }
  const char* Help() const override { return "tell how far two pictures are apart"; }

  void AddOptions(Options& options) override {
    options.Argument("a", first_, "A", kInputHelp);
    options.Argument("b", second_, "B", "another one of the same size");
    options.Number("--max-error", tolerance_, 0, 65535, "differences of up to N steps of a sample count as none");
    options.Number("--page2", secondPage_, 1, 65535, "page of B");
    reading_.AddPage(options);
    reading_.AddKind(options);
    reading_.AddLimits(options);
  }
  void CheckOptions() const override { reading_.Check(); }
  std::string Subject() const override { return first_; }

  int Run(Console& console) override {
    const Loaded a = Load(first_, reading_, console);
    ReadOptions second = reading_;
    second.page = secondPage_;
    const Loaded b = Load(second_, second, console);
    RequireAlike(a.bitmap->Handle(), b.bitmap->Handle());
    return Compare(*a.bitmap, *b.bitmap, console) ? static_cast<int>(Exit::kOk) : static_cast<int>(Exit::kDifferent);
  }

 private:
  void RequireAlike(const BitmapHandle& a, const BitmapHandle& b) const {
    if (a.Width != b.Width || a.Height != b.Height) {
      throw Failure(Exit::kDifferent, second_,
                    "is " + std::to_string(b.Width) + " x " + std::to_string(b.Height) + " pixels, " + first_ + " is " +
                        std::to_string(a.Width) + " x " + std::to_string(a.Height));
    }
    if (a.ViewPerspective != b.ViewPerspective) {
      throw Failure(Exit::kDifferent, second_,
                    "has orientation " + std::to_string(b.ViewPerspective) + ", " + first_ + " has " +
                        std::to_string(a.ViewPerspective));
    }
  }

  bool Compare(Bitmap& a, Bitmap& b, const Console& console) const {
    const Layout layoutA = LayoutOf(a.Handle()), layoutB = LayoutOf(b.Handle());
    const bool deep = Deep(layoutA) || Deep(layoutB);
    const bool gray = layoutA.Gray() && layoutB.Gray();
    const bool opacity = layoutA.Opacity() || layoutB.Opacity();
    const int count = gray ? 1 : opacity ? kChannels : 3;
    const Layout common{deep ? 64 : 32, T_ORDER_BGR, {}};
    const int32_t width = a.Handle().Width, height = a.Handle().Height;
    const uint32_t peak = deep ? 65535 : 255;
    const auto tolerance = static_cast<uint32_t>(tolerance_);
    RowConverter fromA(layoutA, common, width), fromB(layoutB, common, width);
    Comparison comparison;
    {
      Progress progress(console, first_, static_cast<uint64_t>(height), "comparing");
      for (int32_t row = 0; row < height; ++row) {
        a.GetRow(row, fromA.Line());
        b.GetRow(row, fromB.Line());
        fromA.Convert(first_);
        fromB.Convert(second_);
        (deep ? CompareRows<uint16_t> : CompareRows<uint8_t>)(fromA.Line(), fromB.Line(), width, count, tolerance,
                                                              comparison);
        progress.Step();
      }
    }
    Report(comparison, static_cast<uint64_t>(width) * static_cast<uint64_t>(height), peak, count);
    return comparison.beyond == 0;
  }

  void Report(const Comparison& comparison, uint64_t pixels, uint32_t peak, int channels) const {
    std::printf("  channel   max error   mean error      PSNR dB    (of %u)\n", peak);
    Errors all;
    const auto line = [&](const char* name, size_t channel) {
      PrintErrors(name, comparison.channels[channel], pixels, peak);
      all.Add(comparison.channels[channel]);
    };
    if (channels == 1) {
      line("gray", 0);
    } else {
      line("red", 2);
      line("green", 1);
      line("blue", 0);
      if (channels == kChannels) line("opacity", 3);
    }
    PrintErrors("all", all, pixels * static_cast<uint64_t>(channels), peak);
    const auto share = [&](uint64_t part) { return 100 * static_cast<double>(part) / static_cast<double>(pixels); };
    std::printf("  %llu of %llu pixels differ (%.4g %%)", static_cast<unsigned long long>(comparison.differing),
                static_cast<unsigned long long>(pixels), share(comparison.differing));
    if (tolerance_ > 0) {
      std::printf(", %llu by more than %d", static_cast<unsigned long long>(comparison.beyond), tolerance_);
    }
    std::printf("\n");
    FinishOutput();
  }

  std::string first_;
  std::string second_;
  int tolerance_ = 0;
  int secondPage_ = 0;
  ReadOptions reading_;
};

}  // namespace

std::unique_ptr<Command> MakeDiff() { return std::make_unique<DiffCommand>(); }

}  // namespace tarn::tool
