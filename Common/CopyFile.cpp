// Copying a file, from the system's files to wherever the thread's file layer leads.

#include "Common/Internal/Settings.h"
#include "Platform/Platform.h"
#include "tarn/files.h"
#include "tarn/memory.h"

namespace tarn {
namespace {

using platform::SystemError;

constexpr uint32_t kChunkBytes = 1024;

/// Copies until the source ends; false with `error` set.
bool CopyContents(T_FileHandle source, T_FileHandle destination, SystemError& error) noexcept {
  uint8_t chunk[kChunkBytes];
  for (;;) {
    const int64_t got = T_OsRead(source, chunk, kChunkBytes, nullptr);
    if (got == 0) return true;
    if (got < 0) {
      error = SystemError::kReadFault;
      return false;
    }
    if (T_RedirectedWrite(destination, chunk, static_cast<uint32_t>(got)) != got) {
      error = SystemError::kWriteFault;
      return false;
    }
  }
}

/// Last thing before a failure is returned: closing a file may change the last error.
int32_t Fail(SystemError error) noexcept {
  platform::SetSystemError(error);
  return 0;
}

}  // namespace
}  // namespace tarn

int32_t T_CopyFile(const wchar_t* source, const wchar_t* destination, int32_t failIfExists) noexcept {
  if (!source || !destination) return tarn::Fail(tarn::SystemError::kInvalid);
  if (failIfExists) {
    const T_FileHandle there = T_OsOpen(destination, T_OPEN_READ, T_SHARE_READ, nullptr);
    if (there != -1) {
      T_OsClose(there, nullptr);
      return tarn::Fail(tarn::SystemError::kFileExists);
    }
  }
  const T_FileHandle from = T_OsOpen(source, T_OPEN_READ, T_SHARE_READ, nullptr);
  if (from == -1) return 0;
  // Creating the destination would empty the source.
  if (tarn::ThreadSettings().redirect.open == T_OsOpen && tarn::platform::FileIsNamed(from, destination)) {
    T_OsClose(from, nullptr);
    return tarn::Fail(tarn::SystemError::kInvalid);
  }
  const T_FileHandle to = T_RedirectedOpen(destination, T_OPEN_READ_WRITE | T_OPEN_CREATE | T_OPEN_TRUNCATE, 0);
  if (to == -1) {
    T_OsClose(from, nullptr);
    return 0;
  }
  tarn::SystemError error = tarn::SystemError::kWriteFault;
  const bool copied = tarn::CopyContents(from, to, error);
  T_OsClose(from, nullptr);
  // What a destination still held back may fail to arrive at its close.
  if (T_RedirectedClose(to) != 0 || !copied) return tarn::Fail(error);
  return 1;
}
