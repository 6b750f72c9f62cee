#pragma once
// What the command line can be, in words: help, the manual page, and completions for shells. All of it comes from the
// parser's own entries (CommandLine::Describe), so that none is forgotten.

#include <string>
#include <vector>

namespace tarn::tool {

struct OptionPage {
  std::vector<std::string> names;  // "-v", "--verbose"; none: an argument by place
  std::string type;                // "FILE", "N"; empty: a flag
  std::string help;
  std::vector<std::string> words;  // that it can be, where they are known
  bool required = false;
  bool many = false;

  bool ByPlace() const { return names.empty(); }
  /// Whether it is the name of a file, known words aside.
  bool IsFile() const;
};

struct CommandPage {
  std::string name;
  std::string help;
  std::string tail;  // what comes behind: how it is written, and from the second line on what it means
  std::vector<OptionPage> options;
  std::vector<CommandPage> actions;  // commands of its own
  bool takesSteps = false;           // other commands follow it, behind --
};

/// What --help prints.
/// @param name with the programs and commands before it: "tarn pages insert"
std::string HelpText(const CommandPage& page, const std::string& name);
/// "tarn resize IN OUT SIZE [OPTION...]"
std::string UsageOf(const CommandPage& page, const std::string& name);
/// For man, in the man macros of troff. @param version "15.0"
std::string ManualPage(const CommandPage& program, const std::string& version);
/// A script for a shell: "bash", "zsh" or "fish"; empty for others.
std::string CompletionScript(const CommandPage& program, const std::string& shell);

/// The word among `known` that `word` was probably meant to be; empty when none is near.
std::string Nearest(const std::string& word, const std::vector<std::string>& known);

}  // namespace tarn::tool
