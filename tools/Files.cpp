#include "Files.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "Console.h"
#include "Failure.h"
#include "tarn/tarn.h"

namespace tarn::tool {
namespace {

constexpr size_t kBufferBytes = 64 * 1024;

std::string ErrorText(int error) { return std::generic_category().message(error); }

// ---- Signals -------------------------------------------------------------------------------------------------------

constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP};

/// Temporary names that a signal must remove. A name is entered before its file is made and left after it is gone, so
/// that a signal on any thread finds it; removing one too many does no harm.
struct Pending {
  std::atomic<int> place;  // the directory's descriptor plus 1; kFree; kTaken while the name is written
  char name[48];
};
constexpr int kFree = 0, kTaken = -1;
Pending pending[OutputFile::kMostPending];
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler reads it");

extern "C" void EndBySignal(int signal) {
  for (const Pending& entry : pending) {
    const int place = entry.place.load(std::memory_order_acquire);
    if (place > 0) unlinkat(place - 1, entry.name, 0);
  }
  constexpr char kWipe[] = "\r\033[K";
  if (barDrawn && write(STDERR_FILENO, kWipe, sizeof kWipe - 1) < 0) barDrawn = 0;  // nothing else can be done
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

class SignalsBlocked {
 public:
  SignalsBlocked() noexcept {
    sigset_t ending;
    sigemptyset(&ending);
    for (const int signal : kEndingSignals) sigaddset(&ending, signal);
    pthread_sigmask(SIG_BLOCK, &ending, &previous_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t previous_;
};

/// @return the entry; -1 when all are taken
int SetPending(int directory, const std::string& name) noexcept {
  for (int i = 0; i < OutputFile::kMostPending; ++i) {
    int free = kFree;
    if (!pending[i].place.compare_exchange_strong(free, kTaken)) continue;
    const size_t length = std::min(name.size(), sizeof pending[i].name - 1);
    std::memcpy(pending[i].name, name.data(), length);
    pending[i].name[length] = 0;
    pending[i].place.store(directory + 1, std::memory_order_release);
    return i;
  }
  return -1;
}

void ClearPending(int entry) noexcept {
  if (entry >= 0) pending[entry].place.store(kFree, std::memory_order_release);
}

std::string UnguessableName() {
  unsigned char random[16];
  for (size_t filled = 0; filled < sizeof random;) {
    const ssize_t got = getrandom(random + filled, sizeof random - filled, 0);
    if (got < 0 && errno != EINTR) throw std::system_error(errno, std::generic_category(), "random bytes");
    if (got > 0) filled += static_cast<size_t>(got);
  }
  std::string name = ".tarn-";
  for (const unsigned char byte : random) {
    constexpr char kDigits[] = "0123456789abcdef";
    name += kDigits[byte >> 4];
    name += kDigits[byte & 15];
  }
  return name;
}

}  // namespace

void InstallSignalCleanup() noexcept {
  for (const int signal : kEndingSignals) {
    struct sigaction action {};
    // A signal that the caller had ignored, as nohup does, stays ignored.
    if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) continue;
    action = {};
    action.sa_handler = EndBySignal;
    for (const int other : kEndingSignals) sigaddset(&action.sa_mask, other);
    sigaction(signal, &action, nullptr);
  }
  std::signal(SIGXFSZ, SIG_IGN);
  std::signal(SIGPIPE, SIG_IGN);
  // Read only: what is written there fails, as it would without.
  for (int file = open("/dev/null", O_RDONLY); file >= 0; file = open("/dev/null", O_RDONLY)) {
    if (file <= STDERR_FILENO) continue;
    close(file);
    break;
  }
}

// ---- Standard streams ----------------------------------------------------------------------------------------------

namespace {

/// A file without a name, in the library's temporary directory. Throws Failure (Exit::kOutput).
int TemporaryFile(const std::string& user) {
  char directory[PATH_MAX] = {};
  if (T_GetTempDirectoryA(directory, sizeof directory) != SUCCESS || !directory[0]) std::strcpy(directory, "/tmp");
  int file = openat(AT_FDCWD, directory, O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (file < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == ENOENT || errno == EINVAL)) {
    const std::string name = std::string(directory) + "/" + UnguessableName();
    const SignalsBlocked blocked;
    file = openat(AT_FDCWD, name.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600);
    const int error = errno;
    if (file >= 0) unlink(name.c_str());
    errno = error;
  }
  if (file >= 0) return file;
  throw Failure(Exit::kOutput, user,
                "cannot make a temporary file in " + std::string(directory) + ": " + ErrorText(errno));
}

/// False when the bytes could not be written; errno tells why. Waits where the stream would not.
bool WriteAll(int file, const unsigned char* bytes, size_t count) noexcept {
  while (count > 0) {
    const ssize_t written = write(file, bytes, count);
    if (written < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      pollfd ready{file, POLLOUT, 0};
      poll(&ready, 1, -1);
      continue;
    }
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes += written;
    count -= static_cast<size_t>(written);
  }
  return true;
}

/// All that standard input has, as a file that can be read anywhere. Throws Failure.
int SpooledInput() {
  static std::atomic<bool> taken{false};
  if (taken.exchange(true)) throw Failure(Exit::kUsage, "", "standard input can be one picture only");
  if (isatty(STDIN_FILENO) == 1)
    throw Failure(Exit::kUsage, "", "standard input is a terminal; pipe a picture into it");
  struct stat status {};
  if (fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode) && lseek(STDIN_FILENO, 0, SEEK_CUR) == 0) {
    const int file = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (file >= 0) return file;
  }
  const auto buffer = std::make_unique<unsigned char[]>(kBufferBytes);
  const int spool = TemporaryFile(kStandardInput);
  for (;;) {
    const ssize_t got = read(STDIN_FILENO, buffer.get(), kBufferBytes);
    if (got == 0) return spool;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      pollfd ready{STDIN_FILENO, POLLIN, 0};
      poll(&ready, 1, -1);
      continue;
    }
    const bool failed = got < 0;
    if (!failed && WriteAll(spool, buffer.get(), static_cast<size_t>(got))) continue;
    const int error = errno;
    close(spool);
    throw failed ? Failure(Exit::kInput, kStandardInput, "cannot read: " + ErrorText(error))
                 : Failure(Exit::kOutput, kStandardInput, "cannot keep it in a temporary file: " + ErrorText(error));
  }
}

}  // namespace

