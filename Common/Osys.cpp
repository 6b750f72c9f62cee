// The system's files behind the file layer.

#include <cwchar>

#include "Common/Internal/Chunks.h"
#include "Common/Internal/Ledger.h"
#include "Common/Internal/Settings.h"
#include "Platform/Platform.h"
#include "tarn/files.h"

namespace tarn {
namespace {

constexpr size_t kPathLength = 4096 + 64;  // wide characters: the longest directory of any system, and a name

uint32_t ShareOf(int32_t mode) noexcept {
  switch (mode & (T_SHARE_READ | T_SHARE_WRITE)) {
    case T_SHARE_READ | T_SHARE_WRITE:
      return platform::kShareRead | platform::kShareWrite;
    case T_SHARE_READ:
      return platform::kShareRead;
    default:
      return 0;  // Deliberate: T_SHARE_WRITE alone shares nothing
  }
}

platform::Disposition DispositionOf(int32_t flags) noexcept {
  if (flags & T_OPEN_CREATE) return platform::Disposition::kCreateAlways;
  if (flags & T_OPEN_TRUNCATE) return platform::Disposition::kTruncateExisting;
  return platform::Disposition::kOpenExisting;
}

T_FileHandle Tracked(int64_t file, Here here) noexcept {
  return file == platform::kNoFile ? file : ledger::AddSystem(file, here);
}

}  // namespace
}  // namespace tarn

using namespace tarn;

T_FileHandle T_OsOpen(const wchar_t* name, int32_t flags, int32_t mode, void*) noexcept {
  if (!name) return platform::kNoFile;
  uint32_t access = platform::kRead | platform::kWrite;
  uint32_t attributes = platform::kNormal;
  switch (flags & 3) {
    case T_OPEN_READ:
      access = platform::kRead;
      attributes = platform::kReadOnly;
      break;
    case T_OPEN_WRITE:
      access = platform::kWrite;
      break;
  }
  const platform::Disposition disposition = DispositionOf(flags);
  if (disposition == platform::Disposition::kTruncateExisting && !(access & platform::kWrite)) {
    platform::SetSystemError(platform::SystemError::kInvalid);  // not every system refuses it by itself
    return platform::kNoFile;
  }
  const Here here = TARN_HERE;
  return Tracked(platform::FileOpen(name, access, ShareOf(mode), disposition, attributes, here), here);
}

T_FileHandle T_OsCreat(const wchar_t* name, int32_t attributes) noexcept {
  if (!name) return platform::kNoFile;
  const bool readOnly = attributes & T_ATTRIBUTE_READ_ONLY;
  uint32_t wanted = 0;
  if (readOnly) wanted |= platform::kReadOnly;
  if (attributes & T_ATTRIBUTE_HIDDEN) wanted |= platform::kHidden;
  if (attributes & T_ATTRIBUTE_SYSTEM) wanted |= platform::kSystem;
  if (attributes & T_ATTRIBUTE_DELETE_ON_CLOSE) wanted |= platform::kDeleteOnClose;
  const Here here = TARN_HERE;
  return Tracked(platform::FileOpen(name, readOnly ? platform::kRead : platform::kRead | platform::kWrite,
                                    platform::kShareRead | platform::kShareWrite, platform::Disposition::kCreateAlways,
                                    wanted ? wanted : platform::kNormal, here),
                 here);
}

int64_t T_OsRead(T_FileHandle file, void* buffer, uint32_t bytes, void*) noexcept {
  if (!buffer && bytes) return -1;
  return platform::FileRead(file, buffer, bytes, TARN_HERE);
}

int64_t T_OsWrite(T_FileHandle file, const void* buffer, uint32_t bytes, void*) noexcept {
  if (bytes == 0) return platform::FileCutHere(file, TARN_HERE) ? 0 : -1;
  if (!buffer) return -1;
  return platform::FileWrite(file, buffer, bytes, TARN_HERE);
}

int64_t T_OsReadBig(T_FileHandle file, void* buffer, uint64_t bytes, void* userData) noexcept {
  return MoveInChunks(static_cast<uint8_t*>(buffer), bytes,
                      [=](uint8_t* at, uint32_t count) { return T_OsRead(file, at, count, userData); });
}

int64_t T_OsWriteBig(T_FileHandle file, const void* buffer, uint64_t bytes, void* userData) noexcept {
  return MoveInChunks(static_cast<const uint8_t*>(buffer), bytes,
                      [=](const uint8_t* at, uint32_t count) { return T_OsWrite(file, at, count, userData); });
}

int64_t T_OsSeek(T_FileHandle file, int64_t offset, int32_t origin, void*) noexcept {
  const bool known = origin == T_SEEK_START || origin == T_SEEK_CURRENT;
  const int64_t position = platform::FileSeek(file, offset, known ? origin : T_SEEK_END, TARN_HERE);
  return position < 0 ? 0 : position;  // Deliberate: callers of old take every negative result for a position
}

int64_t T_OsSeekBig(T_FileHandle file, int64_t offset, int32_t origin, void* userData) noexcept {
  return T_OsSeek(file, offset, origin, userData);
}

int32_t T_OsClose(T_FileHandle file, void*) noexcept {
  if (file == platform::kNoFile) return -1;
  const Here here = TARN_HERE;
  ledger::RemoveSystem(file, here);
  return platform::FileClose(file, here) ? 0 : -1;
}

int32_t T_OsDelete(const wchar_t* name) noexcept { return name && platform::FileDelete(name) ? 0 : -1; }

int32_t T_OsSetFileSize(T_FileHandle file, int64_t bytes) noexcept {
  return bytes >= 0 && platform::FileSetSize(file, bytes, TARN_HERE) ? 0 : -1;
}

int32_t T_OsGetLastError(int32_t status) noexcept { return platform::LastErrorIsDiskFull() ? ERR_DISK_FULL : status; }

int32_t T_OsGetTempName(const wchar_t* directory, wchar_t* name, uint32_t length) noexcept {
  if (!name || length == 0) return ERR_INVALID_PARAMETER;
  wchar_t path[kPathLength];
  const wchar_t* const where = directory ? directory : ThreadSettings().tempDirectory;
  if (!platform::FileTemporaryName(where, path, kPathLength, TARN_HERE)) return T_OsGetLastError(ERR_FILE_WRITE);
  const size_t wanted = std::wcslen(path) + 1;
  if (wanted > length) {
    platform::FileDelete(path);
    return ERR_INVALID_PARAMETER;
  }
  std::wmemcpy(name, path, wanted);
  return SUCCESS;
}
