#pragma once
// What the tests of the platform layer need from the system itself.

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <unistd.h>

#include <cerrno>
#endif

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "Platform/Platform.h"
#ifndef _WIN32
#include "Platform/PosixShared.h"
#endif

namespace tarn::test {

#ifdef _WIN32
inline int LastSystemError() { return int(GetLastError()); }
inline void SetLastSystemError(int error) { SetLastError(DWORD(error)); }
constexpr int kErrorNoMemory = ERROR_NOT_ENOUGH_MEMORY;
constexpr int kErrorInvalid = ERROR_INVALID_PARAMETER;
#else
inline int LastSystemError() { return errno; }
inline void SetLastSystemError(int error) { errno = error; }
constexpr int kErrorNoMemory = ENOMEM;
constexpr int kErrorInvalid = EINVAL;
#endif

/// A path of any alphabet; the standard library's own conversion depends on the program's locale.
inline std::filesystem::path AsPath(const std::wstring& name) {
#ifdef _WIN32
  return name;
#else
  char bytes[platform::kPathBytes];
  EXPECT_TRUE(platform::ToUtf8(name.c_str(), bytes, sizeof bytes));
  return bytes;
#endif
}

/// An empty directory of its own, deleted with what is in it.
class ScratchDirectory {
 public:
  ScratchDirectory() {
    wchar_t base[300];
    EXPECT_TRUE(platform::TemporaryPath(base, 300));
    // A name nobody else has, taken over by a directory.
    wchar_t name[400];
    EXPECT_TRUE(platform::FileTemporaryName(base, name, 400, TARN_HERE));
    EXPECT_TRUE(platform::FileDelete(name));
    path_ = AsPath(name);
    EXPECT_TRUE(std::filesystem::create_directory(path_));
  }
  ~ScratchDirectory() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  const std::filesystem::path& Path() const { return path_; }
  std::wstring Text() const { return path_.wstring(); }
  /// Also of names that are no text.
  std::wstring File(const std::wstring& name) const { return Text() + L"/" + name; }
  size_t Entries() const {
    size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(path_)) ++count;
    return count;
  }

 private:
  std::filesystem::path path_;
};

}  // namespace tarn::test