// ---- Input ---------------------------------------------------------------------------------------------------------

InputFile::InputFile(std::string name) : name_(std::move(name)), buffer_(new unsigned char[kBufferBytes]) {
  if (name_ == kStandardStream) {
    name_ = kStandardInput;
    file_ = SpooledInput();
  } else {
    // Non-blocking, so that a pipe without a writer is refused instead of waited for.
    file_ = open(name_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  }
  if (file_ < 0) throw Failure(Exit::kInput, name_, "cannot open: " + ErrorText(errno));
  struct stat status {};
  std::string reason;
  if (fstat(file_, &status) != 0) {
    reason = ErrorText(errno);
  } else if (S_ISDIR(status.st_mode)) {
    reason = "is a directory";
  } else if (!S_ISREG(status.st_mode)) {
    reason = "is not a regular file";
  } else if (status.st_size == 0) {
    reason = "is empty";
  }
  if (!reason.empty()) {
    close(file_);
    throw Failure(Exit::kInput, name_, reason);
  }
  size_ = static_cast<uint64_t>(status.st_size);
}

InputFile::~InputFile() { close(file_); }

size_t InputFile::Read(void* target, size_t bytes) noexcept {
  auto* out = static_cast<unsigned char*>(target);
  size_t moved = 0;
  while (moved < bytes) {
    if (position_ >= bufferStart_ && position_ < bufferStart_ + bufferLength_) {
      const size_t skip = static_cast<size_t>(position_ - bufferStart_);
      const size_t count = std::min(bytes - moved, bufferLength_ - skip);
      std::memcpy(out + moved, buffer_.get() + skip, count);
      moved += count;
      position_ += count;
      continue;
    }
    if (position_ >= INT64_MAX) break;
    // Long reads go straight to their target.
    const bool direct = bytes - moved >= kBufferBytes;
    void* place = direct ? out + moved : buffer_.get();
    const size_t room = direct ? std::min<size_t>(bytes - moved, 1 << 30) : kBufferBytes;
    const ssize_t got = pread(file_, place, room, static_cast<off_t>(position_));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && error_ == 0) error_ = errno;
    if (got <= 0) break;
    if (direct) {
      moved += static_cast<size_t>(got);
      position_ += static_cast<uint64_t>(got);
    } else {
      bufferStart_ = position_;
      bufferLength_ = static_cast<size_t>(got);
    }
  }
  ranOut_ = ranOut_ || moved < bytes;
  return moved;
}

