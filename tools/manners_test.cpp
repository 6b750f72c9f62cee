// The tool's manners: exit codes, limits, and what they say.

#include <gtest/gtest.h>
#include <png.h>
#include <sys/resource.h>
#include <tiffio.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdlib>
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

// ---- Pipes ---------------------------------------------------------------------------------------------------------

class ToolPipes : public Tool {
 protected:
  /// A line for the shell, in which $tarn is the tool; its streams are those of the line.
  Ended Shell(const std::string& line) const {
    const fs::path out = base_ / "log" / "out", err = base_ / "log" / "err";
    const std::string whole = "cd '" + base_.string() + "'; tarn='" TARN_TOOL "'; { " + line + "; } >'" + out.string() +
                              "' 2>'" + err.string() + "'";
    const int status = std::system(whole.c_str());
    Ended ended;
    if (WIFEXITED(status)) ended.code = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) ended.signal = WTERMSIG(status);
    ended.out = Contents(out);
    ended.err = Contents(err);
    return ended;
  }
};

TEST_F(ToolPipes, PicturesComeAndGoThroughThem) {
  const Pixels truth = MakePng(In("a.png"), 90, 70, {PNG_COLOR_TYPE_RGB, 8, false, false});
  ASSERT_EQ(Run({"convert", In("a.png"), In("a.jpg")}).code, 0);
  ASSERT_EQ(Run({"convert", In("a.png"), In("a.tif")}).code, 0);
  ASSERT_EQ(Run({"convert", In("a.png"), In("a.bmp")}).code, 0);
  for (const std::string format : {"png", "tiff", "bmp"}) {
    const std::string name = format == "tiff" ? "tif" : format;
    for (const std::string& way :
         {"cat in/a." + name + " | $tarn convert - - --format " + format,
          "$tarn convert - - --format " + format + " <in/a." + name,
          // A slow writer, and a file that is not at its beginning.
          "{ head -c 9; sleep 0.1; cat; } <in/a." + name + " | $tarn convert - - --format " + format,
          "{ printf xx; cat in/a." + name +
              "; } >in/x; { head -c 2 >/dev/null; $tarn convert - - "
              "--format " +
              format + "; } <in/x"}) {
      const Ended ended = Shell(way + " >out/a");
      EXPECT_EQ(ended.code, 0) << way << '\n' << ended;
      EXPECT_EQ(ended.err, "");
      EXPECT_EQ(Contents(Out("a")), Contents(In("a." + name))) << way;
    }
  }
  const Ended chain = Shell(
      "cat in/a.jpg | $tarn flip - - --format tiff | $tarn reverse - - --format png | "
      "$tarn run - -- rotate 180 - --format png >out/a.png");
  EXPECT_EQ(chain.code, 1) << "options of the chain come before it: " << chain;
  const Ended good = Shell(
      "cat in/a.png | $tarn flip - - --format tiff | $tarn reverse - - --format png | "
      "$tarn run - --format png -- rotate 180 - >out/a.png");
  EXPECT_EQ(good.code, 0) << good;
  EXPECT_TRUE(DecodePng(Out("a.png")) == truth);
  EXPECT_EQ(Shell("cat in/a.png | $tarn diff in/a.tif -").code, 0);
  const Ended info = Shell("cat in/a.png | $tarn info in/a.bmp -");
  EXPECT_NE(info.out.find("\nstandard input\n  format      PNG"), std::string::npos) << info.out;
  // Results keep away from a picture.
  const Ended angle = Shell("$tarn deskew in/a.png - --format png >out/b.png");
  EXPECT_EQ(angle.code, 0);
  EXPECT_NE(angle.err.find('.'), std::string::npos) << angle;
  DecodePng(Out("b.png"));
  // --format says what a file is, too.
  ASSERT_EQ(Run({"convert", In("a.png"), Out("plain"), "--format", "tiff"}).code, 0);
  EXPECT_TRUE(DecodeTiff(Out("plain")) == truth);
}

