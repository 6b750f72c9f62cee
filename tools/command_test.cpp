// What the commands make of pictures, against slow rules of the test's own.

#include <png.h>
#include <tiffio.h>

#include <array>
#include <cmath>
#include <map>

#include "test_pictures.h"
#include "test_tool.h"

namespace tarn::test {
namespace {

using Samples = std::array<uint16_t, 4>;  // red, green, blue, opacity of 16 bits

/// Every pixel by a rule.
Pixels Mapped(const Pixels& from, const std::function<Samples(const Samples&)>& rule) {
  Pixels to = from;
  for (size_t i = 0; i < from.samples.size(); i += 4) {
    const uint16_t* const s = from.samples.data() + i;
    const Samples made = rule({s[0], s[1], s[2], s[3]});
    std::copy(made.begin(), made.end(), to.samples.begin() + static_cast<ptrdiff_t>(i));
  }
  return to;
}

uint16_t Gray8(const Samples& s) {  // of 8-bit samples that were widened
  return static_cast<uint16_t>(((s[1] >> 8) * 5 + (s[0] >> 8) * 2 + (s[2] >> 8) + 4) >> 3);
}

Samples GrayOf(unsigned level) {
  const auto v = static_cast<uint16_t>(level);
  return {v, v, v, 65535};
}

// ---- convert -------------------------------------------------------------------------------------------------------

TEST_F(Tool, ConvertMakesTheDepthAskedForInEveryStorage) {
  const auto levels = [](int bits) {
    return [bits](const Samples& s) {
      const unsigned most = (1u << bits) - 1;
      return GrayOf((Gray8(s) >> (8 - bits)) * 255 / most * 257);
    };
  };
  const auto same = [](const Samples& s) { return s; };
  const auto five = [](const Samples& s) {
    Samples to = s;
    for (int c = 0; c < 3; ++c) to[c] = static_cast<uint16_t>(((s[c] >> 11 << 3) | (s[c] >> 13)) * 257);
    return to;
  };
  const auto wide = [](const Samples& s) { return GrayOf(Gray8(s) * 257u); };
  const auto twelve = [](const Samples& s) { return GrayOf(Gray8(s) * 4095u / 255u * 65535u / 4095u); };
  struct Case {
    Words options;
    const char* becomes;
    std::function<Samples(const Samples&)> rule;
  };
  const Case cases[] = {
      {{"--gray", "--bits", "1"}, "gray 1", levels(1)},
      {{"--order", "gray", "--bits", "2"}, "gray 2", levels(2)},
      {{"--gray", "--bits", "3"}, "gray 8", levels(3)},
      {{"--gray", "--bits", "4"}, "gray 4", levels(4)},
      {{"--gray", "--bits", "7"}, "gray 8", levels(7)},
      {{"--gray"}, "gray 8", wide},
      {{"--order", "gray"}, "gray 8", wide},
      {{"--bits", "12"}, "gray 16", twelve},
      {{"--bits", "16", "--gray"}, "gray 16", wide},
      {{"--bits", "32", "--gray"}, "gray 16", wide},
      {{"--bits", "16"}, "colour 8", five},
      {{"--bits", "16", "--order", "rgb"}, "colour 8", five},
      {{"--bits", "24", "--order", "rgb"}, "colour 8", same},
      {{"--order", "rgb"}, "colour 8", same},
      {{"--bits", "32"}, "colour+opacity 8", same},
      {{"--bits", "32", "--order", "rgb"}, "colour+opacity 8", same},
      {{"--bits", "48"}, "colour 16", same},
      {{"--bits", "48", "--order", "rgb"}, "colour 16", same},
      {{"--bits", "64"}, "colour+opacity 16", same},
      {{"--bits", "64", "--order", "bgr"}, "colour+opacity 16", same},
  };
  const Pixels source = MakePng(In("a.png"), 37, 23, {PNG_COLOR_TYPE_RGB, 8, false, false});
  for (const Case& c : cases) {
    const Pixels truth = Mapped(source, c.rule);
    Words kinds = {"auto", "tiled", "disk"};
    if (c.options.back() == "1") kinds.push_back("compressed");
    for (const std::string& kind : kinds) {
      SCOPED_TRACE(testing::PrintToString(c.options) + ", " + kind);
      const Ended ended = Run(With(With({"convert", In("a.png"), Out("a.png")}, c.options), StorageOptions(kind)));
      ASSERT_EQ(ended.code, 0) << ended;
      std::string what;
      EXPECT_TRUE(DecodePng(Out("a.png"), &what) == truth);
      EXPECT_EQ(what, c.becomes);
    }
    // The file keeps all of the bitmap: the same options make the same bitmap of it.
    ASSERT_EQ(Run(With({"convert", Out("a.png"), Out("b.png")}, c.options)).code, 0);
    EXPECT_TRUE(DecodePng(Out("b.png")) == truth) << testing::PrintToString(c.options);
  }
}

TEST_F(Tool, ConvertKeepsWhatItCan) {
  struct Case {
    PngKind kind;
    Words options;
    const char* becomes;
  };
  // Depths that lose nothing: every pixel shows what it showed.
  const Case cases[] = {
      {{PNG_COLOR_TYPE_GRAY, 1, false, false}, {"--bits", "4"}, "gray 4"},
      {{PNG_COLOR_TYPE_GRAY, 4, false, false}, {"--bits", "8"}, "gray 8"},
      {{PNG_COLOR_TYPE_GRAY, 4, false, false}, {"--bits", "16"}, "gray 16"},
      {{PNG_COLOR_TYPE_GRAY, 8, false, false}, {"--bits", "24"}, "colour 8"},
      {{PNG_COLOR_TYPE_GRAY, 16, false, false}, {"--bits", "48"}, "colour 16"},
      {{PNG_COLOR_TYPE_GRAY, 16, false, false}, {"--bits", "32", "--gray"}, "gray 16"},
      {{PNG_COLOR_TYPE_PALETTE, 1, false, false}, {"--bits", "3"}, "palette 4"},
      {{PNG_COLOR_TYPE_PALETTE, 2, false, false}, {"--bits", "3"}, "palette 4"},
      {{PNG_COLOR_TYPE_PALETTE, 4, false, false}, {"--bits", "5"}, "palette 8"},
      {{PNG_COLOR_TYPE_PALETTE, 4, false, false}, {"--bits", "7"}, "palette 8"},
      {{PNG_COLOR_TYPE_PALETTE, 8, false, false}, {"--bits", "32"}, "colour+opacity 8"},
      {{PNG_COLOR_TYPE_RGB_ALPHA, 8, false, false}, {"--bits", "64"}, "colour+opacity 16"},
      {{PNG_COLOR_TYPE_RGB_ALPHA, 16, false, false}, {"--order", "rgb"}, "colour+opacity 16"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.options) + " from type " + std::to_string(c.kind.type));
    const Pixels truth = MakePng(In("a.png"), 41, 11, c.kind);
    const Ended ended = Run(With({"convert", In("a.png"), Out("a.png")}, c.options));
    ASSERT_EQ(ended.code, 0) << ended;
    std::string what;
    EXPECT_TRUE(DecodePng(Out("a.png"), &what) == truth);
    EXPECT_EQ(what, c.becomes);
  }
  // 16-bit samples keep their upper bytes, opacity its own.
  const Pixels deep = MakePng(In("a.png"), 41, 11, {PNG_COLOR_TYPE_RGB_ALPHA, 16, false, false});
  ASSERT_EQ(Run({"convert", In("a.png"), Out("a.png"), "--bits", "32"}).code, 0);
  EXPECT_TRUE(DecodePng(Out("a.png")) == Mapped(deep, [](Samples s) {
                for (uint16_t& v : s) v = static_cast<uint16_t>((v >> 8) * 257);
                return s;
              }));
}

TEST_F(Tool, ConvertTakesTheNearestColourOfAPalette) {
  const Pixels source = MakePng(In("a.png"), 50, 40, {PNG_COLOR_TYPE_RGB, 8, false, false});
  MakePng(In("colours.png"), 16, 16, {PNG_COLOR_TYPE_PALETTE, 4, false, false});
  Store(In("five.txt"), "; five\r\n#ff0000\n\n 1  #00FF00\n2 #102030\n#fefefe\n4 #8040c0");
  struct Case {
    const char* palette;
    const char* bits;  // empty: not told
    const char* becomes;
    size_t most;  // colours
  };
  const Case cases[] = {{"five.txt", "", "palette 4", 5},      {"five.txt", "3", "palette 4", 5},
                        {"five.txt", "8", "palette 8", 5},     {"colours.png", "", "palette 4", 16},
                        {"colours.png", "6", "palette 8", 16}, {"web", "", "palette 8", 216},
                        {"fixed", "", "palette 8", 256},       {"fixed", "4", "palette 4", 16}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.palette) + " of " + c.bits + " bits");
    const std::string name = std::string(c.palette).find('.') == std::string::npos ? c.palette : In(c.palette);
    Words words = {"convert", In("a.png"), Out("a.png"), "--palette", name};
    if (*c.bits) words = With(words, {"--bits", c.bits});
    const Ended ended = Run(words);
    ASSERT_EQ(ended.code, 0) << ended;
    std::string what;
    const Pixels made = DecodePng(Out("a.png"), &what);
    EXPECT_EQ(what, c.becomes);
    const std::vector<Samples> colours = PngPalette(Out("a.png"));
    EXPECT_LE(std::set<Samples>(colours.begin(), colours.end()).size(), c.most);
    if (std::string(c.palette) == "five.txt") {
      const std::set<Samples> five = {{65535, 0, 0, 65535},
                                      {0, 65535, 0, 65535},
                                      {0x1010, 0x2020, 0x3030, 65535},
                                      {0xFEFE, 0xFEFE, 0xFEFE, 65535},
                                      {0x8080, 0x4040, 0xC0C0, 65535}};
      EXPECT_EQ(std::set<Samples>(colours.begin(), colours.end()), five);
    }
    const auto distance = [](const uint16_t* a, const uint16_t* b) {
      int sum = 0;
      for (int i = 0; i < 3; ++i) sum += ((a[i] >> 8) - (b[i] >> 8)) * ((a[i] >> 8) - (b[i] >> 8));
      return sum;
    };
    for (size_t i = 0; i < made.samples.size(); i += 4) {
      int nearest = 1 << 30;
      for (const Samples& colour : colours) {
        nearest = std::min(nearest, distance(source.samples.data() + i, colour.data()));
      }
      ASSERT_EQ(distance(source.samples.data() + i, made.samples.data() + i), nearest) << "pixel " << i / 4;
    }
  }
}

