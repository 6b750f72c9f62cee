// tarn: pictures in PNG, JPEG, TIFF and BMP files through the library's bitmaps.

#include <cstdio>
#include <new>
#include <string_view>

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

/// Prints the manual page, or a shell's completions.
int Generate(const CommandLine& line, const std::string& what) {
  T_Version version{};
  if (T_VersionInfo(&version, sizeof version) != SUCCESS) return static_cast<int>(Exit::kInternal);
  const std::string number = std::to_string(version.MajorNumber) + "." + std::to_string(version.MinorNumber);
  const CommandPage page = line.Describe();
  const std::string text = what == "man" ? ManualPage(page, number) : CompletionScript(page, what);
  if (text.empty()) return static_cast<int>(Exit::kUsage);
  std::fputs(text.c_str(), stdout);
  return std::fflush(stdout) == 0 ? static_cast<int>(Exit::kOk) : static_cast<int>(Exit::kOutput);
}

int Run(int argc, char** argv) {
  CommandLine line("tarn", "tell what pictures in PNG, JPEG, TIFF and BMP files are, and work on them");
  line.Version(VersionText());
  bool verbose = false, quiet = false;
  ProgressKind progress = ProgressKind::kAuto;
  const std::vector<std::unique_ptr<Command>> commands = AllCommands();
  for (const std::unique_ptr<Command>& command : commands) {
    Options options = line.Command(command->Name(), command->Help());
    command->AddOptions(options);
    options.Verbosity(verbose, quiet);
    options.Choice<ProgressKind>("--progress", progress,
                                 {{"auto", ProgressKind::kAuto},
                                  {"bar", ProgressKind::kBar},
                                  {"json", ProgressKind::kJson},
                                  {"none", ProgressKind::kNone}},
                                 "KIND", "auto (a bar on a terminal), bar, json (a line for every percent) or none");
  }
  // What is made for a build, not for users, is no option.
  if (argc == 3 && std::string_view(argv[1]) == "--generate") return Generate(line, argv[2]);
  if (argc <= 1) {
    const CommandPage page = line.Describe();
    std::fputs(HelpText(page, page.name).c_str(), stderr);
    return static_cast<int>(Exit::kUsage);
  }
  try {
    if (!line.Read(argc, argv)) return static_cast<int>(Exit::kOk);
  } catch (const Failure& failure) {
    Console(false, true).Error("", failure.what());
    return static_cast<int>(failure.ExitCode());
  }

  Console console(verbose, quiet, progress);
  InstallSignalCleanup();
  const std::string name = line.Chosen();
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
