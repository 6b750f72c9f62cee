#include "Manual.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <numeric>

#include "Failure.h"

namespace tarn::tool {
namespace {

constexpr size_t kColumns = 80;
constexpr size_t kCommonFrom = 6;  // commands that have an option, from which on it is described once

std::string Sentence(std::string text) {
  if (text.empty()) return text;
  text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
  return text.back() == '.' ? text : text + ".";
}

std::string NamesOf(const OptionPage& option) {
  std::string names;
  for (const std::string& name : option.names) names += (names.empty() ? "" : ", ") + name;
  if (option.names.empty()) return option.type;
  return option.type.empty() ? names : names + " " + option.type;
}

/// Text in lines of up to kColumns, behind an indentation that the first one has already.
std::string Wrapped(const std::string& text, size_t indentation) {
  std::string lines, line;
  const auto end = [&] {
    lines += (lines.empty() ? "" : std::string(indentation, ' ')) + line + "\n";
    line.clear();
  };
  for (size_t at = 0; at < text.size();) {
    const size_t stop = std::min(text.find(' ', at), text.size());
    const std::string word = text.substr(at, stop - at);
    at = stop + 1;
    if (!line.empty() && indentation + line.size() + 1 + word.size() > kColumns) end();
    line += (line.empty() ? "" : " ") + word;
  }
  end();
  return lines;
}

std::string Entries(const std::vector<std::pair<std::string, std::string>>& entries) {
  constexpr size_t kWidest = 22;
  std::string text;
  size_t width = 0;
  for (const auto& entry : entries) width = std::max(width, std::min(entry.first.size(), kWidest));
  for (const auto& [name, help] : entries) {
    text += "  " + name;
    text += name.size() > width ? "\n" + std::string(width + 4, ' ') : std::string(width + 2 - name.size(), ' ');
    text += Wrapped(help, width + 4);
  }
  return text;
}

// ---- The manual page -----------------------------------------------------------------------------------------------

/// Text for troff: what begins a request or an escape is taken literally, and hyphens can be copied as options.
std::string Troff(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '\\') {
      escaped += "\\e";
    } else if (c == '-') {
      escaped += "\\-";
    } else if (c == '"') {
      escaped += "\\(dq";
    } else if (c == '\'' || c == '.') {
      escaped += escaped.empty() || escaped.back() == '\n' ? std::string("\\&") + c : std::string(1, c);
    } else {
      escaped += c;
    }
  }
  return escaped;
}

std::string Entry(const OptionPage& option) {
  std::string text = ".TP\n";
  if (option.ByPlace()) {
    text += ".I \"" + Troff(option.type) + "\"\n";
  } else {
    std::string names;
    for (const std::string& name : option.names) names += (names.empty() ? "" : ", ") + Troff(name);
    text += option.type.empty() ? ".B \"" + names + "\"\n" : ".BI \"" + names + "\" \" " + Troff(option.type) + "\"\n";
  }
  return text + Troff(option.help) + "\n";
}

using Common = std::map<std::string, size_t>;  // names and help of an option, and how many commands have it

std::string KeyOf(const OptionPage& option) { return NamesOf(option) + "\n" + option.help; }

void Count(const CommandPage& page, Common& common) {
  for (const OptionPage& option : page.options) {
    if (!option.ByPlace()) ++common[KeyOf(option)];
  }
  for (const CommandPage& action : page.actions) Count(action, common);
}

void DescribeCommand(const CommandPage& page, const std::string& name, const Common& common, std::string& text) {
  text += ".SS \"" + Troff(UsageOf(page, name)) + "\"\n" + Troff(Sentence(page.help)) + "\n";
  std::string shared;
  for (const OptionPage& option : page.options) {
    if (option.ByPlace() || common.at(KeyOf(option)) < kCommonFrom) {
      text += Entry(option);
    } else {
      shared += (shared.empty() ? "" : ", ") + option.names.back();
    }
  }
  const size_t more = page.tail.find('\n');
  if (more != std::string::npos) text += ".PP\n" + Troff(page.tail.substr(more + 1)) + "\n";
  if (!shared.empty()) text += ".PP\nCommon options: " + Troff(shared) + ".\n";
  for (const CommandPage& action : page.actions) DescribeCommand(action, name + " " + action.name, common, text);
}