TEST_F(Tool, ConvertRefusesWhatDoesNotGoTogether) {
  MakePng(In("rgb.png"), 9, 9, {PNG_COLOR_TYPE_RGB, 8, false, false});
  MakePng(In("gray.png"), 9, 9, {PNG_COLOR_TYPE_GRAY, 8, false, false});
  MakePng(In("palette.png"), 9, 9, {PNG_COLOR_TYPE_PALETTE, 4, false, false});
  Store(In("bad.txt"), "#102030\n#10203\n");
  Store(In("none.txt"), "; nothing\n");
  std::string many;
  for (int i = 0; i < 257; ++i) many += "#000000\n";
  Store(In("many.txt"), many);
  const std::string rgb = In("rgb.png");
  struct Case {
    Words words;
    int code;
    const char* text;
  };
  const Case cases[] = {
      {{rgb, Out("a.png"), "--bits", "9"}, 1, "--bits takes"},
      {{rgb, Out("a.png"), "--bits", "65"}, 1, "--bits"},
      {{rgb, Out("a.png"), "--order", "cmyk"}, 1, "'cmyk' is not one of rgb, bgr, gray"},
      {{rgb, Out("a.png"), "--gray", "--bits", "24"}, 1, "gray goes with"},
      {{rgb, Out("a.png"), "--gray", "--order", "bgr"}, 1, "exclude each other"},
      {{rgb, Out("a.png"), "--bits", "8", "--order", "bgr"}, 1, "--order rgb and bgr go with"},
      {{In("gray.png"), Out("a.png"), "--order", "bgr"}, 1, "gray.png: is 8-bit gray; --order"},
      {{rgb, Out("a.png"), "--palette", "web", "--bits", "7"}, 1, "216 colours; --bits 7 holds 128"},
      {{rgb, Out("a.png"), "--palette", "web", "--gray"}, 1, "--palette goes with neither"},
      {{rgb, Out("a.png"), "--palette", "web", "--bits", "24"}, 1, "--palette goes with --bits"},
      {{rgb, Out("a.png"), "--palette", In("palette.png"), "--bits", "3"}, 1, "palette.png: has 16 colours; --bits 3"},
      {{rgb, Out("a.png"), "--palette", In("missing.txt")}, 2, "missing.txt: cannot open"},
      {{rgb, Out("a.png"), "--palette", In("bad.txt")}, 3, "bad.txt: line 2 is not a colour"},
      {{rgb, Out("a.png"), "--palette", In("none.txt")}, 3, "none.txt: has no colours"},
      {{rgb, Out("a.png"), "--palette", In("many.txt")}, 3, "many.txt: has more than 256 colours"},
      {{rgb, Out("a.png"), "--palette", rgb}, 4, "rgb.png: has no palette, it is 24-bit colour"},
      {{rgb, Out("a.jpg"), "--bits", "48"}, 4, "a.jpg: JPEG cannot hold 48-bit colour"},
      {{rgb, Out("a.jpg"), "--bits", "3"}, 4, "a.jpg: JPEG cannot hold 4-bit palette"},
      {{rgb, Out("a.png"), "--gray", "--storage", "compressed"}, 4, "compressed storage holds 1-bit pictures only"},
  };
  for (const Case& c : cases) {
    const Ended ended = Run(With({"convert"}, c.words));
    EXPECT_EQ(ended.code, c.code) << c.text << '\n' << ended;
    EXPECT_TRUE(OneLine(ended, c.text)) << c.text << '\n' << ended;
    EXPECT_TRUE(OutFiles().empty()) << c.text;
  }
}

