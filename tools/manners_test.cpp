// The tool's manners: exit codes, limits, and what they say.

#include <gtest/gtest.h>
#include <png.h>
#include <sys/resource.h>
#include <tiffio.h>

#include <algorithm>
#include <csignal>
#include <map>
#include <set>
#include <sstream>

#include "Failure.h"
#include "test_pictures.h"
#include "test_tool.h"

namespace tarn::test {
namespace {

// ---- Exit codes ----------------------------------------------------------------------------------------------------

class ToolExits : public Tool {
 protected:
  void SetUp() override {
    Tool::SetUp();
    MakePng(In("rgb.png"), 300, 200, {PNG_COLOR_TYPE_RGB, 8, false, false});
    MakePng(In("gray.png"), 300, 200, {PNG_COLOR_TYPE_GRAY, 16, false, false});
    const std::string whole = Contents(In("rgb.png"));
    Store(In("cut.png"), whole.substr(0, whole.size() / 2));
  }
  static void LimitFiles() {
    const rlimit limit{50000, 50000};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  /// The library without its codec beside it.
  Words LoneLibrary() const {
    const fs::path lone = base_ / "lone";
    fs::create_directory(lone);
    fs::copy_file(TARN_LIBRARY_FILE, lone / TARN_LIBRARY_NAME);
    return {"LD_LIBRARY_PATH=" + lone.string()};
  }
};

TEST_F(ToolExits, EveryCodeIsMetAndSaysWhatToDo) {
  struct Case {
    Words words;
    tool::Exit exit;
    const char* text;
    std::function<void()> before;
    Words environment;
  };
  const std::string rgb = In("rgb.png"), out = Out("a.png");
  const Case cases[] = {
      {{"convert", rgb, Out("done.png")}, tool::Exit::kOk, "", {}, {}},
      {{"convert", rgb, out, "--bits", "23"}, tool::Exit::kUsage, "--bits takes 1 to 8", {}, {}},
      {{"crop", rgb, out, "9x9"}, tool::Exit::kUsage, "write X,Y,WxH", {}, {}},
      {{"pixel", rgb, "300,0"}, tool::Exit::kUsage, "rgb.png: has no pixel 300,0, it is 300 x 200", {}, {}},
      {{"convert", In("no.png"), out}, tool::Exit::kInput, "no.png: cannot open: No such file", {}, {}},
      {{"convert", In("cut.png"), out},
       tool::Exit::kDamaged,
       "cut.png: damaged PNG: the file is cut off (row ",
       {},
       {}},
      {{"convert", In("gray.png"), Out("a.jpg")}, tool::Exit::kDepth, "write PNG or TIFF", {}, {}},
      {{"convert", rgb, Out("a.bmp")}, tool::Exit::kOutput, "a.bmp: cannot write: File too large", LimitFiles, {}},
      {{"convert", rgb, Out("a.jpg"), "--storage", "disk"},
       tool::Exit::kOutput,
       "rgb.png: storage for 300 x 200 pixels of 24 bits: temporary files in /",
       LimitFiles,
       {}},
      {{"convert", rgb, out, "--storage", "super"}, tool::Exit::kInternal, "codec library", {}, LoneLibrary()},
      {{"diff", rgb, In("gray.png")}, tool::Exit::kDifferent, "", {}, {}},
      {{"convert", rgb, out, "--max-pixels", "59999"}, tool::Exit::kLimit, "--max-pixels 60000 allows it", {}, {}},
  };
  std::set<int> met = {static_cast<int>(tool::Exit::kMemory)};  // below
  for (const Case& c : cases) {
    const Ended ended = Run(c.words, c.environment, c.before);
    EXPECT_EQ(ended.code, static_cast<int>(c.exit)) << c.text << ended;
    if (*c.text) {
      EXPECT_TRUE(OneLine(ended, c.text)) << c.text << '\n' << ended;
    }
    met.insert(ended.code);
  }
  if (!kSanitized) {  // the sanitizer's allocator stays in charge
    const Ended ended = RunFaulty({"convert", rgb, out}, 200, {"TARN_TEST_MEMORY=forever"});
    EXPECT_EQ(ended.code, static_cast<int>(tool::Exit::kMemory)) << ended;
    EXPECT_TRUE(OneLine(ended, "memory")) << ended;
  }
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {  // shells show 128 and the number
    const auto before = std::signal(signal, SIG_DFL);   // what runs in the background has SIGINT ignored
    const Ended ended = RunFaulty({"convert", rgb, out}, 2, {"TARN_TEST_WHAT=-" + std::to_string(signal)});
    std::signal(signal, before);
    EXPECT_EQ(ended.signal, signal) << ended;
  }
  EXPECT_EQ(OutFiles(), std::set<std::string>{"done.png"});

  std::set<int> listed;
  for (const tool::ExitMeaning& meaning : tool::kExitMeanings) listed.insert(static_cast<int>(meaning.exit));
  EXPECT_EQ(met, listed);
}

TEST_F(ToolExits, TheTableIsTheDocumentedOne) {
  std::istringstream page(Contents(TARN_SOURCE_DIR "/docs/tool.md"));
  std::map<std::string, std::string> documented;
  bool inside = false;
  for (std::string line; std::getline(page, line);) {
    if (line == "| code | class |") inside = true;
    if (line.empty()) inside = false;
    const size_t middle = line.find(" | ", 2);
    if (inside && middle != std::string::npos) {
      documented[line.substr(2, middle - 2)] = line.substr(middle + 3, line.size() - middle - 5);
    }
  }
  for (const tool::ExitMeaning& meaning : tool::kExitMeanings) {
    EXPECT_EQ(documented[std::to_string(static_cast<int>(meaning.exit))], meaning.text);
  }
}

// ---- Limits --------------------------------------------------------------------------------------------------------

TEST_F(Tool, PicturesBeyondALimitAreRefusedWithTheWayOut) {
  MakePng(In("a.png"), 100, 80, {PNG_COLOR_TYPE_RGB, 8, false, false});
  MakePng(In("small.png"), 10, 8, {PNG_COLOR_TYPE_GRAY, 8, false, false});
  MakeTiff(In("a.tif"), 100, 80, {PHOTOMETRIC_RGB, 8, 3, COMPRESSION_NONE, false, false, false, false, 3});
  const std::string png = In("a.png"), tif = In("a.tif"), small = In("small.png"), out = Out("o.tif");
  const Words commands[] = {
      {"info", png},
      {"count-colors", png},
      {"pixel", png, "1,1"},
      {"diff", small, png},
      {"convert", png, out},
      {"colors", tif, out},
      {"flip", png, out},
      {"deskew", png, "--angle-only"},
      {"alpha", small, out, "--set", png},
      {"combine", small, out, png},
      {"overlay", small, out, "--put", png},
      {"pages", "extract", tif, "2-3", out},
      {"pages", "insert", small, "end", tif, out},
      {"run", tif, "--page", "2", "--max-pixels", "7999", "--", "flip", out},
      {"run", small, "--max-pixels", "7999", "--", "combine", png, out},
  };
  for (const Words& words : commands) {
    const bool told = words.front() == "run";
    const Ended ended = Run(told ? words : With(words, {"--max-pixels", "7999"}));
    EXPECT_EQ(ended.code, 9) << words.front() << ' ' << ended;
    EXPECT_TRUE(OneLine(ended, "is 100 x 80 pixels, more than the limit of 7999; --max-pixels 8000 allows it"))
        << ended;
    EXPECT_TRUE(OutFiles().empty()) << words.front();
    // The message is true, and neither the limit itself nor places that were chosen on the disk are refused.
    if (told || words.front() == "overlay") continue;
    const Ended allowed = Run(With(words, {"--max-pixels", "8000"}));
    EXPECT_NE(allowed.code, 9) << allowed;
    fs::remove(out);
  }
  const Ended kept = Run({"convert", png, out, "--storage", "memory", "--max-memory", "23999"});
  EXPECT_EQ(kept.code, 9) << kept;
  EXPECT_TRUE(OneLine(kept, "take 24000 bytes, more than the limit of 23999; --max-memory 24000 allows it")) << kept;
  EXPECT_EQ(Run({"convert", png, out, "--storage", "memory", "--max-memory", "24000"}).code, 0);

  // Without a word pictures of up to 2^28 pixels are read, and any where the disk was asked for. G4 makes little of
  // much: a bomb.
  TIFF* file = TIFFOpen(In("bomb.tif").c_str(), "w");
  const std::pair<uint32_t, int> fields[] = {{TIFFTAG_IMAGEWIDTH, 20000},
                                             {TIFFTAG_IMAGELENGTH, 20000},
                                             {TIFFTAG_BITSPERSAMPLE, 1},
                                             {TIFFTAG_SAMPLESPERPIXEL, 1},
                                             {TIFFTAG_PHOTOMETRIC, 0},
                                             {TIFFTAG_ROWSPERSTRIP, 20000},
                                             {TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4}};
  for (const auto& [tag, value] : fields) TIFFSetField(file, tag, value);
  const std::vector<uint8_t> row(2500);
  for (uint32_t i = 0; i < 20000; ++i) TIFFWriteScanline(file, const_cast<uint8_t*>(row.data()), i, 0);
  TIFFClose(file);
  const Ended bomb = Run({"convert", In("bomb.tif"), out});
  EXPECT_EQ(bomb.code, 9) << bomb;
  EXPECT_TRUE(OneLine(bomb, "is 20000 x 20000 pixels, more than the limit of 268435456; --max-pixels 400000000 "))
      << bomb;
  if (!kSanitized) {
    EXPECT_LT(bomb.peakKilobytes, 40 * 1024);
    EXPECT_EQ(Run({"info", In("bomb.tif"), "--max-pixels", "400000000"}).code, 0);
    const Ended disk = Run({"count-colors", In("bomb.tif"), "--storage", "disk"});
    EXPECT_EQ(disk.out, "1\n") << disk;
  }
}

TEST_F(Tool, DamageIsReportedWithItsPlace) {
  MakePng(In("a.png"), 200, 100, {PNG_COLOR_TYPE_RGB, 8, false, false});
  MakeJpeg(In("a.jpg"), 200, 100, {});
  MakeBmp(In("a.bmp"), 200, 100, {24});
  MakeTiff(In("a.tif"), 200, 100, {PHOTOMETRIC_RGB, 8, 3, COMPRESSION_LZW, false, false, false, false, 3});
  const auto cut = [&](const std::string& name, double share) {
    const std::string whole = Contents(In(name));
    Store(In(name), whole.substr(0, static_cast<size_t>(static_cast<double>(whole.size()) * share)));
  };
  cut("a.png", 0.5);
  cut("a.jpg", 0.9);
  cut("a.bmp", 0.5);
  std::string pages = Contents(In("a.tif"));
  for (size_t at = pages.size() / 2; at < pages.size() / 2 + 200; ++at) pages[at] = '\x55';
  Store(In("a.tif"), pages);
  const std::pair<Words, const char*> cases[] = {
      {{"convert", In("a.png"), Out("a.png")}, "a.png: damaged PNG: the file is cut off (row "},
      {{"convert", In("a.jpg"), Out("a.png")}, "Premature end of input file (row "},
      {{"convert", In("a.bmp"), Out("a.png")}, "damaged BMP: the file is cut off (byte "},
      {{"colors", In("a.tif"), Out("a.tif")}, " (page 2, row "},
  };
  for (const auto& [words, text] : cases) {
    const Ended ended = Run(words);
    EXPECT_EQ(ended.code, 3) << ended;
    EXPECT_TRUE(OneLine(ended, text)) << text << '\n' << ended;
  }
}

}  // namespace
}  // namespace tarn::test
