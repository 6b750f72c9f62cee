// Many pictures at a time: what is made of them, what is passed over, and what a stop or a crash leaves behind.

#include <fcntl.h>
#include <png.h>
#include <sys/file.h>

#include <chrono>
#include <csignal>
#include <thread>

#include "test_pictures.h"
#include "test_tool.h"

namespace tarn::test {
namespace {

class ToolBatch : public Tool {
 protected:
  void SetUp() override {
    Tool::SetUp();
    for (int i = 0; i < 12; ++i) {
      const std::string name = std::string(i % 3 == 2 ? "deep/er/" : "") + "p" + std::to_string(i) + ".png";
      fs::create_directories(fs::path(In(name)).parent_path());
      MakePng(In(name), 60 + i, 40 + 2 * i, {i % 2 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY, 8, false, false});
      names_.push_back(name);
    }
  }
  std::string Outputs() const { return (base_ / "out").string(); }
  /// Every output that is there, is what the single command makes; nothing else is there but the journal.
  size_t WholeOutputs(const Words& chain) const {
    size_t whole = 0;
    std::set<std::string> expected;
    for (const std::string& name : names_) {
      expected.insert(Out(name));
      if (!fs::exists(Out(name))) continue;
      const std::string alone = (base_ / "alone.png").string();
      EXPECT_EQ(Run(With(With({"run", In(name), "--"}, chain), {alone})).code, 0);
      EXPECT_TRUE(Contents(Out(name)) == Contents(alone)) << name;
      ++whole;
    }
    for (const auto& entry : fs::recursive_directory_iterator(base_ / "out")) {
      const std::string path = entry.path();
      EXPECT_TRUE(entry.is_directory() || expected.count(path) == 1 || entry.path().filename() == ".tarn-batch")
          << path;
    }
    return whole;
  }
  static bool Says(const Ended& ended, const std::string& text) { return ended.out.find(text) != std::string::npos; }