// ---- colors --------------------------------------------------------------------------------------------------------

std::set<Samples> ColoursOf(const Pixels& picture) {
  std::set<Samples> colours;
  for (size_t i = 0; i < picture.samples.size(); i += 4) {
    const uint16_t* const s = picture.samples.data() + i;
    colours.insert({s[0], s[1], s[2], s[3]});
  }
  return colours;
}

/// The mean of every channel over the picture, 0 to 255.
std::array<double, 3> MeansOf(const Pixels& picture) {
  std::array<double, 3> means{};
  for (size_t i = 0; i < picture.samples.size(); ++i) {
    if (i % 4 < 3) means[i % 4] += picture.samples[i] / 257.0 * 4 / static_cast<double>(picture.samples.size());
  }
  return means;
}

TEST_F(Tool, ColorsTakesOnlyColoursOfItsPaletteInEveryStorage) {
  const Pixels source = MakePng(In("a.png"), 97, 60, {PNG_COLOR_TYPE_RGB, 8, false, false});
  Store(In("eight.txt"), "#000000\n#ff0000\n#00ff00\n#0000ff\n#ffff00\n#ff00ff\n#00ffff\n#ffffff\n");
  const std::set<Samples> corners = [] {
    std::set<Samples> all;
    for (int i = 0; i < 8; ++i) {
      const auto at = [i](int bit) { return static_cast<uint16_t>(i >> bit & 1 ? 65535 : 0); };
      all.insert({at(0), at(1), at(2), 65535});
    }
    return all;
  }();
  struct Case {
    Words options;
    const char* becomes;
    size_t most;  // colours
    bool corners;
  };
  const Case cases[] = {
      {{}, "palette 8", 256, false},
      {{"--colors", "5"}, "palette 4", 5, false},
      {{"--colors", "5", "--bits", "3"}, "palette 4", 5, false},
      {{"--bits", "1", "--colors", "1"}, "palette 1", 1, false},
      {{"--bits", "7", "--dither", "none"}, "palette 8", 128, false},
      {{"--palette", "web", "--dither", "ordered"}, "palette 8", 216, false},
      {{"--palette", "fixed"}, "palette 8", 256, false},
      {{"--palette", "fixed", "--bits", "4", "--dither", "jarvis"}, "palette 4", 16, false},
      {{"--palette", In("eight.txt"), "--dither", "stucki"}, "palette 4", 8, true},
      {{"--palette", In("eight.txt"), "--bits", "3"}, "palette 4", 8, true},
      {{"--palette", "fixed", "--bits", "1"}, "gray 1", 2, false},
  };
  for (const Case& c : cases) {
    std::map<std::string, Pixels> made;
    Words kinds = {"auto", "tiled", "limited", "disk"};
    if (std::string(c.becomes) == "gray 1") kinds.push_back("compressed");
    for (const std::string& kind : kinds) {
      SCOPED_TRACE(testing::PrintToString(c.options) + ", " + kind);
      const Ended ended = Run(With(With({"colors", In("a.png"), Out("a.png")}, c.options), StorageOptions(kind)));
      ASSERT_EQ(ended.code, 0) << ended;
      EXPECT_EQ(ended.err, "");
      std::string what;
      made[kind] = DecodePng(Out("a.png"), &what);
      EXPECT_EQ(what, c.becomes);
      EXPECT_TRUE(made[kind] == made["auto"]);
    }
    const std::set<Samples> colours = ColoursOf(made["auto"]);
    EXPECT_LE(colours.size(), c.most);
    EXPECT_TRUE(!c.corners || std::includes(corners.begin(), corners.end(), colours.begin(), colours.end()));
    EXPECT_EQ(Run({"count-colors", Out("a.png")}).out, std::to_string(colours.size()) + "\n");
  }
}

