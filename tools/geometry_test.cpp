// What the commands that move pixels and change opacity make of pictures, against slow rules of the test's own.

#include <png.h>
#include <tiffio.h>

#include <array>
#include <cmath>

#include "test_pictures.h"
#include "test_tool.h"

namespace tarn::test {
namespace {

/// A picture whose pixels come from places of another one.
Pixels Placed(Pixels from, int width, int height, const std::function<std::array<int, 2>(int x, int y)>& place) {
  Pixels to{width, height, {}};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const auto [column, row] = place(x, y);
      const uint16_t* const pixel = from.At(column, row);
      to.samples.insert(to.samples.end(), pixel, pixel + 4);
    }
  }
  return to;
}

/// What is seen in a PNG file.
Pixels SeenIn(const std::string& name) {
  Meta meta;
  const Pixels stored = DecodePng(name, nullptr, &meta);
  return Seen(stored, meta.orientation);
}

std::string SizeOf(const Pixels& picture) {
  return std::to_string(picture.width) + "x" + std::to_string(picture.height);
}

constexpr PngKind kBlackAndWhite{PNG_COLOR_TYPE_GRAY, 1, false, false};
constexpr PngKind kPalette{PNG_COLOR_TYPE_PALETTE, 4, false, false};
constexpr PngKind kGray{PNG_COLOR_TYPE_GRAY, 8, false, false};
constexpr PngKind kDeepGray{PNG_COLOR_TYPE_GRAY, 16, false, false};
constexpr PngKind kColour{PNG_COLOR_TYPE_RGB, 8, false, false};
constexpr PngKind kOpacity{PNG_COLOR_TYPE_RGB_ALPHA, 8, false, false};
constexpr PngKind kDeepOpacity{PNG_COLOR_TYPE_RGB_ALPHA, 16, false, false};
constexpr PngKind kKinds[] = {kBlackAndWhite, kPalette, kGray, kDeepGray, kColour, kOpacity, kDeepOpacity};

class ToolGeometry : public Tool {
 protected:
  /// A 24-bit picture of one colour, "#rrggbb".
  void Flat(const std::string& colour, const std::string& size, const std::string& name) const {
    Store(In("flat.txt"), colour + "\n");
    MakePng(In("any.png"), 8, 8, kColour);
    const Ended ended = Run({"run", In("any.png"), "--", "convert", "--palette", In("flat.txt"), "--", "convert",
                             "--bits", "24", "--", "resize", size, name});
    ASSERT_EQ(ended.code, 0) << ended;
  }
};

// ---- resize --------------------------------------------------------------------------------------------------------

TEST_F(ToolGeometry, ResizeGivesTheSizeAskedForAsItIsSeen) {
  struct Case {
    const char* asked;
    int orientation;
    const char* size;
  };
  const Case cases[] = {{"80x30", 1, "80x30"}, {"80x30", 6, "80x30"}, {"74x", 1, "74x46"},
                        {"x46", 1, "74x46"},   {"46x", 6, "46x74"},   {"50%", 1, "19x12"},
                        {"50%", 8, "12x19"},   {"1%", 1, "1x1"},      {"250.5%", 1, "93x58"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.asked) + ", orientation " + std::to_string(c.orientation));
    for (const PngKind& kind : {kBlackAndWhite, kPalette, kColour, kDeepOpacity}) {
      const Pixels source = Seen(MakePng(In("a.png"), 37, 23, kind, {96, c.orientation, ""}), c.orientation);
      ASSERT_EQ(Run({"resize", In("a.png"), Out("a.png"), c.asked}).code, 0);
      EXPECT_EQ(SizeOf(SeenIn(Out("a.png"))), c.size);
      for (const char* storage : {"auto", "tiled", "disk"}) {
        const Words words = {"resize", In("a.png"), Out("a.png"), c.asked, "--method", "nearest"};
        const Ended ended = Run(With(words, StorageOptions(storage)));
        ASSERT_EQ(ended.code, 0) << ended;
        Meta meta;
        std::string what;
        const Pixels stored = DecodePng(Out("a.png"), &what, &meta);
        EXPECT_EQ(meta, (Meta{96, c.orientation, ""}));
        if (c.orientation != 1) continue;  // the others divide from another corner
        EXPECT_TRUE(stored == Placed(source, stored.width, stored.height, [&](int x, int y) -> std::array<int, 2> {
                      return {x * 37 / stored.width, y * 23 / stored.height};
                    }));
      }
    }
  }
}

