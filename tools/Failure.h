#pragma once
// Why a run ends, and the exit code that says so.

#include <stdexcept>
#include <string>

namespace tarn::tool {

/// Exit codes of the tool; docs/tool.md lists them for callers.
enum class Exit : int {
  kOk = 0,
  kUsage = 1,      // wrong arguments
  kInput = 2,      // the input cannot be opened or read
  kDamaged = 3,    // the input is damaged, or of a kind that is not supported
  kDepth = 4,      // the target format, or the storage asked for, cannot hold the picture's depth or size
  kOutput = 5,     // the output, or temporary storage, cannot be written
  kMemory = 6,     // no memory
  kInternal = 7,   // the library refused something that it should not
  kDifferent = 8,  // two pictures that were compared are not the same
};

/// One line for the user: the file and the reason.
class Failure : public std::runtime_error {
 public:
  Failure(Exit exit, std::string file, const std::string& reason)
      : std::runtime_error(reason), exit_(exit), file_(std::move(file)) {}
  Exit ExitCode() const noexcept { return exit_; }
  const std::string& File() const noexcept { return file_; }

 private:
  Exit exit_;
  std::string file_;
};

}  // namespace tarn::tool
