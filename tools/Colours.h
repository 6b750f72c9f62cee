#pragma once
// Colours in words: the palettes that can be named, and files that hold one.

#include <string>
#include <vector>

#include "tarn/tarn.h"

namespace tarn::tool {

class Console;

/// "#0a0b0c"
std::string ColourName(const T_PaletteEntry& entry);
/// Six hexadecimal digits after a #. False when the text is anything else.
bool ParseColour(const std::string& text, T_PaletteEntry& entry);

/// "#rrggbb", or "gray:N" of 0 to 65535, as one of the library's colour values, and back.
bool ParseColourValue(const std::string& text, uint32_t& value);
std::string ColourValueName(uint32_t value);

/// The smallest depth of files that has room for so many colours, 1, 2, 4 or 8 bits.
int32_t DepthFor(size_t colours) noexcept;
std::vector<T_PaletteEntry> FixedPalette(int32_t bits);
std::vector<T_PaletteEntry> WebPalette();
/// 1 to 256 colours: those of a picture with a palette, or the lines of a text. A line is a colour, #rrggbb, with or
/// without a number in front; empty lines and lines that begin with a semicolon do not count. Throws Failure.
std::vector<T_PaletteEntry> ReadPalette(const std::string& file, Console& console);

}  // namespace tarn::tool
