// Files of several pages: what the pages command makes of them, and few colours for all of them.

#include <png.h>
#include <tiffio.h>

#include "test_pictures.h"
#include "test_tool.h"

namespace tarn::test {
namespace {

struct Page {
  Pixels pixels;
  Meta meta;
  int compression = 0;
  bool operator==(const Page&) const = default;
};
using Pages = std::vector<Page>;

Pages Decode(const std::string& name) {
  Pages pages(static_cast<size_t>(TiffPageCount(name)));
  for (size_t i = 0; i < pages.size(); ++i) {
    TiffKind kind{};
    pages[i].pixels = DecodeTiff(name, &kind, &pages[i].meta, static_cast<int>(i));
    pages[i].compression = kind.compression;
  }
  return pages;
}

class ToolPages : public Tool {
 protected:
  void SetUp() override {
    Tool::SetUp();
    // Every page another depth, size, orientation and compression.
    struct Kind {
      PngKind png;
      const char* compression;
    };
    const Kind kinds[] = {{{PNG_COLOR_TYPE_GRAY, 1, false, false}, "g4"},
                          {{PNG_COLOR_TYPE_PALETTE, 4, false, false}, "packbits"},
                          {{PNG_COLOR_TYPE_RGB, 8, false, false}, "lzw"},
                          {{PNG_COLOR_TYPE_RGB_ALPHA, 16, false, false}, "none"},
                          {{PNG_COLOR_TYPE_GRAY, 16, false, false}, "deflate"}};
    for (int i = 0; i < 5; ++i) {
      const std::string number = std::to_string(i), png = In(number + ".png"), tif = In(number + ".tif");
      MakePng(png, 30 + 7 * i, 20 + 3 * i, kinds[i].png, {100 + i, 1 + i, ""});
      ASSERT_EQ(Run({"convert", png, tif, "--compression", kinds[i].compression}).code, 0);
      truth_.push_back(Decode(tif).front());
      if (i == 0) continue;
      const Ended ended = Run({"pages", "insert", i == 1 ? In("0.tif") : In("all.tif"), "end", tif, In("all.tif")});
      ASSERT_EQ(ended.code, 0) << ended;
    }
  }
  Pages Of(const std::vector<size_t>& numbers) const {  // counted from 1
    Pages pages;
    for (const size_t number : numbers) pages.push_back(truth_[number - 1]);
    return pages;
  }