TEST_F(Tool, ColorsDithersByTheMethodAskedFor) {
  // A flat gray that neither black nor white shows: dithering keeps its mean, the nearest colour does not.
  Store(In("flat.txt"), "#606060\n");
  MakePng(In("rgb.png"), 120, 90, {PNG_COLOR_TYPE_RGB, 8, false, false});
  ASSERT_EQ(Run({"convert", In("rgb.png"), In("flat.png"), "--palette", In("flat.txt")}).code, 0);
  std::set<std::vector<uint16_t>> results;
  for (const char* method :
       {"none", "floyd-steinberg", "stucki", "burkes", "sierra", "stevenson-arce", "jarvis", "ordered", "clustered"}) {
    SCOPED_TRACE(method);
    const Words words = {"--palette", "fixed", "--bits", "1", "--dither", method};
    const Ended ended = Run(With({"colors", In("flat.png"), Out("a.png")}, words));
    ASSERT_EQ(ended.code, 0) << ended;
    const Pixels made = DecodePng(Out("a.png"));
    EXPECT_TRUE(results.insert(made.samples).second) << "the same as another method";
    const double expected = std::string(method) == "none" ? 0 : 0x60;
    for (const double mean : MeansOf(made)) EXPECT_NEAR(mean, expected, expected == 0 ? 0 : 6);
  }
  // Without a word, Floyd and Steinberg's.
  ASSERT_EQ(Run({"colors", In("flat.png"), Out("b.png"), "--palette", "fixed", "--bits", "1"}).code, 0);
  ASSERT_EQ(
      Run({"colors", In("flat.png"), Out("a.png"), "--palette", "fixed", "--bits", "1", "--dither", "floyd-steinberg"})
          .code,
      0);
  EXPECT_TRUE(DecodePng(Out("a.png")) == DecodePng(Out("b.png")));
}

