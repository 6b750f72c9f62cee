#pragma once
// Files that tests make in the thread's temporary directory, by the system's files.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tarn/files.h"
#include "tarn/types.h"

namespace tarn::test {

using Bytes = std::vector<uint8_t>;

inline bool WriteWhole(const std::wstring& name, const Bytes& bytes) {
  const T_FileHandle file = T_OsOpen(name.c_str(), T_OPEN_WRITE | T_OPEN_CREATE, 0, nullptr);
  if (file == -1) return false;
  const bool written = T_OsWriteBig(file, bytes.data(), bytes.size(), nullptr) == int64_t(bytes.size());
  return T_OsClose(file, nullptr) == 0 && written;
}

inline bool Exists(const std::wstring& name) {
  const T_FileHandle file = T_OsOpen(name.c_str(), T_OPEN_READ, T_SHARE_READ | T_SHARE_WRITE, nullptr);
  if (file != -1) T_OsClose(file, nullptr);
  return file != -1;
}

inline Bytes ReadWhole(const std::wstring& name) {
  const T_FileHandle file = T_OsOpen(name.c_str(), T_OPEN_READ, T_SHARE_READ | T_SHARE_WRITE, nullptr);
  EXPECT_NE(file, -1);
  if (file == -1) return {};
  Bytes bytes(size_t(T_OsSeek(file, 0, T_SEEK_END, nullptr)));
  T_OsSeek(file, 0, T_SEEK_START, nullptr);
  EXPECT_EQ(T_OsReadBig(file, bytes.data(), bytes.size(), nullptr), int64_t(bytes.size()));
  T_OsClose(file, nullptr);
  return bytes;
}

/// A file of its own name, deleted at the end.
class TempFile {
 public:
  TempFile() {
    wchar_t name[512];
    EXPECT_EQ(T_OsGetTempName(nullptr, name, 512), SUCCESS);
    name_ = name;
  }
  explicit TempFile(const Bytes& contents) : TempFile() { EXPECT_TRUE(WriteWhole(name_, contents)); }
  ~TempFile() { T_OsDelete(name_.c_str()); }
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;
  const std::wstring& Name() const { return name_; }
  const wchar_t* Text() const { return name_.c_str(); }

 private:
  std::wstring name_;
};

/// Bytes that differ from their neighbours; `seed` makes them differ between files.
inline Bytes Pattern(size_t count, uint32_t seed = 1) {
  Bytes bytes(count);
  uint32_t state = seed * 2654435761u + 1;
  for (uint8_t& byte : bytes) byte = uint8_t((state = state * 1664525u + 1013904223u) >> 24);
  return bytes;
}

}  // namespace tarn::test
