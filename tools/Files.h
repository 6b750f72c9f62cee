#pragma once
// Files as the codecs use them: plain calls that cannot throw, because C code of the codec libraries lies between them
// and the code that reports. A failure is remembered and asked for afterwards.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace tarn::tool {

/// Names the process's own streams on the command line: standard input where a picture is read, else standard output.
constexpr char kStandardStream[] = "-";
constexpr char kStandardInput[] = "standard input";
constexpr char kStandardOutput[] = "standard output";

class InputFile {
 public:
  /// Opens a regular file, or standard input, once; throws Failure. What cannot be read twice, a pipe, is first read
  /// into a temporary file: codecs go back and forth.
  explicit InputFile(std::string name);
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  /// Bytes read; fewer than asked for at the end of the file or after an error.
  size_t Read(void* target, size_t bytes) noexcept;
  void Seek(uint64_t position) noexcept { position_ = position; }
  uint64_t Position() const noexcept { return position_; }
  uint64_t Size() const noexcept { return size_; }
  const std::string& Name() const noexcept { return name_; }
  /// Throws when a read has failed for another reason than the end of the file.
  void ThrowIfFailed() const;
  /// A read has asked for bytes beyond the end.
  bool RanOut() const noexcept { return ranOut_; }

 private:
  std::string name_;
  int file_ = -1;
  int error_ = 0;  // errno of the first failed read
  bool ranOut_ = false;
  uint64_t size_ = 0;
  uint64_t position_ = 0;
  uint64_t bufferStart_ = 0;
  size_t bufferLength_ = 0;
  std::unique_ptr<unsigned char[]> buffer_;
};

/// A file that comes into being whole or not at all; standard output gets nothing before all of it is there. It is
/// written without a name (or, where the file system cannot do that, under an unguessable one in the target's
/// directory) and takes its name in Commit. Destroyed before that, by an exception or a signal, it leaves nothing
/// behind and an existing target as it was.
class OutputFile {
 public:
  /// Files with temporary names that a signal can clear away at a time.
  static constexpr int kMostPending = 128;

  /// Throws Failure when the directory cannot take the file.
  explicit OutputFile(std::string name);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// False when a write has failed, now or earlier.
  bool Write(const void* source, size_t bytes) noexcept;
  /// Reads back what was written; fewer bytes at the end.
  size_t Read(void* target, size_t bytes) noexcept;
  void Seek(uint64_t position) noexcept { position_ = position; }
  uint64_t Position() const noexcept { return position_; }
  uint64_t Size() const noexcept { return size_; }
  const std::string& Name() const noexcept { return name_; }
  bool Failed() const noexcept { return error_ != 0; }

  /// Flushes to the medium and gives the file its name; throws Failure.
  void Commit();
  /// Commit in steps, for somebody who has several files: all bytes to the system; to the medium; the name, after
  /// which the directory is still to be flushed. A file is named only after its bytes are safe. Each throws Failure.
  void Complete();
  void Sync();
  void TakeName();
  /// The target's directory, open.
  int Directory() const noexcept { return directory_; }
  /// Throws when a write has failed.
  void ThrowIfFailed() const;

 private:
  bool Flush() noexcept;
  void CreateNamed();
  void CopyToStandardOutput();
  bool LinkAs(const std::string& entry) noexcept;
  bool Close() noexcept;
  [[noreturn]] void Fail(const char* doing, int error) const;

  std::string name_;       // as the user gave it
  std::string entry_;      // the target's name within its directory
  std::string temporary_;  // name within the directory while it has one
  int pending_ = -1;       // its entry in the list for signals, where it has one
  int directory_ = -1;
  int file_ = -1;
  int error_ = 0;          // errno of the first failed write
  bool standard_ = false;  // standard output; the file is a temporary one
  bool replaces_ = false;
  uint64_t size_ = 0;
  uint64_t position_ = 0;
  uint64_t bufferStart_ = 0;
  size_t bufferUsed_ = 0;
  std::unique_ptr<unsigned char[]> buffer_;
};

/// Ends the process on SIGINT, SIGTERM and SIGHUP with no temporary output left; a file that would exceed the file size
/// limit, or a pipe that nobody reads any more, becomes a write error instead of a signal. Standard streams that the
/// caller has closed are taken, so that no file gets their numbers.
void InstallSignalCleanup() noexcept;

}  // namespace tarn::tool