TEST_F(Tool, ColorsKeepsAPictureThatHasFewEnough) {
  const PngKind kinds[] = {{PNG_COLOR_TYPE_PALETTE, 4, false, false}, {PNG_COLOR_TYPE_GRAY, 4, false, false}};
  for (const PngKind& kind : kinds) {
    const Pixels truth = MakePng(In("a.png"), 41, 19, kind, {200, 6, ""});
    ASSERT_EQ(Run({"convert", In("a.png"), In("rgb.png"), "--bits", "24"}).code, 0);
    for (const char* name : {"a.png", "rgb.png"}) {
      const Ended ended = Run({"colors", In(name), Out("a.png"), "--bits", "4"});
      ASSERT_EQ(ended.code, 0) << ended;
      Meta meta;
      EXPECT_TRUE(DecodePng(Out("a.png"), nullptr, &meta) == truth) << name;
      EXPECT_EQ(meta, (Meta{200, 6, ""}));
      EXPECT_EQ(Run({"count-colors", In(name)}).out, std::to_string(ColoursOf(truth).size()) + "\n");
    }
  }
}

// ---- crop and pixel ------------------------------------------------------------------------------------------------

TEST_F(Tool, CropTakesWhatIsSeenAndZeroBeyond) {
  struct Case {
    PngKind kind;
    Samples zero;
  };
  const Case cases[] = {{{PNG_COLOR_TYPE_GRAY, 1, false, false}, {0, 0, 0, 65535}},
                        {{PNG_COLOR_TYPE_GRAY, 16, false, false}, {0, 0, 0, 65535}},
                        {{PNG_COLOR_TYPE_PALETTE, 4, false, false}, {11 * 257, 60 * 257, 200 * 257, 65535}},
                        {{PNG_COLOR_TYPE_RGB, 8, false, false}, {0, 0, 0, 65535}},
                        {{PNG_COLOR_TYPE_RGB_ALPHA, 16, false, false}, {0, 0, 0, 0}}};
  const std::array<int, 4> areas[] = {
      {3, 5, 17, 11}, {0, 0, 1, 1}, {-4, -3, 9, 60}, {30, 10, 50, 50}, {100, -100, 7, 3}};
  for (const Case& c : cases) {
    for (const int orientation : {1, 2, 3, 4, 5, 6, 7, 8}) {
      if (c.kind.type != PNG_COLOR_TYPE_RGB && orientation % 5 != 1) continue;
      Pixels seen = Seen(MakePng(In("a.png"), 37, 23, c.kind, {96, orientation, ""}), orientation);
      for (const auto& [left, top, width, height] : areas) {
        const std::string text = std::to_string(left) + "," + std::to_string(top) + "," + std::to_string(width) + "x" +
                                 std::to_string(height);
        SCOPED_TRACE(text + ", depth " + std::to_string(c.kind.depth) + ", orientation " + std::to_string(orientation));
        Pixels truth{width, height, {}};
        for (int y = top; y < top + height; ++y) {
          for (int x = left; x < left + width; ++x) {
            const bool inside = x >= 0 && y >= 0 && x < seen.width && y < seen.height;
            const uint16_t* const pixel = inside ? seen.At(x, y) : c.zero.data();
            truth.samples.insert(truth.samples.end(), pixel, pixel + 4);
          }
        }
        const char* const storage = c.kind.depth == 1 && left == 3 ? "compressed" : top < 0 ? "tiled" : "auto";
        const Ended ended = Run(With({"crop", In("a.png"), Out("a.png"), text}, StorageOptions(storage)));
        ASSERT_EQ(ended.code, 0) << ended;
        Meta meta;
        const Pixels cropped = DecodePng(Out("a.png"), nullptr, &meta);
        EXPECT_EQ(meta, (Meta{96, orientation, ""}));
        EXPECT_TRUE(Seen(cropped, orientation) == truth);
      }
    }
  }
}

TEST_F(Tool, PixelsAreToldAndSetWhereTheyAreSeen) {
  struct Case {
    PngKind kind;
    const char* colour;  // to set
    Samples becomes;
    const char* told;
  };
  const Case cases[] = {
      {{PNG_COLOR_TYPE_RGB, 8, false, false}, "#0a141E", {2570, 5140, 7710, 65535}, "#0a141e\n"},
      {{PNG_COLOR_TYPE_RGB, 8, false, false}, "gray:4660", {0x1212, 0x1212, 0x1212, 65535}, "#121212\n"},
      {{PNG_COLOR_TYPE_GRAY, 16, false, false}, "gray:4660", {4660, 4660, 4660, 65535}, "gray:4660\n"},
      {{PNG_COLOR_TYPE_GRAY, 1, false, false}, "#fffffe", {65535, 65535, 65535, 65535}, "#ffffff\n"},
      {{PNG_COLOR_TYPE_PALETTE, 4, false, false}, "#0b3cc8", {2827, 15420, 51400, 65535}, "#0b3cc8\n"},
  };
  for (const Case& c : cases) {
    for (const int orientation : {1, 6, 7}) {
      SCOPED_TRACE(std::string(c.colour) + ", orientation " + std::to_string(orientation));
      Pixels truth = Seen(MakePng(In("a.png"), 19, 13, c.kind, {0, orientation, ""}), orientation);
      const Ended ended = Run({"pixel", In("a.png"), "3,11", Out("a.png"), "--set", c.colour, "--storage", "disk"});
      ASSERT_EQ(ended.code, 0) << ended;
      std::copy(c.becomes.begin(), c.becomes.end(), truth.At(3, 11));
      EXPECT_TRUE(Seen(DecodePng(Out("a.png")), orientation) == truth);
      EXPECT_EQ(Run({"pixel", Out("a.png"), "3,11"}).out, c.told);
    }
  }
}