TEST_F(ToolGeometry, ResizeMethodsAverageAndKeepInk) {
  // Of a picture that is twice as large, an average is that of four pixels, truncated at most twice.
  Pixels source = MakePng(In("a.png"), 40, 30, kColour);
  for (const char* method : {"area", "smooth"}) {
    ASSERT_EQ(Run({"resize", In("a.png"), Out("a.png"), "50%", "--method", method}).code, 0);
    Pixels half = DecodePng(Out("a.png"));
    for (int i = 0; i < 20 * 15 * 4; ++i) {
      const int x = i / 4 % 20, y = i / 80, channel = i % 4;
      int sum = 0;
      for (int at = 0; at < 4; ++at) sum += source.At(2 * x + at % 2, 2 * y + at / 2)[channel] >> 8;
      ASSERT_NEAR(half.At(x, y)[channel] >> 8, sum / 4.0, 2) << method;
    }
  }
  // A black line of one pixel stays where the nearest pixel would lose it.
  Flat("#ffffff", "400x300", In("white.png"));
  Store(In("white-first.txt"), "#ffffff\n#000000\n");
  ASSERT_EQ(Run({"run", In("white.png"), "--", "convert", "--gray", "--bits", "1", "--", "crop", "-1,0,401x300",
                 In("black-first.png")})
                .code,
            0);  // black on the left
  ASSERT_EQ(Run({"convert", In("black-first.png"), In("white-first.png"), "--palette", In("white-first.txt")}).code, 0);
  for (const char* name : {"black-first.png", "white-first.png"}) {
    for (const Words& method : {Words{}, Words{"--method", "ink"}}) {
      EXPECT_EQ(Run(With({"resize", In(name), Out("a.png"), "101x75"}, method)).code, 0);
      Pixels made = DecodePng(Out("a.png"));
      int ink = 0;
      for (int y = 0; y < made.height; ++y) ink += made.At(0, y)[0] == 0;
      EXPECT_EQ(ink, 75) << name;
    }
  }
  const Ended refused = Run({"resize", In("a.png"), Out("z.png"), "50%", "--method", "ink"});
  EXPECT_EQ(refused.code, 1);
  EXPECT_TRUE(OneLine(refused, "is 24-bit colour; --method ink is for 1-bit black and white"));
}

// ---- flip, reverse, rotate, orient ---------------------------------------------------------------------------------