void InputFile::ThrowIfFailed() const {
  if (error_ != 0) throw Failure(Exit::kInput, name_, "cannot read: " + ErrorText(error_));
}

// ---- Output --------------------------------------------------------------------------------------------------------

OutputFile::OutputFile(std::string name) : name_(std::move(name)), buffer_(new unsigned char[kBufferBytes]) {
  if (name_ == kStandardStream) {
    name_ = kStandardOutput;
    standard_ = true;
    if (isatty(STDOUT_FILENO) == 1) {
      throw Failure(Exit::kUsage, "", "standard output is a terminal; send the picture into a file or a pipe");
    }
    file_ = TemporaryFile(name_);
    return;
  }
  std::filesystem::path target = name_;
  std::error_code ignored;
  // A link is written through, as other programs do, not replaced by a file.
  if (std::filesystem::is_symlink(target, ignored)) {
    target = std::filesystem::weakly_canonical(target, ignored);
    if (ignored) throw Failure(Exit::kOutput, name_, "cannot follow the link: " + ignored.message());
  }
  entry_ = target.filename();
  if (entry_.empty() || entry_ == "." || entry_ == "..") throw Failure(Exit::kOutput, name_, "is a directory");
  std::string directory = target.parent_path();
  if (directory.empty()) directory = ".";

  struct stat existing {};
  replaces_ = stat(target.c_str(), &existing) == 0;
  if (replaces_) {
    if (S_ISDIR(existing.st_mode)) throw Failure(Exit::kOutput, name_, "is a directory");
    if (!S_ISREG(existing.st_mode)) throw Failure(Exit::kOutput, name_, "is not a regular file");
    if (access(target.c_str(), W_OK) != 0) Fail("cannot write", errno);
  }
  // A directory that may be searched and written but not listed cannot be flushed; everything else works.
  directory_ = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory_ < 0) directory_ = open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (directory_ < 0) Fail("cannot open its directory", errno);

  // An unnamed file gets its name through /proc. EISDIR and ENOENT come from a kernel that does not know unnamed files.
  errno = EOPNOTSUPP;
  if (access("/proc/self/fd", X_OK) == 0) file_ = openat(directory_, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
  if (file_ < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == ENOENT || errno == EINVAL)) CreateNamed();
  if (file_ < 0) {
    const int error = errno;
    close(directory_);
    Fail("cannot write", error);
  }
  if (replaces_) fchmod(file_, existing.st_mode & 0777);  // the new file keeps the old one's permissions
}

void OutputFile::CreateNamed() {
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string candidate = UnguessableName();
    pending_ = SetPending(directory_, candidate);
    file_ = openat(directory_, candidate.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0666);
    if (file_ >= 0) {
      temporary_ = std::move(candidate);  // a name that exists is never lost for want of memory
      return;
    }
    const int error = errno;
    ClearPending(pending_);
    pending_ = -1;
    errno = error;
    if (errno != EEXIST) return;
  }
}

OutputFile::~OutputFile() {
  Close();
  if (!temporary_.empty()) unlinkat(directory_, temporary_.c_str(), 0);
  ClearPending(pending_);
  close(directory_);
}

bool OutputFile::Close() noexcept {
  if (file_ < 0) return true;
  const bool closed = close(file_) == 0 || errno == EINTR;  // the descriptor is gone in every case
  file_ = -1;
  return closed;
}

void OutputFile::Fail(const char* doing, int error) const {
  throw Failure(Exit::kOutput, name_, std::string(doing) + ": " + ErrorText(error));
}