  Words names_;
  const Words chain_ = {"resize", "50%", "--", "colors", "--bits", "4"};
};

TEST_F(ToolBatch, MakesWhatSingleCommandsMakeAndGoesOn) {
  const Words words = With({"batch", In("**/*.png"), Outputs(), "--jobs", "3", "--"}, chain_);
  Ended ended = Run(words);
  EXPECT_EQ(ended.code, 0) << ended;
  EXPECT_TRUE(Says(ended, "12 done, 0 skipped, 0 failed; ")) << ended.out;
  EXPECT_EQ(WholeOutputs(chain_), 12u);

  struct Case {
    const char* what;
    std::function<void()> change;
    Words words;
    const char* says;
  };
  const std::string out = Out(names_[0]), whole = Contents(out);
  const auto age = [](const std::string& file) {
    fs::last_write_time(file, fs::last_write_time(file) - std::chrono::seconds(5));
  };
  const Words more = {"batch", In("**/*.png"), Outputs(), "--again", "--"};
  const Case cases[] = {
      {"nothing new", [] {}, words, "0 done, 12 skipped, 0 failed"},
      {"an output is gone", [&] { fs::remove(out); }, words, "1 done, 11 skipped"},
      {"an output is another", [&] { Store(out, whole + "x"); }, words, "1 done, 11 skipped"},
      {"an output was touched", [&] { age(out); }, words, "1 done, 11 skipped"},
      {"an input was touched", [&] { age(In(names_[1])); }, words, "1 done, 11 skipped"},
      {"the journal ends within a line",
       [&] { fs::resize_file(Out(".tarn-batch"), fs::file_size(Out(".tarn-batch")) - 3); }, words,
       "1 done, 11 skipped"},
      {"that line did no harm", [] {}, words, "0 done, 12 skipped"},
      {"another command", [] {}, {"batch", In("**/*.png"), Outputs(), "--", "flip"}, "12 done, 0 skipped"},
      {"the same again", [] {}, With(more, chain_), "12 done, 0 skipped"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    c.change();
    ended = Run(c.words);
    EXPECT_EQ(ended.code, 0) << ended;
    EXPECT_TRUE(Says(ended, c.says)) << ended.out;
  }
  EXPECT_TRUE(Contents(out) == whole);
  EXPECT_EQ(WholeOutputs(chain_), 12u);
}

TEST_F(ToolBatch, NamesOutputsAndTellsWhatCommandsTell) {
  Ended ended =
      Run({"batch", In("p0.png"), In("deep/er"), In("p[13].png"), Outputs(), "--suffix", "-small.tif", "--plan"});
  EXPECT_EQ(std::count(ended.out.begin(), ended.out.end(), '\n'), 7) << ended.out;
  EXPECT_TRUE(Says(ended, "\t" + In("deep/er/p5.png") + "\t" + Out("p5-small.tif") + "\n")) << ended.out;
  EXPECT_TRUE(OutFiles().empty());

  ended = Run({"batch", In("p?.png"), Outputs(), "--suffix", "-level", "--", "deskew"});
  EXPECT_EQ(ended.code, 0) << ended;
  EXPECT_TRUE(Says(ended, In("p0.png") + ": ")) << ended.out;
  EXPECT_EQ(OutFiles().count("p0-level.png"), 1u);
  ended = Run({"batch", In("p0.png"), Outputs(), "--format", "tiff", "--compression", "lzw"});
  EXPECT_EQ(ended.code, 0) << ended;
  EXPECT_TRUE(DecodeTiff(Out("p0.tif")) == DecodePng(In("p0.png")));
}

TEST_F(ToolBatch, RefusesBeforeAnyWork) {
  fs::create_directories(In("again"));
  fs::copy(In("p0.png"), In("again/p0.png"));
  Store(In("note.txt"), "text");
  fs::create_directories(In("empty"));
  const std::string out = Out("new");
  struct Case {
    Words words;
    int code;
    const char* text;
  };
  const Case cases[] = {
      {{In("p0.png")}, 1, "the folder to write into"},
      {{In("x*.png"), out}, 2, "matches no file"},
      {{In("empty"), out}, 2, "has no pictures in it"},
      {{In("p0.png"), In("again/p0.png"), out}, 1, "would be made of both"},
      {{In("p0.png"), In("p0.png"), out, "--plan", "--jobs", "0"}, 1, "--jobs"},
      {{In("p*.png"), In("")}, 1, "would replace an input"},
      {{In("note.txt"), out}, 1, "names no format"},
      {{"-", out, "--suffix", ".png"}, 1, "is no name of a picture"},
      {{In("p0.png"), out, "--suffix", "/x"}, 1, "--suffix is part of a name"},
      {{In("p0.png"), out, "--", "melt"}, 1, "'melt' is not one of"},
      {{In("p0.png"), out, "--", "resize", "tall"}, 1, "'tall' is not a size"},
      {{In("p0.png"), out, "--quality", "50"}, 1, "--quality goes with JPEG"},
      {{In("p0.png"), In("note.txt") + "/x"}, 5, "cannot make the folder"},
  };
  for (const Case& c : cases) {
    const Ended ended = Run(With({"batch"}, c.words));
    EXPECT_EQ(ended.code, c.code) << c.text << '\n' << ended;
    EXPECT_TRUE(OneLine(ended, c.text)) << c.text << '\n' << ended;
    EXPECT_TRUE(OutFiles().empty()) << c.text;
  }
  // The same picture named twice is one picture, and one that is missing fails by itself.
  const Ended ended = Run({"batch", In("p0.png"), In("./p0.png"), In("missing.png"), out});
  EXPECT_EQ(ended.code, 2) << ended;
  EXPECT_TRUE(Says(ended, "1 done, 0 skipped, 1 failed; ")) << ended.out;

  // Two batches into one folder would not know of each other.
  const int journal = open((out + "/.tarn-batch").c_str(), O_RDWR);
  ASSERT_EQ(flock(journal, LOCK_EX), 0);
  EXPECT_TRUE(OneLine(Run({"batch", In("p1.png"), out}), "another batch writes into this folder"));
  close(journal);
}

TEST_F(ToolBatch, BadPicturesStopNothingUnlessAsked) {
  Store(In("a.png"), Contents(In("p0.png")).substr(0, 300));
  Store(In("n.png"), "no picture");
  const Words words = With({"batch", In("*.png"), Outputs(), "--jobs", "1"}, {});
  Ended ended = Run(With(words, With({"--stop-on-error", "--"}, chain_)));
  EXPECT_EQ(ended.code, 3) << ended;
  EXPECT_TRUE(Says(ended, "0 done, 0 skipped, 1 failed, 9 left\nfailed (3): " + In("a.png") + ": damaged PNG"))
      << ended.out;
  ended = Run(With(words, With({"--"}, chain_)));
  EXPECT_EQ(ended.code, 3) << ended;
  EXPECT_TRUE(Says(ended, "8 done, 0 skipped, 2 failed; ")) << ended.out;
  EXPECT_EQ(std::count(ended.err.begin(), ended.err.end(), '\n'), 2) << ended.err;
  EXPECT_EQ(WholeOutputs(chain_), 8u);
}

TEST_F(ToolBatch, CrashesCostOnePictureEach) {
  const Words words = With({"batch", In("**"), Outputs(), "--jobs", "2", "--"}, chain_);
  for (const char* named : {"TARN_TEST_UNNAMED", "TARN_TEST_NAMED=1"}) {
    const Ended ended = RunFaulty(words, 17, {"TARN_TEST_WHAT=-9", named});
    EXPECT_TRUE(FaultHappened());
    const size_t failed = static_cast<size_t>(std::count(ended.err.begin(), ended.err.end(), '\n'));
    // None, when all that died were between two pictures: what they could not tell any more is done again.
    EXPECT_EQ(ended.code, failed > 0 ? 6 : 0) << ended;
    EXPECT_EQ(Says(ended, "its process was killed"), failed > 0) << ended.out;
    // Killed at once, a process leaves files where it had to give them names: all it was at for want of unnamed ones,
    // or one because the output was there from a process that could not tell any more.
    size_t left = 0;
    for (const auto& entry : fs::recursive_directory_iterator(base_ / "out")) {
      if (entry.path().filename().string().starts_with(".tarn-") && entry.path().filename() != ".tarn-batch") {
        ++left;
        fs::remove(entry.path());
      }
    }
    // Both may have died after their last picture, too.
    if (std::string_view(named) == "TARN_TEST_UNNAMED") {
      EXPECT_LE(left, failed + 2);
    }
    EXPECT_GE(WholeOutputs(chain_) + failed, 12u) << ended;
    EXPECT_LT(failed, 12u) << ended;

    EXPECT_EQ(Run(words).code, 0);
    EXPECT_EQ(WholeOutputs(chain_), 12u);
    fs::remove_all(base_ / "out");
  }
}

TEST_F(ToolBatch, MemoryRunsOutForOnePicture) {
  if (kSanitized) GTEST_SKIP() << "the sanitizer needs the address space itself";
  MakePng(In("big.png"), 4500, 4500, {PNG_COLOR_TYPE_GRAY, 1, false, false});
  const auto limit = [] {
    const rlimit space{160 << 20, 160 << 20};
    setrlimit(RLIMIT_AS, &space);
  };
  const Ended ended = Run(
      {"batch", In("**"), Outputs(), "--jobs", "2", "--storage", "memory", "--", "convert", "--bits", "64"}, {}, limit);
  EXPECT_EQ(ended.code, 6) << ended;
  EXPECT_TRUE(Says(ended, "12 done, 0 skipped, 1 failed; ")) << ended.out;
  EXPECT_TRUE(Says(ended, "failed (6): " + In("big.png"))) << ended.out;
}

/// A batch that gets a signal when its first output is in the journal.
class ToolBatchStopped : public ToolBatch, public testing::WithParamInterface<int> {};

TEST_P(ToolBatchStopped, LeavesWholeOutputsAndGoesOn) {
  for (int i = 12; i < 24; ++i) {
    names_.push_back("p" + std::to_string(i) + ".png");
    MakePng(In(names_.back()), 300 + i, 200, {PNG_COLOR_TYPE_RGB, 8, false, false});
  }
  const Words chain = {"resize", "150%"};
  const Words words = With({"batch", In("**"), Outputs(), "--jobs", "2", "--"}, chain);
  std::thread watch([&] {
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < until && Contents(Out(".tarn-batch")).empty()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    const std::string process = Contents(base_ / "log" / "pid");
    if (!process.empty()) kill(std::stoi(process), GetParam());
  });
  const fs::path file = base_ / "log" / "pid";
  const Ended ended = Run(words, {}, [&] { Store(file, std::to_string(getpid())); });
  watch.join();
  EXPECT_EQ(ended.signal, GetParam()) << ended;
  EXPECT_EQ(Says(ended, " left (cancelled); "), GetParam() != SIGKILL) << ended.out;
  // Orphans hear of their parent's end on their own.
  for (int i = 0; i < 200; ++i) {
    const int journal = open(Out(".tarn-batch").c_str(), O_RDWR);
    const bool free = flock(journal, LOCK_EX | LOCK_NB) == 0;
    close(journal);
    if (free) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  const size_t whole = WholeOutputs(chain);
  EXPECT_GE(whole, 1u);
  EXPECT_LT(whole, 24u);
  const Ended again = Run(words);
  EXPECT_EQ(again.code, 0) << again;
  EXPECT_TRUE(Says(again, ", 0 failed")) << again.out;
  EXPECT_FALSE(Says(again, "24 done")) << again.out;
  EXPECT_EQ(WholeOutputs(chain), 24u);
}

INSTANTIATE_TEST_SUITE_P(Signals, ToolBatchStopped, testing::Values(SIGINT, SIGTERM, SIGKILL));

}  // namespace
}  // namespace tarn::test
