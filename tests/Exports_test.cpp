// The built shared library as a file: its exports are the lists', it needs the system only, and it can be protected and
// unloaded by the loader.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/BinaryImage.h"

namespace tarn::test {
namespace {

#if defined(_WIN32)
constexpr bool kWindows = true;
#else
constexpr bool kWindows = false;
#endif

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer) || \
    __has_feature(undefined_behavior_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif

using Names = std::vector<std::string>;

const BinaryImage& Library() {
  static const BinaryImage image = ReadBinaryImage(TARN_LIBRARY_PATH);
  return image;
}

std::string ReadText(const std::filesystem::path& path) {
  std::ifstream file(path);
  EXPECT_TRUE(file.good()) << "cannot read " << path;
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

Names ReadList(const char* name) {
  std::istringstream text(ReadText(std::filesystem::path(TARN_SOURCE_DIR) / "cmake" / name));
  Names names;
  for (std::string line; std::getline(text, line);)
    if (!line.empty() && line[0] != '#') names.push_back(line);
  return names;
}

Names Expected() {
  Names names = ReadList("exports.txt");
  for (const std::string& name : ReadList("exports_classes.txt")) names.push_back(name);
  if (kWindows)
    for (const std::string& name : ReadList("exports_windows.txt")) names.push_back(name);
  std::sort(names.begin(), names.end());
  return names;
}

/// Names in `a` that `b` lacks; both sorted.
Names Missing(const Names& a, const Names& b) {
  Names names;
  std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(names));
  return names;
}

bool StartsWithAny(const std::string& text, const Names& starts) {
  return std::any_of(starts.begin(), starts.end(), [&](const std::string& start) { return text.starts_with(start); });
}

TEST(Exports, AreExactlyTheLists) {
  ASSERT_EQ(Library().error, "");
  EXPECT_EQ(Missing(Expected(), Library().exports), Names{}) << "listed, not exported";
  EXPECT_EQ(Missing(Library().exports, Expected()), Names{}) << "exported, not listed";
  EXPECT_EQ(Library().name, kWindows ? "TKRN15X.DLL" : "libtarn.so.15");
  EXPECT_EQ(Library().versions, kWindows ? std::set<std::string>{} : std::set<std::string>{"TARN_15"});
}

TEST(Exports, AreExactlyTheDeclaredFunctions) {
  Names declared, windows;
  for (const auto& header :
       std::filesystem::directory_iterator(std::filesystem::path(TARN_SOURCE_DIR) / "include" / "tarn")) {
    if (header.path().filename() == "codec.h") continue;  // another library
    const std::string text = ReadText(header.path());
    Names& names = header.path().filename() == "windows.h" ? windows : declared;
    // T_API RESULT T_Name(ARGUMENTS)
    for (size_t at = 0; (at = text.find("\nT_API ", at)) != std::string::npos; ++at) {
      const size_t end = text.find('(', at);
      const size_t start = text.find_last_of(" *\n", end) + 1;
      names.push_back(text.substr(start, end - start));
    }
  }
  std::sort(declared.begin(), declared.end());
  std::sort(windows.begin(), windows.end());
  EXPECT_EQ(ReadList("exports.txt"), declared);
  EXPECT_EQ(ReadList("exports_windows.txt"), windows);
}

TEST(Exports, NeedSystemLibrariesOnly) {
  ASSERT_EQ(Library().error, "");
  Names system = kWindows ? Names{"kernel32.dll", "user32.dll",   "gdi32.dll",      "advapi32.dll",
                                  "msvcrt.dll",   "ucrtbase.dll", "api-ms-win-crt-"}
                          : Names{"libc.so.", "libm.so.", "libpthread.so.", "libdl.so.", "ld-linux"};
  if (kSanitized) system.insert(system.end(), {"libasan.", "libubsan.", "libtsan.", "libstdc++.", "libgcc_s."});
  EXPECT_FALSE(Library().libraries.empty());
  for (const std::string& library : Library().libraries) EXPECT_TRUE(StartsWithAny(library, system)) << library;
}

TEST(Exports, LibraryIsProtectedAndUnloadable) {
  ASSERT_EQ(Library().error, "");
  EXPECT_EQ(Library().faults, Names{});
}

TEST(Exports, LibraryUsesNoCppRuntime) {
  ASSERT_EQ(Library().error, "");
  ASSERT_TRUE(Library().symbols.count("T_InitBitmap")) << "stripped: nothing to look at";
  const Names runtime = {"_Znw",
                         "_Zna",
                         "_Zdl",
                         "_Zda",
                         "_ZTI",
                         "__cxa_throw",
                         "__cxa_rethrow",
                         "__cxa_begin_catch",
                         "__cxa_allocate_exception",
                         "__cxa_guard_acquire",
                         "__cxa_thread_atexit",
                         "__gxx_personality"};
  Names used;
  for (const std::string& symbol : Library().symbols)
    if (StartsWithAny(symbol, runtime)) used.push_back(symbol);
  EXPECT_EQ(used, Names{});
}

}  // namespace
}  // namespace tarn::test
