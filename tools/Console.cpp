#include "Console.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <new>

namespace tarn::tool {
namespace {

constexpr int kBarWidth = 30;
constexpr auto kRedraw = std::chrono::milliseconds(100);
constexpr auto kPatience = std::chrono::milliseconds(300);  // shorter work shows no bar

}  // namespace

std::string Printable(std::string_view text) {
  std::string line(text);
  for (char& c : line) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '?';
  }
  return line;
}

Console::Console(bool verbose, bool quiet) : verbose_(verbose), progress_(!quiet && isatty(STDERR_FILENO) == 1) {}

void Console::Line(std::string_view file, std::string_view text) {
  std::string line = "tarn: ";
  if (!file.empty()) line += Printable(file) + ": ";
  line += Printable(text) + "\n";
  std::fputs(line.c_str(), stderr);
}

void Console::Error(std::string_view file, std::string_view reason) { Line(file, reason); }

void Console::Note(std::string_view file, std::string_view text) noexcept {
  if (!verbose_) return;
  try {
    Line(file, text);
  } catch (const std::bad_alloc&) {
    // A note may be lost; the run goes on.
  }
}

Progress::Progress(const Console& console, std::string_view label, uint64_t steps)
    : label_(Printable(label)),
      steps_(std::max<uint64_t>(steps, 1)),
      shown_(console.ShowsProgress()),
      sink_(console.Sink()),
      next_(std::chrono::steady_clock::now() + kPatience) {
  if (sink_) sink_->Begin(label_);
}

Progress::~Progress() {
  if (drawn_) std::fputs("\r\033[K", stderr);
}

void Progress::Draw() noexcept {
  const auto now = std::chrono::steady_clock::now();
  if (now < next_) return;
  next_ = now + kRedraw;
  drawn_ = true;
  const uint64_t done = std::min(done_, steps_);
  const int filled = static_cast<int>(done * kBarWidth / steps_);
  char bar[kBarWidth + 1] = {};
  for (int i = 0; i < kBarWidth; ++i) bar[i] = i < filled ? '#' : '.';
  std::fprintf(stderr, "\r%s [%s] %3d %%\033[K", label_.c_str(), bar, static_cast<int>(done * 100 / steps_));
  std::fflush(stderr);
}

}  // namespace tarn::tool
