#include "Colours.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "Console.h"
#include "Failure.h"
#include "Files.h"
#include "Picture.h"

namespace tarn::tool {
namespace {

constexpr size_t kMaxColours = 256;
constexpr size_t kMaxText = 64 * 1024;
constexpr size_t kWebColours = 216;

constexpr uint32_t kGrayTag = 0x04000000, kTagMask = 0xFF000000;
constexpr char kGrayPrefix[] = "gray:";

bool IsText(const std::string& bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](char c) {
    const auto code = static_cast<unsigned char>(c);
    return code == '\n' || code == '\r' || code == '\t' || (code >= 0x20 && code != 0x7F);
  });
}

std::string Trimmed(const std::string& line) {
  const size_t first = line.find_first_not_of(" \t\r");
  if (first == std::string::npos) return "";
  return line.substr(first, line.find_last_not_of(" \t\r") - first + 1);
}

std::vector<T_PaletteEntry> ParseText(const std::string& text, const std::string& file) {
  std::vector<T_PaletteEntry> colours;
  size_t number = 0;
  for (size_t at = 0; at < text.size(); ++number) {
    const size_t end = std::min(text.find('\n', at), text.size());
    std::string line = Trimmed(text.substr(at, end - at));
    at = end + 1;
    if (line.empty() || line[0] == ';') continue;
    const size_t digits = line.find_first_not_of("0123456789");
    if (digits != 0 && digits != std::string::npos) line = Trimmed(line.substr(digits));
    T_PaletteEntry entry{};
    if (!ParseColour(line, entry)) {
      throw Failure(Exit::kDamaged, file, "line " + std::to_string(number + 1) + " is not a colour; write #rrggbb");
    }
    if (colours.size() == kMaxColours) throw Failure(Exit::kDamaged, file, "has more than 256 colours");
    colours.push_back(entry);
  }
  if (colours.empty()) throw Failure(Exit::kDamaged, file, "has no colours");
  return colours;
}

}  // namespace

std::string ColourName(const T_PaletteEntry& entry) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string name = "#";
  for (const uint8_t sample : {entry.Red, entry.Green, entry.Blue}) {
    name += kDigits[sample >> 4];
    name += kDigits[sample & 15];
  }
  return name;
}

bool ParseColour(const std::string& text, T_PaletteEntry& entry) {
  if (text.size() != 7 || text[0] != '#') return false;
  const bool digits = std::all_of(text.begin() + 1, text.end(),
                                  [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; });
  if (!digits) return false;
  const auto sample = [&](size_t at) { return static_cast<uint8_t>(std::stoi(text.substr(at, 2), nullptr, 16)); };
  entry = {sample(5), sample(3), sample(1), 0};
  return true;
}

bool ParseColourValue(const std::string& text, uint32_t& value) {
  T_PaletteEntry entry{};
  if (ParseColour(text, entry)) {
    value = uint32_t{entry.Red} | uint32_t{entry.Green} << 8 | uint32_t{entry.Blue} << 16;
    return true;
  }
  constexpr size_t kPrefixLength = sizeof kGrayPrefix - 1;
  if (text.compare(0, kPrefixLength, kGrayPrefix) != 0) return false;
  uint16_t level = 0;
  const auto [stop, error] = std::from_chars(text.data() + kPrefixLength, text.data() + text.size(), level);
  if (error != std::errc() || stop != text.data() + text.size()) return false;
  value = kGrayTag | level;
  return true;
}

std::string ColourValueName(uint32_t value) {
  if ((value & kTagMask) == kGrayTag) return kGrayPrefix + std::to_string(value & 0xFFFF);
  const auto sample = [&](int shift) { return static_cast<uint8_t>(value >> shift); };
  return ColourName({sample(16), sample(8), sample(0), 0});
}

int32_t DepthFor(size_t colours) noexcept {
  int32_t bits = 1;
  while (bits < 8 && (size_t{1} << bits) < colours) bits *= 2;
  return bits;
}

std::vector<T_PaletteEntry> FixedPalette(int32_t bits) {
  const T_PaletteEntry* entries = T_IntGetFixedPalette(static_cast<uint32_t>(bits));
  return {entries, entries + (size_t{1} << bits)};
}

std::vector<T_PaletteEntry> WebPalette() {
  const T_PaletteEntry* entries = T_IntGetNetscapePalette();
  return {entries, entries + kWebColours};
}

std::vector<T_PaletteEntry> ReadPalette(const std::string& file, Console& console) {
  InputFile input(file);
  std::string head(static_cast<size_t>(std::min<uint64_t>(input.Size(), kMaxText)), '\0');
  head.resize(input.Read(head.data(), head.size()));
  input.ThrowIfFailed();
  if (IsText(head)) {
    if (input.Size() > kMaxText) throw Failure(Exit::kDamaged, file, "is too long for a list of colours");
    return ParseText(head, file);
  }
  input.Seek(0);
  const std::unique_ptr<Reader> reader = OpenPicture(input, console, 0);
  if (reader->Info().palette.empty()) {
    throw Failure(Exit::kDepth, file, "has no palette, it is " + DepthName(reader->Info()));
  }
  return reader->Info().palette;
}

}  // namespace tarn::tool
