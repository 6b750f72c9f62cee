#include "Chain.h"

#include <algorithm>

namespace tarn::tool {
namespace {

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

}  // namespace

bool Chain::Read(const std::vector<std::string>& words) {
  for (auto word = words.begin(); word != words.end();) {
    const auto end = std::find(word, words.end(), kBetween);
    if (word == end) throw Failure(Exit::kUsage, "", "a command is missing between -- and --");
    steps_.push_back(StepNamed(*word));
    CommandLine line(("tarn " + *word).c_str(), steps_.back()->Help());
    Options own = line.All();
    steps_.back()->AddOwnOptions(own);
    if (!line.Read({word + 1, end})) return false;
    word = end == words.end() ? end : end + 1;
  }
  return true;
}

void Chain::Join(const FileToFile& way) {
  for (const auto& step : steps_) {
    step->Join(way);
    step->CheckOwnOptions();
  }
}

void Chain::Run(FileToFile& way, Console& console) {
  const bool allPages = std::all_of(steps_.begin(), steps_.end(), [](const auto& s) { return s->TakesAllPages(); });
  const auto plan = [&](Shape shape) {
    for (const auto& step : steps_) shape = step->Plan(shape);
    return shape;
  };
  const auto work = [&](FileToFile::Bitmaps& bitmaps) {
    for (const auto& step : steps_) step->ApplyToAll(bitmaps, console);
  };
  way.Run(allPages, plan, work, console);
}

}  // namespace tarn::tool
