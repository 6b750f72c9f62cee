// Files. A file is its handle.

#include "Platform/WindowsShared.h"

// In place of a header that drags in the security packages.
extern "C" BOOLEAN NTAPI SystemFunction036(PVOID buffer, ULONG bytes);  // random bytes

namespace tarn::platform {

using fault::Answer;
using fault::Point;

// ---- Opening and closing -------------------------------------------------------------------------------------------

namespace {

DWORD SystemAccess(uint32_t access) noexcept {
  return ((access & kRead) ? GENERIC_READ : 0) | ((access & kWrite) ? GENERIC_WRITE : 0);
}

DWORD SystemShare(uint32_t share) noexcept {
  return ((share & kShareRead) ? FILE_SHARE_READ : 0) | ((share & kShareWrite) ? FILE_SHARE_WRITE : 0);
}

DWORD SystemDisposition(Disposition disposition) noexcept {
  switch (disposition) {
    case Disposition::kOpenExisting:
      return OPEN_EXISTING;
    case Disposition::kTruncateExisting:
      return TRUNCATE_EXISTING;
    case Disposition::kCreateAlways:
      return CREATE_ALWAYS;
    case Disposition::kOpenOrCreate:
      return OPEN_ALWAYS;
  }
  return OPEN_EXISTING;
}

DWORD SystemAttributes(uint32_t attributes) noexcept {
  const DWORD named = ((attributes & kReadOnly) ? FILE_ATTRIBUTE_READONLY : 0) |
                      ((attributes & kHidden) ? FILE_ATTRIBUTE_HIDDEN : 0) |
                      ((attributes & kSystem) ? FILE_ATTRIBUTE_SYSTEM : 0);
  return (named ? named : FILE_ATTRIBUTE_NORMAL) | ((attributes & kDeleteOnClose) ? FILE_FLAG_DELETE_ON_CLOSE : 0);
}

int64_t Counted(HANDLE file) noexcept {
  if (file == INVALID_HANDLE_VALUE) return kNoFile;
  Add(counts.files, 1);
  return reinterpret_cast<intptr_t>(file);
}

}  // namespace

int64_t FileOpen(const wchar_t* name, uint32_t access, uint32_t share, Disposition disposition, uint32_t attributes,
                 Here here) noexcept {
  Answer answer;
  if (FileRefused(Point::kOpen, here, answer)) return kNoFile;
  // Emptying a file asks for the right to write; not every version of the system insists.
  if (!name || (disposition == Disposition::kTruncateExisting && !(access & kWrite))) {
    SetSystemError(SystemError::kInvalid);
    return kNoFile;
  }
  return Counted(CreateFileW(name, SystemAccess(access), SystemShare(share), nullptr, SystemDisposition(disposition),
                             SystemAttributes(attributes), nullptr));
}

bool FileClose(int64_t file, Here here) noexcept {
  Answer answer;
  const bool refused = FileRefused(Point::kClose, here, answer);
  const DWORD refusal = GetLastError();
  if (file == kNoFile || !CloseHandle(HandleOf(file))) {
    SetLastError(ERROR_INVALID_HANDLE);
    return false;
  }
  Add(counts.files, -1);
  if (refused) SetLastError(refusal);
  return !refused;
}

bool FileDelete(const wchar_t* name) noexcept {
  if (name) return DeleteFileW(name);
  SetSystemError(SystemError::kInvalid);
  return false;
}

bool FileIsNamed(int64_t file, const wchar_t* name) noexcept {
  const KeepLastError keep;
  // No access asked for: only the identity is read, which no sharing mode refuses.
  const HANDLE other = name ? CreateFileW(name, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                          OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr)
                            : INVALID_HANDLE_VALUE;
  if (other == INVALID_HANDLE_VALUE) return false;
  BY_HANDLE_FILE_INFORMATION own{};
  BY_HANDLE_FILE_INFORMATION named{};
  const bool known = GetFileInformationByHandle(HandleOf(file), &own) && GetFileInformationByHandle(other, &named);
  CloseHandle(other);
  return known && own.dwVolumeSerialNumber == named.dwVolumeSerialNumber &&
         own.nFileIndexHigh == named.nFileIndexHigh && own.nFileIndexLow == named.nFileIndexLow;
}

// ---- Reading, writing, positions -----------------------------------------------------------------------------------

int64_t FileRead(int64_t file, void* buffer, uint32_t bytes, Here here) noexcept {
  Answer answer;
  if (FileRefused(Point::kRead, here, answer)) return -1;
  const uint32_t wanted = Granted(bytes, answer);
  uint32_t done = 0;
  do {
    DWORD got = 0;
    if (!ReadFile(HandleOf(file), static_cast<uint8_t*>(buffer) + done, wanted - done, &got, nullptr)) {
      const DWORD error = GetLastError();
      if (error != ERROR_HANDLE_EOF && error != ERROR_BROKEN_PIPE) return -1;
      break;
    }
    if (got == 0) break;
    done += got;
  } while (done < wanted);
  return done;
}

int64_t FileWrite(int64_t file, const void* buffer, uint32_t bytes, Here here) noexcept {
  Answer answer;
  if (FileRefused(Point::kWrite, here, answer)) return -1;
  const uint32_t wanted = Granted(bytes, answer);
  uint32_t done = 0;
  do {
    DWORD moved = 0;
    if (!WriteFile(HandleOf(file), static_cast<const uint8_t*>(buffer) + done, wanted - done, &moved, nullptr))
      return done > 0 && LastErrorIsDiskFull() ? int64_t{done} : -1;
    if (moved == 0) break;
    done += moved;
  } while (done < wanted);
  return done;
}

int64_t FileSeek(int64_t file, int64_t offset, int32_t origin, Here here) noexcept {
  Answer answer;
  if (FileRefused(Point::kSeek, here, answer)) return -1;
  LARGE_INTEGER distance{};
  LARGE_INTEGER position{};
  distance.QuadPart = offset;
  if (!SetFilePointerEx(HandleOf(file), distance, &position,
                        origin == 0   ? FILE_BEGIN
                        : origin == 1 ? FILE_CURRENT
                                      : FILE_END))
    return -1;
  distance.QuadPart = 1;
  if (answer == Answer::kWrongPosition && !SetFilePointerEx(HandleOf(file), distance, &position, FILE_CURRENT))
    return -1;
  return position.QuadPart;
}

namespace {

bool SetEnd(int64_t file, int64_t bytes) noexcept {
  FILE_END_OF_FILE_INFO end{};
  end.EndOfFile.QuadPart = bytes;
  return SetFileInformationByHandle(HandleOf(file), FileEndOfFileInfo, &end, sizeof end);
}

}  // namespace

bool FileSetSize(int64_t file, int64_t bytes, Here here) noexcept {
  Answer answer;
  if (FileRefused(Point::kSize, here, answer)) return false;
  if (bytes >= 0) return SetEnd(file, bytes);
  SetSystemError(SystemError::kInvalid);
  return false;
}

bool FileCutHere(int64_t file, Here here) noexcept {
  Answer answer;
  return !FileRefused(Point::kSize, here, answer) && SetEndOfFile(HandleOf(file));
}

// A file's length comes with its disk space here, unless the file was made sparse.
bool FileReserve(int64_t file, uint64_t bytes, Here here) noexcept {
  Answer answer;
  if (FileRefused(Point::kSize, here, answer)) return false;
  LARGE_INTEGER size{};
  if (!GetFileSizeEx(HandleOf(file), &size)) return false;
  if (static_cast<uint64_t>(size.QuadPart) >= bytes) return true;
  if (bytes <= INT64_MAX) return SetEnd(file, static_cast<int64_t>(bytes));
  SetDiskFull();
  return false;
}

// ---- Temporary files -----------------------------------------------------------------------------------------------

namespace {

/// Creates a file that was not there, under a name nobody can guess; the invalid handle with the error set.
HANDLE CreateUnguessable(const wchar_t* directory, wchar_t* name, uint32_t room, DWORD access, DWORD share,
                         DWORD attributes) noexcept {
  for (int tries = 0; tries < kTemporaryNameTries; ++tries) {
    uint64_t random = 0;
    if (!SystemFunction036(&random, sizeof random)) break;
    if (!TemporaryNameIn(directory, random, name, room)) break;
    const HANDLE file = CreateFileW(name, access, share, nullptr, CREATE_NEW, attributes, nullptr);
    if (file != INVALID_HANDLE_VALUE || GetLastError() != ERROR_FILE_EXISTS) return file;
  }
  return INVALID_HANDLE_VALUE;
}

}  // namespace

int64_t FileTemporary(const wchar_t* directory, Here here) noexcept {
  Answer answer;
  if (FileRefused(Point::kOpen, here, answer)) return kNoFile;
  wchar_t name[4096];
  return Counted(CreateUnguessable(directory, name, ARRAYSIZE(name), GENERIC_READ | GENERIC_WRITE | DELETE,
                                   FILE_SHARE_DELETE, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE));
}

bool FileTemporaryName(const wchar_t* directory, wchar_t* name, uint32_t room, Here here) noexcept {
  Answer answer;
  if (FileRefused(Point::kOpen, here, answer)) return false;
  const HANDLE file = CreateUnguessable(directory, name, room, GENERIC_READ | GENERIC_WRITE, 0, FILE_ATTRIBUTE_NORMAL);
  if (file == INVALID_HANDLE_VALUE) return false;
  CloseHandle(file);
  return true;
}

bool TemporaryPath(wchar_t* path, uint32_t room) noexcept {
  const DWORD length = GetTempPathW(room, path);
  if (length > 0 && length < room) return true;
  if (length) SetSystemError(SystemError::kInvalid);
  return false;
}

bool IsDirectory(const wchar_t* path) noexcept {
  const DWORD attributes = path ? GetFileAttributesW(path) : INVALID_FILE_ATTRIBUTES;
  if (attributes == INVALID_FILE_ATTRIBUTES) {
    if (!path) SetSystemError(SystemError::kInvalid);
    return false;
  }
  if (attributes & FILE_ATTRIBUTE_DIRECTORY) return true;
  SetLastError(ERROR_DIRECTORY);
  return false;
}

}  // namespace tarn::platform
