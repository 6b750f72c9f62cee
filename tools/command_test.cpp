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

}  // namespace
}  // namespace tarn::test
