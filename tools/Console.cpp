#include "Console.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
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

namespace {

/// Standard input has no name of its own on the command line.
std::string Shown(std::string_view file) {
  std::string name = Printable(file);
  if (name == "-" || name.starts_with("-, ")) name.replace(0, 1, "standard input");
  return name;
}

/// Bytes of a sequence of UTF-8 at the start of a text, 0 when it is none.
size_t SequenceBytes(std::string_view text) {
  const auto at = [&](size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
  const unsigned first = at(0);
  const size_t bytes = first < 0x80                    ? 1
                       : first >= 0xC2 && first < 0xE0 ? 2
                       : (first & 0xF0) == 0xE0        ? 3
                       : first >= 0xF0 && first < 0xF5 ? 4
                                                       : 0;
  for (size_t i = 1; i < bytes; ++i) {
    if ((at(i) & 0xC0) != 0x80) return 0;
  }
  const unsigned second = at(1);
  const bool overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
  const bool beyond = (first == 0xED && second >= 0xA0) || (first == 0xF4 && second >= 0x90);
  return overlong || beyond ? 0 : bytes;
}

/// A string of JSON. File names may hold any bytes: those that are no UTF-8 become the replacement character.
std::string JsonString(std::string_view text) {
  std::string json = "\"";
  while (!text.empty()) {
    const size_t bytes = SequenceBytes(text);
    const char first = text.front();
    if (bytes == 0) {
      json += "\\ufffd";
    } else if (first == '"' || first == '\\') {
      json += std::string("\\") + first;
    } else if (static_cast<unsigned char>(first) < 0x20) {
      char code[8];
      std::snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned>(first));
      json += code;
    } else {
      json += text.substr(0, bytes);
    }
    text.remove_prefix(std::max<size_t>(bytes, 1));
  }
  return json + "\"";
}

ProgressKind Settled(ProgressKind asked, bool quiet) {
  if (quiet) return ProgressKind::kNone;
  if (asked != ProgressKind::kAuto) return asked;
  return isatty(STDERR_FILENO) == 1 ? ProgressKind::kBar : ProgressKind::kNone;
}

}  // namespace

volatile std::sig_atomic_t barDrawn = 0;

Console::Console(bool verbose, bool quiet, ProgressKind progress)
    : verbose_(verbose), progress_(Settled(progress, quiet)) {}

void Console::Line(std::string_view file, std::string_view text) {
  std::string line = "tarn: ";
  if (!file.empty()) line += Shown(file) + ": ";
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

Progress::Progress(const Console& console, std::string_view file, uint64_t steps, std::string_view operation)
    : label_(Shown(file) + ", " + std::string(operation)),
      steps_(std::max<uint64_t>(steps, 1)),
      shown_(console.ShowsProgress()),
      written_(console.WritesProgress()),
      sink_(console.Sink()),
      exceptions_(std::uncaught_exceptions()),
      next_(std::chrono::steady_clock::now() + kPatience) {
  if (sink_) sink_->Begin(label_);
  if (!written_) return;
  const std::string name = file == "-" ? "standard input" : std::string(file);
  label_ = "{\"operation\":" + JsonString(operation) + ",\"file\":" + JsonString(name) + ",\"percent\":";
  Write();
}

Progress::~Progress() {
  if (drawn_) std::fputs("\r\033[K", stderr);
  if (drawn_) barDrawn = 0;
  if (written_ && std::uncaught_exceptions() == exceptions_) {  // the library does not report every step
    done_ = steps_;
    Write();
  }
}

void Progress::Write() noexcept {
  const int percent = static_cast<int>(std::min(done_, steps_) * 100 / steps_);
  if (percent <= percent_) return;
  percent_ = percent;
  std::fprintf(stderr, "%s%d}\n", label_.c_str(), percent);
}

void Progress::Draw() noexcept {
  const auto now = std::chrono::steady_clock::now();
  if (now < next_) return;
  next_ = now + kRedraw;
  drawn_ = true;
  barDrawn = 1;
  const uint64_t done = std::min(done_, steps_);
  const int filled = static_cast<int>(done * kBarWidth / steps_);
  char bar[kBarWidth + 1] = {};
  for (int i = 0; i < kBarWidth; ++i) bar[i] = i < filled ? '#' : '.';
  std::fprintf(stderr, "\r%s [%s] %3d %%\033[K", label_.c_str(), bar, static_cast<int>(done * 100 / steps_));
  std::fflush(stderr);
}

}  // namespace tarn::tool