  Pages truth_;
};

TEST_F(ToolPages, GoWhereTheyAreTold) {
  EXPECT_TRUE(Decode(In("all.tif")) == truth_);
  const std::string all = In("all.tif"), out = Out("a.tif");
  struct Case {
    Words words;
    std::vector<size_t> become;
  };
  const Case cases[] = {
      {{"extract", all, "4", out}, {4}},
      {{"extract", all, "2-4", out}, {2, 3, 4}},
      {{"extract", all, "4-", out}, {4, 5}},
      {{"remove", all, "1", out}, {2, 3, 4, 5}},
      {{"remove", all, "2-5", out}, {1}},
      {{"move", all, "5", "1", out}, {5, 1, 2, 3, 4}},
      {{"move", all, "1", "end", out}, {2, 3, 4, 5, 1}},
      {{"move", all, "1-2", "3", out}, {3, 4, 1, 2, 5}},
      {{"move", all, "2-3", "2", out}, {1, 2, 3, 4, 5}},
      {{"move", all, "1-", "1", out}, {1, 2, 3, 4, 5}},
      {{"insert", all, "1", In("3.tif"), out}, {4, 1, 2, 3, 4, 5}},
      {{"insert", all, "3", all, out}, {1, 2, 1, 2, 3, 4, 5, 3, 4, 5}},
      {{"insert", In("1.tif"), "2", In("0.tif"), out}, {2, 1}},
  };
  for (const Case& c : cases) {
    for (const char* kind : {"auto", "tiled"}) {
      SCOPED_TRACE(testing::PrintToString(c.words) + ", " + kind);
      const Ended ended = Run(With(With({"pages"}, c.words), StorageOptions(kind)));
      ASSERT_EQ(ended.code, 0) << ended;
      EXPECT_EQ(ended.err, "");
      EXPECT_TRUE(Decode(out) == Of(c.become));
    }
  }
  // A single page goes into any format, a page that is no TIFF into one; the compression asked for comes first.
  ASSERT_EQ(Run({"pages", "extract", all, "3", Out("a.png")}).code, 0);
  EXPECT_TRUE(DecodePng(Out("a.png")) == truth_[2].pixels);
  ASSERT_EQ(Run({"pages", "insert", In("1.png"), "end", In("2.png"), out, "--compression", "lzw"}).code, 0);
  const Pages made = Decode(out);
  ASSERT_EQ(made.size(), 2u);
  EXPECT_TRUE(made[0].pixels == truth_[1].pixels);
  EXPECT_EQ(made[0].compression, COMPRESSION_LZW);
  EXPECT_TRUE(made[1] == truth_[2]);
}

TEST_F(ToolPages, AreListed) {
  const Ended ended = Run({"pages", "list", In("all.tif")});
  EXPECT_EQ(ended.code, 0) << ended;
  EXPECT_EQ(ended.out,
            "  1  30 x 20 pixels, 1-bit gray, TIFF, G4, strips, 100 x 100 dots per inch\n"
            "  2  37 x 23 pixels, 4-bit palette, 16 colours, TIFF, PackBits, strips, 101 x 101 dots per inch\n"
            "  3  44 x 26 pixels, 24-bit colour, TIFF, LZW, strips, 102 x 102 dots per inch\n"
            "  4  51 x 29 pixels, 64-bit colour with opacity, TIFF, uncompressed, strips, 103 x 103 dots per inch\n"
            "  5  58 x 32 pixels, 16-bit gray, TIFF, Deflate, strips, 104 x 104 dots per inch\n");
  EXPECT_TRUE(Run({"info", In("all.tif"), "--page", "4"}).out.find(", strips, page 4 of 5\n") != std::string::npos);
}

TEST_F(ToolPages, AreRefusedInOneLine) {
  const std::string all = In("all.tif"), out = Out("a.tif");
  struct Case {
    Words words;
    int code;
    const char* text;
  };
  const Case cases[] = {
      {{}, 1, "a command is missing behind tarn pages"},
      {{"extract", all, "6", out}, 1, "all.tif: has 5 pages only"},
      {{"extract", all, "6-", out}, 1, "all.tif: has 5 pages only"},
      {{"extract", all, "0", out}, 1, "'0' is not a page"},
      {{"extract", all, "3-2", out}, 1, "'3-2' is not a page"},
      {{"extract", all, "2-4-5", out}, 1, "'2-4-5' is not a page"},
      {{"extract", all, "9999999999", out}, 1, "is not a page"},
      {{"extract", all, "1-2", Out("a.png")}, 4, "a.png: several pages need a TIFF file"},
      {{"extract", all, "4", Out("a.jpg")}, 4, "a.jpg: JPEG cannot hold 64-bit colour"},
      {{"extract", all, "2-", out, "--compression", "g4"}, 4, "a.tif: G4 compression holds 1-bit pictures only"},
      {{"extract", all, "1-2", out, "--storage", "compressed"}, 4, "all.tif, page 2: compressed storage"},
      {{"remove", all, "1-", out}, 1, "all.tif: no page would be left"},
      {{"move", all, "2-3", "5", out}, 1, "all.tif: the last place is 4"},
      {{"move", all, "2", "last", out}, 1, "'last' is not a place"},
      {{"insert", all, "7", In("0.tif"), out}, 1, "all.tif: the last place is 6"},
      {{"insert", all, "1", In("missing.tif"), out}, 2, "missing.tif: cannot open"},
      {{"list", In("missing.tif")}, 2, "missing.tif: cannot open"},
  };
  for (const Case& c : cases) {
    const Ended ended = Run(With({"pages"}, c.words));
    EXPECT_EQ(ended.code, c.code) << c.text << '\n' << ended;
    EXPECT_TRUE(OneLine(ended, c.text)) << c.text << '\n' << ended;
    EXPECT_TRUE(OutFiles().empty()) << c.text;
  }
}

TEST_F(ToolPages, OfADamagedFileLeaveTheTargetAsItWas) {
  // The strip of a page in the middle is junk, the directories are good.
  const std::string good = Contents(In("all.tif")), page = Contents(In("2.tif"));
  const std::string strip = page.substr(8, 200);
  const size_t at = good.find(strip);
  ASSERT_NE(at, std::string::npos);
  std::string bad = good;
  for (size_t i = 0; i < strip.size(); ++i) bad[at + i] = static_cast<char>(i * 37);
  Store(Out("a.tif"), bad);
  for (const Words& words : {Words{"pages", "move", Out("a.tif"), "1", "end", Out("a.tif")},
                             Words{"colors", Out("a.tif"), Out("a.tif"), "--bits", "4"}}) {
    const Ended ended = Run(words);
    EXPECT_EQ(ended.code, 3) << ended;
    EXPECT_TRUE(OneLine(ended, "a.tif: damaged TIFF")) << ended;
    EXPECT_EQ(Contents(Out("a.tif")), bad);
    EXPECT_EQ(OutFiles(), (std::set<std::string>{"a.tif"}));
  }
  // Pages beside it are whole.
  ASSERT_EQ(Run({"pages", "remove", Out("a.tif"), "3", Out("a.tif")}).code, 0);
  EXPECT_TRUE(Decode(Out("a.tif")) == Of({1, 2, 4, 5}));
}

TEST_F(ToolPages, GetOnePaletteOfFewColours) {
  const std::string all = In("all.tif"), out = Out("a.tif");
  for (const Words& options : {Words{"--bits", "8"}, Words{"--bits", "4", "--dither", "none"}, Words{"--colors", "3"},
                               Words{"--bits", "3"}, Words{"--palette", "web"}}) {
    Pages first;
    for (const char* kind : {"auto", "tiled", "disk"}) {
      SCOPED_TRACE(testing::PrintToString(options) + ", " + kind);
      const Ended ended = Run(With(With({"colors", all, out}, options), StorageOptions(kind)));
      ASSERT_EQ(ended.code, 0) << ended;
      const Pages made = Decode(out);
      ASSERT_EQ(made.size(), truth_.size());
      std::set<std::string> palettes;
      for (size_t i = 0; i < made.size(); ++i) {
        EXPECT_EQ(made[i].meta, truth_[i].meta);
        EXPECT_EQ(made[i].pixels.width, truth_[i].pixels.width);
        palettes.insert(Run({"palette", out, "--page", std::to_string(i + 1)}).out);
      }
      EXPECT_EQ(palettes.size(), 1u);
      if (first.empty()) first = made;
      EXPECT_TRUE(made == first);
    }
  }
  // One page alone has a palette of its own.
  ASSERT_EQ(Run({"colors", all, out, "--page", "3", "--bits", "4"}).code, 0);
  ASSERT_EQ(Run({"colors", In("2.tif"), Out("b.tif"), "--bits", "4"}).code, 0);
  EXPECT_TRUE(Decode(out) == Decode(Out("b.tif")));
  // Black and white pages stay in compressed rows.
  ASSERT_EQ(Run({"colors", all, out, "--palette", "fixed", "--bits", "1", "--storage", "compressed"}).code, 0);
  for (const Page& page : Decode(out)) EXPECT_EQ(page.compression, COMPRESSION_CCITTFAX4);
  EXPECT_TRUE(Decode(out).front().pixels == truth_.front().pixels);
  const Ended png = Run({"colors", all, Out("c.png")});
  EXPECT_EQ(png.code, 4);
  EXPECT_TRUE(OneLine(png, "c.png: several pages need a TIFF file")) << png;
}

}  // namespace
}  // namespace tarn::test
