// tarn run: several commands on one picture, without files between them.

#include <algorithm>

#include "Command.h"

namespace tarn::tool {
namespace {

constexpr char kBetween[] = "--";

std::unique_ptr<PictureCommand> StepNamed(const std::string& name) {
  std::string known;
  for (std::unique_ptr<Command>& command : AllCommands()) {
    auto* const step = dynamic_cast<PictureCommand*>(command.get());
    if (!step) continue;
    if (name == step->Name()) {
      command.release();
      return std::unique_ptr<PictureCommand>(step);
    }
    known += std::string(known.empty() ? "" : ", ") + step->Name();
  }
  throw Failure(Exit::kUsage, "", "'" + name + "' is not one of " + known);
}

class RunCommand final : public Command {
 public:
  const char* Name() const override { return "run"; }
  const char* Help() const override { return "take a picture through several commands, without files between them"; }
  std::string Subject() const override { return way_.input; }

  void AddOptions(Options& options) override {
    options.Argument("in", way_.input, "IN", "PNG, JPEG, TIFF or BMP file, recognised by its content");
    options.Tail(
        words_,
        "-- COMMAND [ARGUMENT...] -- COMMAND [ARGUMENT...] ... OUT\n  The commands that write a picture, in "
        "turn, each without IN and OUT. OUT comes last:\n  .png, .jpg, .tif or .bmp. Options above come before "
        "the first --.");
    way_.AddOptions(options);
  }

  int Run(Console& console) override {
    if (!ReadSteps()) return static_cast<int>(Exit::kOk);
    way_.Check();
    for (const auto& step : steps_) {
      step->Join(way_);
      step->CheckOwnOptions();
    }
    const bool allPages = std::all_of(steps_.begin(), steps_.end(), [](const auto& s) { return s->TakesAllPages(); });
    const auto plan = [&](Shape shape) {
      for (const auto& step : steps_) shape = step->Plan(shape);
      return shape;
    };
    const auto work = [&](FileToFile::Bitmaps& bitmaps) {
      for (const auto& step : steps_) step->ApplyToAll(bitmaps, console);
    };
    way_.Run(allPages, plan, work, console);
    return static_cast<int>(Exit::kOk);
  }

 private:
  /// @return false when a step was asked for its help
  bool ReadSteps() {
    if (words_.size() < 2) {
      throw Failure(Exit::kUsage, "", "what to do is missing; write -- COMMAND [ARGUMENT...] -- ... OUT behind IN");
    }
    way_.output = words_.back();
    words_.pop_back();
    if (words_.back() == kBetween) words_.pop_back();
    for (auto word = words_.begin(); word != words_.end();) {
      const auto end = std::find(word, words_.end(), kBetween);
      if (word == end) throw Failure(Exit::kUsage, "", "a command is missing between -- and --");
      steps_.push_back(StepNamed(*word));
      CommandLine line(("tarn " + *word).c_str(), steps_.back()->Help());
      Options own = line.All();
      steps_.back()->AddOwnOptions(own);
      if (!line.Read({word + 1, end})) return false;
      word = end == words_.end() ? end : end + 1;
    }
    if (steps_.empty()) throw Failure(Exit::kUsage, "", "a command is missing between -- and OUT");
    return true;
  }

  FileToFile way_;
  std::vector<std::string> words_;  // behind the first --
  std::vector<std::unique_ptr<PictureCommand>> steps_;
};

}  // namespace

std::unique_ptr<Command> MakeRun() { return std::make_unique<RunCommand>(); }

}  // namespace tarn::tool
