#include "Options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cstdio>

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

CLI::Option& Options::Known(CLI::Option* option, const std::string& type, const std::vector<std::string>& words) {
  details_.types[option] = type;
  if (!words.empty()) details_.words[option] = words;
  return *option;
}

void Options::Argument(const char* name, std::string& target, const char* type, const char* help) {
  Known(app_.add_option(name, target, help)->required(), type);
}

void Options::OptionalArgument(const char* name, std::string& target, const char* type, const char* help) {
  Known(app_.add_option(name, target, help), type);
}

void Options::Arguments(const char* name, std::vector<std::string>& target, const char* type, const char* help) {
  Known(app_.add_option(name, target, help)->required(), type);
}

void Options::Text(const char* name, std::string& target, const char* type, const char* help,
                   const std::vector<std::string>& words) {
  Known(app_.add_option(name, target, help), type, words);
}

void Options::Number(const char* name, int& target, int lowest, int highest, const char* help) {
  Known(app_.add_option(name, target, help)->check(CLI::Range(lowest, highest)), "N");
}

void Options::Size(const char* name, uint64_t& target, const char* help) {
  Known(app_.add_option_function<std::string>(
            name, [&target](const std::string& text) { target = ParseSize(text); }, help),
        "N");
}

void Options::Flag(const char* name, bool& target, const char* help) { app_.add_flag(name, target, help); }

void Options::Verbosity(bool& verbose, bool& quiet) {
  auto* const loud = app_.add_flag("--verbose,-v", verbose, "tell about storage and decoder warnings");
  app_.add_flag("--quiet,-q", quiet, "no progress of any kind")->excludes(loud);
}

void Options::Tail(std::vector<std::string>& target, const char* help) {
  app_.footer(help);
  details_.tails[app_.get_name()] = &target;
}

Options Options::Action(const char* name, const char* help, const std::function<void()>& chosen) {
  CLI::App* const entry = app_.add_subcommand(name, help);
  entry->callback(chosen);
  entry->fallthrough();  // to options of the command itself
  app_.require_subcommand(1);
  return Options(*entry, details_);
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
  Known(app_.add_option_function<std::string>(name, take, help), type, words);
}

// ---- Programs ------------------------------------------------------------------------------------------------------

CommandLine::CommandLine(const char* program, const char* about) : app_(std::make_unique<CLI::App>(about, program)) {
  app_->set_help_flag("--help,-h", "print this text");
}

CommandLine::~CommandLine() = default;

void CommandLine::Version(const std::string& text) { app_->set_version_flag("--version", text, "print the version"); }

Options CommandLine::All() { return Options(*app_, details_); }

Options CommandLine::Command(const char* name, const char* help) {
  app_->require_subcommand(1);
  return Options(*app_->add_subcommand(name, help), details_);
}

CommandPage CommandLine::Page(const CLI::App& app) const {
  CommandPage page;
  page.name = app.get_name();
  page.help = app.get_description();
  page.tail = app.get_footer();
  page.takesSteps = details_.tails.count(page.name) != 0;
  for (const CLI::Option* option : app.get_options()) {
    OptionPage entry;
    for (const std::string& name : option->get_snames()) entry.names.push_back("-" + name);
    for (const std::string& name : option->get_lnames()) entry.names.push_back("--" + name);
    const auto type = details_.types.find(option);
    const auto words = details_.words.find(option);
    if (type != details_.types.end()) entry.type = type->second;
    if (words != details_.words.end()) entry.words = words->second;
    entry.help = option->get_description();
    entry.required = option->get_required();
    entry.many = option->get_positional() && option->get_items_expected_max() > 1;
    page.options.push_back(entry);
  }
  // Help comes last: it is known already.
  if (app.get_help_ptr() != nullptr && !page.options.empty()) {
    std::rotate(page.options.begin(), page.options.begin() + 1, page.options.end());
  }
  for (const CLI::App* each : app.get_subcommands([](const CLI::App*) { return true; })) {
    page.actions.push_back(Page(*each));
  }
  return page;
}

CommandPage CommandLine::Describe() const { return Page(*app_); }