// ---- Completions ---------------------------------------------------------------------------------------------------

std::string Joined(const std::vector<std::string>& words) {
  return std::accumulate(words.begin(), words.end(), std::string(),
                         [](const std::string& a, const std::string& b) { return a.empty() ? b : a + " " + b; });
}

std::vector<std::string> NamesIn(const std::vector<CommandPage>& pages) {
  std::vector<std::string> names;
  for (const CommandPage& page : pages) names.push_back(page.name);
  return names;
}

std::vector<std::string> OptionNames(const CommandPage& page) {
  std::vector<std::string> names;
  for (const OptionPage& option : page.options) names.insert(names.end(), option.names.begin(), option.names.end());
  return names;
}

/// Every command, and those of commands: "convert", "pages insert".
void Flatten(const CommandPage& page, const std::string& before, std::map<std::string, const CommandPage*>& all) {
  for (const CommandPage& each : page.actions) {
    const std::string name = before.empty() ? each.name : before + " " + each.name;
    all[name] = &each;
    Flatten(each, name, all);
  }
}

std::string Bash(const CommandPage& program) {
  std::map<std::string, const CommandPage*> all;
  Flatten(program, "", all);
  std::string text =
      "# Completion of tarn's command line for bash.\n\n_tarn() {\n"
      "  local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]}\n"
      "  local command=${COMP_WORDS[1]} words= files= i\n  COMPREPLY=()\n";
  std::string steps, groups;
  for (const CommandPage& page : program.actions) {
    if (page.takesSteps) steps += (steps.empty() ? "" : "|") + page.name;
    if (!page.actions.empty()) groups += (groups.empty() ? "" : "|") + page.name;
  }
  text += "  if [ \"$COMP_CWORD\" -eq 1 ]; then\n    words='" + Joined(NamesIn(program.actions)) + " " +
          Joined(OptionNames(program)) + "'\n    command=\n  fi\n";
  if (!steps.empty()) {
    text += "  case $command in\n    " + steps +
            ")  # the last command behind a --\n"
            "      for ((i = 2; i < COMP_CWORD; ++i)); do\n"
            "        [ \"${COMP_WORDS[i]}\" = -- ] || continue\n"
            "        command=${COMP_WORDS[i+1]}\n"
            "        if [ \"$((i + 1))\" -eq \"$COMP_CWORD\" ]; then\n"
            "          command=\n          words='" +
            Joined(NamesIn(program.actions)) + "'\n          files=yes\n        fi\n      done\n      ;;\n  esac\n";
  }
  if (!groups.empty()) {
    text += "  case $command in\n    " + groups +
            ")\n      [ \"$COMP_CWORD\" -eq 2 ] || command=\"$command ${COMP_WORDS[2]}\"\n      ;;\n  esac\n";
  }
  text += "  case $command in\n    '') ;;\n";
  for (const auto& [name, page] : all) {
    text += "    '" + name + "')\n      words='" + Joined(NamesIn(page->actions)) + (page->actions.empty() ? "" : " ") +
            Joined(OptionNames(*page)) + "'\n";
    if (page->actions.empty()) text += "      files=yes\n";
    std::string values;
    for (const OptionPage& option : page->options) {
      if (option.ByPlace() || option.type.empty()) continue;
      std::string names;
      for (const std::string& each : option.names) names += (names.empty() ? "" : "|") + each;
      values += "        " + names + ") words='" + Joined(option.words) + "' files=" + (option.IsFile() ? "yes" : "") +
                " ;;\n";
    }
    if (!values.empty()) text += "      case $before in\n" + values + "      esac\n";
    text += "      ;;\n";
  }
  return text +
         "    *) files=yes ;;\n  esac\n"
         "  # Options are offered when one is begun, words always.\n"
         "  case $current in\n    -*) ;;\n    *) words=\" $words\" words=${words// -/ @-} ;;\n  esac\n"
         "  while IFS= read -r i; do [ -z \"$i\" ] || COMPREPLY+=(\"$i\"); done < <(\n"
         "    compgen -W \"$words\" -- \"$current\"\n"
         "    [ -z \"$files\" ] || compgen -f -- \"$current\"\n"
         "  )\n  for i in \"${!COMPREPLY[@]}\"; do\n"
         "    case ${COMPREPLY[i]} in @-*) unset \"COMPREPLY[i]\" ;; esac\n  done\n"
         "  COMPREPLY=(\"${COMPREPLY[@]}\")\n}\ncomplete -o filenames -F _tarn tarn\n";
}

