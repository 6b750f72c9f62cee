#include "BatchBars.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace tarn::tool {
namespace {

constexpr int kBarWidth = 20;
constexpr int kUsualColumns = 80, kUsualRows = 24;

std::string Bar(double share) {
  const int filled = static_cast<int>(std::clamp(share, 0.0, 1.0) * kBarWidth);
  std::string bar = "[";
  for (int i = 0; i < kBarWidth; ++i) bar += i < filled ? '#' : '.';
  return bar + "]";
}

std::string Clock(double seconds) {
  const auto whole = static_cast<long long>(seconds + 0.5);
  char text[32];
  if (whole >= 3600) {
    std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60, whole % 60);
  } else {
    std::snprintf(text, sizeof text, "%lld:%02lld", whole / 60, whole % 60);
  }
  return text;
}

/// The end of a long name tells more than its beginning. Bytes above ASCII are counted as they are.
std::string Fitting(const std::string& text, size_t columns) {
  if (text.size() <= columns) return text;
  if (columns <= 3) return text.substr(0, columns);
  return "..." + text.substr(text.size() - (columns - 3));
}

}  // namespace

void BatchBars::Draw(const Sum& sum, BatchBoard& board, int workers) {
  winsize window{};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &window) != 0 || window.ws_col == 0 || window.ws_row == 0) {
    window.ws_col = kUsualColumns;
    window.ws_row = kUsualRows;
  }
  const auto columns = static_cast<size_t>(window.ws_col - 1);
  char head[200];
  int used = std::snprintf(head, sizeof head, "%s %llu of %llu", Bar(sum.bytesShare).c_str(),
                           static_cast<unsigned long long>(sum.through), static_cast<unsigned long long>(sum.all));
  const auto more = [&](const char* format, auto value) {
    used += std::snprintf(head + used, sizeof head - static_cast<size_t>(used), format, value);
  };
  if (sum.failed > 0) more(", %llu failed", static_cast<unsigned long long>(sum.failed));
  if (sum.through > 0 && sum.seconds > 0) more(", %.1f/s", static_cast<double>(sum.through) / sum.seconds);
  if (sum.bytesShare > 0.001) more(", %s left", Clock(sum.seconds / sum.bytesShare - sum.seconds).c_str());
  std::string screen = std::string(head).substr(0, columns) + "\033[K\n";
  int lines = 1;
  for (int i = 0; i < workers && lines + 1 < window.ws_row; ++i, ++lines) {
    const uint32_t percent = board.At(i).percent.load(std::memory_order_relaxed);
    char tail[kBarWidth + 16];
    std::snprintf(tail, sizeof tail, "  %s %3u %%  ", Bar(percent / 100.0).c_str(), percent);
    const std::string label = board.At(i).item == 0 ? "" : board.Label(i);
    screen += std::string(tail).substr(0, columns) +
              Fitting(label, columns - std::min(columns, std::char_traits<char>::length(tail))) + "\033[K\n";
  }
  if (drawn_ > 0) screen = "\033[" + std::to_string(drawn_) + "A" + screen;
  drawn_ = lines;
  std::fputs(screen.c_str(), stderr);
  std::fflush(stderr);
}

void BatchBars::Clear() {
  if (drawn_ == 0) return;
  std::fprintf(stderr, "\033[%dA\033[J", drawn_);
  std::fflush(stderr);
  drawn_ = 0;
}

}  // namespace tarn::tool