/// The command that the words begin with; `name` is what --help is asked of.
const CLI::App& CommandLine::Addressed(const std::vector<std::string>& words, std::string& name) const {
  const CLI::App* app = app_.get();
  name = app->get_name();
  for (const std::string& word : words) {
    const auto found = app->get_subcommands([&](const CLI::App* each) { return each->get_name() == word; });
    if (found.empty()) break;
    app = found.front();
    name += " " + word;
  }
  return *app;
}

void CommandLine::Refuse(const std::vector<std::string>& words, const std::string& reason) const {
  std::string name;
  Addressed(words, name);
  throw Failure(Exit::kUsage, "", reason + " (" + name + " --help tells more)");
}

namespace {

std::string Meant(const std::string& word, const std::vector<std::string>& known) {
  const std::string nearest = Nearest(word, known);
  return nearest.empty() ? "" : "; did you mean " + nearest + "?";
}

}  // namespace

/// The parser says of an unknown word only that it was not expected, and of the words behind it too.
void CommandLine::RequireKnownWords(const std::vector<std::string>& words) const {
  std::string name;
  const CLI::App& app = Addressed(words, name);
  const CommandPage page = Page(app);
  const size_t depth = static_cast<size_t>(std::count(name.begin(), name.end(), ' ')) -
                       static_cast<size_t>(std::count(app_->get_name().begin(), app_->get_name().end(), ' '));
  if (!page.actions.empty() && depth < words.size() && words[depth].compare(0, 1, "-") != 0) {
    std::vector<std::string> known;
    for (const CommandPage& each : page.actions) known.push_back(each.name);
    Refuse(words, "there is no command '" + words[depth] + "'" + Meant(words[depth], known));
  }
  std::vector<std::string> known;
  for (const CLI::App* each = &app; each; each = each->get_parent()) {
    for (const OptionPage& option : Page(*each).options) {
      known.insert(known.end(), option.names.begin(), option.names.end());
    }
    if (each->get_parent() == app_.get()) break;  // options of the program itself come before its command
  }
  for (size_t i = depth; i < words.size() && words[i] != "--"; ++i) {
    const std::string option = words[i].substr(0, words[i].find('='));
    const bool letter = option.size() == 2 && std::isalpha(static_cast<unsigned char>(option[1])) != 0;
    const bool isOption = option[0] == '-' && (letter || (option.size() > 2 && option[1] == '-'));
    if (isOption && std::find(known.begin(), known.end(), option) == known.end()) {
      Refuse(words, "there is no option " + option + Meant(option, known));
    }
  }
}

bool CommandLine::Read(const std::vector<std::string>& all) {
  std::vector<std::string> words = all;
  const auto tail = words.empty() ? details_.tails.end() : details_.tails.find(words.front());
  if (tail != details_.tails.end()) {
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
  } catch (const CLI::CallForHelp&) {
    std::string name;
    const CLI::App& app = Addressed(words, name);
    std::fputs(HelpText(Page(app), name).c_str(), stdout);
    return false;
  } catch (const CLI::Success& asked) {
    app_->exit(asked);
    return false;
  } catch (const CLI::ParseError& error) {
    RequireKnownWords(words);
    std::string name;
    const CLI::App& app = Addressed(words, name);
    if (app.get_subcommands([](const CLI::App*) { return true; }).size() > 0) {
      Refuse(words, "a command is missing behind " + name);
    }
    if (dynamic_cast<const CLI::RequiredError*>(&error)) {
      for (const CLI::Option* option : app.get_options()) {
        if (option->get_required() && option->count() == 0) Refuse(words, details_.types.at(option) + " is missing");
      }
    }
    const std::vector<std::string> extras = app_->remaining(true);
    if (dynamic_cast<const CLI::ExtrasError*>(&error) && !extras.empty()) {
      Refuse(words, "there is no place for '" + extras.front() + "'");
    }
    const std::string reason = error.what();
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error)) {
      Refuse(words, reason.substr(0, reason.find(':')) + " needs a value");
    }
    Refuse(words, reason);
  }
  return true;
}

std::string CommandLine::Chosen() const { return app_->get_subcommands().front()->get_name(); }

}  // namespace tarn::tool