/// In single quotes of a shell; `more` are characters that get a backslash.
std::string Quoted(const std::string& text, const std::string& more) {
  std::string quoted;
  for (const char c : text) {
    if (c == '\'') {
      quoted += "'\\''";
    } else if (more.find(c) != std::string::npos) {
      quoted += std::string("\\") + c;
    } else {
      quoted += c;
    }
  }
  return quoted;
}

std::string ZshArguments(const CommandPage& page, const std::string& indentation) {
  std::string text = indentation + "_arguments -s";
  for (const OptionPage& option : page.options) {
    if (option.ByPlace()) continue;
    for (const std::string& name : option.names) {
      text += " \\\n" + indentation + "  '" + name + "[" + Quoted(option.help, "[]:") + "]";
      if (!option.type.empty()) {
        text += ":" + option.type + ":";
        text += option.words.empty() ? (option.IsFile() ? "_files" : " ") : "(" + Joined(option.words) + ")";
      }
      text += "'";
    }
  }
  if (page.actions.empty()) return text + " \\\n" + indentation + "  '*:file:_files'\n";
  text += " \\\n" + indentation + "  '1:action:(" + Joined(NamesIn(page.actions)) + ")' \\\n" + indentation +
          "  '*::argument:->rest'\n" + indentation + "[[ $state = rest ]] && case $words[1] in\n";
  for (const CommandPage& action : page.actions) {
    text += indentation + "  " + action.name + ")\n" + ZshArguments(action, indentation + "    ") + indentation +
            "    ;;\n";
  }
  return text + indentation + "esac\n";
}

std::string Zsh(const CommandPage& program) {
  std::string text =
      "#compdef tarn\n# Completion of tarn's command line for zsh.\n\n_tarn() {\n"
      "  local state line\n  local -a commands\n  typeset -A opt_args\n  commands=(\n";
  for (const CommandPage& page : program.actions) {
    text += "    '" + page.name + ":" + Quoted(page.help, ":") + "'\n";
  }
  text += "  )\n  _arguments -C";
  for (const OptionPage& option : program.options) {
    for (const std::string& name : option.names) text += " '" + name + "[" + Quoted(option.help, "[]:") + "]'";
  }
  text +=
      " '1:command:->command' '*::argument:->rest'\n  case $state in\n    command) _describe command commands ;;\n"
      "    rest)\n      # Commands that take others complete the last one behind a --.\n"
      "      local at=${words[(I)--]}\n"
      "      if (( at > 0 && at < CURRENT )); then\n"
      "        if (( at + 1 == CURRENT )); then\n          _describe command commands\n          _files\n"
      "          return\n        fi\n"
      "        words=(\"${(@)words[at+1,-1]}\")\n        (( CURRENT -= at ))\n      fi\n      case $words[1] in\n";
  for (const CommandPage& page : program.actions) {
    text += "        " + page.name + ")\n" + ZshArguments(page, "          ") + "          ;;\n";
  }
  return text + "      esac\n      ;;\n  esac\n}\n\n_tarn \"$@\"\n";
}

void FishOptions(const CommandPage& page, const std::string& condition, std::string& text) {
  for (const OptionPage& option : page.options) {
    if (option.ByPlace()) continue;
    text += "complete -c tarn -n '" + condition + "'";
    for (const std::string& name : option.names) {
      text += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
    }
    if (!option.type.empty()) text += option.IsFile() ? " -r -F" : " -x";
    if (!option.words.empty()) text += " -a '" + Joined(option.words) + "'";
    text += " -d '" + Quoted(option.help, "\\") + "'\n";
  }
}