TEST_F(ToolPipes, WhatGoesWrongWithThemIsToldInOneLine) {
  MakePng(In("a.png"), 300, 200, {PNG_COLOR_TYPE_RGB, 8, false, false});
  struct Case {
    const char* line;
    int code;
    const char* text;
  };
  const Case cases[] = {
      {"$tarn convert in/a.png -", 1, "standard output needs --format png, jpeg, tiff or bmp"},
      {"$tarn diff - - <in/a.png", 1, "standard input can be one picture only"},
      {"$tarn palette in/a.png --swatch -", 1, "--swatch needs a file"},
      {": | $tarn info -", 2, "standard input: is empty"},
      {"$tarn info - <&-", 2, "standard input: "},
      {"$tarn info - <in", 2, "standard input: cannot read: Is a directory"},
      {"echo nothing | $tarn info -", 3, "standard input: is not a PNG, JPEG, TIFF or BMP file"},
      {"head -c 999 in/a.png | $tarn convert - - --format png", 3, "standard input: damaged PNG: the file is cut off"},
      {"$tarn convert in/a.png - --format png >/dev/full", 5, "standard output: cannot write: No space left on device"},
      {"$tarn info in/a.png >/dev/full", 5, "standard output: cannot write: No space left on device"},
      {"$tarn info in/a.png >&-", 5, "standard output: cannot write: Bad file descriptor"},
      {"$tarn convert in/a.png - --format bmp >&-", 5, "standard output: cannot write: Bad file descriptor"},
      {"{ $tarn convert in/a.png - --format bmp; echo $? >out/code; } | :; (exit $(cat out/code))", 5,
       "standard output: cannot write: Broken pipe"},
      {"{ sleep 0.2; $tarn info in/a.png; echo $? >out/code; } | :; (exit $(cat out/code))", 5,
       "standard output: cannot write: Broken pipe"},
      {"ulimit -f 20; cat in/a.png | $tarn info -", 5,
       "standard input: cannot keep it in a temporary file: File too large"},
      {"ulimit -f 20; $tarn convert in/a.png - --format bmp", 5, "standard output: cannot write: File too large"},
  };
  for (const Case& c : cases) {
    const Ended ended = Shell(c.line);
    EXPECT_EQ(ended.code, c.code) << c.line << '\n' << ended;
    EXPECT_TRUE(OneLine(ended, c.text)) << c.line << '\n' << ended;
    EXPECT_EQ(ended.out, "") << c.line;  // a picture that fails has not begun
  }
  // With all streams closed no file gets a stream's number, and is not written into.
  const Ended closed = Shell("$tarn deskew in/a.png out/a.png <&- >&- 2>&-");
  EXPECT_EQ(closed.code, 5);
  EXPECT_FALSE(fs::exists(Out("a.png")));
}

// ---- Progress ------------------------------------------------------------------------------------------------------

/// A line {"operation":"...","file":"...","percent":N}, taken apart strictly.
bool ParseProgress(const std::string& line, std::string& operation, std::string& file, int& percent) {
  size_t at = 0;
  const auto skip = [&](const std::string& text) {
    const bool there = line.compare(at, text.size(), text) == 0;
    at += text.size();
    return there;
  };
  const auto word = [&](std::string& text) {
    text.clear();
    for (; at < line.size() && line[at] != '"'; ++at) {
      if (static_cast<unsigned char>(line[at]) < 0x20) return false;
      if (line[at] == '\\' && ++at == line.size()) return false;
      text += line[at];
    }
    return at < line.size();
  };
  if (!skip("{\"operation\":\"") || !word(operation) || !skip("\",\"file\":\"") || !word(file)) return false;
  if (!skip("\",\"percent\":")) return false;
  size_t digits = 0;
  for (percent = 0; at + digits < line.size() && std::isdigit(static_cast<unsigned char>(line[at + digits]));
       ++digits) {
    percent = percent * 10 + (line[at + digits] - '0');
  }
  at += digits;
  return digits > 0 && line.substr(at) == "}";
}