TEST_F(ToolGeometry, TurnsAreThoseOfThePictureAsItIsSeen) {
  using Rule = std::function<std::array<int, 2>(int x, int y)>;
  constexpr int kW = 37, kH = 23;
  for (const PngKind& kind : kKinds) {
    for (int orientation = 1; orientation <= 8; ++orientation) {
      if (kind.type != PNG_COLOR_TYPE_RGB && orientation % 5 != 1) continue;
      const Pixels seen = Seen(MakePng(In("a.png"), kW, kH, kind, {96, orientation, ""}), orientation);
      const int w = seen.width, h = seen.height;
      struct Case {
        Words words;  // behind IN and OUT
        bool swaps;
        Rule from;
        int times;  // until the picture is itself again
      };
      const Case cases[] = {
          {{"flip"},
           false,
           [&](int x, int y) -> std::array<int, 2> {
             return {x, h - 1 - y};
           },
           2},
          {{"reverse"},
           false,
           [&](int x, int y) -> std::array<int, 2> {
             return {w - 1 - x, y};
           },
           2},
          {{"rotate", "90", "--resize"},
           true,
           [&](int x, int y) -> std::array<int, 2> {
             return {y, h - 1 - x};
           },
           4},
          {{"rotate", "-90", "--resize"},
           true,
           [&](int x, int y) -> std::array<int, 2> {
             return {w - 1 - y, x};
           },
           4},
          {{"rotate", "540"},
           false,
           [&](int x, int y) -> std::array<int, 2> {
             return {w - 1 - x, h - 1 - y};
           },
           2},
          {{"rotate", "-360"},
           false,
           [&](int x, int y) -> std::array<int, 2> {
             return {x, y};
           },
           1},
      };
      for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.words) + ", type " + std::to_string(kind.type) + ", depth " +
                     std::to_string(kind.depth) + ", orientation " + std::to_string(orientation));
        const Words rest(c.words.begin() + 1, c.words.end());
        const char* const storage = kind.depth == 1 ? "compressed" : orientation % 2 == 0 ? "tiled" : "disk";
        const Words words = With(With({c.words[0], In("a.png"), Out("1.png")}, rest), StorageOptions(storage));
        const Ended ended = Run(words);
        ASSERT_EQ(ended.code, 0) << ended;
        EXPECT_TRUE(SeenIn(Out("1.png")) == Placed(seen, c.swaps ? h : w, c.swaps ? w : h, c.from));
        for (int i = 1; i < c.times; ++i) {
          const std::string number = std::to_string(i), next = std::to_string(i + 1);
          ASSERT_EQ(Run(With({c.words[0], Out(number + ".png"), Out(next + ".png")}, rest)).code, 0);
        }
        EXPECT_TRUE(SeenIn(Out(std::to_string(c.times) + ".png")) == seen);
      }
    }
  }
}

TEST_F(ToolGeometry, OrientMovesRowsOrTheMark) {
  constexpr const char* kNames[] = {"top-left", "top-right", "bottom-right", "bottom-left",
                                    "left-top", "right-top", "right-bottom", "left-bottom"};
  for (int from = 1; from <= 8; ++from) {
    const Pixels stored = MakePng(In("a.png"), 37, 23, kColour, {96, from, ""});
    for (int to = 1; to <= 8; ++to) {
      SCOPED_TRACE(std::to_string(from) + " to " + std::to_string(to));
      Meta meta;
      ASSERT_EQ(Run({"orient", In("a.png"), Out("a.png"), "--to", kNames[to - 1]}).code, 0);
      const Pixels moved = DecodePng(Out("a.png"), nullptr, &meta);
      EXPECT_EQ(meta.orientation, to);
      EXPECT_TRUE(Seen(moved, to) == Seen(stored, from));
      ASSERT_EQ(Run({"orient", In("a.png"), Out("b.tif"), "--to", std::to_string(to), "--mark-only"}).code, 0);
      EXPECT_TRUE(DecodeTiff(Out("b.tif"), nullptr, &meta) == stored);
      EXPECT_EQ(meta.orientation, to);
    }
    // Without a word the picture comes out upright, and resolutions go with their sides.
    ASSERT_EQ(Run({"orient", In("a.png"), Out("c.png")}).code, 0);
    EXPECT_TRUE(DecodePng(Out("c.png")) == Seen(stored, from));
  }
}

