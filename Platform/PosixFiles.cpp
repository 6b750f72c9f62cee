// Files. A file is its descriptor, never below 3.

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "Platform/PosixShared.h"

namespace tarn::platform {

using fault::Answer;
using fault::Point;

int AboveStandardStreams(int descriptor) noexcept {
  if (descriptor < 0 || descriptor > STDERR_FILENO) return descriptor;
  const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const KeepErrno keep;
  close(descriptor);
  return moved;
}

// ---- Files deleted when they are closed ----------------------------------------------------------------------------

namespace {

/// An open file whose name goes when it is closed; the absolute name follows the record.
struct Doomed {
  Doomed* next;
  int descriptor;
  char* Name() noexcept { return reinterpret_cast<char*>(this + 1); }
};

constinit CriticalSection doomedSection;
Doomed* doomedFiles = nullptr;  // guarded by doomedSection

Doomed* MakeDoomed(const char* name) noexcept {
  char directory[kPathBytes] = "";
  if (name[0] != '/' && !getcwd(directory, sizeof directory)) return nullptr;
  const size_t before = std::strlen(directory);
  const size_t length = std::strlen(name) + 1;
  Doomed* doomed = static_cast<Doomed*>(std::malloc(sizeof(Doomed) + before + 1 + length));
  if (!doomed) return nullptr;
  char* target = doomed->Name();
  std::memcpy(target, directory, before);
  if (before) target[before] = '/';
  std::memcpy(target + before + (before != 0), name, length);
  return doomed;
}

Doomed* TakeDoomed(int descriptor) noexcept {
  const Guard guard(doomedSection);
  for (Doomed** place = &doomedFiles; *place; place = &(*place)->next) {
    Doomed* doomed = *place;
    if (doomed->descriptor != descriptor) continue;
    *place = doomed->next;
    return doomed;
  }
  return nullptr;
}

/// Deletes the name of an open file, unless it has become another file's.
void DeleteDoomed(Doomed* doomed) noexcept {
  struct stat own {};
  struct stat named {};
  if (fstat(doomed->descriptor, &own) == 0 && lstat(doomed->Name(), &named) == 0 && own.st_dev == named.st_dev &&
      own.st_ino == named.st_ino)
    unlink(doomed->Name());
  std::free(doomed);
}

}  // namespace

void ForgetDoomedNames() noexcept {
  const Guard guard(doomedSection);
  while (Doomed* doomed = doomedFiles) {
    doomedFiles = doomed->next;
    std::free(doomed);
  }
}

// ---- Opening and closing -------------------------------------------------------------------------------------------

namespace {

int OpenFlags(uint32_t access, Disposition disposition) noexcept {
  const int flags = (access & kWrite) ? (access & kRead) ? O_RDWR : O_WRONLY : O_RDONLY;
  switch (disposition) {
    case Disposition::kOpenExisting:
      return flags;
    case Disposition::kTruncateExisting:
      return flags | O_TRUNC;
    case Disposition::kCreateAlways:
      return flags | O_CREAT | O_TRUNC;
    case Disposition::kOpenOrCreate:
      return flags | O_CREAT;
  }
  return flags;
}

int OpenAbove(const char* name, int flags, mode_t mode, Answer answer) noexcept {
  return AboveStandardStreams(Repeat(answer, [&] { return open(name, flags | O_CLOEXEC | O_NOCTTY, mode); }));
}

/// The descriptor of a file, or -1 with the error set: standard streams are not ours.
int DescriptorOf(int64_t file) noexcept {
  if (file > STDERR_FILENO && file <= INT32_MAX) return static_cast<int>(file);
  errno = EBADF;
  return -1;
}

}  // namespace

int64_t FileOpen(const wchar_t* name, uint32_t access, uint32_t, Disposition disposition, uint32_t attributes,
                 Here here) noexcept {
  Answer answer;
  if (FileRefused(Point::kOpen, here, answer)) return kNoFile;
  const Utf8Name path(name);
  if (!path) return kNoFile;
  // Emptying a file asks for the right to write; this system would empty it for a reader too.
  if (disposition == Disposition::kTruncateExisting && !(access & kWrite)) {
    errno = EINVAL;
    return kNoFile;
  }
  Doomed* doomed = nullptr;
  if ((attributes & kDeleteOnClose) && !(doomed = MakeDoomed(path.c_str()))) return kNoFile;
  const int file = OpenAbove(path.c_str(), OpenFlags(access, disposition), 0666, answer);
  struct stat status {};
  if (file == -1 || fstat(file, &status) == -1 || S_ISDIR(status.st_mode)) {
    const int error = file != -1 && S_ISDIR(status.st_mode) ? EISDIR : errno;
    if (file != -1) close(file);
    std::free(doomed);
    errno = error;
    return kNoFile;
  }
  if (doomed) {
    doomed->descriptor = file;
    const Guard guard(doomedSection);
    doomed->next = doomedFiles;
    doomedFiles = doomed;
  }
  Add(counts.files, 1);
  return file;
}

bool FileClose(int64_t file, Here here) noexcept {
  Answer answer;
  const bool refused = FileRefused(Point::kClose, here, answer);
  const int refusal = errno;
  const int descriptor = DescriptorOf(file);
  if (descriptor == -1) return false;
  if (Doomed* doomed = TakeDoomed(descriptor)) DeleteDoomed(doomed);
  // An interrupted close has closed all the same: repeating it could close another thread's new file.
  const bool closed = close(descriptor) == 0 || errno == EINTR;
  if (closed || errno != EBADF) Add(counts.files, -1);
  if (closed && refused) errno = refusal;
  return closed && !refused;
}

bool FileDelete(const wchar_t* name) noexcept {
  const Utf8Name path(name);
  return path && unlink(path.c_str()) == 0;
}

bool FileIsNamed(int64_t file, const wchar_t* name) noexcept {
  const KeepErrno keep;
  const Utf8Name path(name);
  struct stat own {};
  struct stat named {};
  return path && fstat(DescriptorOf(file), &own) == 0 && stat(path.c_str(), &named) == 0 &&
         own.st_dev == named.st_dev && own.st_ino == named.st_ino;
}

// ---- Reading, writing, positions -----------------------------------------------------------------------------------

int64_t FileRead(int64_t file, void* buffer, uint32_t bytes, Here here) noexcept {
  Answer answer;
  if (FileRefused(Point::kRead, here, answer)) return -1;
  const int descriptor = DescriptorOf(file);
  if (descriptor == -1) return -1;
  const uint32_t wanted = Granted(bytes, answer);
  uint32_t done = 0;
  do {
    const ssize_t got =
        Repeat(answer, [&] { return read(descriptor, static_cast<uint8_t*>(buffer) + done, wanted - done); });
    if (got < 0) return -1;
    if (got == 0) break;
    done += static_cast<uint32_t>(got);
    answer = Answer::kPass;
  } while (done < wanted);
  return done;
}

int64_t FileWrite(int64_t file, const void* buffer, uint32_t bytes, Here here) noexcept {
  Answer answer;
  if (FileRefused(Point::kWrite, here, answer)) return -1;
  const int descriptor = DescriptorOf(file);
  if (descriptor == -1) return -1;
  const uint32_t wanted = Granted(bytes, answer);
  uint32_t done = 0;
  do {
    const ssize_t moved =
        Repeat(answer, [&] { return write(descriptor, static_cast<const uint8_t*>(buffer) + done, wanted - done); });
    if (moved < 0) return done > 0 && LastErrorIsDiskFull() ? int64_t{done} : -1;
    if (moved == 0) break;
    done += static_cast<uint32_t>(moved);
    answer = Answer::kPass;
  } while (done < wanted);
  return done;
}

int64_t FileSeek(int64_t file, int64_t offset, int32_t origin, Here here) noexcept {
  Answer answer;
  if (FileRefused(Point::kSeek, here, answer)) return -1;
  const int descriptor = DescriptorOf(file);
  if (descriptor == -1) return -1;
  const int64_t position = lseek(descriptor, offset, origin == 0 ? SEEK_SET : origin == 1 ? SEEK_CUR : SEEK_END);
  return position >= 0 && answer == Answer::kWrongPosition ? lseek(descriptor, 1, SEEK_CUR) : position;
}

bool FileSetSize(int64_t file, int64_t bytes, Here here) noexcept {
  Answer answer;
  if (FileRefused(Point::kSize, here, answer)) return false;
  const int descriptor = DescriptorOf(file);
  return descriptor != -1 && Repeat(answer, [&] { return ftruncate(descriptor, bytes); }) == 0;
}

bool FileCutHere(int64_t file, Here here) noexcept {
  Answer answer;
  if (FileRefused(Point::kSize, here, answer)) return false;
  const int descriptor = DescriptorOf(file);
  if (descriptor == -1) return false;
  const off_t position = lseek(descriptor, 0, SEEK_CUR);
  return position >= 0 && Repeat(answer, [&] { return ftruncate(descriptor, position); }) == 0;
}

// ---- Reserving disk space ------------------------------------------------------------------------------------------
// A mapped page without disk space behind it ends the process when the disk is full.

namespace {

bool WriteAt(int descriptor, const uint8_t* bytes, size_t count, uint64_t offset) noexcept {
  while (count > 0) {
    const ssize_t moved =
        Repeat(Answer::kPass, [&] { return pwrite(descriptor, bytes, count, static_cast<off_t>(offset)); });
    if (moved < 0) return false;
    bytes += moved;
    count -= static_cast<size_t>(moved);
    offset += static_cast<uint64_t>(moved);
  }
  return true;
}

}  // namespace

bool ReserveByWriting(int descriptor, uint64_t bytes) noexcept {
  uint8_t chunk[16384];
  for (uint64_t at = 0; at < bytes;) {
    // What is there is read and written again, which fills holes; behind the end that reads nothing and writes zeros.
    const size_t count = static_cast<size_t>(std::min<uint64_t>(sizeof chunk, bytes - at));
    const ssize_t got = Repeat(Answer::kPass, [&] { return pread(descriptor, chunk, count, static_cast<off_t>(at)); });
    if (got < 0) return false;
    std::memset(chunk + got, 0, count - static_cast<size_t>(got));
    if (!WriteAt(descriptor, chunk, count, at)) return false;
    at += count;
  }
  return true;
}

bool Reserve(int descriptor, uint64_t bytes, Answer answer) noexcept {
  struct stat status {};
  if (fstat(descriptor, &status) == -1) return false;
  if (bytes > INT64_MAX) {
    errno = EFBIG;
    return false;
  }
  if (bytes == 0) return true;
  if (Repeat(answer, [&] { return fallocate(descriptor, 0, 0, static_cast<off_t>(bytes)); }) == 0) return true;
  if (errno == EOPNOTSUPP && ReserveByWriting(descriptor, bytes)) return true;
  const int error = errno;
  // What was added goes back to the disk. Should that fail too, the file is merely longer.
  [[maybe_unused]] const int restored = ftruncate(descriptor, status.st_size);
  errno = error;
  return false;
}

bool FileReserve(int64_t file, uint64_t bytes, Here here) noexcept {
  Answer answer;
  if (FileRefused(Point::kSize, here, answer)) return false;
  const int descriptor = DescriptorOf(file);
  return descriptor != -1 && Reserve(descriptor, bytes, answer);
}

// ---- Temporary files -----------------------------------------------------------------------------------------------

namespace {

/// Creates a file that was not there, under a name nobody can guess; -1 with the error set.
int CreateUnguessable(const wchar_t* directory, wchar_t* name, uint32_t room, Answer answer) noexcept {
  for (int tries = 0; tries < kTemporaryNameTries; ++tries, answer = Answer::kPass) {
    uint64_t random = 0;
    if (getrandom(&random, sizeof random, 0) != sizeof random) return -1;
    if (!TemporaryNameIn(directory, random, name, room)) return -1;
    const Utf8Name path(name);
    if (!path) return -1;
    const int file = OpenAbove(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0600, answer);
    if (file != -1 || errno != EEXIST) return file;
  }
  return -1;
}

}  // namespace

int TemporaryUnlinked(const wchar_t* directory) noexcept {
  wchar_t name[kPathBytes];
  const int file = CreateUnguessable(directory, name, kPathBytes, Answer::kPass);
  if (file == -1) return -1;
  unlink(Utf8Name(name).c_str());
  return file;
}

int64_t FileTemporary(const wchar_t* directory, Here here) noexcept {
  Answer answer;
  if (FileRefused(Point::kOpen, here, answer)) return kNoFile;
  const Utf8Name path(directory);
  if (!path) return kNoFile;
  int file = OpenAbove(path.c_str(), O_TMPFILE | O_EXCL | O_RDWR, 0600, answer);
  // File systems without nameless files say one of these; older kernels take the call for an opening of a directory.
  if (file == -1 && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)) file = TemporaryUnlinked(directory);
  if (file == -1) return kNoFile;
  Add(counts.files, 1);
  return file;
}

bool FileTemporaryName(const wchar_t* directory, wchar_t* name, uint32_t room, Here here) noexcept {
  Answer answer;
  if (FileRefused(Point::kOpen, here, answer)) return false;
  const int file = CreateUnguessable(directory, name, room, answer);
  if (file == -1) return false;
  close(file);
  return true;
}

bool TemporaryPath(wchar_t* path, uint32_t room) noexcept {
  // Not from the environment of a caller whose privileges we run with.
  const char* wanted = secure_getenv("TMPDIR");
  struct stat status {};
  if (wanted && stat(wanted, &status) == 0 && S_ISDIR(status.st_mode) && access(wanted, W_OK | X_OK) == 0 &&
      FromUtf8(wanted, path, room))
    return true;
  return FromUtf8("/tmp", path, room);
}

bool IsDirectory(const wchar_t* path) noexcept {
  const Utf8Name name(path);
  struct stat status {};
  if (!name || stat(name.c_str(), &status) == -1) return false;
  if (S_ISDIR(status.st_mode)) return true;
  errno = ENOTDIR;
  return false;
}

}  // namespace tarn::platform
