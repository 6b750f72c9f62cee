#pragma once
// What a batch has done, so that the next one over the same pictures goes on where the last one stopped.
//
// The journal is a text file in the folder of outputs, a line for each output that has come into being:
//
//   KEY BYTES NANOSECONDS NAME
//
// KEY is 16 hexadecimal digits of the command and of the input (its place, size and time of change), BYTES and
// NANOSECONDS are the output's size and time of change. A picture is done while its last line's key is the one that the
// batch asks for and the output is as the line says. A line is appended after its output has its name: a stop in
// between costs doing that picture again.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tarn::tool {

/// Name of the journal in the folder of outputs.
constexpr char kJournalName[] = ".tarn-batch";

/// Backslashes and control characters as \\ooo, so that a name stays on its line.
std::string EscapedName(const std::string& name);

/// @param command all that decides about the output besides the input
/// @return empty when the input cannot be looked at
std::string BatchKey(const std::vector<std::string>& command, const std::string& input);

class BatchJournal {
 public:
  /// Opens or makes the journal of a folder, reads it, and keeps other batches away from the folder; or only reads it
  /// if there is one. Throws Failure (Exit::kOutput).
  BatchJournal(const std::string& folder, bool onlyRead);
  ~BatchJournal();
  BatchJournal(const BatchJournal&) = delete;
  BatchJournal& operator=(const BatchJournal&) = delete;

  bool IsDone(const std::string& key, const std::string& name, const std::string& output) const;
  /// The output has just been made. A line that cannot be written is lost; the picture will be done again.
  void Add(const std::string& key, const std::string& name, const std::string& output) noexcept;

 private:
  void Read(bool repair);

  std::string file_;
  int journal_ = -1;
  std::map<std::string, std::string> lines_;  // by the name as it is in the file, what stands in front of it
};

}  // namespace tarn::tool