TEST_F(ToolGeometry, RotatingByAnyAngleKeepsSidesOrMakesRoom) {
  // A flat colour: what is not covered is the fill, what is covered is the colour. Seen, it is higher than wide.
  Flat("#c02040", "61x41", In("flat.png"));
  ASSERT_EQ(Run({"orient", In("flat.png"), In("red.png"), "--mark-only", "--to", "6"}).code, 0);
  for (const char* method : {"nearest", "correct", "bilinear"}) {
    for (const bool resize : {false, true}) {
      SCOPED_TRACE(std::string(method) + (resize ? ", resized" : ""));
      Words words = {"rotate", In("red.png"), Out("a.png"), "30", "--method", method, "--fill", "#102030"};
      if (resize) words.push_back("--resize");
      ASSERT_EQ(Run(words).code, 0);
      Pixels made = SeenIn(Out("a.png"));
      const double c = std::cos(M_PI / 6), s = std::sin(M_PI / 6);
      const double wide = resize ? 41 * c + 61 * s : 41, high = resize ? 41 * s + 61 * c : 61;
      EXPECT_NEAR(made.width, wide, 1.01);
      EXPECT_NEAR(made.height, high, 1.01);
      int outside = 0, inside = 0;
      for (int y = 0; y < made.height; ++y) {
        for (int x = 0; x < made.width; ++x) {
          const double dx = x + 0.5 - made.width / 2.0, dy = y + 0.5 - made.height / 2.0;
          const double across = std::fabs(dx * c + dy * s) - 20.5, down = std::fabs(-dx * s + dy * c) - 30.5;
          const uint16_t* const pixel = made.At(x, y);
          if (across < -2 && down < -2) {
            ASSERT_EQ(pixel[0], 0xC0C0) << x << ' ' << y;
            ++inside;
          } else if (across > 2 || down > 2) {
            ASSERT_EQ(pixel[0], 0x1010) << x << ' ' << y;
            ++outside;
          }
        }
      }
      EXPECT_GT(inside, 1000);
      EXPECT_GT(outside, 100);
    }
  }
}

// ---- shear and trim ------------------------------------------------------------------------------------------------

TEST_F(ToolGeometry, ShearMovesWholeRowsOrColumns) {
  for (const int orientation : {1, 2, 3, 4, 6, 7}) {
    for (const bool vertical : {false, true}) {
      for (const char* angle : {"20", "-20"}) {
        SCOPED_TRACE(std::to_string(orientation) + ", " + angle + (vertical ? ", vertical" : ""));
        Pixels seen = Seen(MakePng(In("a.png"), 40, 50, kColour, {96, orientation, ""}), orientation);
        Words words = {"shear", In("a.png"), Out("a.png"), angle, "--fill", "#010203"};
        if (vertical) words.push_back("--vertical");
        const Ended ended = Run(words);
        ASSERT_EQ(ended.code, 0) << ended;
        Pixels made = SeenIn(Out("a.png"));
        if (vertical) {  // the same rule on its side
          seen = Seen(seen, 5);
          made = Seen(made, 5);
        }
        ASSERT_EQ(made.height, seen.height);
        EXPECT_NEAR(made.width, seen.width + seen.height * std::tan(M_PI / 9), 1.01);
        std::vector<int> shifts;
        for (int y = 0; y < made.height; ++y) {
          int shift = 0;
          while (shift < made.width && made.At(shift, y)[0] == 0x0101 && made.At(shift, y)[2] == 0x0303) ++shift;
          ASSERT_LE(shift + seen.width, made.width) << "row " << y;
          EXPECT_TRUE(std::equal(seen.At(0, y), seen.At(0, y) + 4 * seen.width, made.At(shift, y))) << "row " << y;
          shifts.push_back(shift);
        }
        const bool falls = std::is_sorted(shifts.rbegin(), shifts.rend());
        const bool rises = std::is_sorted(shifts.begin(), shifts.end());
        // Positive: the top leans to the right, the right side down.
        EXPECT_TRUE((angle[0] == '-') != vertical ? rises : falls);
        EXPECT_GT(std::abs(shifts.front() - shifts.back()), 10);
      }
    }
  }
}

