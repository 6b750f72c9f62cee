// Filling, combining and scrambling pictures as they are seen.

#include <png.h>

#include "test_tool.h"

namespace tarn::test {
namespace {

constexpr PngKind kColour{PNG_COLOR_TYPE_RGB, 8, false, false};
constexpr PngKind kOpacity{PNG_COLOR_TYPE_RGB_ALPHA, 8, false, false};

TEST_F(Tool, FillCoversWhatIsSeen) {
  for (const PngKind& kind : {kColour, kOpacity, PngKind{PNG_COLOR_TYPE_GRAY, 16, false, false}}) {
    for (const int orientation : {1, 6, 7}) {
      Pixels truth = Seen(MakePng(In("a.png"), 21, 13, kind, {0, orientation, ""}), orientation);
      const Ended ended =
          Run({"fill", In("a.png"), Out("a.png"), "#808080", "--area", "-2,3,9x5", "--storage", "disk"});
      ASSERT_EQ(ended.code, 0) << ended;
      Pixels got = Seen(DecodePng(Out("a.png")), orientation);
      const uint16_t level = got.At(0, 3)[0];
      EXPECT_EQ(level >> 8, 0x80);
      for (int y = 3; y < 8; ++y)
        for (int x = 0; x < 7; ++x)
          for (int i = 0; i < 4; ++i) truth.At(x, y)[i] = i < 3 ? level : 65535;
      EXPECT_TRUE(got == truth) << kind.type << ", " << orientation;
    }
  }
  ASSERT_EQ(Run({"fill", In("a.png"), Out("b.png"), "gray:65535"}).code, 0);
  for (const uint16_t sample : DecodePng(Out("b.png")).samples) ASSERT_EQ(sample, 65535);
}

TEST_F(Tool, CombineLaysOneOnTheOther) {
  for (const int orientation : {1, 3, 6}) {
    for (const int other : {1, 8}) {
      const Pixels first = Seen(MakePng(In("a.png"), 40, 30, kColour, {0, orientation, ""}), orientation);
      const Pixels second = Seen(MakePng(In("b.png"), 12, 17, kOpacity, {0, other, ""}), other);
      struct Case {
        Words words;
        std::function<int(int d, int s, int a)> result;  // 8 bits
      };
      const Case cases[] = {
          {{}, [](int, int s, int) { return s; }},
          {{"--operation", "add"}, [](int d, int s, int) { return std::min(d + s, 255); }},
          {{"--operation", "xor", "--invert-result"}, [](int d, int s, int) { return 255 - (d ^ s); }},
          {{"--operation", "alpha"}, [](int d, int s, int a) { return (s * a + d * (255 - a) + 127) / 255; }}};
      for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << orientation << ", " << other << ", " << testing::PrintToString(c.words));
        Words words = {"combine", In("a.png"), Out("a.png"), In("b.png"), "--at", "-3,5", "--area", "1,2,9x9"};
        words.insert(words.end(), c.words.begin(), c.words.end());
        const Ended ended = Run(words);
        ASSERT_EQ(ended.code, 0) << ended;
        Pixels truth = first, lay = second;
        for (int y = 0; y < 9; ++y) {
          for (int x = 3; x < 9; ++x) {
            const uint16_t* const s = lay.At(1 + x, 2 + y);
            uint16_t* const d = truth.At(x - 3, 5 + y);
            for (int i = 0; i < 3; ++i)
              d[i] = static_cast<uint16_t>(257 * c.result(d[i] / 257, s[i] / 257, s[3] / 257));
          }
        }
        EXPECT_TRUE(Seen(DecodePng(Out("a.png")), orientation) == truth);
      }
    }
  }
}