std::string Fish(const CommandPage& program) {
  std::string text = "# Completion of tarn's command line for fish.\n\n";
  FishOptions(program, "__fish_use_subcommand", text);
  for (const CommandPage& page : program.actions) {
    text += "complete -c tarn -f -n __fish_use_subcommand -a " + page.name + " -d '" + Quoted(page.help, "\\") + "'\n";
  }
  for (const CommandPage& page : program.actions) {
    const std::string seen = "__fish_seen_subcommand_from " + page.name;
    FishOptions(page, seen, text);
    const std::string none = seen + "; and not __fish_seen_subcommand_from " + Joined(NamesIn(page.actions));
    for (const CommandPage& action : page.actions) {
      text += "complete -c tarn -f -n '" + none + "' -a " + action.name + " -d '" + Quoted(action.help, "\\") + "'\n";
      FishOptions(action, seen + "; and __fish_seen_subcommand_from " + action.name, text);
    }
  }
  return text;
}

}  // namespace

bool OptionPage::IsFile() const {
  for (const char* file : {"FILE", "IN", "OUT", "A", "B", "IN... OUT", "COLOURS"}) {
    if (type == file) return true;
  }
  return false;
}

std::string UsageOf(const CommandPage& page, const std::string& name) {
  std::string usage = name;
  for (const OptionPage& option : page.options) {
    if (!option.ByPlace()) continue;
    // What the name says itself is not said again.
    const std::string type = option.type + (option.many && option.type.find("...") == std::string::npos ? "..." : "");
    usage += option.required ? " " + type : " [" + type + "]";
  }
  if (!page.actions.empty()) usage += page.name == name ? " COMMAND" : " ACTION";
  usage += page.actions.empty() ? " [OPTION...]" : " ...";
  return page.tail.empty() ? usage : usage + " " + page.tail.substr(0, page.tail.find('\n'));
}

std::string HelpText(const CommandPage& page, const std::string& name) {
  std::string text = "Usage: " + Wrapped(UsageOf(page, name), 7) + "\n" + Wrapped(Sentence(page.help), 0);
  std::vector<std::pair<std::string, std::string>> arguments, options, actions;
  for (const OptionPage& option : page.options) {
    (option.ByPlace() ? arguments : options).emplace_back(NamesOf(option), option.help);
  }
  for (const CommandPage& action : page.actions) actions.emplace_back(action.name, action.help);
  const size_t more = page.tail.find('\n');
  if (more != std::string::npos) text += "\n" + Wrapped(page.tail.substr(more + 1), 0);
  if (!arguments.empty()) text += "\nArguments:\n" + Entries(arguments);
  if (!actions.empty()) text += (page.name == name ? "\nCommands:\n" : "\nActions:\n") + Entries(actions);
  if (!options.empty()) text += "\nOptions:\n" + Entries(options);
  if (!actions.empty()) {
    text += "\n" + name + (page.name == name ? " COMMAND" : " ACTION") + " --help tells more of one of them.\n";
  }
  return text;
}