TEST_F(ToolGeometry, TrimCutsWhatIsOfOneColour) {
  for (const PngKind& kind : kKinds) {
    if (kind.depth == 1) continue;  // its edges may be all black
    for (const int orientation : {1, 3, 6}) {
      SCOPED_TRACE("type " + std::to_string(kind.type) + ", orientation " + std::to_string(orientation));
      const Pixels stored = MakePng(In("a.png"), 33, 21, kind, {0, orientation, ""});
      ASSERT_EQ(Run({"crop", In("a.png"), In("framed.png"), orientation == 6 ? "-3,-7,40x60" : "-3,-7,60x40"}).code, 0);
      for (const char* storage : {"auto", "tiled", "disk"}) {
        const Ended ended = Run(With({"trim", In("framed.png"), Out("a.png")}, StorageOptions(storage)));
        ASSERT_EQ(ended.code, 0) << ended;
        EXPECT_TRUE(DecodePng(Out("a.png")) == stored);
      }
    }
  }
  Flat("#c8c8c8", "10x10", In("m.png"));
  // Slanting a square leaves wedges of the fill's colour.
  ASSERT_EQ(Run({"shear", In("m.png"), In("n.png"), "45", "--fill", "#101010"}).code, 0);
  ASSERT_EQ(Run({"shear", In("n.png"), In("o.png"), "30", "--fill", "#141414"}).code, 0);
  const auto width = [&](const Words& more) {
    EXPECT_EQ(Run(With({"trim", In("o.png"), Out("b.png")}, more)).code, 0);
    return DecodePng(Out("b.png")).width;
  };
  const int all = DecodePng(In("o.png")).width;
  EXPECT_EQ(width({}), all);                    // only wedges are of one colour
  EXPECT_EQ(width({"--tolerance", "3"}), all);  // 4 apart
  EXPECT_EQ(width({"--tolerance", "4", "--color", "#101010"}), width({"--tolerance", "4"}));
  EXPECT_EQ(width({"--color", "#123456"}), all);  // no such border
  ASSERT_EQ(Run({"trim", In("m.png"), Out("c.png")}).code, 0);
  EXPECT_EQ(SizeOf(DecodePng(Out("c.png"))), "10x10");  // nothing but border
}

// ---- alpha ---------------------------------------------------------------------------------------------------------

TEST_F(ToolGeometry, AlphaIsTakenOutSetAndRemoved) {
  for (const PngKind& kind : {kOpacity, kDeepOpacity}) {
    const bool deep = kind.depth == 16;
    const int most = deep ? 65535 : 255, unit = deep ? 1 : 257;
    SCOPED_TRACE(kind.depth);
    for (const int orientation : {1, 6}) {
      const Pixels source = MakePng(In("a.png"), 37, 23, kind, {96, orientation, ""});
      std::string what;
      Meta meta;
      ASSERT_EQ(Run({"alpha", In("a.png"), Out("alpha.png"), "--extract"}).code, 0);
      const Pixels alpha = DecodePng(Out("alpha.png"), &what, &meta);
      EXPECT_EQ(what, deep ? "gray 16" : "gray 8");
      EXPECT_EQ(meta, (Meta{96, orientation, ""}));
      for (size_t i = 0; i < source.samples.size(); i += 4) ASSERT_EQ(alpha.samples[i], source.samples[i + 3]);

      ASSERT_EQ(Run({"alpha", In("a.png"), Out("plain.png"), "--remove"}).code, 0);
      const Pixels plain = DecodePng(Out("plain.png"), &what);
      EXPECT_EQ(what, deep ? "colour 16" : "colour 8");
      // An opacity that lies another way is turned.
      ASSERT_EQ(Run({"orient", Out("alpha.png"), Out("turned.png"), "--to", "left-bottom"}).code, 0);
      for (const char* mask : {"alpha.png", "turned.png"}) {
        const Ended ended = Run({"alpha", Out("plain.png"), Out("b.png"), "--set", Out(mask), "--storage", "disk"});
        ASSERT_EQ(ended.code, 0) << ended;
        EXPECT_TRUE(DecodePng(Out("b.png")) == source);
      }

      ASSERT_EQ(Run({"alpha", In("a.png"), Out("b.png"), "--opacity", "77"}).code, 0);
      const Pixels faint = DecodePng(Out("b.png"));
      ASSERT_EQ(Run({"alpha", In("a.png"), Out("b.png"), "--remove", "--over", "#2050ff"}).code, 0);
      const Pixels over = DecodePng(Out("b.png"));
      const int under[] = {0x20 * 257, 0x50 * 257, 0xFF * 257};
      for (size_t i = 0; i < source.samples.size(); ++i) {
        const double opacity = source.samples[i / 4 * 4 + 3] / 65535.0;
        if (i % 4 == 3) {
          ASSERT_EQ(faint.samples[i], 77 * 257);
        } else {
          ASSERT_EQ(faint.samples[i], source.samples[i]);
          ASSERT_EQ(plain.samples[i], source.samples[i]);
          const double blend = (source.samples[i] * opacity + under[i % 4] * (1 - opacity)) / 65535 * most;
          ASSERT_NEAR(over.samples[i] / unit, blend, 0.5001);
        }
      }
    }
  }
  // What has none becomes what can have one.
  for (const PngKind& kind : {kBlackAndWhite, kPalette, kGray, kDeepGray, kColour}) {
    Pixels truth = MakePng(In("b.png"), 20, 10, kind);
    for (size_t i = 3; i < truth.samples.size(); i += 4) truth.samples[i] = 0x8080;
    ASSERT_EQ(Run({"alpha", In("b.png"), Out("b.png"), "--opacity", "128"}).code, 0);
    std::string what;
    EXPECT_TRUE(DecodePng(Out("b.png"), &what) == truth);
    EXPECT_EQ(what, kind.depth == 16 ? "colour+opacity 16" : "colour+opacity 8");
  }
}