TEST_F(ToolPipes, ProgressIsForTerminalsUnlessAskedFor) {
  const std::string name = In("a \"b\"\\c\xFF\n.png");
  MakePng(name, 300, 200, {PNG_COLOR_TYPE_RGB, 8, false, false});
  const Words words = {"resize", name, Out("a.tif"), "50%"};
  for (const Words& more : {Words{}, Words{"--progress", "none"}, Words{"--quiet"}, Words{"--progress", "bar", "-q"}}) {
    const Ended silent = Run(With(words, more));
    EXPECT_EQ(silent.code, 0);
    EXPECT_EQ(silent.err, "");
  }
  const Ended told = Run(With(words, {"--progress", "json"}));
  EXPECT_EQ(told.code, 0);
  EXPECT_EQ(told.out, "");
  std::istringstream lines(told.err);
  std::map<std::string, int> last;
  std::vector<std::string> order;
  for (std::string line; std::getline(lines, line);) {
    std::string operation, file;
    int percent = -1;
    ASSERT_TRUE(ParseProgress(line, operation, file, percent)) << line;
    if (last.count(operation) == 0) {
      order.push_back(operation);
      EXPECT_EQ(percent, 0) << line;
    } else {
      EXPECT_GT(percent, last[operation]) << line;
    }
    last[operation] = percent;
    EXPECT_EQ(file, operation == "writing" ? Out("a.tif") : In("a \"b\"\\cufffdu000a.png"))
        << line;  // escapes shortened
  }
  EXPECT_EQ(order, (Words{"reading", "resizing", "writing"}));
  for (const auto& [operation, percent] : last) EXPECT_EQ(percent, 100) << operation;

  // A failure is a line of text, and what failed does not come to its end.
  Store(In("cut.png"), Contents(name).substr(0, 4000));
  const Ended cut = Run({"resize", In("cut.png"), Out("a.tif"), "50%", "--progress", "json"});
  EXPECT_EQ(cut.code, 3);
  EXPECT_EQ(cut.err.find("\"percent\":100"), std::string::npos);
  EXPECT_NE(cut.err.find("\ntarn: "), std::string::npos);
}

// ---- Help, the manual page, completions ----------------------------------------------------------------------------

class ToolManual : public ToolPipes {
 protected:
  /// Words at the beginning of the lines of a section of a help text.
  static Words Section(const std::string& help, const std::string& name) {
    Words words;
    std::istringstream lines(help);
    bool inside = false;
    for (std::string line; std::getline(lines, line);) {
      if (line == name) inside = true;
      if (line.empty()) inside = false;
      if (inside && line.size() > 2 && line[1] == ' ' && line[2] != ' ') words.push_back(line.substr(2));
    }
    return words;
  }
  static std::string First(const std::string& line) { return line.substr(0, line.find(' ')); }
  /// "-h, --help  print ..." -> -h and --help
  static Words OptionsIn(const std::string& help) {
    Words options;
    for (const std::string& line : Section(help, "Options:")) {
      std::istringstream words(line);
      for (std::string word; words >> word && word[0] == '-';) {
        options.push_back(word.back() == ',' ? word.substr(0, word.size() - 1) : word);
      }
    }
    return options;
  }
  /// Every command, as words, with its help.
  std::vector<std::pair<Words, std::string>> Commands() const {
    std::vector<std::pair<Words, std::string>> commands;
    for (const std::string& line : Section(Run({"--help"}).out, "Commands:")) {
      const std::string command = First(line);
      const Ended help = Run({command, "--help"});
      EXPECT_EQ(help.code, 0) << command;
      commands.push_back({{command}, help.out});
      for (const std::string& action : Section(help.out, "Actions:")) {
        commands.push_back({{command, First(action)}, Run({command, First(action), "--help"}).out});
      }
    }
    return commands;
  }
};

TEST_F(ToolManual, HelpIsUniform) {
  const Ended bare = Run({});
  EXPECT_EQ(bare.code, 1);
  EXPECT_EQ(bare.out, "");
  EXPECT_EQ(bare.err, Run({"--help"}).out);
  const auto commands = Commands();
  EXPECT_GT(commands.size(), 28u);
  for (const auto& [words, help] : commands) {
    std::string name = "tarn";
    for (const std::string& word : words) name += " " + word;
    EXPECT_TRUE(help.starts_with("Usage: " + name + " ")) << help;
    const size_t sentence = help.find("\n\n") + 2;
    EXPECT_TRUE(std::isupper(static_cast<unsigned char>(help[sentence]))) << help;
    EXPECT_NE(help.find(".\n\n", sentence), std::string::npos) << help;
    EXPECT_NE(help.find("  -h, --help "), std::string::npos) << name;
    std::istringstream lines(help);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 82u) << line;
  }
}

