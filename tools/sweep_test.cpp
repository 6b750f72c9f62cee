// Every command under refused allocations and on full disks. A sample runs with the suite, all of it with the sweeps.

#include <gtest/gtest.h>
#include <png.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <tiffio.h>
#include <unistd.h>

#include <algorithm>
#include <set>

#include "test_pictures.h"
#include "test_tool.h"

namespace tarn::test {
namespace {

class ToolFaults : public Tool {
 protected:
  struct Operation {
    Words words;
    const char* output = nullptr;  // in the folder of outputs; null: results alone
  };

  void SetUp() override {
    Tool::SetUp();
    fs::create_directory(base_ / "tmp");
    MakePng(In("a.png"), 90, 70, {PNG_COLOR_TYPE_RGB, 8, false, false}, {300, 6, ""});
    MakePng(In("p.png"), 90, 70, {PNG_COLOR_TYPE_PALETTE, 4, true, false});
    MakePng(In("g.png"), 90, 70, {PNG_COLOR_TYPE_GRAY, 8, false, false});
    MakePng(In("o.png"), 90, 70, {PNG_COLOR_TYPE_RGB_ALPHA, 8, false, false});
    MakePng(In("b.png"), 90, 70, {PNG_COLOR_TYPE_GRAY, 1, false, false});
    MakeJpeg(In("a.jpg"), 90, 70, {3, true});
    MakeBmp(In("a.bmp"), 90, 70, {8, 40, false, true});
    MakeTiff(In("a.tif"), 90, 70, {PHOTOMETRIC_RGB, 8, 3, COMPRESSION_LZW, true, false, false, false, 3});
  }

  /// Every command, every reader and every writer at least once.
  std::vector<Operation> Operations() const {
    const std::string a = In("a.png"), p = In("p.png"), g = In("g.png"), o = In("o.png"), b = In("b.png");
    const std::string pages = In("a.tif"), png = Out("o.png"), tif = Out("o.tif"), jpg = Out("o.jpg"),
                      bmp = Out("o.bmp");
    const Words tiles = {"--storage", "tiled", "--tile-size", "4K"};
    return {
        {{"info", a, pages, "--page", "1"}},
        {{"convert", In("a.jpg"), png}, "o.png"},
        {{"convert", In("a.bmp"), bmp}, "o.bmp"},
        {{"convert", a, jpg, "--storage", "disk"}, "o.jpg"},
        {{"convert", pages, tif, "--page", "2", "--compression", "none"}, "o.tif"},
        {With({"convert", a, png, "--bits", "7"}, tiles), "o.png"},
        {{"convert", b, tif, "--storage", "compressed"}, "o.tif"},
        {{"convert", g, png, "--storage", "super"}, "o.png"},
        {With({"colors", pages, tif, "--bits", "4"}, tiles), "o.tif"},
        {{"count-colors", p}},
        {{"crop", a, png, "-5,-5,50x50"}, "o.png"},
        {With({"resize", a, png, "50%"}, tiles), "o.png"},
        {{"rotate", o, png, "5", "--resize"}, "o.png"},
        {{"flip", p, png}, "o.png"},
        {{"reverse", a, bmp}, "o.bmp"},
        {{"orient", a, tif}, "o.tif"},
        {{"shear", g, png, "12"}, "o.png"},
        {{"trim", a, png}, "o.png"},
        {{"alpha", p, png, "--set", g}, "o.png"},
        {{"deskew", b, png}, "o.png"},
        {{"fill", a, png, "#102030", "--area", "1,1,9x9"}, "o.png"},
        {{"combine", a, png, p, "--operation", "average"}, "o.png"},
        {{"overlay", g, png, "--put", b}, "o.png"},
        {{"scramble", a, png, "--key", "9"}, "o.png"},
        {With(With({"run", a}, tiles), {"--", "resize", "50%", "--", "rotate", "5", "--", "trim", png}), "o.png"},
        {{"pages", "list", pages}},
        {{"pages", "extract", pages, "2-3", tif}, "o.tif"},
        {{"pages", "insert", pages, "2", p, tif}, "o.tif"},
        {{"pages", "remove", pages, "1", tif}, "o.tif"},
        {{"pages", "move", pages, "1", "end", tif}, "o.tif"},
        {{"palette", p, "--swatch", png}, "o.png"},
        {{"pixel", a, "1,1", png, "--set", "#000000"}, "o.png"},
        {{"diff", a, p}},
    };
  }

  Words Environment() const { return {"TMPDIR=" + (base_ / "tmp").string()}; }

  /// Whole, or a failure of the class in one line, and then nothing is left.
  /// @return whether it failed
  bool Judge(const Operation& operation, const Ended& ended, int code) const {
    EXPECT_EQ(ended.signal, 0) << ended;
    EXPECT_TRUE(fs::is_empty(base_ / "tmp"));
    if (ended.code == 0 || (ended.code == 8 && operation.words[0] == "diff")) {
      EXPECT_EQ(OutFiles().size(), operation.output ? 1u : 0u);
      if (operation.output) fs::remove(Out(operation.output));
      return false;
    }
    EXPECT_EQ(ended.code, code) << ended;
    EXPECT_TRUE(OneLine(ended, code == 6 ? "memory" : "")) << ended;
    EXPECT_TRUE(OutFiles().empty());
    for (const std::string& name : OutFiles()) fs::remove(Out(name));
    return true;
  }