// ---- deskew --------------------------------------------------------------------------------------------------------

TEST_F(ToolGeometry, DeskewFindsTheAngleOfThePage) {
  const std::string page = TARN_SOURCE_DIR "/tests/data/page.tif";
  constexpr double kOwn = 0.6;  // the page was made so
  const auto angle = [&](const std::string& file) {
    const Ended ended = Run({"deskew", file, "--angle-only"});
    EXPECT_EQ(ended.code, 0) << ended;
    return std::atof(ended.out.c_str());
  };
  EXPECT_NEAR(angle(page), kOwn, 0.02);
  for (const char* turn : {"-9.8", "-3.21", "-0.6", "0.05", "2.5", "8"}) {
    SCOPED_TRACE(turn);
    ASSERT_EQ(Run({"rotate", page, In("turned.tif"), turn}).code, 0);
    EXPECT_NEAR(angle(In("turned.tif")), kOwn + std::atof(turn), 0.05);
  }
  // Gray, small, white on black, another orientation: the same page.
  struct Case {
    Words step;
    double angle;
  };
  const Case cases[] = {{{"convert", "--bits", "8"}, kOwn},
                        {{"convert", "--bits", "24"}, kOwn},
                        {{"resize", "33%", "--method", "area"}, kOwn},
                        {{"orient", "--to", "right-bottom"}, kOwn},
                        {{"flip"}, -kOwn},
                        {{"crop", "0,0,2400x900"}, kOwn}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.step[0]);
    Words words = With({"run", page, "--"}, c.step);
    words.push_back(In("other.tif"));
    ASSERT_EQ(Run(words).code, 0);
    EXPECT_NEAR(angle(In("other.tif")), c.angle, 0.05);
  }
  // White on black: the two colours of the palette change places.
  ASSERT_EQ(Run({"convert", page, In("page.bmp")}).code, 0);
  std::string negative = Contents(In("page.bmp"));
  std::swap_ranges(negative.begin() + 54, negative.begin() + 58, negative.begin() + 58);
  Store(In("negative.bmp"), negative);
  EXPECT_NEAR(angle(In("negative.bmp")), kOwn, 0.02);
  // Levelled, it is told to be level; the sides stay.
  const Ended ended = Run({"deskew", page, Out("level.tif"), "--storage", "compressed"});
  ASSERT_EQ(ended.code, 0) << ended;
  EXPECT_NEAR(std::atof(ended.out.c_str()), kOwn, 0.02);
  EXPECT_NEAR(angle(Out("level.tif")), 0, 0.02);
  EXPECT_EQ(SizeOf(DecodeTiff(Out("level.tif"))), "2480x3508");
  // Nothing on it, nothing to level.
  Flat("#ffffff", "300x200", In("blank.png"));
  EXPECT_EQ(Run({"deskew", In("blank.png"), Out("blank.png")}).out, "0.00\n");
  EXPECT_TRUE(DecodePng(Out("blank.png")) == DecodePng(In("blank.png")));
}

