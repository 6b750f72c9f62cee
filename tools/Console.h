#pragma once
// What the user sees on standard error: errors, notes when asked for, and a progress bar on a terminal.

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace tarn::tool {

class Console {
 public:
  Console(bool verbose, bool quiet);

  void Error(std::string_view file, std::string_view reason);
  /// Shown with --verbose only. Called from inside C libraries, so it never throws.
  void Note(std::string_view file, std::string_view text) noexcept;
  bool ShowsProgress() const noexcept { return progress_; }

 private:
  void Line(std::string_view file, std::string_view text);

  bool verbose_;
  bool progress_;
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
  }

 private:
  void Draw() noexcept;

  std::string label_;
  uint64_t steps_;
  uint64_t done_ = 0;
  bool shown_;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point next_;
};

}  // namespace tarn::tool
