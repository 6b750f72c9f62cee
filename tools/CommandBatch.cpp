// tarn batch: many pictures through the same commands, several at a time.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <set>
#include <system_error>
#include <thread>

#include "BatchBars.h"
#include "BatchCrew.h"
#include "BatchJournal.h"
#include "BatchNames.h"
#include "Chain.h"
#include "Command.h"

namespace tarn::tool {
namespace {

namespace fs = std::filesystem;

constexpr int kMostJobs = 256;
/// A change of size or depth has two bitmaps at a time.
constexpr uint64_t kBitmapsAtATime = 2;

const char* ExtensionOf(Format format) {
  switch (format) {
    case Format::kPng:
      return ".png";
    case Format::kJpeg:
      return ".jpg";
    case Format::kTiff:
      return ".tif";
    case Format::kBmp:
      return ".bmp";
  }
  return "";
}

double Megabytes(uint64_t bytes) { return static_cast<double>(bytes) / 1e6; }

class BatchCommand final : public Command {
 public:
  const char* Name() const override { return "batch"; }
  const char* Help() const override { return "take many pictures through several commands, several at a time"; }

  void AddOptions(Options& options) override {
    options.Arguments("names", names_, "IN... OUT",
                      "files, folders and quoted patterns ('in/*.tif', 'in/**/*.png'), then the folder to write into");
    options.Number("--jobs", jobs_, 1, kMostJobs, "pictures at a time, each in a process; as many as processors");
    options.Text("--suffix", suffix_, "TEXT",
                 "of the outputs' names: .png writes PNG, as --format png does; -small comes behind the stem");
    options.Flag("--again", again_, "do what has been done already, too");
    options.Flag("--stop-on-error", stopOnError_, "begin no further picture after one that fails");
    options.Flag("--plan", plan_, "do nothing but list what is to be done: a key, input and output, between tabs");
    options.Tail(words_,
                 "-- COMMAND [ARGUMENT...] -- COMMAND [ARGUMENT...] ...\nThe commands that write a picture, in turn, "
                 "each without IN and OUT; without any, pictures are converted to what --format says. The options "
                 "below come before the first --.");
    way_.AddOptions(options);
  }

  void CheckOptions() const override {
    if (names_.size() < 2) throw Failure(Exit::kUsage, "", "pictures and the folder to write into are needed");
  }

  int Run(Console& console) override;

 private:
  using Clock = std::chrono::steady_clock;

  bool Prepare();
  void MakeFolders() const;
  void Work(const BatchItem& item, Console& console, const std::function<void(std::unique_ptr<OutputFile>)>& made);
  void Hear(const BatchResult& result, BatchJournal& journal, Console& console);
  BatchBars::Sum Sum() const;
  void Summary(int signal) const;
  void ListPlan() const;
  double Seconds() const { return std::chrono::duration<double>(Clock::now() - begun_).count(); }
  std::vector<std::string> CommandWords() const;

  // What the user wants.
  std::vector<std::string> names_;
  std::vector<std::string> words_;  // behind the first --
  int jobs_ = 0;                    // 0: as many as processors
  std::string suffix_;
  bool again_ = false;
  bool stopOnError_ = false;
  bool plan_ = false;
  FileToFile way_;

  // What there is to do, and how far it is.
  std::string folder_;
  std::vector<BatchItem> items_;
  size_t skipped_ = 0;
  uint64_t inputBytes_ = 0;  // of all items
  Clock::time_point begun_;
  BatchBars bars_;
  bool showsBars_ = false;
  std::optional<Progress> written_;  // of all pictures, as lines
  size_t done_ = 0;
  uint64_t readBytes_ = 0, writtenBytes_ = 0, throughBytes_ = 0;
  std::vector<BatchResult> failed_;
};

/// All that an output depends on but its input and its name.
std::vector<std::string> BatchCommand::CommandWords() const {
  const int format = way_.writing.format ? static_cast<int>(*way_.writing.format) : -1;  // as the name says
  std::vector<std::string> words = {std::to_string(format), std::to_string(static_cast<int>(way_.writing.compression)),
                                    std::to_string(way_.quality), std::to_string(way_.reading.page)};
  words.insert(words.end(), words_.begin(), words_.end());
  return words;
}

/// @return false when a command was asked for its help
bool BatchCommand::Prepare() {
  folder_ = names_.back();
  names_.pop_back();
  if (words_.empty()) words_.emplace_back("convert");
  if (words_.back() == Chain::kBetween) words_.pop_back();
  Chain chain;
  if (!chain.Read(words_)) return false;
  chain.Join(way_);
  if (jobs_ == 0) jobs_ = std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, kMostJobs);

