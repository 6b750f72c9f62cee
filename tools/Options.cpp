#include "Options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>

#include "Failure.h"

namespace tarn::tool {
namespace {

/// "64K" -> 65536. Suffixes K, M and G, either case, count in 1024s.
uint64_t ParseSize(const std::string& text) {
  const auto refuse = [&]() -> uint64_t {
    throw CLI::ValidationError("'" + text + "' is not a size; write bytes, or a number with K, M or G");
  };
  uint64_t value = 0;
  size_t at = 0;
  for (; at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])); ++at) {
    if (value > (uint64_t{1} << 56)) return refuse();
    value = value * 10 + static_cast<uint64_t>(text[at] - '0');
  }
  if (at == 0 || text.size() > at + 1) return refuse();
  if (at < text.size()) {
    const size_t power = std::string("KMG").find(static_cast<char>(std::toupper(static_cast<unsigned char>(text[at]))));
    if (power == std::string::npos || value >> (54 - 10 * power) != 0) return refuse();
    value <<= 10 * (power + 1);
  }
  return value == 0 ? refuse() : value;
}

}  // namespace

void Options::Argument(const char* name, std::string& target, const char* type, const char* help) {
  app_.add_option(name, target, help)->required()->type_name(type);
}

void Options::OptionalArgument(const char* name, std::string& target, const char* type, const char* help) {
  app_.add_option(name, target, help)->type_name(type);
}

void Options::Arguments(const char* name, std::vector<std::string>& target, const char* type, const char* help) {
  app_.add_option(name, target, help)->required()->type_name(type);
}

void Options::Text(const char* name, std::string& target, const char* type, const char* help) {
  app_.add_option(name, target, help)->type_name(type);
}

void Options::Number(const char* name, int& target, int lowest, int highest, const char* help) {
  app_.add_option(name, target, help)->check(CLI::Range(lowest, highest))->type_name("N");
}

void Options::Size(const char* name, uint64_t& target, const char* help) {
  app_.add_option_function<std::string>(
          name, [&target](const std::string& text) { target = ParseSize(text); }, help)
      ->type_name("N");
}

void Options::Flag(const char* name, bool& target, const char* help) { app_.add_flag(name, target, help); }

void Options::Verbosity(bool& verbose, bool& quiet) {
  auto* const loud = app_.add_flag("--verbose,-v", verbose, "tell about storage and decoder warnings");
  app_.add_flag("--quiet,-q", quiet, "no progress bar on a terminal")->excludes(loud);
}

void Options::Tail(std::vector<std::string>& target, const char* help) {
  app_.footer(help);
  if (tails_) (*tails_)[app_.get_name()] = &target;
}

Options Options::Action(const char* name, const char* help, const std::function<void()>& chosen) {
  CLI::App* const entry = app_.add_subcommand(name, help);
  entry->callback(chosen);
  entry->fallthrough();  // to options of the command itself
  app_.require_subcommand(1);
  return Options(*entry);
}

void Options::OneOf(const char* name, const std::vector<std::string>& words, const std::function<void(size_t)>& choose,
                    const char* type, const char* help) {
  const auto take = [words, choose](const std::string& word) {
    const auto found = std::find(words.begin(), words.end(), word);
    if (found != words.end()) return choose(static_cast<size_t>(found - words.begin()));
    std::string known;
    for (const std::string& each : words) known += (known.empty() ? "" : ", ") + each;
    throw CLI::ValidationError("'" + word + "' is not one of " + known);
  };
  app_.add_option_function<std::string>(name, take, help)->type_name(type);
}

// ---- Programs ------------------------------------------------------------------------------------------------------

CommandLine::CommandLine(const char* program, const char* about) : app_(std::make_unique<CLI::App>(about, program)) {}

CommandLine::~CommandLine() = default;

void CommandLine::Version(const std::string& text) { app_->set_version_flag("--version", text); }

Options CommandLine::All() { return Options(*app_); }

Options CommandLine::Command(const char* name, const char* help) {
  app_->require_subcommand(1);
  return Options(*app_->add_subcommand(name, help), &tails_);
}

bool CommandLine::Read(const std::vector<std::string>& all) {
  std::vector<std::string> words = all;
  const auto tail = words.empty() ? tails_.end() : tails_.find(words.front());
  if (tail != tails_.end()) {
    const auto cut = std::find(words.begin(), words.end(), "--");
    if (cut != words.end()) {
      tail->second->assign(cut + 1, words.end());
      words.erase(cut, words.end());
    }
  }
  // The parser takes the last word first. A place such as -5,-5 gets a blank in front: the parser would look whether
  // there is an option -5, and its look-up ends the process without memory.
  std::vector<std::string> turned;
  for (auto word = words.rbegin(); word != words.rend(); ++word) {
    const bool number = word->size() > 1 && (*word)[0] == '-' &&
                        (std::isdigit(static_cast<unsigned char>((*word)[1])) != 0 || (*word)[1] == '.');
    turned.push_back(number ? " " + *word : *word);
  }
  try {
    app_->parse(turned);
  } catch (const CLI::Success& asked) {
    app_->exit(asked);
    return false;
  } catch (const CLI::ParseError& error) {
    throw Failure(Exit::kUsage, "", std::string(error.what()) + " (" + app_->get_name() + " --help tells more)");
  }
  return true;
}

std::string CommandLine::Chosen() const { return app_->get_subcommands().front()->get_name(); }

}  // namespace tarn::tool
