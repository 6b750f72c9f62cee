// tarn run: several commands on one picture, without files between them.

#include "Chain.h"
#include "Command.h"

namespace tarn::tool {
namespace {

class RunCommand final : public Command {
 public:
  const char* Name() const override { return "run"; }
  const char* Help() const override { return "take a picture through several commands, without files between them"; }
  std::string Subject() const override { return way_.input; }

  void AddOptions(Options& options) override {
    options.Argument("in", way_.input, "IN", kInputHelp);
    options.Tail(
        words_,
        "-- COMMAND [ARGUMENT...] -- COMMAND [ARGUMENT...] ... OUT\nThe commands that write a picture, in "
        "turn, each without IN and OUT. OUT comes last: .png, .jpg, .tif or .bmp, or - for standard output. The "
        "options below come before the first --.");
    way_.AddOptions(options);
  }

  int Run(Console& console) override {
    if (words_.size() < 2) {
      throw Failure(Exit::kUsage, "", "what to do is missing; write -- COMMAND [ARGUMENT...] -- ... OUT behind IN");
    }
    way_.output = words_.back();
    words_.pop_back();
    if (words_.back() == Chain::kBetween) words_.pop_back();
    if (words_.empty()) throw Failure(Exit::kUsage, "", "a command is missing between -- and OUT");
    Chain chain;
    if (!chain.Read(words_)) return static_cast<int>(Exit::kOk);
    way_.Check();
    chain.Join(way_);
    chain.Run(way_, console);
    return static_cast<int>(Exit::kOk);
  }

 private:
  FileToFile way_;
  std::vector<std::string> words_;  // behind the first --
};

}  // namespace

std::unique_ptr<Command> MakeRun() { return std::make_unique<RunCommand>(); }

}  // namespace tarn::tool