TEST_F(ToolManual, HasEveryCommandAndOption) {
  const Ended man = Run({"--generate", "man"});
  ASSERT_EQ(man.code, 0);
  const auto troff = [](std::string text) {
    for (size_t at = 0; (at = text.find('-', at)) != std::string::npos; at += 2) text.insert(at, "\\");
    return text;
  };
  for (const auto& [words, help] : Commands()) {
    std::string name = "tarn";
    for (const std::string& word : words) name += " " + word;
    const size_t section = man.out.find("\n.SS \"" + troff(name) + " ");
    ASSERT_NE(section, std::string::npos) << name;
    const std::string text = man.out.substr(section, man.out.find("\n.S", section + 1) - section);
    for (const std::string& option : OptionsIn(help)) {
      // A command of its own is described with what it has alone; one letter stands with its word.
      if (option.size() == 2) continue;
      EXPECT_NE(text.find(troff(option)), std::string::npos) << name << ' ' << option;
    }
  }
  for (const tool::ExitMeaning& meaning : tool::kExitMeanings) {
    EXPECT_NE(man.out.find(std::string(meaning.text).substr(1)), std::string::npos) << meaning.text;
  }
  Store(base_ / "tarn.1", man.out);
  if (std::system("command -v groff >/dev/null") == 0) {
    const Ended groff = Shell("groff -ww -man -Tascii tarn.1");
    EXPECT_EQ(groff.err, "");
    EXPECT_GT(groff.out.size(), 10000u);
  }
  if (std::system("command -v man >/dev/null") == 0) {
    EXPECT_EQ(Shell("man --warnings -l tarn.1 >/dev/null").err, "");
  }
}

TEST_F(ToolManual, ShellsCompleteCommandsOptionsAndValues) {
  Store(base_ / "bash", Run({"--generate", "bash"}).out);
  Store(base_ / "zsh", Run({"--generate", "zsh"}).out);
  Store(base_ / "fish", Run({"--generate", "fish"}).out);
  EXPECT_EQ(Run({"--generate", "tcsh"}).code, 1);
  Store(base_ / "a picture.png", "");
  struct Case {
    const char* words;  // of bash, the last one is completed
    const char* completed;
  };
  const Case cases[] = {
      {"tarn conv", "convert"},
      {"tarn --ver", "--version"},
      {"tarn convert --stor", "--storage"},
      {"tarn convert --storage d", "disk"},
      {"tarn convert --storage ''", "auto memory tiled disk compressed super"},
      {"tarn convert --bits ''", ""},
      {"tarn convert in.png out.png --palette w", "web"},
      {"tarn info a", "a picture.png"},
      {"tarn colors x y --dither sti", ""},
      {"tarn colors x y --dither st", "stucki stevenson-arce"},
      {"tarn pages ins", "insert"},
      {"tarn pages insert --comp", "--compression"},
      {"tarn pages insert --compression l", "lzw"},
      {"tarn run in.png --tile", "--tile-size"},
      {"tarn run in.png -- rot", "rotate"},
      {"tarn run in.png -- rotate 5 --fi", "--fill"},
      {"tarn run in.png -- rotate 5 -- resize --method n", "nearest"},
      {"tarn batch a -- de", "deskew"},
  };
  for (const Case& c : cases) {
    const Ended ended =
        Shell(std::string("bash -c '. ./bash; eval \"COMP_WORDS=($0)\"; COMP_CWORD=$((${#COMP_WORDS[@]} "
                          "- 1)); _tarn; echo \"${COMPREPLY[*]}\"' \"") +
              c.words + "\"");
    EXPECT_EQ(ended.out, std::string(c.completed) + "\n") << c.words << ended;
    EXPECT_EQ(ended.err, "") << c.words;
  }
  for (const char* shell : {"zsh", "fish"}) {
    if (std::system((std::string("command -v ") + shell + " >/dev/null").c_str()) != 0) continue;
    const Ended ended = Shell(std::string(shell) + " -n " + shell);
    EXPECT_EQ(ended.code, 0) << ended;
    EXPECT_EQ(ended.err, "") << shell;
  }
  if (std::system("command -v fish >/dev/null") == 0) {
    const Ended fish = Shell("HOME=$PWD fish -c 'source fish; complete -C \"tarn convert --storage d\"'");
    EXPECT_EQ(fish.out.substr(0, 4), "disk") << fish;
  }
}

}  // namespace
}  // namespace tarn::test
