#pragma once
// Command lines as programs and commands see them. The parser behind them is included by Options.cpp only: it takes
// longer to compile than anything else here.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Manual.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace tarn::tool {

/// Every call adds one option or argument; its target is written while the command line is read and must live until
/// then. `help` is one line.
class Options {
 public:
  /// What the parser does not keep.
  struct Details {
    std::map<std::string, std::vector<std::string>*> tails;        // by the command's name
    std::map<const CLI::Option*, std::string> types;               // of options and arguments
    std::map<const CLI::Option*, std::vector<std::string>> words;  // that they can be
  };

  Options(CLI::App& app, Details& details) : app_(app), details_(details) {}

  /// Arguments by place; required but for one kind.
  void Argument(const char* name, std::string& target, const char* type, const char* help);
  void OptionalArgument(const char* name, std::string& target, const char* type, const char* help);
  void Arguments(const char* name, std::vector<std::string>& target, const char* type, const char* help);
  /// @param words with a meaning of their own, among what it can be
  void Text(const char* name, std::string& target, const char* type, const char* help,
            const std::vector<std::string>& words = {});
  void Number(const char* name, int& target, int lowest, int highest, const char* help);
  /// Bytes; K, M and G count in 1024s.
  void Size(const char* name, uint64_t& target, const char* help);
  void Flag(const char* name, bool& target, const char* help);
  /// --verbose and --quiet, which exclude each other.
  void Verbosity(bool& verbose, bool& quiet);
  /// Of a command: what comes behind the first word "--", word by word. `help` may have several lines.
  void Tail(std::vector<std::string>& target, const char* help);
  /// A word after which options of its own follow; one of them must be given. `chosen` is called when it is.
  Options Action(const char* name, const char* help, const std::function<void()>& chosen);
  /// One of several words, each with its value.
  template <class Value>
  void Choice(const char* name, Value& target, const std::vector<std::pair<std::string, Value>>& choices,
              const char* type, const char* help) {
    std::vector<std::string> words;
    for (const auto& choice : choices) words.push_back(choice.first);
    OneOf(
        name, words, [&target, choices](size_t index) { target = choices[index].second; }, type, help);
  }

 private:
  void OneOf(const char* name, const std::vector<std::string>& words, const std::function<void(size_t)>& choose,
             const char* type, const char* help);

  CLI::Option& Known(CLI::Option* option, const std::string& type, const std::vector<std::string>& words = {});

  CLI::App& app_;
  Details& details_;
};

/// The words that a program was started with.
class CommandLine {
 public:
  CommandLine(const char* program, const char* about);
  ~CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  /// What --version tells.
  void Version(const std::string& text);
  /// Options of the program itself.
  Options All();
  /// A word after which options of its own follow; one of those added must be given.
  Options Command(const char* name, const char* help);
  /// Sets the targets of all options given.
  /// @return false when help or the version was asked for, and has been printed. Throws Failure (Exit::kUsage).
  bool Read(const std::vector<std::string>& words);
  bool Read(int argc, char** argv) { return Read(std::vector<std::string>(argv + 1, argv + argc)); }
  /// The command that was given.
  std::string Chosen() const;
  /// All that can be written on it.
  CommandPage Describe() const;

 private:
  CommandPage Page(const CLI::App& app) const;
  const CLI::App& Addressed(const std::vector<std::string>& words, std::string& name) const;
  void RequireKnownWords(const std::vector<std::string>& words) const;
  [[noreturn]] void Refuse(const std::vector<std::string>& words, const std::string& reason) const;

  std::unique_ptr<CLI::App> app_;
  Options::Details details_;
};

}  // namespace tarn::tool
