// Command lines of any words: taken, or refused with a reason, and no file is touched.

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "../Targets.h"
#include "Chain.h"
#include "Command.h"
#include "Targets.h"

using namespace tarn::tool;
using tarn::fuzz::Require;

namespace {

/// Help goes to standard output; not while this lives.
class Silence {
 public:
  Silence() : kept_(dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
  }
  ~Silence() {
    std::fflush(stdout);
    dup2(kept_, STDOUT_FILENO);
    close(kept_);
  }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

 private:
  int kept_;
};

void Whole(const std::vector<std::string>& words) {
  CommandLine line("tarn", "tell what pictures are");
  const std::vector<std::unique_ptr<Command>> commands = AllCommands();
  for (const std::unique_ptr<Command>& command : commands) {
    Options options = line.Command(command->Name(), command->Help());
    command->AddOptions(options);
  }
  if (!line.Read(words)) return;
  const std::string chosen = line.Chosen();
  for (const std::unique_ptr<Command>& command : commands) {
    if (chosen == command->Name()) return command->CheckOptions();
  }
  Require(false, "a command was chosen");
}

}  // namespace

/// Words end with a line. Those of a chain of commands follow an empty one.
void FuzzArguments(const uint8_t* data, size_t size) {
  std::vector<std::string> words(1);
  for (size_t i = 0; i < size; ++i) {
    if (data[i] == '\n') {
      words.emplace_back();
    } else if (data[i] != 0) {  // which no word can hold
      words.back() += static_cast<char>(data[i]);
    }
  }
  if (words.back().empty()) words.pop_back();
  const Silence silence;
  try {
    if (!words.empty() && words.front().empty()) {
      words.erase(words.begin());
      Chain chain;
      if (chain.Read(words)) chain.Join({});
    } else {
      Whole(words);
    }
  } catch (const Failure& failure) {
    Require(failure.ExitCode() == Exit::kUsage, "wrong words are wrong arguments");
    Require(*failure.what() != 0, "a reason");
  }
}
