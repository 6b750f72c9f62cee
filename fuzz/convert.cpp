// A line of any content between any two formats, with guard bytes around the buffer, against the slow rules.

#include <cstring>
#include <vector>

#include "Targets.h"
#include "tarn/tarn.h"
#include "tests/ConvertReference.h"

using tarn::fuzz::Input;
using tarn::fuzz::Require;

namespace {

constexpr int kBits[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 24, 32, 48, 64, 9, -1};

convertref::Palette PaletteOf(Input& input, int bits) {
  convertref::Palette palette(bits >= 1 && bits <= 8 ? size_t{1} << bits : 0);
  for (auto& entry : palette) entry = {input.Byte(), input.Byte(), input.Byte(), input.Byte()};
  return palette;
}

const T_PaletteEntry* Entries(const convertref::Side& side) {
  return side.palette ? reinterpret_cast<const T_PaletteEntry*>(side.palette->data()) : nullptr;
}

}  // namespace

void FuzzConvert(const uint8_t* data, size_t size) {
  Input input(data, size);
  convertref::Side source{kBits[input.Below(17)], input.Below(7)};
  convertref::Side target{kBits[input.Below(17)], input.Below(7)};
  const int width = 1 + static_cast<int>(input.Below(700));
  const uint8_t choices = input.Byte();
  convertref::Options options{input.Byte() & 63u, static_cast<int8_t>(input.Byte()), static_cast<int8_t>(input.Byte())};
  const convertref::Palette from = PaletteOf(input, choices & 1 ? source.bits : 0);
  const convertref::Palette to = PaletteOf(input, choices & 2 ? target.bits : 0);
  source.palette = from.empty() ? nullptr : &from;
  target.palette = to.empty() ? nullptr : &to;

  constexpr size_t kGuard = 32;
  const size_t room = T_CalcConvertSize(width, source.bits, width, target.bits);
  std::vector<uint8_t> buffer(room + 2 * kGuard, 0x5C);
  std::vector<uint8_t> line(room);
  for (uint8_t& byte : line) byte = input.Empty() ? static_cast<uint8_t>(&byte - line.data()) : input.Byte();
  if (room) std::memcpy(buffer.data() + kGuard, line.data(), room);
  const std::vector<uint8_t> before = buffer;
  const int32_t status =
      T_ConvertBufferExt(buffer.data() + kGuard, width, source.bits, target.bits, source.order, target.order,
                         Entries(source), Entries(target), options.flags, options.low, options.high);
  const bool accepted = convertref::Accepts(source, target, options);
  Require(status == (accepted ? SUCCESS : ERR_INVALID_PARAMETER), "status");
  if (!accepted) {
    Require(buffer == before, "a refused line is untouched");
    return;
  }
  for (size_t i = 0; i < kGuard; ++i) Require(buffer[i] == 0x5C && buffer[kGuard + room + i] == 0x5C, "guard bytes");
  const std::vector<uint8_t> wanted = convertref::Convert(line, width, source, target, options);
  const int bits = target.bits ? target.bits : 8;
  const size_t whole = static_cast<size_t>(width) * static_cast<size_t>(bits) / 8;
  Require(std::memcmp(buffer.data() + kGuard, wanted.data(), whole) == 0, "converted pixels");
}