  if (way_.writing.format && suffix_.find('.') == std::string::npos) suffix_ += ExtensionOf(*way_.writing.format);
  items_ = ExpandBatch(names_, folder_, suffix_);
  for (const BatchItem& item : items_) {
    way_.output = item.output;
    way_.Check();
  }
  return true;
}

void BatchCommand::MakeFolders() const {
  std::set<std::string> folders = {folder_};
  for (const BatchItem& item : items_) folders.insert(fs::path(item.output).parent_path().string());
  for (const std::string& folder : folders) {
    std::error_code failed;
    fs::create_directories(folder, failed);
    if (failed && !fs::is_directory(folder)) {
      throw Failure(Exit::kOutput, folder, "cannot make the folder: " + failed.message());
    }
  }
}

int BatchCommand::Run(Console& console) {
  if (!Prepare()) return static_cast<int>(Exit::kOk);
  if (!plan_) MakeFolders();
  BatchJournal journal(folder_, plan_);
  const std::vector<std::string> command = CommandWords();
  const size_t named = items_.size();
  std::erase_if(items_, [&](BatchItem& item) {
    item.key = BatchKey(command, item.input);
    return !again_ && journal.IsDone(item.key, item.name, item.output);
  });
  skipped_ = named - items_.size();
  if (plan_) {
    ListPlan();
    return static_cast<int>(Exit::kOk);
  }

  for (const BatchItem& item : items_) inputBytes_ += item.inputBytes;
  jobs_ = static_cast<int>(std::min<size_t>(static_cast<size_t>(jobs_), items_.size()));
  StorageChoice& storage = way_.reading.storage;
  if (storage.maxMemory != 0 && jobs_ > 0) {
    storage.maxMemory = std::max<uint64_t>(storage.maxMemory / (kBitmapsAtATime * static_cast<uint64_t>(jobs_)), 1);
    way_.reading.Check();
  }
  begun_ = Clock::now();
  int signal = 0;
  if (!items_.empty()) {
    showsBars_ = console.ShowsProgress();
    if (console.WritesProgress()) written_.emplace(console, folder_, items_.size(), "batch");
    const BatchWork work = [&](uint32_t item, Console& own, const auto& made) { Work(items_[item], own, made); };
    BatchCrew crew(static_cast<uint32_t>(items_.size()), jobs_, work, console);
    if (stopOnError_) crew.Board().StopOnFailure();
    BatchCrew::Listener listener;
    listener.heard = [&](const BatchResult& result) { Hear(result, journal, console); };
    if (showsBars_) listener.tick = [&] { bars_.Draw(Sum(), crew.Board(), crew.Workers()); };
    signal = crew.Run(listener);
    bars_.Clear();
  }
  std::sort(failed_.begin(), failed_.end(), [](const BatchResult& a, const BatchResult& b) { return a.item < b.item; });
  Summary(signal);
  if (signal != 0) {
    std::signal(signal, SIG_DFL);
    std::raise(signal);
  }
  return failed_.empty() ? static_cast<int>(Exit::kOk) : failed_.front().code;
}

/// In a worker.
void BatchCommand::Work(const BatchItem& item, Console& console,
                        const std::function<void(std::unique_ptr<OutputFile>)>& made) {
  Chain chain;  // a new one for each: commands remember what they found out about a picture
  chain.Read(words_);
  FileToFile way = way_;
  way.input = item.input;
  way.output = item.output;
  way.commit = made;
  chain.Join(way);
  chain.Run(way, console);
}

void BatchCommand::Hear(const BatchResult& result, BatchJournal& journal, Console& console) {
  const BatchItem& item = items_[result.item];
  throughBytes_ += item.inputBytes;
  if (written_) written_->Step();
  if (!result.printed.empty() || result.code != 0) bars_.Clear();
  if (!result.printed.empty()) {
    std::printf("%s: %s%s", Printable(item.input).c_str(), result.printed.c_str(),
                result.printed.back() == '\n' ? "" : "\n");
    std::fflush(stdout);
  }
  if (result.code == 0) {
    ++done_;
    readBytes_ += item.inputBytes;
    writtenBytes_ += result.outputBytes;
    journal.Add(item.key, item.name, item.output);
    return;
  }
  failed_.push_back(result);
  if (failed_.back().file.empty()) failed_.back().file = item.input;
  console.Error(failed_.back().file, result.reason);
}

BatchBars::Sum BatchCommand::Sum() const {
  BatchBars::Sum sum;
  sum.through = done_ + failed_.size();
  sum.failed = failed_.size();
  sum.all = items_.size();
  sum.bytesShare = inputBytes_ == 0 ? 0 : static_cast<double>(throughBytes_) / static_cast<double>(inputBytes_);
  sum.seconds = Seconds();
  return sum;
}

void BatchCommand::Summary(int signal) const {
  const double seconds = std::max(Seconds(), 1e-6);
  const size_t left = items_.size() - done_ - failed_.size();
  std::printf("%zu done, %zu skipped, %zu failed", done_, skipped_, failed_.size());
  if (left > 0) std::printf(", %zu left", left);
  if (signal != 0) std::printf(" (cancelled)");
  if (done_ > 0) {
    std::printf("; %.1f s, %.1f pictures/s, %.1f MB/s read, %.1f MB/s written", seconds,
                static_cast<double>(done_) / seconds, Megabytes(readBytes_) / seconds,
                Megabytes(writtenBytes_) / seconds);
  }
  std::printf("\n");
  for (const BatchResult& result : failed_) {
    std::printf("failed (%d): %s: %s\n", result.code, Printable(result.file).c_str(), Printable(result.reason).c_str());
  }
  FinishOutput();
}

void BatchCommand::ListPlan() const {
  for (const BatchItem& item : items_) {
    std::printf("%s\t%s\t%s\n", item.key.empty() ? "-" : item.key.c_str(), EscapedName(item.input).c_str(),
                EscapedName(item.output).c_str());
  }
  FinishOutput();
}

}  // namespace

std::unique_ptr<Command> MakeBatch() { return std::make_unique<BatchCommand>(); }

}  // namespace tarn::tool
