#include "PageImage.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <random>

namespace bench {
namespace {

// ---- Made-up letters, in units of their height --------------------------------------------------------------------

constexpr double kLetterWidth = 0.7;
constexpr double kStroke = 0.055;  // half a stroke's width

struct Stroke {
  bool ring;
  double x0, y0, x1, y1;  // ends of a straight stroke; centre and, in x1, radius of a ring

  [[nodiscard]] bool Covers(double x, double y) const {
    if (ring) return std::fabs(std::hypot(x - x0, y - y0) - x1) < kStroke;
    const double dx = x1 - x0;
    const double dy = y1 - y0;
    const double length = dx * dx + dy * dy;
    const double along = length > 0 ? std::clamp(((x - x0) * dx + (y - y0) * dy) / length, 0.0, 1.0) : 0;
    return std::hypot(x - x0 - along * dx, y - y0 - along * dy) < kStroke;
  }
};

using Letter = std::vector<Stroke>;

// Values of the generator itself, not of a distribution: those differ between libraries.
double Part(std::mt19937& random) { return random() % 1000 / 1000.0; }

Letter MakeLetter(std::mt19937& random) {
  Letter letter;
  for (uint32_t strokes = 2 + random() % 2; strokes > 0; --strokes) {
    const double x = 0.1 + 0.4 * Part(random);
    const double y = 0.2 + 0.5 * Part(random);
    if (random() % 3 == 0) {
      letter.push_back({true, x, y, 0.1 + 0.15 * Part(random), 0});
    } else if (random() % 2 == 0) {
      letter.push_back({false, x, 0.1, x, 0.8});
    } else {
      letter.push_back({false, x, y, 0.1 + 0.4 * Part(random), 0.2 + 0.5 * Part(random)});
    }
  }
  return letter;
}

void Draw(PageImage& page, const Letter& letter, uint32_t left, uint32_t top, uint32_t size) {
  const auto columns = static_cast<uint32_t>(size * kLetterWidth);
  for (uint32_t y = 0; y < size && top + y < page.height; ++y) {
    uint8_t* const row = page.bits.data() + uint64_t{top + y} * page.stride;
    for (uint32_t x = 0; x < columns && left + x < page.width; ++x) {
      const double at = (x + 0.5) / size;
      const double down = (y + 0.5) / size;
      const bool ink = std::any_of(letter.begin(), letter.end(), [=](const Stroke& s) { return s.Covers(at, down); });
      if (ink) row[(left + x) / 8] = static_cast<uint8_t>(row[(left + x) / 8] | 0x80 >> (left + x) % 8);
    }
  }
}

}  // namespace

PageImage ReadPbm(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string magic;
  uint32_t numbers[2] = {};
  file >> magic;
  for (uint32_t& number : numbers) {
    while (file >> std::ws && file.peek() == '#') file.ignore(1 << 16, '\n');
    file >> number;
  }
  file.get();  // the one separator
  constexpr uint32_t kMost = 1 << 16;
  if (!file || magic != "P4" || numbers[0] > kMost || numbers[1] > kMost) return {0, 0};
  PageImage page(numbers[0], numbers[1]);
  for (uint32_t row = 0; row < page.height; ++row)
    file.read(reinterpret_cast<char*>(page.bits.data()) + uint64_t{row} * page.stride, (page.width + 7) / 8);
  return file ? page : PageImage(0, 0);
}

PageImage DrawText(uint32_t width, uint32_t height, uint32_t dotsPerInch) {
  PageImage page(width, height);
  std::mt19937 random(11);
  std::vector<Letter> alphabet;
  for (int i = 0; i < 40; ++i) alphabet.push_back(MakeLetter(random));
  const uint32_t size = dotsPerInch * 10 / 72;
  const uint32_t pitch = dotsPerInch * 12 / 72;
  const uint32_t margin = dotsPerInch * 3 / 4;
  const uint32_t advance = static_cast<uint32_t>(size * kLetterWidth);
  for (uint32_t top = margin; top + size + margin < height; top += pitch) {
    const bool lastOfParagraph = random() % 8 == 0;
    const uint32_t right = width - margin - (lastOfParagraph ? width / 3 : 0);
    for (uint32_t left = margin; left + advance < right; left += advance)
      if (random() % 6 != 0) Draw(page, alphabet[random() % alphabet.size()], left, top, size);
  }
  return page;
}

PageImage DrawNoise(uint32_t width, uint32_t height) {
  PageImage page(width, height);
  std::mt19937 random(13);
  for (uint32_t row = 0; row < height; ++row) {
    uint8_t* const line = page.bits.data() + uint64_t{row} * page.stride;
    for (uint32_t x = 0; x < width; x += 8) line[x / 8] = static_cast<uint8_t>(random() >> 24);
    if (width % 8 != 0) line[width / 8] = static_cast<uint8_t>(line[width / 8] & 0xFF << (8 - width % 8));
  }
  return page;
}

}  // namespace bench
