#pragma once
// What the Posix files share. Some of it is declared here for the tests: the ways round a file system or a kernel that
// lacks a service are not met on every machine.

#include <cerrno>
#include <cstddef>

#include "Platform/Internal.h"

namespace tarn::platform {

constexpr size_t kPathBytes = 4096;  // PATH_MAX, terminator included

/// Strict conversions. False: EINVAL for a surrogate, a value that is no code point, an ill-formed sequence or a null
/// text; ENAMETOOLONG when it does not fit.
bool ToUtf8(const wchar_t* text, char* target, size_t room) noexcept;
bool FromUtf8(const char* text, wchar_t* target, size_t room) noexcept;
/// Bytes of one code point, one that is not valid as a question mark; at most 4.
size_t EncodeUtf8(wchar_t character, char* target) noexcept;

/// A name as the system wants it; test with operator bool.
class Utf8Name {
 public:
  explicit Utf8Name(const wchar_t* name) noexcept : valid_(ToUtf8(name, text_, sizeof text_)) {}
  explicit operator bool() const noexcept { return valid_; }
  const char* c_str() const noexcept { return text_; }

 private:
  char text_[kPathBytes];
  bool valid_;
};

/// Repeats a system call that a signal interrupted; an injected interruption counts as the first.
template <class Call>
auto Repeat(fault::Answer answer, Call call) noexcept {
  if (answer == fault::Answer::kInterrupt) errno = EINTR;
  auto result = answer == fault::Answer::kInterrupt ? decltype(call()){-1} : call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

class KeepErrno {
 public:
  KeepErrno() noexcept : value_(errno) {}
  ~KeepErrno() { errno = value_; }
  KeepErrno(const KeepErrno&) = delete;
  KeepErrno& operator=(const KeepErrno&) = delete;

 private:
  int value_;
};

/// The descriptor moved to 3 or above, so that it is never taken for a standard stream; -1 as it is.
int AboveStandardStreams(int descriptor) noexcept;

/// Makes a file at least `bytes` long with all of it reserved; as it was when that fails.
bool Reserve(int descriptor, uint64_t bytes, fault::Answer answer) noexcept;

/// The whole of a small file, cut at room - 1 bytes and terminated; -1 when it cannot be read.
int64_t ReadSmallFile(const char* path, char* target, size_t room) noexcept;

/// Forgets the names that wait for their file to be closed; nothing is deleted.
void ForgetDoomedNames() noexcept;

// ---- For the tests -------------------------------------------------------------------------------------------------

/// Memory figures read below another root than "/"; an empty text is the real one.
MemoryFigures MemoryBelow(const char* root) noexcept;
/// FileReserve where the file system cannot reserve.
bool ReserveByWriting(int descriptor, uint64_t bytes) noexcept;
/// FileTemporary where the file system cannot make a file without a name: the descriptor, or -1.
int TemporaryUnlinked(const wchar_t* directory) noexcept;

}  // namespace tarn::platform
