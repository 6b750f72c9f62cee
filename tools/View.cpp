#include "View.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include "Failure.h"

namespace tarn::tool {
namespace {

constexpr double kMostPercent = 1e9;    // any side fits 31 bits, or does not, afterwards
constexpr double kMostDegrees = 36000;  // a hundred turns

/// Where the text begins: blanks in front do not count.
const char* Begin(const std::string& text) { return text.data() + std::min(text.find_first_not_of(' '), text.size()); }

/// Takes a number and the character after it off the text; at the end 0 stands for that character.
bool TakeNumber(const char*& at, const char* end, char after, int64_t& number) {
  const auto [stop, error] = std::from_chars(at, end, number);
  if (error != std::errc() || number > std::numeric_limits<int32_t>::max() ||
      number < -std::numeric_limits<int32_t>::max()) {
    return false;
  }
  if (after == 0 ? stop != end : stop == end || *stop != after) return false;
  at = after == 0 ? stop : stop + 1;
  return true;
}

}  // namespace

Area ParsePlace(const std::string& text) {
  const char* at = Begin(text);
  const char* const end = text.data() + text.size();
  Area area{0, 0, 1, 1};
  if (TakeNumber(at, end, ',', area.left) && TakeNumber(at, end, 0, area.top)) return area;
  throw Failure(Exit::kUsage, "", "'" + text + "' is not a place; write X,Y");
}

Area ParseArea(const std::string& text) {
  const char* at = Begin(text);
  const char* const end = text.data() + text.size();
  Area area;
  if (TakeNumber(at, end, ',', area.left) && TakeNumber(at, end, ',', area.top) &&
      TakeNumber(at, end, 'x', area.width) && TakeNumber(at, end, 0, area.height) && area.width > 0 &&
      area.height > 0) {
    return area;
  }
  throw Failure(Exit::kUsage, "", "'" + text + "' is not a rectangle; write X,Y,WxH");
}

int32_t Coordinate(int64_t value, const std::string& file, const char* what) {
  if (value >= std::numeric_limits<int32_t>::min() && value <= std::numeric_limits<int32_t>::max()) {
    return static_cast<int32_t>(value);
  }
  throw Failure(Exit::kUsage, file, std::string(what) + " is too far away");
}

bool ParseNewSize(const std::string& text, NewSize& size) {
  const char* at = Begin(text);
  const char* const end = text.data() + text.size();
  if (at != end && end[-1] == '%') {
    const auto [stop, error] = std::from_chars(at, end - 1, size.percent, std::chars_format::fixed);
    return error == std::errc() && stop == end - 1 && size.percent > 0 && size.percent <= kMostPercent;
  }
  int64_t width = 0, height = 0;
  if (at != end && *at == 'x') {
    ++at;
  } else if (!TakeNumber(at, end, 'x', width) || width <= 0) {
    return false;
  }
  if (at == end ? width == 0 : !TakeNumber(at, end, 0, height) || height <= 0) return false;
  size = {static_cast<int32_t>(width), static_cast<int32_t>(height), 0};
  return true;
}

bool ParseAngle(const std::string& text, int32_t& hundredths) {
  const char* const end = text.data() + text.size();
  double degrees = 0;
  const auto [stop, error] = std::from_chars(Begin(text), end, degrees, std::chars_format::fixed);
  if (error != std::errc() || stop != end || !(std::fabs(degrees) <= kMostDegrees)) return false;
  hundredths = static_cast<int32_t>(std::lround(degrees * 100));
  return true;
}

Area StoredArea(const Area& seen, uint32_t perspective, int64_t width, int64_t height) noexcept {
  // The area in storage's own directions, then counted from the other side where that side is seen first.
  Area stored = seen;
  if (SidesSwap(perspective)) stored = {seen.top, seen.left, seen.height, seen.width};
  const bool fromRight = perspective == 2 || perspective == 3 || perspective == 7 || perspective == 8;
  const bool fromBelow = perspective == 3 || perspective == 4 || perspective == 6 || perspective == 7;
  if (fromRight) stored.left = width - stored.left - stored.width;
  if (fromBelow) stored.top = height - stored.top - stored.height;
  return stored;
}

}  // namespace tarn::tool
