// tarn: pictures in PNG, JPEG, TIFF and BMP files through the library's bitmaps.

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

int Run(int argc, char** argv) {
  CommandLine line("tarn", "Pictures in PNG, JPEG, TIFF and BMP files: what they are, and work on them.");
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
