// tarn: pictures in PNG, JPEG, TIFF and BMP files through the library's bitmaps.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <new>

#include "Command.h"
#include "Files.h"

namespace tarn::tool {
namespace {

std::string VersionText() {
  T_Version version{};
  if (T_VersionInfo(&version, sizeof version) != SUCCESS) return "tarn";
  return "tarn (" + std::string(version.Product) + " " + std::to_string(version.MajorNumber) + "." +
         std::to_string(version.MinorNumber) + ")";
}

/// The words of the command line, last one first, as the parser takes them. A place such as -5,-5 gets a blank in
/// front: the parser would look whether there is an option -5, and its look-up ends the process without memory.
std::vector<std::string> Words(int argc, char** argv) {
  std::vector<std::string> words;
  for (int i = argc - 1; i > 0; --i) {
    const std::string word = argv[i];
    const bool place = word.size() > 1 && word[0] == '-' && word[1] >= '0' && word[1] <= '9';
    words.push_back(place ? " " + word : word);
  }
  return words;
}

int Run(int argc, char** argv) {
  CLI::App app("Pictures in PNG, JPEG, TIFF and BMP files: what they are, and work on them.", "tarn");
  app.set_version_flag("--version", VersionText());
  app.require_subcommand(1);
  bool verbose = false, quiet = false;
  const std::vector<std::unique_ptr<Command>> commands = AllCommands();
  for (const std::unique_ptr<Command>& command : commands) {
    CLI::App& entry = *app.add_subcommand(command->Name(), command->Help());
    Options options(entry);
    command->AddOptions(options);
    auto* loud = entry.add_flag("--verbose,-v", verbose, "tell about storage and decoder warnings");
    entry.add_flag("--quiet,-q", quiet, "no progress bar on a terminal")->excludes(loud);
  }
  try {
    app.parse(Words(argc, argv));
  } catch (const CLI::Success& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    Console(false, true).Error("", std::string(error.what()) + " (tarn --help tells more)");
    return static_cast<int>(Exit::kUsage);
  }

  Console console(verbose, quiet);
  InstallSignalCleanup();
  const std::string& name = app.get_subcommands().front()->get_name();
  for (const std::unique_ptr<Command>& command : commands) {
    if (name != command->Name()) continue;
    return Attempt(console, command->Subject(), [&] {
      command->CheckOptions();
      return command->Run(console);
    });
  }
  return static_cast<int>(Exit::kInternal);
}

}  // namespace
}  // namespace tarn::tool

int main(int argc, char** argv) {
  try {
    return tarn::tool::Run(argc, argv);
  } catch (const std::bad_alloc&) {
    std::fputs("tarn: no memory\n", stderr);
    return static_cast<int>(tarn::tool::Exit::kMemory);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tarn: %s\n", error.what());
    return static_cast<int>(tarn::tool::Exit::kInternal);
  }
}
