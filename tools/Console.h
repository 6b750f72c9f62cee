#pragma once
// What the user sees on standard error: errors, notes when asked for, and a progress bar on a terminal.

#include <chrono>
#include <csignal>
#include <cstdint>
#include <string>
#include <string_view>

namespace tarn::tool {

/// File names and decoder messages may hold anything; a report stays one line and sends nothing to the terminal.
std::string Printable(std::string_view text);

/// Hears of progress instead of the terminal.
class ProgressSink {
 public:
  virtual ~ProgressSink() = default;
  virtual void Begin(std::string_view label) noexcept = 0;
  /// May throw to stop the reading or writing of a file.
  virtual void Reach(uint64_t done, uint64_t steps) = 0;
};

/// kAuto: a bar on a terminal, else nothing. kJson: a line for every percent, an object of JSON each.
enum class ProgressKind { kAuto, kBar, kJson, kNone };

/// Whether a bar stands on the line where the cursor is; a signal that ends the process wipes it.
extern volatile std::sig_atomic_t barDrawn;

class Console {
 public:
  /// @param quiet no progress of any kind
  Console(bool verbose, bool quiet, ProgressKind progress = ProgressKind::kAuto);

  void Error(std::string_view file, std::string_view reason);
  /// Shown with --verbose only. Called from inside C libraries, so it never throws.
  void Note(std::string_view file, std::string_view text) noexcept;
  bool ShowsProgress() const noexcept { return progress_ == ProgressKind::kBar && !sink_; }
  bool WritesProgress() const noexcept { return progress_ == ProgressKind::kJson && !sink_; }
  /// From here on; the sink must live as long as the console, and it shows progress with --quiet too.
  void SendProgressTo(ProgressSink* sink) noexcept { sink_ = sink; }
  ProgressSink* Sink() const noexcept { return sink_; }

 private:
  void Line(std::string_view file, std::string_view text);

  bool verbose_;
  ProgressKind progress_;  // kBar, kJson or kNone
  ProgressSink* sink_ = nullptr;
};

/// A bar that is redrawn a few times a second and wiped at the end, or lines of JSON; nothing when the console shows no
/// progress. A line of JSON says 100 percent only when the operation is done.
class Progress {
 public:
  /// @param operation in a word or two: "resizing"
  Progress(const Console& console, std::string_view file, uint64_t steps, std::string_view operation = "working");
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// Called from the library too, so it neither allocates nor throws, unless the sink does.
  void Step() {
    ++done_;
    if (shown_) Draw();
    if (written_) Write();
    if (sink_) sink_->Reach(done_ < steps_ ? done_ : steps_, steps_);
  }

 private:
  void Draw() noexcept;
  void Write() noexcept;

  std::string label_;  // of the bar, or what an object of JSON begins with
  uint64_t steps_;
  uint64_t done_ = 0;
  bool shown_;
  bool written_;
  ProgressSink* sink_;
  bool drawn_ = false;
  int percent_ = -1;  // that was written last
  int exceptions_;    // under way when it began
  std::chrono::steady_clock::time_point next_;
};

}  // namespace tarn::tool