// ---- palette -------------------------------------------------------------------------------------------------------

TEST_F(Tool, PaletteIsListedShownAndReadAgain) {
  MakePng(In("a.png"), 9, 9, {PNG_COLOR_TYPE_PALETTE, 4, false, false});
  const Ended ended = Run({"palette", In("a.png"), "--swatch", Out("swatch.png")});
  ASSERT_EQ(ended.code, 0) << ended;
  std::string list = "; 16 colours, 4 bits a pixel, gray class 0: colours\n";
  const std::vector<Samples> colours = PngPalette(In("a.png"));
  Pixels swatch = DecodePng(Out("swatch.png"));
  ASSERT_EQ(swatch.width, 16 * 32);
  ASSERT_EQ(swatch.height, 32);
  for (int i = 0; i < 16; ++i) {
    const Samples& colour = colours[static_cast<size_t>(i)];
    char line[32];
    std::snprintf(line, sizeof line, "%3d #%02x%02x%02x\n", i, colour[0] >> 8, colour[1] >> 8, colour[2] >> 8);
    list += line;
    for (const int x : {32 * i, 32 * i + 31}) EXPECT_TRUE(std::equal(colour.begin(), colour.end(), swatch.At(x, 31)));
  }
  EXPECT_EQ(ended.out, list);
  // The list is a palette file.
  Store(In("list.txt"), ended.out);
  MakePng(In("rgb.png"), 9, 9, {PNG_COLOR_TYPE_RGB, 8, false, false});
  ASSERT_EQ(Run({"convert", In("rgb.png"), Out("b.png"), "--palette", In("list.txt")}).code, 0);
  EXPECT_EQ(PngPalette(Out("b.png")), colours);
  // Gray of both directions.
  MakeTiff(In("white.tif"), 9, 9, {PHOTOMETRIC_MINISWHITE, 4, 1, COMPRESSION_NONE});
  EXPECT_TRUE(Run({"palette", In("white.tif")}).out.starts_with("; 16 colours, 4 bits a pixel, gray class 2: "));
  MakePng(In("black.png"), 9, 9, {PNG_COLOR_TYPE_GRAY, 1, false, false});
  EXPECT_EQ(Run({"palette", In("black.png")}).out,
            "; 2 colours, 1 bit a pixel, gray class 1: ramp from black\n  0 #000000\n  1 #ffffff\n");
}

// ---- diff ----------------------------------------------------------------------------------------------------------

TEST_F(Tool, DiffMeasuresAndAnswersByItsCode) {
  MakePng(In("a.png"), 10, 10, {PNG_COLOR_TYPE_RGB, 8, false, false});
  ASSERT_EQ(Run({"pixel", In("a.png"), "2,3", In("a.png"), "--set", "#646464"}).code, 0);
  ASSERT_EQ(Run({"pixel", In("a.png"), "2,3", In("b.png"), "--set", "#656360"}).code, 0);  // +1, -1, -4
  ASSERT_EQ(Run({"pixel", In("a.png"), "9,9", In("a.png"), "--set", "#000000"}).code, 0);
  ASSERT_EQ(Run({"pixel", In("b.png"), "9,9", In("b.png"), "--set", "#030000"}).code, 0);
  const std::string table =
      "  channel   max error   mean error      PSNR dB    (of 255)\n"
      "  red               3       0.0400        58.13\n"   // squares 1 + 9 of 100
      "  green             1       0.0100        68.13\n"   // 1
      "  blue              4       0.0400        56.09\n"   // 16
      "  all               4       0.0300        58.59\n";  // 27 of 300
  const Ended ended = Run({"diff", In("a.png"), In("b.png")});
  EXPECT_EQ(ended.code, 8);
  EXPECT_EQ(ended.err, "");
  EXPECT_EQ(ended.out, table + "  2 of 100 pixels differ (2 %)\n");
  const Ended three = Run({"diff", In("a.png"), In("b.png"), "--max-error", "3"});
  EXPECT_EQ(three.code, 8);
  EXPECT_EQ(three.out, table + "  2 of 100 pixels differ (2 %), 1 by more than 3\n");
  EXPECT_EQ(Run({"diff", In("a.png"), In("b.png"), "--max-error", "4"}).code, 0);
}

