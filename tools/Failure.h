#pragma once
// Why a run ends, and the exit code that says so.

#include <stdexcept>
#include <string>

namespace tarn::tool {

/// Exit codes of the tool. A signal that ends it is not among them: the process dies by it once it has cleaned up, and
/// shells show 128 and the signal's number.
enum class Exit : int {
  kOk = 0,
  kUsage = 1,
  kInput = 2,
  kDamaged = 3,
  kDepth = 4,
  kOutput = 5,
  kMemory = 6,
  kInternal = 7,
  kDifferent = 8,
  kLimit = 9,
};

/// The table of docs/tool.md and of the manual page.
struct ExitMeaning {
  Exit exit;
  const char* text;
};
constexpr ExitMeaning kExitMeanings[] = {
    {Exit::kOk, "done"},
    {Exit::kUsage, "wrong arguments, a page or pixel that is not there, or sizes that do not fit together"},
    {Exit::kInput, "the input cannot be opened or read"},
    {Exit::kDamaged, "the input is damaged, or of a kind that is not supported"},
    {Exit::kDepth, "the target format or the storage cannot hold the picture"},
    {Exit::kOutput, "the output or temporary storage cannot be written; the disk is full"},
    {Exit::kMemory, "no memory"},
    {Exit::kInternal, "the library refused something that it should not: please report it"},
    {Exit::kDifferent, "the pictures that were compared are not the same"},
    {Exit::kLimit, "the picture is beyond a limit; the message names the option that raises it"},
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
