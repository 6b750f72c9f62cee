// Files through the tool: every format and storage, refusals, damaged input, faults and signals.

#include <gtest/gtest.h>
#include <png.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <tiffio.h>
#include <unistd.h>
#include <zlib.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <set>
#include <sstream>

#include "test_pictures.h"
#include "test_tool.h"

namespace tarn::test {
namespace {

// ---- Pictures stay what they are -----------------------------------------------------------------------------------

TEST_F(Tool, PngKindsKeepEveryPixelInEveryStorage) {
  struct Case {
    PngKind kind;
    const char* becomes;  // type and depth of the PNG written
  };
  const Case cases[] = {
      {{PNG_COLOR_TYPE_GRAY, 1, false, false}, "gray 1"},
      {{PNG_COLOR_TYPE_GRAY, 1, true, false}, "gray 1"},
      {{PNG_COLOR_TYPE_GRAY, 2, false, false}, "gray 2"},
      {{PNG_COLOR_TYPE_GRAY, 4, true, false}, "gray 4"},
      {{PNG_COLOR_TYPE_GRAY, 8, false, false}, "gray 8"},
      {{PNG_COLOR_TYPE_GRAY, 16, true, false}, "gray 16"},
      {{PNG_COLOR_TYPE_GRAY, 2, false, true}, "colour+opacity 8"},
      {{PNG_COLOR_TYPE_GRAY, 8, true, true}, "colour+opacity 8"},
      {{PNG_COLOR_TYPE_GRAY, 16, false, true}, "colour+opacity 16"},
      {{PNG_COLOR_TYPE_PALETTE, 1, false, false}, "palette 1"},
      {{PNG_COLOR_TYPE_PALETTE, 2, true, false}, "palette 2"},
      {{PNG_COLOR_TYPE_PALETTE, 4, false, false}, "palette 4"},
      {{PNG_COLOR_TYPE_PALETTE, 8, true, false}, "palette 8"},
      {{PNG_COLOR_TYPE_PALETTE, 8, false, true}, "colour+opacity 8"},
      {{PNG_COLOR_TYPE_PALETTE, 4, true, true}, "colour+opacity 8"},
      {{PNG_COLOR_TYPE_RGB, 8, false, false}, "colour 8"},
      {{PNG_COLOR_TYPE_RGB, 16, true, false}, "colour 16"},
      {{PNG_COLOR_TYPE_RGB, 8, true, true}, "colour+opacity 8"},
      {{PNG_COLOR_TYPE_RGB, 16, false, true}, "colour+opacity 16"},
      {{PNG_COLOR_TYPE_GRAY_ALPHA, 8, false, false}, "colour+opacity 8"},
      {{PNG_COLOR_TYPE_GRAY_ALPHA, 16, true, false}, "colour+opacity 16"},
      {{PNG_COLOR_TYPE_RGB_ALPHA, 8, true, false}, "colour+opacity 8"},
      {{PNG_COLOR_TYPE_RGB_ALPHA, 16, false, false}, "colour+opacity 16"},
  };
  for (const Case& c : cases) {
    Words kinds = {"auto", "tiled"};
    if (!kSanitized) kinds = {"auto", "memory", "tiled", "limited", "disk"};
    if (std::string(c.becomes).ends_with(" 1")) kinds.push_back("compressed");
    for (const int width : {1, 37}) {
      const int height = width == 1 ? 3 : 29;
      const Pixels truth = MakePng(In("a.png"), width, height, c.kind);
      for (const std::string& kind : kinds) {
        SCOPED_TRACE(std::string(c.becomes) + " from type " + std::to_string(c.kind.type) + ", interlaced " +
                     std::to_string(c.kind.interlaced) + ", " + kind + ", width " + std::to_string(width));
        const Ended png = Run(With({"convert", In("a.png"), Out("a.png")}, StorageOptions(kind)));
        ASSERT_EQ(png.code, 0) << png;
        EXPECT_EQ(png.err, "");
        std::string what;
        EXPECT_TRUE(DecodePng(Out("a.png"), &what) == truth);
        EXPECT_EQ(what, c.becomes);
      }
      ASSERT_EQ(Run({"convert", In("a.png"), Out("a.tif")}).code, 0);
      EXPECT_TRUE(DecodeTiff(Out("a.tif")) == truth) << c.becomes;
    }
  }
}

TEST_F(Tool, TiffKindsKeepEveryPixel) {
  constexpr int kWhite = PHOTOMETRIC_MINISWHITE, kBlack = PHOTOMETRIC_MINISBLACK, kRgb = PHOTOMETRIC_RGB;
  constexpr int kMap = PHOTOMETRIC_PALETTE, kNone = COMPRESSION_NONE, kLzw = COMPRESSION_LZW;
  constexpr int kZip = COMPRESSION_ADOBE_DEFLATE, kPack = COMPRESSION_PACKBITS;
  constexpr bool kTiles = true, kPlanes = true, kBig = true, kTimesOpacity = true;
  const TiffKind kinds[] = {
      {kWhite, 1, 1, COMPRESSION_CCITTFAX4},
      {kBlack, 1, 1, COMPRESSION_CCITTFAX4},
      {kWhite, 1, 1, COMPRESSION_CCITTFAX3},
      {kWhite, 1, 1, COMPRESSION_CCITTRLE},
      {kWhite, 1, 1, kNone, kTiles},
      {kWhite, 1, 1, COMPRESSION_CCITTFAX4, kTiles},
      {kMap, 1, 1, kPack},
      {kBlack, 2, 1, kLzw},
      {kWhite, 2, 1, kNone},
      {kMap, 2, 1, kNone, kTiles},
      {kBlack, 4, 1, kZip, kTiles},
      {kWhite, 4, 1, kPack},
      {kMap, 4, 1, kLzw, false, false, kBig},
      {kBlack, 8, 1, kNone, kTiles, false, kBig},
      {kWhite, 8, 1, kZip},
      {kMap, 8, 1, kPack, kTiles},
      {kBlack, 16, 1, kNone, false, false, kBig},
      {kBlack, 16, 1, kLzw, kTiles},
      {kWhite, 16, 1, kZip, false, false, kBig},
      {kBlack, 8, 2, kNone},
      {kBlack, 16, 2, kZip, kTiles, kPlanes, kBig},
      {kRgb, 8, 3, kNone},
      {kRgb, 8, 3, kLzw, kTiles},
      {kRgb, 8, 3, kPack, false, kPlanes},
      {kRgb, 8, 3, kZip, kTiles, kPlanes},
      {kRgb, 16, 3, kNone, false, false, kBig},
      {kRgb, 16, 3, kLzw, kTiles, kPlanes, kBig},
      {kRgb, 8, 4, kZip},
      {kRgb, 8, 4, kNone, false, kPlanes, false, kTimesOpacity},
      {kRgb, 16, 4, kZip, kTiles, false, kBig},
      {kRgb, 16, 4, kLzw, kTiles, kPlanes, false, kTimesOpacity},
      {kBlack, 8, 2, kPack, kTiles, false, false, kTimesOpacity},
  };
  for (const TiffKind& kind : kinds) {
    const int width = 45, height = 35;  // three tiles across and down, the last ones cut
    const Pixels truth = MakeTiff(In("a.tif"), width, height, kind);
    for (const std::string storage : {"auto", "tiled", "disk", "compressed", "super"}) {
      const int bits = kind.bits * kind.samples;
      if (storage == "compressed" && bits != 1) continue;
      if (storage == "super" && bits != 1 && bits != 8 && bits != 24) continue;
      SCOPED_TRACE("photometric " + std::to_string(kind.photometric) + ", " + std::to_string(kind.samples) + " x " +
                   std::to_string(kind.bits) + " bits, compression " + std::to_string(kind.compression) + ", tiles " +
                   std::to_string(kind.tiles) + ", planes " + std::to_string(kind.planes) + ", " + storage);
      const Ended png = Run(With({"convert", In("a.tif"), Out("a.png")}, StorageOptions(storage)));
      ASSERT_EQ(png.code, 0) << png;
      std::string what;
      EXPECT_TRUE(DecodePng(Out("a.png"), &what) == truth);
      if (kind.samples == 1 && kind.photometric != kMap) {
        EXPECT_EQ(what, "gray " + std::to_string(kind.bits));
      }
      const Ended tiff = Run(With({"convert", In("a.tif"), Out("a.tif")}, StorageOptions(storage)));
      ASSERT_EQ(tiff.code, 0) << tiff;
      TiffKind written{};
      EXPECT_TRUE(DecodeTiff(Out("a.tif"), &written) == truth);
      if (kind.samples == 1 && kind.bits <= 8) {
        EXPECT_EQ(written.photometric, kind.photometric);
      }
    }
  }
}

TEST_F(Tool, BmpKindsKeepEveryPixel) {
  struct Case {
    BmpKind kind;
    const char* becomes;  // type and depth of the BMP written
  };
  const Case cases[] = {{{1}, "palette 1"},
                        {{1, 12}, "palette 1"},
                        {{2}, "palette 4"},
                        {{4, 124, true}, "palette 4"},
                        {{4, 40, false, true}, "palette 4"},
                        {{8, 12}, "palette 8"},
                        {{8, 40, false, true}, "palette 8"},
                        {{8, 108, true}, "palette 8"},
                        {{16}, "colour 24"},
                        {{16, 40, true, false, false, true}, "colour 24"},
                        {{16, 56, false, false, true}, "colour+opacity 32"},
                        {{24, 12}, "colour 24"},
                        {{24, 40, true}, "colour 24"},
                        {{32}, "colour 24"},
                        {{32, 52, false, false, false, true}, "colour 24"},
                        {{32, 124, true, false, true, true}, "colour+opacity 32"}};
  for (const Case& c : cases) {
    // Rows of more than a strip's bytes, too.
    for (const int width : {1, 37, 3000}) {
      if (width > 37 && (kSanitized || c.kind.bits != 24)) continue;
      const Pixels truth = MakeBmp(In("a.bmp"), width, width == 3000 ? 300 : 29, c.kind, {300, 1, ""});
      for (const std::string& storage : Words{"auto", "tiled", "disk"}) {
        SCOPED_TRACE(testing::Message() << c.kind.bits << " bits, header " << c.kind.header << ", top "
                                        << c.kind.topDown << ", runs " << c.kind.runs << ", " << storage << width);
        const Ended ended = Run(With({"convert", In("a.bmp"), Out("a.bmp")}, StorageOptions(storage)));
        ASSERT_EQ(ended.code, 0) << ended;
        std::string what;
        Meta meta;
        EXPECT_TRUE(DecodeBmp(Out("a.bmp"), &what, &meta) == truth);
        EXPECT_EQ(what, c.becomes);
        EXPECT_EQ(meta.dpi, c.kind.header == 12 ? 0 : 300);
      }
      ASSERT_EQ(Run({"convert", In("a.bmp"), Out("a.png")}).code, 0);
      EXPECT_TRUE(DecodePng(Out("a.png")) == truth);
    }
  }
}

// A BMP has no place for an orientation: what is stored turned is written upright.
TEST_F(Tool, BmpIsWrittenUpright) {
  for (int orientation = 1; orientation <= 8; ++orientation) {
    const Pixels stored =
        MakePng(In("a.png"), 23, 11, {PNG_COLOR_TYPE_PALETTE, 4, false, false}, {300, orientation, ""});
    ASSERT_EQ(Run({"convert", In("a.png"), Out("a.bmp")}).code, 0);
    Pixels shown = DecodeBmp(Out("a.bmp"));
    ASSERT_EQ(shown.width, orientation >= 5 ? 11 : 23) << orientation;
    for (int y = 0; y < 11; ++y) {
      for (int x = 0; x < 23; ++x) {
        const bool right = orientation == 2 || orientation == 3 || orientation == 7 || orientation == 8;
        const bool bottom = orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
        const int along = right ? 22 - x : x, across = bottom ? 10 - y : y;
        const uint16_t* const at = orientation >= 5 ? shown.At(across, along) : shown.At(along, across);
        ASSERT_EQ(std::memcmp(at, Pixels(stored).At(x, y), 8), 0) << orientation << ": " << x << ", " << y;
      }
    }
  }
}

TEST_F(Tool, TiffCompressionIsTheOneAskedFor) {
  const std::pair<const char*, int> schemes[] = {
      {"none", COMPRESSION_NONE},         {"lzw", COMPRESSION_LZW},      {"deflate", COMPRESSION_ADOBE_DEFLATE},
      {"packbits", COMPRESSION_PACKBITS}, {"g4", COMPRESSION_CCITTFAX4}, {"", -1}};
  const PngKind kinds[] = {{PNG_COLOR_TYPE_GRAY, 1, false, false},    {PNG_COLOR_TYPE_PALETTE, 1, false, false},
                           {PNG_COLOR_TYPE_PALETTE, 4, false, false}, {PNG_COLOR_TYPE_GRAY, 16, false, false},
                           {PNG_COLOR_TYPE_RGB, 8, false, false},     {PNG_COLOR_TYPE_RGB_ALPHA, 16, false, false}};
  for (const PngKind& kind : kinds) {
    const Pixels truth = MakePng(In("a.png"), 70, 90, kind);
    for (const auto& [name, scheme] : schemes) {
      if (scheme == COMPRESSION_CCITTFAX4 && kind.depth > 1) continue;
      SCOPED_TRACE(std::string(name) + ", type " + std::to_string(kind.type) + ", depth " + std::to_string(kind.depth));
      Words words = {"convert", In("a.png"), Out("a.tiff")};
      if (*name) words = With(words, {"--compression", name});
      ASSERT_EQ(Run(words).code, 0);
      TiffKind written{};
      EXPECT_TRUE(DecodeTiff(Out("a.tiff"), &written) == truth);
      const bool blackAndWhite = kind.type == PNG_COLOR_TYPE_GRAY && kind.depth == 1;
      const int usual = blackAndWhite ? COMPRESSION_CCITTFAX4 : COMPRESSION_ADOBE_DEFLATE;
      EXPECT_EQ(written.compression, scheme < 0 ? usual : scheme);
    }
  }
}

/// Mean difference of samples, in 8-bit steps.
double Difference(const Pixels& a, const Pixels& b) {
  if (a.width != b.width || a.height != b.height) return 1e9;
  double sum = 0;
  for (size_t i = 0; i < a.samples.size(); ++i) sum += std::abs(int{a.samples[i]} - int{b.samples[i]});
  return sum / 257 / static_cast<double>(a.samples.size());
}

TEST_F(Tool, JpegIsDecodedExactlyAndEncodedClosely) {
  for (const JpegKind kind : {JpegKind{1, false}, JpegKind{3, false}, JpegKind{1, true}, JpegKind{3, true}}) {
    MakeJpeg(In("a.jpg"), 61, 43, kind);
    const Pixels truth = DecodeJpeg(In("a.jpg"));
    for (const std::string storage : {"auto", "tiled", "disk"}) {
      ASSERT_EQ(Run(With({"convert", In("a.jpg"), Out("a.png")}, StorageOptions(storage))).code, 0);
      std::string what;
      EXPECT_TRUE(DecodePng(Out("a.png"), &what) == truth) << storage;
      EXPECT_EQ(what, kind.components == 1 ? "gray 8" : "colour 8");
    }
    ASSERT_EQ(Run({"convert", Out("a.png"), Out("fine.jpg"), "--quality", "95"}).code, 0);
    ASSERT_EQ(Run({"convert", Out("a.png"), Out("coarse.jpg"), "--quality", "20"}).code, 0);
    EXPECT_LT(Difference(DecodeJpeg(Out("fine.jpg")), truth), 1.5);
    EXPECT_LT(Difference(DecodeJpeg(Out("coarse.jpg")), truth), 6);
    EXPECT_LT(fs::file_size(Out("coarse.jpg")), fs::file_size(Out("fine.jpg")));
  }
  // Gray where 0 is white keeps what it shows.
  const Pixels white = MakeTiff(In("w.tif"), 64, 64, {PHOTOMETRIC_MINISWHITE, 8, 1, COMPRESSION_NONE});
  ASSERT_EQ(Run({"convert", In("w.tif"), Out("w.jpg"), "--quality", "100"}).code, 0);
  EXPECT_LT(Difference(DecodeJpeg(Out("w.jpg")), white), 3);
}

TEST_F(Tool, JpegInsideTiffIsRead) {
  for (const int photometric : {PHOTOMETRIC_YCBCR, PHOTOMETRIC_RGB}) {
    MakeTiff(In("a.tif"), 64, 48, {photometric, 8, 3, COMPRESSION_JPEG});
    const Pixels truth = DecodeTiff(In("a.tif"));
    const Ended ended = Run({"convert", In("a.tif"), Out("a.png")});
    ASSERT_EQ(ended.code, 0) << ended;
    EXPECT_TRUE(DecodePng(Out("a.png")) == truth) << photometric;
  }
}

TEST_F(Tool, ResolutionOrientationAndProfileAreCarried) {
  // A profile that libpng accepts: a header and one tag of bytes that do not compress to almost nothing.
  std::string profile(128, '\0');
  profile.replace(2, 2, std::string("\x01\x90", 2));  // 400 bytes in all
  profile[8] = 2;
  profile.replace(12, 12, "mntrRGB XYZ ");
  profile.replace(36, 4, "acsp");
  profile.replace(68, 12, std::string("\0\0\xF6\xD6\0\1\0\0\0\0\xD3\x2D", 12));  // white
  profile += std::string("\0\0\0\1cprt\0\0\0\x90\0\0\1\0text\0\0\0\0", 24);
  for (unsigned i = 0; i < 248; ++i) profile += static_cast<char>(i * i * 7 + i / 3);
  for (const Meta& meta : {Meta{300, 6, profile}, Meta{72, 1, ""}, Meta{0, 3, ""}, Meta{600, 8, profile}}) {
    MakePng(In("a.png"), 40, 30, {PNG_COLOR_TYPE_RGB, 8, false, false}, meta);
    MakeTiff(In("a.tif"), 40, 30, {PHOTOMETRIC_RGB, 8, 3, COMPRESSION_LZW}, meta);
    MakeJpeg(In("a.jpg"), 40, 30, {}, meta);
    for (const std::string from : {"a.png", "a.tif", "a.jpg"}) {
      SCOPED_TRACE(from + ", " + std::to_string(meta.dpi) + " dpi");
      Meta png, tiff, jpeg;
      ASSERT_EQ(Run({"convert", In(from), Out("b.png")}).code, 0);
      ASSERT_EQ(Run({"convert", In(from), Out("b.tif")}).code, 0);
      ASSERT_EQ(Run({"convert", In(from), Out("b.jpg")}).code, 0);
      DecodePng(Out("b.png"), nullptr, &png);
      DecodeTiff(Out("b.tif"), nullptr, &tiff);
      DecodeJpeg(Out("b.jpg"), &jpeg);
      EXPECT_TRUE(png == meta) << png.dpi << ' ' << png.orientation << ' ' << png.profile.size();
      EXPECT_TRUE(tiff == meta) << tiff.dpi << ' ' << tiff.orientation << ' ' << tiff.profile.size();
      EXPECT_TRUE(jpeg == meta) << jpeg.dpi << ' ' << jpeg.orientation << ' ' << jpeg.profile.size();
    }
  }
}

TEST_F(Tool, PagesAreChosenNotGuessed) {
  TiffKind kind{PHOTOMETRIC_MINISBLACK, 8, 1, COMPRESSION_NONE};
  kind.pages = 3;
  const Pixels truth = MakeTiff(In("a.tif"), 20, 20, kind);
  const Ended guess = Run({"convert", In("a.tif"), Out("a.png")});
  EXPECT_EQ(guess.code, 1);
  EXPECT_TRUE(OneLine(guess, "a.tif: has 3 pages; choose one with --page")) << guess;
  EXPECT_EQ(Run({"convert", In("a.tif"), Out("a.png"), "--page", "4"}).code, 1);
  EXPECT_TRUE(OutFiles().empty());
  ASSERT_EQ(Run({"convert", In("a.tif"), Out("a.png"), "--page", "3"}).code, 0);
  EXPECT_TRUE(DecodePng(Out("a.png")) == truth);
}

TEST_F(Tool, InfoTellsFileAndBitmap) {
  MakePng(In("a.png"), 50, 20, {PNG_COLOR_TYPE_PALETTE, 4, true, false}, {300, 1, ""});
  MakeTiff(In("b.tif"), 50, 20, {PHOTOMETRIC_RGB, 16, 4, COMPRESSION_LZW, true});
  Store(In("c.png"), "nothing");
  const Ended ended =
      Run({"info", In("a.png"), In("c.png"), In("b.tif"), "--max-memory", "4000", "--tile-size", "2000"});
  EXPECT_EQ(ended.code, 3);
  EXPECT_TRUE(OneLine(ended, "c.png: is not a PNG, JPEG, TIFF or BMP file")) << ended;
  EXPECT_EQ(ended.out,
            In("a.png") +
                "\n"
                "  format      PNG, interlaced\n"
                "  size        50 x 20 pixels\n"
                "  depth       4-bit palette, 16 colours\n"
                "  resolution  300 x 300 dots per inch\n"
                "  bitmap      4 bits a pixel, palette indices, 28 bytes a row\n"
                "  memory      560 bytes\n"
                "  storage     one block in memory\n\n" +
                In("b.tif") +
                "\n"
                "  format      TIFF, LZW, tiles\n"
                "  size        50 x 20 pixels\n"
                "  depth       64-bit colour with opacity\n"
                "  resolution  not stated\n"
                "  bitmap      64 bits a pixel, blue, green, red, opacity, 16 bits each, low byte first, 400 "
                "bytes a row\n"
                "  memory      8000 bytes\n"
                "  storage     4 tiles of 2000 bytes, 1 kept in memory, 3 swapped to files\n");
}

TEST_F(Tool, VerboseTellsTheStorageUsed) {
  MakePng(In("a.png"), 100, 100, {PNG_COLOR_TYPE_GRAY, 8, false, false});
  const std::pair<Words, const char*> cases[] = {
      {{"--storage", "memory"}, "stored in one block in memory"},
      {{"--storage", "disk"}, "stored in a temporary file"},
      {{"--storage", "tiled", "--tile-size", "2500"}, "stored in 4 tiles of 2500 bytes"},
      {{"--storage", "tiled", "--tile-size", "1M"}, "the picture is not larger than a tile"},
  };
  for (const auto& [options, text] : cases) {
    const Ended ended = Run(With({"convert", "-v", In("a.png"), Out("a.png")}, options));
    EXPECT_EQ(ended.code, 0) << ended;
    EXPECT_NE(ended.err.find(text), std::string::npos) << ended;
  }
}

// ---- Refusals ------------------------------------------------------------------------------------------------------

TEST_F(Tool, RefusalsAreOneLineWithACodeAndLeaveNothing) {
  MakePng(In("gray1.png"), 9, 9, {PNG_COLOR_TYPE_GRAY, 1, false, false});
  MakePng(In("gray16.png"), 9, 9, {PNG_COLOR_TYPE_GRAY, 16, false, false});
  MakePng(In("palette.png"), 9, 9, {PNG_COLOR_TYPE_PALETTE, 8, false, false});
  MakePng(In("rgba.png"), 9, 9, {PNG_COLOR_TYPE_RGB_ALPHA, 8, false, false});
  MakeJpeg(In("inks.jpg"), 16, 16, {4, false});
  Store(In("empty.png"), "");
  Store(In("text.png"), "not a picture at all");
  fs::create_directory(base_ / "out" / "directory.png");
  fs::create_directory(base_ / "in" / "pipe");
  ASSERT_EQ(mkfifo(In("pipe/pipe.png").c_str(), 0600), 0);
  const std::string in = In("gray16.png");
  struct Case {
    Words words;
    int code;
    const char* text;
  };
  const Case cases[] = {
      {{"--quiet"}, 1, "there is no option --quiet (tarn --help tells more)"},
      {{"reszie", in, Out("a.png")}, 1, "there is no command 'reszie'; did you mean resize?"},
      {{"info"}, 1, "FILE is missing (tarn info --help tells more)"},
      {{"info", in, "--wide"}, 1, "there is no option --wide (tarn info"},
      {{"convert", in, Out("a.png"), "--max-pixel=5"}, 1, "--max-pixel; did you mean --max-pixels?"},
      {{"convert", in, Out("a.png"), "more"}, 1, "there is no place for 'more'"},
      {{"info", in, "--page"}, 1, "--page needs a value"},
      {{"convert", in}, 1, "OUT is missing"},
      {{"convert", in, Out("a.gif")}, 1, "a.gif: the extension names no format"},
      {{"convert", in, Out("png")}, 1, "png: the extension names no format"},
      {{"convert", in, Out("a.png"), "--storage", "cloud"}, 1, "cloud"},
      {{"convert", in, Out("a.png"), "--tile-size", "12Q", "--storage", "tiled"}, 1, "'12Q' is not a size"},
      {{"convert", in, Out("a.png"), "--max-memory", "99999999999999999999"}, 1, "is not a size"},
      {{"convert", in, Out("a.png"), "--max-memory", "20000000000G"}, 1, "is not a size"},
      {{"convert", in, Out("a.png"), "--max-memory", "0"}, 1, "is not a size"},
      {{"convert", in, Out("a.png"), "--max-memory", "1K", "--tile-size", "2K"}, 1, "larger than --max-memory"},
      {{"convert", in, Out("a.png"), "--storage", "disk", "--tile-size", "2K"}, 1, "--tile-size goes with"},
      {{"convert", in, Out("a.png"), "--storage", "tiled", "--max-memory", "2K"}, 1, "--max-memory goes with"},
      {{"convert", in, Out("a.png"), "--quality", "50"}, 1, "--quality goes with JPEG"},
      {{"convert", in, Out("a.png"), "--compression", "lzw"}, 1, "--compression goes with TIFF"},
      {{"convert", in, Out("a.png"), "--page", "2"}, 1, "gray16.png: has one page only"},
      {{"convert", In("missing.png"), Out("a.png")}, 2, "missing.png: cannot open: No such file"},
      {{"convert", In("empty.png"), Out("a.png")}, 2, "empty.png: is empty"},
      {{"convert", In("pipe"), Out("a.png")}, 2, "pipe: is a directory"},
      {{"convert", In("pipe/pipe.png"), Out("a.png")}, 2, "pipe.png: is not a regular file"},
      {{"convert", In("text.png"), Out("a.png")}, 3, "text.png: is not a PNG, JPEG, TIFF or BMP file"},
      {{"convert", In("inks.jpg"), Out("a.png")}, 3, "inks.jpg: JPEG in printing inks"},
      {{"convert", in, Out("a.bmp")}, 4, "a.bmp: BMP cannot hold 16-bit gray; write PNG or TIFF"},
      {{"convert", in, Out("a.jpg")}, 4, "a.jpg: JPEG cannot hold 16-bit gray; write PNG or TIFF"},
      {{"convert", In("gray1.png"), Out("a.jpeg")}, 4, "a.jpeg: JPEG cannot hold 1-bit gray; write PNG or TIFF"},
      {{"convert", In("palette.png"), Out("a.jpg")}, 4, "a.jpg: JPEG cannot hold 8-bit palette"},
      {{"convert", In("rgba.png"), Out("a.jpg")}, 4, "a.jpg: JPEG cannot hold 32-bit colour with opacity"},
      {{"convert", in, Out("a.tif"), "--compression", "g4"}, 4, "a.tif: G4 compression holds 1-bit pictures only"},
      {{"convert", in, Out("a.png"), "--storage", "compressed"}, 4, "gray16.png: compressed storage holds 1-bit"},
      {{"convert", in, Out("directory.png")}, 5, "directory.png: is a directory"},
      {{"convert", in, Out("missing/a.png")}, 5, "a.png: cannot open its directory: No such file"},
  };
  for (const Case& c : cases) {
    const Ended ended = Run(c.words);
    EXPECT_EQ(ended.code, c.code) << ended;
    EXPECT_TRUE(OneLine(ended, c.text)) << c.text << '\n' << ended;
    EXPECT_EQ(OutFiles(), std::set<std::string>{"directory.png"}) << ended;
  }
}

TEST_F(Tool, HelpAndVersionGoToStandardOutput) {
  for (const Words& words : {Words{"--help"}, Words{"--version"}, Words{"convert", "--help"}}) {
    const Ended ended = Run(words);
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_NE(ended.out.find("tarn"), std::string::npos);
  }
}

TEST_F(Tool, UnsupportedTiffKindsAreRefused) {
  const TiffKind kinds[] = {
      {PHOTOMETRIC_SEPARATED, 8, 4, COMPRESSION_NONE},
      {PHOTOMETRIC_MINISBLACK, 12, 1, COMPRESSION_NONE},
      {PHOTOMETRIC_CIELAB, 8, 3, COMPRESSION_NONE},
  };
  for (const TiffKind& kind : kinds) {
    TiffKind stored = kind;
    stored.bits = kind.bits == 12 ? 16 : kind.bits;
    MakeTiff(In("a.tif"), 16, 16, stored);
    if (kind.bits == 12) {  // the tag alone; the pixels are never reached
      std::string bytes = Contents(In("a.tif"));
      const size_t at = bytes.find(std::string("\x02\x01\x03\x00\x01\x00\x00\x00\x10", 9));
      ASSERT_NE(at, std::string::npos);
      bytes[at + 8] = 12;
      Store(In("a.tif"), bytes);
    }
    const Ended ended = Run({"convert", In("a.tif"), Out("a.png")});
    EXPECT_EQ(ended.code, 3) << ended;
    EXPECT_TRUE(OneLine(ended, "is not supported")) << ended;
  }
}

// ---- Damaged input -------------------------------------------------------------------------------------------------

struct Sample {
  std::string name;
  Pixels truth;
};

/// One small file of each way of coding.
std::vector<Sample> Samples(const std::function<std::string(const std::string&)>& in) {
  std::vector<Sample> samples;
  const auto png = [&](const char* name, const PngKind& kind) {
    samples.push_back({name, MakePng(in(name), 33, 21, kind, {300, 6, ""})});
  };
  const auto tiff = [&](const char* name, const TiffKind& kind) {
    samples.push_back({name, MakeTiff(in(name), 33, 21, kind, {300, 6, ""})});
  };
  const auto jpeg = [&](const char* name, const JpegKind& kind) {
    MakeJpeg(in(name), 33, 21, kind, {300, 6, ""});
    samples.push_back({name, DecodeJpeg(in(name))});
  };
  png("plain.png", {PNG_COLOR_TYPE_RGB, 8, false, false});
  png("laced.png", {PNG_COLOR_TYPE_PALETTE, 4, true, true});
  png("deep.png", {PNG_COLOR_TYPE_GRAY_ALPHA, 16, true, false});
  jpeg("plain.jpg", {3, false});
  jpeg("progressive.jpg", {3, true});
  jpeg("gray.jpg", {1, false});
  tiff("plain.tif", {PHOTOMETRIC_RGB, 8, 3, COMPRESSION_NONE});
  tiff("g4.tif", {PHOTOMETRIC_MINISWHITE, 1, 1, COMPRESSION_CCITTFAX4});
  tiff("g3.tif", {PHOTOMETRIC_MINISWHITE, 1, 1, COMPRESSION_CCITTFAX3});
  tiff("lzw.tif", {PHOTOMETRIC_PALETTE, 8, 1, COMPRESSION_LZW, true});
  tiff("zip.tif", {PHOTOMETRIC_RGB, 16, 4, COMPRESSION_ADOBE_DEFLATE, true, true, true, true});
  tiff("packbits.tif", {PHOTOMETRIC_MINISBLACK, 4, 1, COMPRESSION_PACKBITS});
  const auto bmp = [&](const char* name, const BmpKind& kind) {
    samples.push_back({name, MakeBmp(in(name), 33, 21, kind, {300, 1, ""})});
  };
  bmp("plain.bmp", {24});
  bmp("old.bmp", {4, 12});
  bmp("runs.bmp", {8, 40, false, true});
  bmp("masks.bmp", {32, 108, true, false, true, true});
  return samples;
}

TEST_F(Tool, CutOffFilesAreErrorsOrWhole) {
  for (const Sample& sample : Samples([&](const std::string& name) { return In(name); })) {
    const std::string whole = Contents(In(sample.name));
    ASSERT_EQ(Run({"convert", In(sample.name), Out("whole.png")}).code, 0);
    ASSERT_TRUE(DecodePng(Out("whole.png")) == sample.truth) << sample.name;
    fs::remove(Out("whole.png"));
    const size_t step = std::max<size_t>(1, whole.size() / (kSanitized ? 20 : 40));
    for (size_t length = 1; length < whole.size(); length += length < 12 || length + 12 > whole.size() ? 1 : step) {
      SCOPED_TRACE(sample.name + " cut to " + std::to_string(length) + " of " + std::to_string(whole.size()));
      Store(In("cut"), whole.substr(0, length));
      const Ended ended = Run({"convert", In("cut"), Out("a.png")});
      if (ended.code == 0) {  // what was cut off is not needed for the pixels, as at the end of some TIFF files
        EXPECT_TRUE(DecodePng(Out("a.png")) == sample.truth);
        fs::remove(Out("a.png"));
      } else {
        EXPECT_EQ(ended.code, 3) << ended;
        EXPECT_TRUE(OneLine(ended, "cut: ")) << ended;
      }
      EXPECT_TRUE(OutFiles().empty());
      EXPECT_TRUE(ended.code == 3 || sample.name.ends_with(".tif"));
    }
  }
}

TEST_F(Tool, DamagedFilesNeverCrashNorLeaveFiles) {
  std::mt19937 random(15);
  for (const Sample& sample : Samples([&](const std::string& name) { return In(name); })) {
    const std::string whole = Contents(In(sample.name));
    for (int round = 0; round < (kSanitized ? 20 : 40); ++round) {
      std::string damaged = whole;
      // A few bytes anywhere; every third time near the start, where the header is.
      const size_t reach = round % 3 == 0 ? std::min<size_t>(64, whole.size()) : whole.size();
      for (unsigned count = 1 + random() % 4; count > 0; --count) {
        damaged[random() % reach] = static_cast<char>(random() % 3 == 0 ? 0xFF : random());
      }
      SCOPED_TRACE(sample.name + ", round " + std::to_string(round));
      Store(In("damaged"), damaged);
      const Ended ended = Run({"convert", In("damaged"), Out("a.png"), "--max-memory", "64M"});
      EXPECT_EQ(ended.signal, 0) << ended;
      EXPECT_TRUE(ended.code == 0 || ended.code == 1 || ended.code == 3 || ended.code == 4 || ended.code == 6 ||
                  ended.code == 9)
          << ended;
      if (ended.code == 0) {
        DecodePng(Out("a.png"));  // throws when it is not whole
        fs::remove(Out("a.png"));
      } else {
        EXPECT_TRUE(OneLine(ended, "damaged: ")) << ended;
      }
      EXPECT_TRUE(OutFiles().empty());
      if (HasFailure()) {
        Store(fs::temp_directory_path() / ("tarn-damaged-" + sample.name), damaged);
        return;
      }
    }
  }
}

TEST_F(Tool, LostJpegDataIsAnErrorAndHarmlessBytesAreNot) {
  MakeJpeg(In("a.jpg"), 200, 200, {});
  const std::string whole = Contents(In("a.jpg"));
  // A marker amid the coded pixels ends them early; the decoder would fill the rest with gray.
  std::string early = whole;
  early[whole.size() * 2 / 3] = static_cast<char>(0xFF);
  early[whole.size() * 2 / 3 + 1] = static_cast<char>(0xD9);
  Store(In("early.jpg"), early);
  const Ended lost = Run({"convert", In("early.jpg"), Out("a.png")});
  EXPECT_EQ(lost.code, 3) << lost;
  EXPECT_TRUE(OneLine(lost, "early.jpg: damaged JPEG: ")) << lost;
  // Padding in front of the end marker is common and harms nothing.
  Store(In("padded.jpg"), whole.substr(0, whole.size() - 2) + std::string(5, '\0') + whole.substr(whole.size() - 2));
  const Ended padded = Run({"convert", In("padded.jpg"), Out("a.png")});
  EXPECT_EQ(padded.code, 0) << padded;
  EXPECT_TRUE(DecodePng(Out("a.png")) == DecodeJpeg(In("a.jpg")));
}

std::string BigEndian(uint32_t value) {
  return {static_cast<char>(value >> 24), static_cast<char>(value >> 16), static_cast<char>(value >> 8),
          static_cast<char>(value)};
}

TEST_F(Tool, HugeClaimsAreRefusedInLittleMemory) {
  // Sizes in the header of otherwise small files.
  const auto png = [&](uint32_t width, uint32_t height) {
    MakePng(In("a.png"), 5, 5, {PNG_COLOR_TYPE_RGB, 8, false, false});
    std::string bytes = Contents(In("a.png"));
    bytes.replace(16, 8, BigEndian(width) + BigEndian(height));
    const auto* chunk = reinterpret_cast<const Bytef*>(bytes.data() + 12);
    bytes.replace(29, 4, BigEndian(static_cast<uint32_t>(crc32(0, chunk, 17))));
    return bytes;
  };
  const auto jpeg = [&](bool progressive) {
    MakeJpeg(In("a.jpg"), 16, 16, {3, progressive});
    std::string bytes = Contents(In("a.jpg"));
    const size_t frame = bytes.find(progressive ? "\xFF\xC2" : std::string("\xFF\xC0", 2));
    bytes.replace(frame + 5, 4, std::string("\xFF\xDC\xFF\xDC", 4));  // 65500 x 65500
    return bytes;
  };
  const auto tiff = [&](int compression, uint32_t width, uint32_t height) {
    TIFF* file = TIFFOpen(In("a.tif").c_str(), "w");
    TIFFSetField(file, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(file, TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(file, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(file, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(file, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(file, TIFFTAG_COMPRESSION, compression);
    TIFFSetField(file, TIFFTAG_ROWSPERSTRIP, height);
    std::vector<uint8_t> row(100);
    TIFFWriteRawStrip(file, 0, row.data(), 100);
    TIFFClose(file);
    return Contents(In("a.tif"));
  };
  const auto bmp = [&](uint32_t width, uint32_t height, bool runs) {
    MakeBmp(In("a.bmp"), 5, 5, {8, 40, false, runs});
    std::string bytes = Contents(In("a.bmp"));
    for (size_t i = 0; i < 4; ++i) {
      bytes[18 + i] = static_cast<char>(width >> 8 * i);
      bytes[22 + i] = static_cast<char>(height >> 8 * i);
    }
    return bytes;
  };
  const std::pair<const char*, std::string> cases[] = {
      {"png 60000 x 20000", png(60000, 20000)},
      {"png 2^31-1 x 1", png(0x7FFFFFFF, 1)},
      {"png 2^31-1 squared", png(0x7FFFFFFF, 0x7FFFFFFF)},
      {"jpeg", jpeg(false)},
      {"progressive jpeg", jpeg(true)},
      {"tiff", tiff(COMPRESSION_NONE, 60000, 60000)},
      {"tiff lzw", tiff(COMPRESSION_LZW, 60000, 60000)},
      {"bmp", bmp(60000, 20000, false)},
      {"bmp runs", bmp(60000, 60000, true)},
      {"bmp row", bmp(0x7FFFFFFF, 1, true)},
      {"bmp column", bmp(1, 0x7FFFFFFF, true)},
      {"tiff row", tiff(COMPRESSION_NONE, 0x7FFFFFFF, 1)},
      {"tiff column", tiff(COMPRESSION_PACKBITS, 1, 0x7FFFFFFF)},
  };
  for (const auto& [name, bytes] : cases) {
    Store(In("huge"), bytes);
    const Ended ended = Run({"convert", In("huge"), Out("a.png")});
    EXPECT_TRUE(ended.code == 3 || ended.code == 4 || ended.code == 6 || ended.code == 9) << name << ": " << ended;
    EXPECT_TRUE(OneLine(ended, "huge: ")) << name << ": " << ended;
    EXPECT_TRUE(OutFiles().empty());
    if (!kSanitized) {
      EXPECT_LT(ended.peakKilobytes, 200 * 1024) << name;
    }
  }
}

// ---- The output is whole or not there ------------------------------------------------------------------------------

class ToolOutput : public Tool {
 protected:
  void SetUp() override {
    Tool::SetUp();
    MakePng(In("rgb.png"), 300, 200, {PNG_COLOR_TYPE_RGB, 8, false, false});
    MakeJpeg(In("rgb.jpg"), 300, 200, {});
  }
  struct Target {
    const char* in;
    const char* out;
  };
  void ClearOut() const {
    fs::remove_all(base_ / "out");
    fs::create_directory(base_ / "out");
  }
  static constexpr Target kTargets[] = {
      {"rgb.jpg", "a.png"}, {"rgb.png", "a.tif"}, {"rgb.png", "a.jpg"}, {"rgb.png", "a.bmp"}};

  /// An existing output is as before, or there is none; nothing else lies there.
  void ExpectUntouched(const std::string& name, bool existing) const {
    EXPECT_EQ(OutFiles(), existing ? std::set<std::string>{name} : std::set<std::string>{});
    if (existing) {
      EXPECT_EQ(Contents(Out(name)), "old");
    }
  }
};

TEST_F(ToolOutput, EveryFailingFileCallIsReported) {
  for (const Target& target : kTargets) {
    const Words words = {"convert", In(target.in), Out(target.out)};
    ASSERT_EQ(Run(words).code, 0);
    const std::string good = Contents(Out(target.out));
    for (const bool existing : {false, true}) {
      for (const char* error : {"28", "5", "short"}) {  // disk full, input/output error, half a write
        if (kSanitized && std::string(error) == "5") continue;
        for (const bool named : {false, true}) {
          long at = 1;
          for (;; ++at) {
            SCOPED_TRACE(std::string(target.out) + ", call " + std::to_string(at) + " answers " + error +
                         ", existing " + std::to_string(existing) + ", named " + std::to_string(named));
            ClearOut();
            if (existing) Store(Out(target.out), "old");
            Words how = {std::string("TARN_TEST_WHAT=") + error};
            if (named) how.push_back("TARN_TEST_NAMED=1");
            const Ended ended = RunFaulty(words, at, how);
            if (!FaultHappened() || std::string(error) == "short") {
              ASSERT_EQ(ended.code, 0) << ended;
              EXPECT_EQ(Contents(Out(target.out)), good);
              EXPECT_EQ(OutFiles().size(), 1u);
              if (!FaultHappened()) break;
              continue;
            }
            EXPECT_EQ(ended.code, 5) << ended;
            EXPECT_TRUE(OneLine(ended, std::string(target.out) + ": cannot ")) << ended;
            ExpectUntouched(target.out, existing);
          }
          EXPECT_GT(at, 4);  // open, write, flush, name, close were all met
        }
      }
    }
  }
}

TEST_F(ToolOutput, SignalsAtEveryFileCallLeaveNothing) {
  const Target& target = kTargets[0];
  const Words words = {"convert", In(target.in), Out(target.out)};
  ASSERT_EQ(Run(words).code, 0);
  const std::string good = Contents(Out(target.out));
  for (const int signal : {SIGKILL, SIGTERM, SIGINT, SIGHUP}) {
    for (const bool existing : {false, true}) {
      for (const bool named : {false, true}) {
        if (named && signal == SIGKILL) continue;  // a name given beforehand cannot be taken back
        for (long at = 1;; ++at) {
          SCOPED_TRACE("signal " + std::to_string(signal) + " at call " + std::to_string(at) + ", existing " +
                       std::to_string(existing) + ", named " + std::to_string(named));
          ClearOut();
          if (existing) Store(Out(target.out), "old");
          Words how = {"TARN_TEST_WHAT=-" + std::to_string(signal)};
          if (named) how.push_back("TARN_TEST_NAMED=1");
          const Ended ended = RunFaulty(words, at, how);
          if (!FaultHappened()) break;
          // The signal may have come after the output was complete.
          const std::set<std::string> files = OutFiles();
          if (files.count(target.out) != 0 && Contents(Out(target.out)) == good) {
            // Between the link and the rename that replaces a file nothing but a kill gets through.
            EXPECT_EQ(files.size(), 1u);
            continue;
          }
          EXPECT_EQ(ended.signal, signal) << ended;
          if (signal == SIGKILL && existing && files.size() == 2) {
            EXPECT_EQ(Contents(Out(target.out)), "old");
            continue;
          }
          ExpectUntouched(target.out, existing);
        }
      }
    }
  }
}

TEST_F(ToolOutput, NoAllocationFailureCrashesOrLeavesFiles) {
  if (kSanitized) GTEST_SKIP() << "the sanitizer's allocator stays in charge";
  MakeTiff(In("rgb.tif"), 60, 40, {PHOTOMETRIC_RGB, 8, 3, COMPRESSION_LZW, true});
  const Target targets[] = {{"rgb.jpg", "a.png"}, {"rgb.png", "a.tif"}, {"rgb.png", "a.jpg"}, {"rgb.tif", "a.png"}};
  for (const Target& target : targets) {
    const Words words = {"convert", In(target.in), Out(target.out)};
    for (const bool forever : {false, true}) {
      int refused = 0;
      for (long at = 1;; at += 97) {  // all of them: ToolFaults
        const bool existing = at % 2 == 0, named = at % 3 == 0;
        SCOPED_TRACE(std::string(target.out) + " from " + target.in + ", allocation " + std::to_string(at) +
                     (forever ? " and all later ones" : "") + ", existing " + std::to_string(existing) + ", named " +
                     std::to_string(named));
        ClearOut();
        if (existing) Store(Out(target.out), "old");
        Words how = {std::string("TARN_TEST_MEMORY=") + (forever ? "forever" : "once")};
        if (named) how.push_back("TARN_TEST_NAMED=1");
        const Ended ended = RunFaulty(words, at, how);
        if (!FaultHappened()) break;
        EXPECT_EQ(ended.signal, 0) << ended;
        if (ended.code == 0) {  // done without
          EXPECT_EQ(OutFiles().size(), 1u);
          continue;
        }
        ++refused;
        EXPECT_EQ(ended.code, 6) << ended;
        EXPECT_TRUE(OneLine(ended, "memory")) << ended;
        ExpectUntouched(target.out, existing);
      }
      EXPECT_GT(refused, 3);
    }
  }
}

TEST_F(ToolOutput, FullDiskLeavesNoFile) {
  // A file system of a few pages in a name space of the child's own.
  std::set<int> codes;
  for (int kilobytes = 4; kilobytes <= 512; kilobytes *= 2) {
    const Ended ended = Run({"convert", In("rgb.png"), Out("a.tif"), "--compression", "none"}, {}, [&] {
      const uid_t user = getuid();
      if (unshare(CLONE_NEWNS | (user == 0 ? 0 : CLONE_NEWUSER)) != 0) _exit(125);
      if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) _exit(125);
      const std::string options = "size=" + std::to_string(kilobytes) + "k";
      if (mount("tmpfs", (base_ / "out").c_str(), "tmpfs", 0, options.c_str()) != 0) _exit(125);
    });
    if (ended.code == 125) GTEST_SKIP() << "no file system may be mounted here";
    codes.insert(ended.code);
    if (ended.code != 0) {
      EXPECT_TRUE(OneLine(ended, "a.tif: cannot write: No space left on device")) << ended;
    }
  }
  EXPECT_EQ(codes, (std::set<int>{0, 5}));
}

TEST_F(ToolOutput, FileSizeLimitIsAnErrorNotASignal) {
  const Ended ended = Run({"convert", In("rgb.png"), Out("a.tif"), "--compression", "none"}, {}, [] {
    const rlimit limit{50000, 50000};
    setrlimit(RLIMIT_FSIZE, &limit);
  });
  EXPECT_EQ(ended.code, 5) << ended;
  EXPECT_TRUE(OneLine(ended, "File too large")) << ended;
  EXPECT_TRUE(OutFiles().empty());
}

TEST_F(ToolOutput, PermissionsLinksAndTheSameFile) {
  const auto mode = [&](const std::string& name) {
    struct stat status {};
    EXPECT_EQ(stat(name.c_str(), &status), 0);
    return status.st_mode & 0777u;
  };
  // A new file gets what the mask leaves, a replaced one keeps its own.
  ASSERT_EQ(Run({"convert", In("rgb.png"), Out("a.png")}, {}, [] { umask(027); }).code, 0);
  EXPECT_EQ(mode(Out("a.png")), 0640u);
  ASSERT_EQ(chmod(Out("a.png").c_str(), 0604), 0);
  ASSERT_EQ(Run({"convert", In("rgb.png"), Out("a.png")}).code, 0);
  EXPECT_EQ(mode(Out("a.png")), 0604u);
  // A link is written through.
  fs::create_symlink("a.png", Out("link.png"));
  Store(Out("a.png"), "old");
  ASSERT_EQ(Run({"convert", In("rgb.png"), Out("link.png")}).code, 0);
  EXPECT_TRUE(fs::is_symlink(Out("link.png")));
  EXPECT_TRUE(DecodePng(Out("a.png")) == DecodePng(In("rgb.png")));
  // The output may be the input.
  const Pixels before = DecodePng(Out("a.png"));
  ASSERT_EQ(Run({"convert", Out("a.png"), Out("a.png")}).code, 0);
  EXPECT_TRUE(DecodePng(Out("a.png")) == before);
}

TEST_F(Tool, ShippedPicturesGoThroughEveryStorage) {
  const std::string data = TARN_SOURCE_DIR "/tests/data/";
  ASSERT_EQ(Run({"convert", data + "landscape.jpg", Out("a.png"), "--storage", "tiled", "--tile-size", "64K"}).code, 0);
  EXPECT_TRUE(DecodePng(Out("a.png")) == DecodeJpeg(data + "landscape.jpg"));
  const Pixels page = DecodeTiff(data + "page.tif");
  for (const std::string kind : {"memory", "tiled", "disk", "compressed"}) {
    Words words = {"convert", data + "page.tif", Out("a.tif"), "--storage", kind};
    if (kind == "tiled") words = With(words, {"--tile-size", "64K"});
    const Ended ended = Run(words);
    ASSERT_EQ(ended.code, 0) << ended;
    EXPECT_TRUE(DecodeTiff(Out("a.tif")) == page) << kind;
  }
}

}  // namespace
}  // namespace tarn::test
