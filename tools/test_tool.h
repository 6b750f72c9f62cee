#pragma once
// The tool as its users meet it: a process, files, an exit code and one line.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>

#include "test_pictures.h"

namespace tarn::test {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

inline std::string Contents(const fs::path& name) {
  std::ifstream in(name, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}
inline void Store(const fs::path& name, const std::string& bytes) { std::ofstream(name, std::ios::binary) << bytes; }

struct Ended {
  int code = -1;    // exit code, or -1
  int signal = 0;   // that ended it, or 0
  std::string out;  // standard output
  std::string err;  // standard error
  long peakKilobytes = 0;
};

inline std::ostream& operator<<(std::ostream& os, const Ended& ended) {
  return os << "exit " << ended.code << ", signal " << ended.signal << ": " << ended.err;
}

class Tool : public testing::Test {
 protected:
  void SetUp() override {
    // In memory where possible: the tool flushes every file that it writes.
    const fs::path directory = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : fs::temp_directory_path();
    std::string name = (directory / "tarn-tool-XXXXXX").string();
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    base_ = name;
    fs::create_directory(base_ / "in");
    fs::create_directory(base_ / "out");
    fs::create_directory(base_ / "log");
  }
  void TearDown() override { fs::remove_all(base_); }

  std::string In(const std::string& name) const { return base_ / "in" / name; }
  std::string Out(const std::string& name) const { return base_ / "out" / name; }

  /// Runs the tool. `before` runs in the new process.
  Ended Run(const Words& words, const Words& environment = {}, const std::function<void()>& before = {}) const {
    const fs::path out = base_ / "log" / "out", err = base_ / "log" / "err";
    const pid_t child = fork();
    if (child == 0) {
      if (!std::freopen(out.c_str(), "w", stdout) || !std::freopen(err.c_str(), "w", stderr)) _exit(126);
      for (const std::string& variable : environment) putenv(const_cast<char*>(variable.c_str()));
      if (before) before();
      std::vector<char*> arguments = {const_cast<char*>(TARN_TOOL)};
      for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
      arguments.push_back(nullptr);
      execv(TARN_TOOL, arguments.data());
      _exit(127);
    }
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    Ended ended;
    if (WIFEXITED(status)) ended.code = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) ended.signal = WTERMSIG(status);
    ended.out = Contents(out);
    ended.err = Contents(err);
    ended.peakKilobytes = usage.ru_maxrss;
    return ended;
  }
  /// The tool with a fault at a moment; see test_faults.cpp.
  Ended RunFaulty(const Words& words, long at, const Words& how) const {
    fs::remove(Done());
    Words environment = {"LD_PRELOAD=" TARN_TEST_FAULTS, "TARN_TEST_AT=" + std::to_string(at),
                         "TARN_TEST_DONE=" + Done().string()};
    if (kSanitized) {
      const char* options = getenv("ASAN_OPTIONS");
      environment.push_back("ASAN_OPTIONS=" + std::string(options ? options : "") + ":verify_asan_link_order=0");
    }
    environment.insert(environment.end(), how.begin(), how.end());
    return Run(words, environment);
  }
  fs::path Done() const { return base_ / "log" / "done"; }
  bool FaultHappened() const { return fs::exists(Done()); }

  std::set<std::string> OutFiles() const {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(base_ / "out")) names.insert(entry.path().filename());
    return names;
  }
  /// One line that names the tool and holds the text.
  static bool OneLine(const Ended& ended, const std::string& text) {
    return ended.err.starts_with("tarn: ") && std::count(ended.err.begin(), ended.err.end(), '\n') == 1 &&
           ended.err.ends_with('\n') && ended.err.find(text) != std::string::npos;
  }

  fs::path base_;
};

inline Words StorageOptions(const std::string& kind) {
  if (kind == "tiled") return {"--storage", "tiled", "--tile-size", "200"};
  if (kind == "limited") return {"--max-memory", "300", "--tile-size", "100"};
  return {"--storage", kind};
}

inline Words With(Words words, const Words& more) {
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

}  // namespace tarn::test