TEST_F(Tool, OverlayPutsBitsAndTakesThemOut) {
  for (const int bits : {8, 16}) {
    for (const int orientation : {1, 6}) {
      SCOPED_TRACE(testing::Message() << bits << ", " << orientation);
      const PngKind gray{PNG_COLOR_TYPE_GRAY, bits, false, false};
      Pixels first = Seen(MakePng(In("a.png"), 21, 13, gray, {0, orientation, ""}), orientation);
      Pixels mask = MakePng(In("m.png"), 9, 6, PngKind{PNG_COLOR_TYPE_GRAY, 1, false, false});
      Ended ended = Run({"overlay", In("a.png"), Out("b.tif"), "--bit", "3", "--put", In("m.png"), "--at", "2,-1",
                         "--storage", "disk"});
      ASSERT_EQ(ended.code, 0) << ended;
      ended = Run({"overlay", Out("b.tif"), Out("c.png"), "--bit", "3", "--take"});
      ASSERT_EQ(ended.code, 0) << ended;
      Pixels put = Seen(DecodeTiff(Out("b.tif")), orientation), taken = Seen(DecodePng(Out("c.png")), orientation);
      ASSERT_EQ(taken.width, put.width);
      for (int y = 0; y < put.height; ++y) {
        for (int x = 0; x < put.width; ++x) {
          const bool under = x >= 2 && x < 11 && y < 5;
          const int shift = bits == 8 ? 11 : 3;  // samples are compared as 16 bits, those of 8 twice in them
          const int was = first.At(x, y)[0], now = put.At(x, y)[0];
          const int bit = under ? mask.At(x - 2, y + 1)[0] != 0 : was >> shift & 1;
          ASSERT_EQ(now >> shift & 1, bit) << x << ',' << y;
          ASSERT_EQ((now ^ was) & ~(bits == 8 ? 0x0808 : 8), 0) << x << ',' << y;
          ASSERT_EQ(taken.At(x, y)[0] != 0, bit != 0) << x << ',' << y;
        }
      }
    }
  }
}

TEST_F(Tool, ScrambleHidesAndRestores) {
  for (const PngKind& kind : {kColour, PngKind{PNG_COLOR_TYPE_GRAY, 1, false, false}}) {
    const Pixels before = MakePng(In("a.png"), 90, 70, kind, {0, 6, ""});
    const Words where = {"--key", "4294967295", "--area", "5,8,40x60"};
    ASSERT_EQ(Run(With({"scramble", In("a.png"), Out("b.tif")}, where)).code, 0);
    const Pixels hidden = DecodeTiff(Out("b.tif"));
    EXPECT_FALSE(hidden == before);
    ASSERT_EQ(Run(With({"scramble", "--restore", Out("b.tif"), Out("c.png")}, where)).code, 0);
    EXPECT_TRUE(DecodePng(Out("c.png")) == before);
  }
}

TEST_F(Tool, CombiningRefusesInOneLine) {
  MakePng(In("a.png"), 9, 7, kColour);
  const std::string a = In("a.png"), out = Out("a.png");
  struct Case {
    Words words;
    int code;
    const char* text;
  };
  const Case cases[] = {{{"fill", a, out, "red"}, 1, "is not a colour"},
                        {{"fill", a, out, "#000000", "--area", "1,2"}, 1, "is not a rectangle"},
                        {{"combine", a, out, In("none.png")}, 2, "none.png: cannot open"},
                        {{"combine", a, out, a, "--at", "1"}, 1, "is not a place"},
                        {{"combine", a, out, a, "--area", "1"}, 1, "is not a rectangle"},
                        {{"combine", a, out, a, "--operation", "divide"}, 1, "divide"},
                        {{"overlay", a, out}, 1, "one of --take and --put"},
                        {{"overlay", a, out, "--take", "--at", "1,1"}, 1, "--at goes with --put"},
                        {{"overlay", a, out, "--take"}, 4, "has no planes of bits"},
                        {{"scramble", a, out}, 1, "--key is needed"},
                        {{"scramble", a, out, "--key", "4294967296"}, 1, "is not a key"},
                        {{"scramble", a, out, "--key", "1x"}, 1, "is not a key"},
                        {{"scramble", a, out, "--key", "1", "--area", "5,5,5x1"}, 1, "reaches beyond the picture"}};
  for (const Case& c : cases) {
    const Ended ended = Run(c.words);
    EXPECT_EQ(ended.code, c.code) << ended;
    EXPECT_TRUE(OneLine(ended, c.text)) << ended;
    EXPECT_TRUE(OutFiles().empty());
  }
}

}  // namespace
}  // namespace tarn::test
