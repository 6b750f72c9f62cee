#pragma once
// Commands in turn on one picture, in memory from the first to the last.

#include <memory>
#include <string>
#include <vector>

#include "Command.h"

namespace tarn::tool {

class Chain {
 public:
  static constexpr char kBetween[] = "--";

  /// @param words COMMAND [ARGUMENT...] -- COMMAND [ARGUMENT...] ..., each without IN and OUT; at least one command
  /// @return false when a command was asked for its help, which has been printed. Throws Failure (Exit::kUsage).
  bool Read(const std::vector<std::string>& words);
  /// The commands belong to this way from here on. Throws Failure for options that do not go together.
  void Join(const FileToFile& way);
  /// Takes the way's picture, or all pages of its file where every command does, through the commands.
  void Run(FileToFile& way, Console& console);

 private:
  std::vector<std::unique_ptr<PictureCommand>> steps_;
};

}  // namespace tarn::tool