std::string ManualPage(const CommandPage& program, const std::string& version) {
  Common common;
  for (const CommandPage& page : program.actions) Count(page, common);
  std::string text =
      ".\\\" Made by the program itself.\n.TH TARN 1 \"\" \"Tarn " + Troff(version) +
      "\" \"User Commands\"\n.SH NAME\ntarn \\- pictures in PNG, JPEG, TIFF and BMP files\n"
      ".SH SYNOPSIS\n.B tarn\n.I COMMAND\n[\\fIARGUMENT\\fR...] [\\fIOPTION\\fR...]\n"
      ".SH DESCRIPTION\n" +
      Troff(Sentence(program.help)) +
      "\n.PP\nThe format of a file that is read is recognised by its content, that of one that is "
      "written follows from its name, or from\n.BR \\-\\-format .\nA file that is written is there whole "
      "or not at all.\n.PP\n.B \\-\nstands for standard input where a picture is read, and for standard "
      "output where one is written. Results go to standard output, everything else to standard "
      "error.\n.SH OPTIONS\n";
  for (const OptionPage& option : program.options) text += Entry(option);
  text += ".SH COMMON OPTIONS\nMost commands have these.\n";
  std::map<std::string, bool> told;
  std::vector<const CommandPage*> pages;
  for (const CommandPage& page : program.actions) {
    pages.push_back(&page);
    for (const CommandPage& action : page.actions) pages.push_back(&action);
  }
  for (const CommandPage* page : pages) {
    for (const OptionPage& option : page->options) {
      if (option.ByPlace() || common.at(KeyOf(option)) < kCommonFrom || told[KeyOf(option)]) continue;
      told[KeyOf(option)] = true;
      text += Entry(option);
    }
  }
  text += ".PP\nSizes take K, M and G, in steps of 1024.\n.SH COMMANDS\n";
  for (const CommandPage& page : program.actions) DescribeCommand(page, program.name + " " + page.name, common, text);
  text += ".SH EXIT STATUS\n";
  for (const ExitMeaning& meaning : kExitMeanings) {
    text += ".TP\n.B " + std::to_string(static_cast<int>(meaning.exit)) + "\n" + Troff(Sentence(meaning.text)) + "\n";
  }
  text +=
      ".PP\nSIGINT, SIGTERM and SIGHUP end the program by that signal, without a file of its own left behind.\n"
      ".SH ENVIRONMENT\n.TP\n.B TMPDIR\nThe directory of temporary files; they have no name, and vanish with the "
      "process.\n.SH EXAMPLES\n";
  const std::pair<const char*, const char*> examples[] = {
      {"A scanned page, level, at half its size:",
       "tarn run scan.tif -- convert --gray -- deskew -- resize 50% page.png"},
      {"A photograph in sixteen colours:", "tarn colors photo.jpg photo.png --colors 16"},
      {"A picture from a pipe into a pipe:", "cat page.tif | tarn rotate - - 90 --resize --format png >page.png"},
  };
  for (const auto& [what, line] : examples) {
    text += ".PP\n" + Troff(what) + "\n.PP\n.RS\n.nf\n" + Troff(line) + "\n.fi\n.RE\n";
  }
  return text;
}

std::string CompletionScript(const CommandPage& program, const std::string& shell) {
  if (shell == "bash") return Bash(program);
  if (shell == "zsh") return Zsh(program);
  if (shell == "fish") return Fish(program);
  return "";
}

std::string Nearest(const std::string& word, const std::vector<std::string>& known) {
  std::string nearest;
  size_t least = std::max<size_t>(2, word.size() / 3) + 1;
  for (const std::string& other : known) {
    if (word.size() >= 3 && other.starts_with(word)) return other;
    // Letters changed, missing, too many, or exchanged with the next one (Damerau, 1964).
    std::vector<std::vector<size_t>> steps(word.size() + 1, std::vector<size_t>(other.size() + 1));
    for (size_t i = 0; i <= word.size(); ++i) {
      for (size_t k = 0; k <= other.size(); ++k) {
        if (i == 0 || k == 0) {
          steps[i][k] = i + k;
          continue;
        }
        const size_t changed = steps[i - 1][k - 1] + (word[i - 1] != other[k - 1] ? 1 : 0);
        steps[i][k] = std::min({changed, steps[i - 1][k] + 1, steps[i][k - 1] + 1});
        if (i > 1 && k > 1 && word[i - 1] == other[k - 2] && word[i - 2] == other[k - 1]) {
          steps[i][k] = std::min(steps[i][k], steps[i - 2][k - 2] + 1);
        }
      }
    }
    const size_t distance = steps[word.size()][other.size()];
    if (distance < least && distance < other.size()) {
      least = distance;
      nearest = other;
    }
  }
  return nearest;
}

}  // namespace tarn::tool