// ---- run -----------------------------------------------------------------------------------------------------------

TEST_F(ToolGeometry, RunIsItsCommandsOneAfterTheOther) {
  MakePng(In("colour.png"), 97, 61, kColour, {150, 6, ""});
  MakePng(In("opacity.png"), 97, 61, kDeepOpacity, {96, 1, ""});
  MakePng(In("page.png"), 97, 61, kBlackAndWhite);
  const std::string page = TARN_SOURCE_DIR "/tests/data/page.tif";
  struct Case {
    std::string input;
    std::vector<Words> steps;
    Words options;
  };
  const Case cases[] = {
      {In("colour.png"), {{"resize", "50%"}, {"rotate", "-7.5", "--resize"}, {"crop", "-3,5,40x70"}, {"flip"}}, {}},
      {In("colour.png"), {{"shear", "10"}, {"trim"}, {"reverse"}, {"colors", "--bits", "4"}, {"orient"}}, {}},
      {In("colour.png"), {{"orient", "--to", "5"}, {"convert", "--gray"}, {"rotate", "45"}}, {"--storage", "disk"}},
      {In("opacity.png"), {{"alpha", "--opacity", "9"}, {"resize", "200x"}, {"alpha", "--remove"}}, {}},
      {In("page.png"), {{"rotate", "3"}, {"flip"}}, {"--storage", "compressed"}},
      {In("colour.png"), {{"convert", "--gray"}, {"colors", "--bits", "1"}}, {"--storage", "compressed"}},
      {page, {{"deskew"}, {"resize", "30%"}, {"trim"}}, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.steps));
    Words chain = With({"run", c.input}, c.options);
    std::string from = c.input, printed;
    for (size_t i = 0; i < c.steps.size(); ++i) {
      const std::string to = In("step" + std::to_string(i) + ".png");
      const Words rest(c.steps[i].begin() + 1, c.steps[i].end());
      const Ended single = Run(With({c.steps[i][0], from, to}, rest));
      ASSERT_EQ(single.code, 0) << single;
      printed += single.out;
      from = to;
      chain.push_back("--");
      chain = With(chain, c.steps[i]);
    }
    for (const bool dashes : {false, true}) {
      if (dashes) chain.push_back("--");
      const Ended ended = Run(With(chain, {Out("a.png")}));
      ASSERT_EQ(ended.code, 0) << ended;
      EXPECT_EQ(ended.out, printed);
      EXPECT_EQ(Contents(Out("a.png")), Contents(from));
    }
  }
  // Pages: all of them where every command takes them, else one.
  MakeTiff(In("pages.tif"), 30, 20, {PHOTOMETRIC_RGB, 8, 3, COMPRESSION_NONE, false, false, false, false, 3});
  ASSERT_EQ(Run({"run", In("pages.tif"), "--", "colors", "--bits", "4", Out("b.tif")}).code, 0);
  EXPECT_EQ(TiffPageCount(Out("b.tif")), 3);
  ASSERT_EQ(Run({"run", In("pages.tif"), "--page", "2", "--", "flip", "--", "colors", Out("c.tif")}).code, 0);
  EXPECT_EQ(TiffPageCount(Out("c.tif")), 1);
}