TEST_F(Tool, DiffBringsPicturesToOneFormat) {
  MakePng(In("rgb.png"), 21, 17, {PNG_COLOR_TYPE_RGB, 8, false, false});
  MakePng(In("gray.png"), 21, 17, {PNG_COLOR_TYPE_GRAY, 8, false, false});
  for (const auto& [from, bits] : {std::pair{"rgb.png", "32"},
                                   {"rgb.png", "48"},
                                   {"rgb.png", "64"},
                                   {"gray.png", "16"},
                                   {"gray.png", "24"},
                                   {"gray.png", "48"}}) {
    ASSERT_EQ(Run({"convert", In(from), Out("a.tif"), "--bits", bits}).code, 0);
    const Ended ended = Run({"diff", In(from), Out("a.tif"), "--storage", "tiled", "--tile-size", "200"});
    EXPECT_EQ(ended.code, 0) << from << ' ' << bits << '\n' << ended;
    EXPECT_NE(ended.out.find("0 of 357 pixels differ (0 %)"), std::string::npos) << ended.out;
  }
  // A difference in opacity alone, and one below the upper byte of deep samples.
  Pixels clear = MakePng(In("clear.png"), 21, 17, {PNG_COLOR_TYPE_RGB_ALPHA, 8, false, false});
  ASSERT_EQ(Run({"convert", In("clear.png"), Out("opaque.png"), "--bits", "24"}).code, 0);
  const Ended opacity = Run({"diff", In("clear.png"), Out("opaque.png")});
  EXPECT_EQ(opacity.code, 8);
  EXPECT_NE(opacity.out.find("  blue              0       0.0000          inf\n  opacity "), std::string::npos);
  MakePng(In("deep.png"), 5, 5, {PNG_COLOR_TYPE_GRAY, 16, false, false});
  ASSERT_EQ(Run({"pixel", In("deep.png"), "1,1", In("deep.png"), "--set", "gray:4096"}).code, 0);
  ASSERT_EQ(Run({"pixel", In("deep.png"), "1,1", Out("deep.png"), "--set", "gray:4099"}).code, 0);
  const Ended deep = Run({"diff", In("deep.png"), Out("deep.png")});
  EXPECT_EQ(deep.code, 8);
  EXPECT_NE(deep.out.find("  gray              3       0.1200 "), std::string::npos) << deep.out;
}

// ---- Refusals ------------------------------------------------------------------------------------------------------

TEST_F(Tool, CommandsRefuseInOneLine) {
  MakePng(In("a.png"), 9, 7, {PNG_COLOR_TYPE_RGB, 8, false, false});
  MakePng(In("b.png"), 7, 9, {PNG_COLOR_TYPE_RGB, 8, false, false});
  MakePng(In("turned.png"), 9, 7, {PNG_COLOR_TYPE_RGB, 8, false, false}, {0, 6, ""});
  MakePng(In("p.png"), 9, 7, {PNG_COLOR_TYPE_PALETTE, 4, false, false});
  const std::string a = In("a.png"), out = Out("a.png");
  struct Case {
    Words words;
    int code;
    const char* text;
  };
  const Case cases[] = {
      {{"crop", a, out}, 1, "X,Y,WxH is missing"},
      {{"crop", a, out, "1,2,3"}, 1, "'1,2,3' is not a rectangle"},
      {{"crop", a, out, "1,2,0x3"}, 1, "is not a rectangle"},
      {{"crop", a, out, "1,2,3x4x"}, 1, "is not a rectangle"},
      {{"crop", a, out, "1,2,3000000000x4"}, 1, "is not a rectangle"},
      {{"crop", a, out, "1,2,2000000000x2000000000"}, 4, "at most 4294901760 bytes"},
      {{"crop", In("turned.png"), out, "2147483647,-2147483647,9x9"}, 1, "too far away"},
      {{"crop", In("turned.png"), out, "-2147483647,0,9x9"}, 0, nullptr},
      {{"crop", a, Out("a.jpg"), "0,0,65501x1"}, 4, "more than 65500 rows or columns"},
      {{"pixel", a, "9,0"}, 1, "a.png: has no pixel 9,0, it is 9 x 7"},
      {{"pixel", In("turned.png"), "0,9"}, 1, "has no pixel 0,9, it is 7 x 9"},
      {{"pixel", a, "-1,0", out, "--set", "#000000"}, 1, "has no pixel -1,0"},
      {{"pixel", a, "1"}, 1, "'1' is not a place"},
      {{"pixel", a, "1,1", "--set", "#000000"}, 1, "--set and OUT go together"},
      {{"pixel", a, "1,1", out}, 1, "--set and OUT go together"},
      {{"pixel", a, "1,1", out, "--set", "gray:65536"}, 1, "is not a colour"},
      {{"pixel", a, "1,1", out, "--set", "red"}, 1, "is not a colour"},
      {{"palette", a}, 4, "a.png: has no palette, it is 24-bit colour"},
      {{"palette", In("p.png"), "--swatch", Out("a.gif")}, 1, "names no format"},
      {{"palette", In("p.png"), "--swatch", Out("a.jpg")}, 4, "JPEG cannot hold 4-bit palette"},
      {{"colors", a, out, "--bits", "9"}, 1, "--bits"},
      {{"colors", a, out, "--bits", "3", "--colors", "9"}, 1, "--bits 3 holds 8 colours"},
      {{"colors", a, out, "--colors", "8", "--palette", "web"}, 1, "--colors goes with an optimized palette"},
      {{"colors", a, out, "--palette", "web", "--bits", "4"}, 1, "the web palette goes with --bits 8"},
      {{"colors", a, out, "--palette", In("p.png"), "--bits", "3"}, 1, "p.png: has 16 colours; --bits 3 holds 8"},
      {{"colors", a, out, "--palette", In("missing.txt")}, 2, "missing.txt: cannot open"},
      {{"colors", a, out, "--dither", "random"}, 1, "'random' is not one of none, floyd-steinberg"},
      {{"colors", a, Out("a.jpg")}, 4, "a.jpg: JPEG cannot hold 8-bit palette"},
      {{"colors", a, out, "--storage", "compressed"}, 4, "compressed storage holds 1-bit pictures only"},
      {{"count-colors", In("missing.png")}, 2, "missing.png: cannot open"},
      {{"diff", a, In("missing.png")}, 2, "missing.png: cannot open"},
      {{"diff", a, In("b.png")}, 8, "b.png: is 7 x 9 pixels, "},
      {{"diff", a, In("turned.png")}, 8, "turned.png: has orientation 6, "},
  };
  for (const Case& c : cases) {
    const Ended ended = Run(c.words);
    EXPECT_EQ(ended.code, c.code) << testing::PrintToString(c.words) << '\n' << ended;
    if (c.code == 0) {
      fs::remove(out);
    } else {
      EXPECT_TRUE(OneLine(ended, c.text)) << c.text << '\n' << ended;
      EXPECT_EQ(ended.out, "") << testing::PrintToString(c.words);
    }
    EXPECT_TRUE(OutFiles().empty()) << testing::PrintToString(c.words);
  }
}