void OutputFile::ThrowIfFailed() const {
  if (error_ != 0) Fail("cannot write", error_);
}

bool OutputFile::Flush() noexcept {
  size_t written = 0;
  while (written < bufferUsed_ && error_ == 0) {
    const ssize_t count =
        pwrite(file_, buffer_.get() + written, bufferUsed_ - written, static_cast<off_t>(bufferStart_ + written));
    if (count > 0) {
      written += static_cast<size_t>(count);
    } else if (count == 0) {
      error_ = ENOSPC;
    } else if (errno != EINTR) {
      error_ = errno;
    }
  }
  bufferUsed_ = 0;
  return error_ == 0;
}

bool OutputFile::Write(const void* source, size_t bytes) noexcept {
  const auto* in = static_cast<const unsigned char*>(source);
  if (position_ != bufferStart_ + bufferUsed_) {
    if (!Flush()) return false;
    bufferStart_ = position_;
  }
  while (bytes > 0 && error_ == 0) {
    const size_t count = std::min(bytes, kBufferBytes - bufferUsed_);
    std::memcpy(buffer_.get() + bufferUsed_, in, count);
    bufferUsed_ += count;
    position_ += count;
    size_ = std::max(size_, position_);
    in += count;
    bytes -= count;
    if (bufferUsed_ == kBufferBytes) {
      Flush();
      bufferStart_ = position_;
    }
  }
  return error_ == 0;
}

size_t OutputFile::Read(void* target, size_t bytes) noexcept {
  if (!Flush()) return 0;
  size_t moved = 0;
  while (moved < bytes) {
    const ssize_t got =
        pread(file_, static_cast<unsigned char*>(target) + moved, bytes - moved, static_cast<off_t>(position_));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) error_ = errno;
    if (got <= 0) break;
    moved += static_cast<size_t>(got);
    position_ += static_cast<uint64_t>(got);
  }
  return moved;
}

/// Gives the unnamed file a name in the directory; errno tells why not.
bool OutputFile::LinkAs(const std::string& entry) noexcept {
  char self[32];
  std::snprintf(self, sizeof self, "/proc/self/fd/%d", file_);
  return linkat(AT_FDCWD, self, directory_, entry.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

void OutputFile::CopyToStandardOutput() {
  std::fflush(stdout);
  for (position_ = 0; position_ < size_;) {
    const size_t count = Read(buffer_.get(), static_cast<size_t>(std::min<uint64_t>(kBufferBytes, size_ - position_)));
    ThrowIfFailed();
    if (count == 0) Fail("cannot read its temporary file", EIO);
    if (!WriteAll(STDOUT_FILENO, buffer_.get(), count)) Fail("cannot write", errno);
  }
}

void OutputFile::Commit() {
  Complete();
  if (standard_) return CopyToStandardOutput();
  Sync();
  TakeName();
  fsync(directory_);  // as far as the file system goes; the file itself is on the medium
}

void OutputFile::Complete() {
  Flush();
  ThrowIfFailed();
}

void OutputFile::Sync() {
  if (fsync(file_) != 0) Fail("cannot write", errno);
}

void OutputFile::TakeName() {
  // From here to the end a signal waits, so that a name once given is never left half-way.
  const SignalsBlocked blocked;
  const bool unnamed = temporary_.empty();
  if (unnamed && !replaces_) {
    if (LinkAs(entry_)) {
      if (!Close()) {
        const int error = errno;
        unlinkat(directory_, entry_.c_str(), 0);
        Fail("cannot close", error);
      }
      return;
    }
    if (errno != EEXIST) Fail("cannot write", errno);
  }
  if (unnamed) {
    std::string candidate = UnguessableName();
    pending_ = SetPending(directory_, candidate);  // left in the destructor
    if (!LinkAs(candidate)) Fail("cannot write", errno);
    temporary_ = std::move(candidate);
  }
  if (!Close()) Fail("cannot close", errno);
  if (renameat(directory_, temporary_.c_str(), directory_, entry_.c_str()) != 0) Fail("cannot write", errno);
  temporary_.clear();
}

}  // namespace tarn::tool