TEST_F(ToolGeometry, MovingCommandsRefuseInOneLine) {
  MakePng(In("a.png"), 20, 10, kColour);
  MakePng(In("mask.png"), 20, 11, kGray);
  MakeTiff(In("pages.tif"), 30, 20, {PHOTOMETRIC_RGB, 8, 3, COMPRESSION_NONE, false, false, false, false, 3});
  const std::string whole = Contents(In("a.png"));
  Store(In("cut.png"), whole.substr(0, whole.size() / 2));
  const std::string a = In("a.png"), out = Out("a.png"), cut = In("cut.png");
  struct Case {
    Words words;
    int code;
    const char* text;
  };
  const Case cases[] = {
      {{"resize", a, out, "0x5"}, 1, "'0x5' is not a size"},
      {{"resize", a, out, "x"}, 1, "'x' is not a size"},
      {{"resize", a, out, "5"}, 1, "'5' is not a size"},
      {{"resize", a, out, "-5x5"}, 1, "is not a size"},
      {{"resize", a, out, "0%"}, 1, "'0%' is not a size"},
      {{"resize", a, out, "5x5x"}, 1, "'5x5x' is not a size"},
      {{"resize", a, out, "nan%"}, 1, "is not a size"},
      {{"resize", a, out, "999999999%"}, 4, "a bitmap holds at most"},
      {{"resize", a, out, "1000000000%"}, 4, "a bitmap holds at most"},
      {{"resize", a, out, "2147483647x"}, 4, "a bitmap holds at most"},
      {{"resize", a, out, "x2147483647"}, 1, "2147483647 pixels"},
      {{"resize", a, Out("a.jpg"), "70000x"}, 4, "more than 65500"},
      {{"resize", a, out, "5x5", "--method", "cubic"}, 1, "'cubic' is not one of nearest, ink, area, smooth"},
      {{"rotate", a, out, "left"}, 1, "'left' is not an angle"},
      {{"rotate", a, out, "inf"}, 1, "is not an angle"},
      {{"rotate", a, out, "5", "--fill", "white"}, 1, "'white' is not a colour"},
      {{"rotate", In("pages.tif"), out, "5"}, 1, "--page"},
      {{"shear", a, out, "90"}, 1, "-89.99 to 89.99"},
      {{"orient", a, out, "--to", "9"}, 1, "'9' is not one of top-left"},
      {{"trim", a, out, "--color", "blue"}, 1, "'blue' is not a colour"},
      {{"trim", a, out, "--tolerance", "256"}, 1, "--tolerance"},
      {{"alpha", a, out}, 1, "one of --extract, --set, --opacity and --remove"},
      {{"alpha", a, out, "--extract", "--remove"}, 1, "one of"},
      {{"alpha", a, out, "--extract", "--over", "#000000"}, 1, "--over goes with --remove"},
      {{"alpha", a, out, "--extract"}, 4, "has no opacity, it is 24-bit colour"},
      {{"alpha", a, out, "--set", In("mask.png")}, 1, "mask.png: is 20 x 11, the picture 20 x 10"},
      {{"alpha", a, out, "--set", In("none.png")}, 2, "none.png: cannot open"},
      {{"deskew", a}, 1, "one of OUT and --angle-only"},
      {{"deskew", a, out, "--angle-only"}, 1, "one of OUT and --angle-only"},
      {{"run", a, out}, 1, "there is no place for '"},
      {{"run", a}, 1, "what to do is missing"},
      {{"run", a, "--", "flip"}, 1, "what to do is missing"},
      {{"run", a, "--", "--", out}, 1, "a command is missing"},
      {{"run", a, "--", "flip", "--", "--", "flip", out}, 1, "a command is missing"},
      {{"run", a, "--", "turn", out}, 1, "'turn' is not one of convert, colors, crop"},
      {{"run", a, "--", "rotate", out}, 1, "ANGLE is missing (tarn rotate --help"},
      {{"run", a, "--", "rotate", "x", out}, 1, "'x' is not an angle"},
      {{"run", a, "--", "flip", "--", "alpha", "--extract", out}, 4, "has no opacity"},
      {{"run", In("pages.tif"), "--", "colors", "--", "flip", out}, 1, "--page"},
      // Damage shows in the middle of the work; nothing is left of it.
      {{"resize", cut, out, "50%"}, 3, "cut.png: "},
      {{"deskew", cut, out}, 3, "cut.png: "},
      {{"alpha", a, out, "--set", cut}, 3, "cut.png: "},
      {{"run", cut, "--", "flip", "--", "trim", out}, 3, "cut.png: "},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.words));
    const Ended ended = Run(c.words);
    EXPECT_EQ(ended.code, c.code) << ended;
    EXPECT_TRUE(OneLine(ended, c.text)) << ended;
    EXPECT_TRUE(OutFiles().empty());
    EXPECT_EQ(ended.out, "");
  }
}

}  // namespace
}  // namespace tarn::test