TEST_F(Tool, CommandsSurviveRefusedMemoryAndFailingFiles) {
  MakePng(In("a.png"), 90, 70, {PNG_COLOR_TYPE_RGB, 8, false, false});
  MakePng(In("p.png"), 90, 70, {PNG_COLOR_TYPE_PALETTE, 4, false, false});
  MakePng(In("mask.png"), 45, 35, {PNG_COLOR_TYPE_GRAY, 8, false, false});
  const std::string a = In("a.png"), out = Out("a.png");
  const std::string pages = In("pages.tif"), tif = Out("a.tif");
  ASSERT_EQ(Run({"pages", "insert", a, "end", In("p.png"), pages}).code, 0);
  const Words commands[] = {
      {"pages", "insert", pages, "2", In("p.png"), tif, "--storage", "disk"},
      {"colors", pages, tif, "--bits", "4", "--storage", "tiled", "--tile-size", "4K"},
      {"convert", a, out, "--bits", "7", "--storage", "tiled", "--tile-size", "4K"},
      {"colors", a, out, "--bits", "4", "--storage", "tiled", "--tile-size", "4K"},
      {"crop", a, out, "-5,-5,50x50"},
      {"pixel", a, "1,1", out, "--set", "#000000"},
      {"palette", In("p.png"), "--swatch", out},
      {"run", a,    "--storage", "tiled", "--tile-size", "4K",    "--",           "resize", "50%",  "--", "rotate",
       "5",   "--", "deskew",    "--",    "alpha",       "--set", In("mask.png"), "--",     "trim", out},
      {"diff", a, In("p.png")}};
  for (const Words& words : commands) {
    const bool writes = words[0] != "diff";
    for (const bool memory : {true, false}) {
      if (memory ? kSanitized : !writes) continue;  // the sanitizer's allocator stays in charge
      int failed = 0;
      const long step = !memory ? 1 : words[0] == "run" ? 907 : 151;  // a chain has many
      for (long at = 1;; at += step) {
        SCOPED_TRACE(words[0] + ", " + (memory ? "allocation " : "file call ") + std::to_string(at));
        const Ended ended = RunFaulty(words, at, {memory ? "TARN_TEST_MEMORY=once" : "TARN_TEST_WHAT=28"});
        if (!FaultHappened()) break;
        EXPECT_EQ(ended.signal, 0) << ended;
        if (ended.code == 0 || (ended.code == 8 && !writes)) {  // done without
          fs::remove(out);
          fs::remove(tif);
          continue;
        }
        ++failed;
        EXPECT_EQ(ended.code, memory ? 6 : 5) << ended;
        EXPECT_TRUE(OneLine(ended, memory ? "memory" : "cannot")) << ended;
        EXPECT_TRUE(OutFiles().empty());
      }
      EXPECT_GT(failed, memory ? 1 : 3) << words[0];
      fs::remove(out);
      fs::remove(tif);
    }
  }
}

TEST_F(Tool, ProfilesGoOnlyWithPixelsOfTheirKind) {
  Meta meta;
  MakeTiff(In("a.tif"), 9, 9, {PHOTOMETRIC_RGB, 8, 3, COMPRESSION_NONE}, {300, 1, "a profile of colours"});
  ASSERT_EQ(Run({"convert", In("a.tif"), Out("a.tif"), "--bits", "48"}).code, 0);
  DecodeTiff(Out("a.tif"), nullptr, &meta);
  EXPECT_EQ(meta, (Meta{300, 1, "a profile of colours"}));
  ASSERT_EQ(Run({"convert", In("a.tif"), Out("a.tif"), "--gray"}).code, 0);
  meta = {};
  DecodeTiff(Out("a.tif"), nullptr, &meta);
  EXPECT_EQ(meta, (Meta{300, 1, ""}));
}

}  // namespace
}  // namespace tarn::test