  void RefuseAllocations(bool all) const {
    if (kSanitized) GTEST_SKIP() << "the sanitizer's allocator stays in charge";
    // There are thousands before the first file is opened, most of them the command line's, the same for every command:
    // each is met by some of them.
    constexpr long kStep = 7;
    long first = 1;
    for (const Operation& operation : Operations()) {
      first = first % kStep + 1;
      for (const bool forever : {false, true}) {
        if (!all && forever) continue;
        int failed = 0;
        for (long at = first;; at += all ? kStep : 1 + at / 3) {
          SCOPED_TRACE(testing::PrintToString(operation.words) + ", allocation " + std::to_string(at) +
                       (forever ? " and all later ones" : ""));
          const Ended ended =
              RunFaulty(operation.words, at,
                        With(Environment(), {std::string("TARN_TEST_MEMORY=") + (forever ? "forever" : "once")}));
          if (!FaultHappened()) {
            Judge(operation, ended, 6);
            break;
          }
          failed += Judge(operation, ended, 6);
          if (HasFailure()) return;
        }
        EXPECT_GT(failed, 3) << operation.words[0];
      }
    }
  }

  /// A limit on the size of files, as a full disk is: temporary files and the output come to it.
  void LimitFiles(bool all) const {
    for (const Operation& operation : Operations()) {
      if (!operation.output) continue;
      const Ended free = Run(operation.words, Environment());
      ASSERT_EQ(free.code, 0) << free;
      const auto whole = static_cast<rlim_t>(fs::file_size(Out(operation.output)));
      fs::remove(Out(operation.output));
      int failed = 0;
      for (rlim_t most = 512; most < whole; most += all ? 512 : 1 + whole / 3) {
        SCOPED_TRACE(testing::PrintToString(operation.words) + ", files of " + std::to_string(most) + " bytes");
        const Ended ended = Run(operation.words, Environment(), [&] {
          const rlimit limit{most, most};
          setrlimit(RLIMIT_FSIZE, &limit);
        });
        failed += Judge(operation, ended, 5);
      }
      EXPECT_EQ(failed > 0, whole > 512) << operation.words[0];
    }
  }

  /// A file system of a few pages, of the process's own, in place of a folder.
  static void MountSmall(const fs::path& folder, int kilobytes) {
    const uid_t user = getuid();
    if (unshare(CLONE_NEWNS | (user == 0 ? 0 : CLONE_NEWUSER)) != 0) _exit(125);
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) _exit(125);
    const std::string options = "size=" + std::to_string(kilobytes) + "k";
    if (mount("tmpfs", folder.c_str(), "tmpfs", 0, options.c_str()) != 0) _exit(125);
  }
};

TEST_F(ToolFaults, SomeAllocationsOfEveryCommandAreRefused) { RefuseAllocations(false); }
TEST_F(ToolFaults, DISABLED_EveryAllocationIsRefusedSweep) { RefuseAllocations(true); }
TEST_F(ToolFaults, FilesOfEveryCommandMeetALimit) { LimitFiles(false); }
TEST_F(ToolFaults, DISABLED_FilesMeetEveryLimitSweep) { LimitFiles(true); }

TEST_F(ToolFaults, FullDisksAreNamed) {
  MakePng(In("large.png"), 500, 400, {PNG_COLOR_TYPE_RGB, 8, false, false});
  const std::string large = In("large.png");
  const fs::path tmp = base_ / "tmp", out = base_ / "out";
  struct Case {
    Words words;
    fs::path full;
    std::string text;
  };
  const Case cases[] = {
      {{"convert", large, Out("o.png")}, out, "o.png: cannot write: No space left on device"},
      {{"convert", large, Out("o.tif")}, out, "o.tif: cannot write: No space left on device"},
      {{"convert", large, Out("o.jpg"), "--quality", "100"}, out, "o.jpg: cannot write: No space left on device"},
      {{"convert", large, Out("o.bmp")}, out, "o.bmp: cannot write: No space left on device"},
      {{"colors", large, Out("o.png"), "--bits", "8", "--storage", "disk"}, tmp, "temporary files in " + tmp.string()},
      {{"flip", large, Out("o.png"), "--storage", "disk"}, tmp, "temporary files in " + tmp.string()},
      {{"convert", large, "-", "--format", "bmp"}, tmp, "standard output: cannot write: No space left on device"},
  };
  for (const Case& c : cases) {
    for (const int kilobytes : {4, 32}) {
      const Ended ended = Run(c.words, Environment(), [&] { MountSmall(c.full, kilobytes); });
      if (ended.code == 125) GTEST_SKIP() << "no file system may be mounted here";
      EXPECT_EQ(ended.code, 5) << ended;
      EXPECT_TRUE(OneLine(ended, c.text)) << c.text << '\n' << ended;
      EXPECT_EQ(ended.out, "");
      EXPECT_TRUE(OutFiles().empty());
    }
  }
}

}  // namespace
}  // namespace tarn::test
