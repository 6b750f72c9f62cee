// Libraries loaded at run time, text conversion, and the functions that take narrow names.
#include <gtest/gtest.h>

#include <cstring>
#include <cwchar>
#include <filesystem>
#include <string>
#include <vector>

#include "TestFiles.h"
#include "tarn/tarn.h"

namespace {

#ifdef _WIN32
constexpr wchar_t kSystemLibrary[] = L"C:\\windows\\system32\\version.dll";
constexpr wchar_t kRelative[] = L"folder\\library.dll";
constexpr char kFunction[] = "GetFileVersionInfoW";
#else
constexpr wchar_t kSystemLibrary[] = L"/lib/x86_64-linux-gnu/libm.so.6";
constexpr wchar_t kRelative[] = L"folder/library.so";
constexpr char kFunction[] = "cos";
#endif

/// A folder of its own, deleted at the end with what is in it.
class TestFolder {
 public:
  TestFolder() {
    const tarn::test::TempFile name;
    path_ = name.Name() + L".folder";
    EXPECT_TRUE(std::filesystem::create_directory(path_));
  }
  ~TestFolder() { std::filesystem::remove_all(path_); }
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

TEST(Loader, LoadsByFullPathAndFindsFunctions) {
  T_DllLoader loader;
  EXPECT_EQ(loader.Status(), ERR_LIBRARY_NOT_LOADED);
  EXPECT_EQ(loader.Function(kFunction), nullptr);
  ASSERT_EQ(loader.Load(kSystemLibrary), SUCCESS);
  EXPECT_EQ(loader.Status(), SUCCESS);
  EXPECT_NE(loader.Function(kFunction), nullptr);
  EXPECT_EQ(loader.Function("no such function"), nullptr);
  EXPECT_EQ(loader.LoadA("no library of this name"), ERR_LIBRARY_NOT_LOADED);
  EXPECT_EQ(loader.Function(kFunction), nullptr) << "the one before is gone";
  loader.Unload();
  EXPECT_EQ(loader.Status(), ERR_LIBRARY_NOT_LOADED);
}

TEST(Loader, RefusesWhatItMustNotLoad) {
  auto* library = reinterpret_cast<T_Library*>(1);
  EXPECT_EQ(T_LoadLibrary(&library, nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(library, nullptr);
  EXPECT_EQ(T_LoadLibrary(&library, L""), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_LoadLibrary(&library, kRelative), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_LoadLibrary(nullptr, kSystemLibrary), ERR_INVALID_PARAMETER);
  void* function = &library;
  EXPECT_EQ(T_GetLibraryFunction(nullptr, kFunction, &function), ERR_LIBRARY_NOT_LOADED);
  EXPECT_EQ(function, nullptr);
  EXPECT_EQ(T_GetLibraryFunction(nullptr, kFunction, nullptr), ERR_LIBRARY_NOT_LOADED);
  ASSERT_EQ(T_LoadLibrary(&library, kSystemLibrary), SUCCESS);
  EXPECT_EQ(T_GetLibraryFunction(library, nullptr, &function), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetLibraryFunction(library, kFunction, nullptr), ERR_INVALID_PARAMETER);
  T_UnloadLibrary(library);
  T_UnloadLibrary(nullptr);
}

// A library in the current folder would do for whoever put it there.
TEST(Loader, IgnoresTheCurrentFolderAndDamagedLibraries) {
  const TestFolder folder;
  const std::filesystem::path before = std::filesystem::current_path();
  const std::filesystem::path copy = folder.path() / "here.lib";
  std::filesystem::copy_file(kSystemLibrary, copy);
  std::filesystem::current_path(folder.path());
  T_Library* library = nullptr;
  EXPECT_EQ(T_LoadLibrary(&library, L"here.lib"), ERR_LIBRARY_NOT_LOADED);
  EXPECT_EQ(T_LoadLibrary(&library, copy.wstring().c_str()), SUCCESS);
  T_UnloadLibrary(library);
  std::filesystem::current_path(before);
  std::filesystem::resize_file(copy, std::filesystem::file_size(copy) * 3 / 4);
  EXPECT_EQ(T_LoadLibrary(&library, copy.wstring().c_str()), ERR_LIBRARY_NOT_LOADED);
  EXPECT_EQ(library, nullptr);
}

TEST(Text, GoesThereAndBack) {
  const T_A2W plain("plain text");
  EXPECT_STREQ(plain, L"plain text");
  EXPECT_EQ(plain.Status(), SUCCESS);
  const T_W2A back(plain);
  EXPECT_STREQ(back, "plain text");
  const T_A2W none(nullptr);
  EXPECT_EQ(static_cast<const wchar_t*>(none), nullptr);
  EXPECT_EQ(none.Status(), ERR_INVALID_PARAMETER);
#ifndef _WIN32
  const wchar_t wide[] = L"\u00E9\u20AC\U0001F600";
  const T_W2A narrow(wide);
  EXPECT_STREQ(narrow, "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
  EXPECT_STREQ(T_A2W(narrow), wide);
  for (const char* bad : {"\xC3", "\xC0\x80", "\xED\xA0\x80", "\xF5\x80\x80\x80", "\xFF"}) {
    EXPECT_EQ(T_A2W(bad).Status(), ERR_INVALID_PARAMETER);
  }
  const wchar_t surrogate[] = {static_cast<wchar_t>(0xD800), 0};
  EXPECT_EQ(T_W2A(surrogate).Status(), ERR_INVALID_PARAMETER);
#endif
}

TEST(Text, NarrowNamesDoWhatWideNamesDo) {
  const TestFolder folder;
  const std::string base = folder.path().string();
  const std::string a = base + "/a", b = base + "/b";

  const T_FileHandle file = T_OsCreatA(a.c_str(), 0);
  ASSERT_NE(file, -1);
  EXPECT_EQ(T_OsWrite(file, "twelve bytes", 12, nullptr), 12);
  EXPECT_EQ(T_OsClose(file, nullptr), 0);
  EXPECT_NE(T_CopyFileA(a.c_str(), b.c_str(), 1), 0);
  EXPECT_EQ(T_CopyFileA(a.c_str(), b.c_str(), 1), 0) << "is there already";
  const T_FileHandle copy = T_OsOpenA(b.c_str(), T_OPEN_READ, T_SHARE_READ, nullptr);
  char bytes[16] = {};
  EXPECT_EQ(T_OsRead(copy, bytes, 16, nullptr), 12);
  EXPECT_STREQ(bytes, "twelve bytes");
  EXPECT_EQ(T_OsClose(copy, nullptr), 0);
  EXPECT_EQ(T_OsDeleteA(a.c_str()), 0);
  EXPECT_EQ(T_OsDeleteA(a.c_str()), -1);
  EXPECT_EQ(T_OsOpenA(nullptr, 0, 0, nullptr), -1);

  char name[4096];
  ASSERT_EQ(T_OsGetTempNameA(base.c_str(), name, sizeof name), SUCCESS);
  EXPECT_TRUE(std::filesystem::exists(name));
  EXPECT_EQ(T_OsDeleteA(name), 0);
  EXPECT_EQ(T_OsGetTempNameA(base.c_str(), name, 3), ERR_INVALID_PARAMETER);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1) << "only b";
}

TEST(Text, TemporaryDirectoryIsCutAtACharacter) {
  char before[T_TEMP_DIRECTORY_LENGTH * 4];
  ASSERT_EQ(T_GetTempDirectoryA(before, sizeof before), SUCCESS);
  const TestFolder folder;
#ifdef _WIN32
  const std::string path = folder.path().string();
#else
  const std::string path = folder.path().string() + "/\xE2\x82\xAC";
  std::filesystem::create_directory(path);
#endif
  ASSERT_EQ(T_SetTempDirectoryA(path.c_str()), SUCCESS);
  for (size_t room = 1; room <= path.size() + 1; ++room) {
    std::vector<char> text(room, '?');
    ASSERT_EQ(T_GetTempDirectoryA(text.data(), static_cast<uint32_t>(room)), SUCCESS);
    ASSERT_TRUE(path.starts_with(text.data()));
    ASSERT_EQ(T_A2W(text.data()).Status(), SUCCESS) << room;
  }
  EXPECT_EQ(T_SetTempDirectoryA("\xFF\xFF"), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_SetTempDirectoryA(nullptr), ERR_INVALID_PARAMETER);
  ASSERT_EQ(T_SetTempDirectoryA(before), SUCCESS);
}

}  // namespace
