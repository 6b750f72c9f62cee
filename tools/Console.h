#pragma once
// What the user sees on standard error: errors, notes when asked for, and a progress bar on a terminal.

#include <chrono>
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
  virtual void Reach(uint64_t done, uint64_t steps) noexcept = 0;
};

class Console {
 public:
  Console(bool verbose, bool quiet);

  void Error(std::string_view file, std::string_view reason);
  /// Shown with --verbose only. Called from inside C libraries, so it never throws.
  void Note(std::string_view file, std::string_view text) noexcept;
  bool ShowsProgress() const noexcept { return progress_ && !sink_; }
  /// From here on; the sink must live as long as the console, and it shows progress with --quiet too.
  void SendProgressTo(ProgressSink* sink) noexcept { sink_ = sink; }
  ProgressSink* Sink() const noexcept { return sink_; }

 private:
  void Line(std::string_view file, std::string_view text);

  bool verbose_;
  bool progress_;
  ProgressSink* sink_ = nullptr;
};

/// A bar that is redrawn a few times a second and wiped at the end; draws nothing when the console shows no progress.
class Progress {
 public:
  Progress(const Console& console, std::string_view label, uint64_t steps);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// Called from the library too, so it neither throws nor allocates.
  void Step() noexcept {
    ++done_;
    if (shown_) Draw();
    if (sink_) sink_->Reach(done_ < steps_ ? done_ : steps_, steps_);
  }

 private:
  void Draw() noexcept;

  std::string label_;
  uint64_t steps_;
  uint64_t done_ = 0;
  bool shown_;
  ProgressSink* sink_;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point next_;
};

}  // namespace tarn::tool
