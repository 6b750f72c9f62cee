// wchar_t (UTF-32) and UTF-8. The C library's conversions depend on the program's locale; names must not.

#include <cstring>
#include <cwchar>

#include "Platform/PosixShared.h"

namespace tarn::platform {

namespace {

bool IsCodePoint(uint32_t value) noexcept { return value < 0xD800 || (value > 0xDFFF && value <= 0x10FFFF); }

size_t Encode(uint32_t value, char* target) noexcept {
  if (value < 0x80) {
    target[0] = static_cast<char>(value);
    return 1;
  }
  const size_t length = value < 0x800 ? 2 : value < 0x10000 ? 3 : 4;
  for (size_t i = length - 1; i > 0; --i, value >>= 6) target[i] = static_cast<char>(0x80 | (value & 0x3F));
  constexpr uint8_t kLead[] = {0, 0, 0xC0, 0xE0, 0xF0};
  target[0] = static_cast<char>(kLead[length] | value);
  return length;
}

/// Bytes of the sequence at text, 0 when it is ill-formed (overlong forms and surrogates included).
size_t Decode(const uint8_t* text, uint32_t& value) noexcept {
  const uint8_t lead = text[0];
  if (lead < 0x80) {
    value = lead;
    return 1;
  }
  const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4) return 0;
  value = lead & (0x7Fu >> length);
  for (size_t i = 1; i < length; ++i) {
    if ((text[i] & 0xC0) != 0x80) return 0;  // the terminator ends here too
    value = value << 6 | (text[i] & 0x3Fu);
  }
  constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  return value >= kSmallest[length] && IsCodePoint(value) ? length : 0;
}

bool Fail(int error) noexcept {
  errno = error;
  return false;
}

}  // namespace

size_t EncodeUtf8(wchar_t character, char* target) noexcept {
  const uint32_t value = static_cast<uint32_t>(character);
  return Encode(IsCodePoint(value) ? value : uint32_t{'?'}, target);
}

bool ToUtf8(const wchar_t* text, char* target, size_t room) noexcept {
  if (!text) return Fail(EINVAL);
  size_t used = 0;
  for (; *text; ++text) {
    const uint32_t value = static_cast<uint32_t>(*text);
    if (!IsCodePoint(value)) return Fail(EINVAL);
    char bytes[4];
    const size_t length = Encode(value, bytes);
    if (used + length >= room) return Fail(ENAMETOOLONG);
    for (size_t i = 0; i < length; ++i) target[used++] = bytes[i];
  }
  if (used >= room) return Fail(ENAMETOOLONG);
  target[used] = 0;
  return true;
}

bool FromUtf8(const char* text, wchar_t* target, size_t room) noexcept {
  if (!text) return Fail(EINVAL);
  const uint8_t* next = reinterpret_cast<const uint8_t*>(text);
  size_t used = 0;
  while (*next) {
    uint32_t value = 0;
    const size_t length = Decode(next, value);
    if (length == 0) return Fail(EINVAL);
    if (used + 1 >= room) return Fail(ENAMETOOLONG);
    target[used++] = static_cast<wchar_t>(value);
    next += length;
  }
  if (used >= room) return Fail(ENAMETOOLONG);
  target[used] = 0;
  return true;
}

size_t WideRoom(const char* text) noexcept { return text ? std::strlen(text) + 1 : 0; }
size_t NarrowRoom(const wchar_t* text) noexcept { return text ? std::wcslen(text) * 4 + 1 : 0; }
bool NarrowToWide(const char* text, wchar_t* target, size_t room) noexcept { return FromUtf8(text, target, room); }
bool WideToNarrow(const wchar_t* text, char* target, size_t room) noexcept { return ToUtf8(text, target, room); }

bool IsFullPath(const wchar_t* path) noexcept { return path[0] == L'/'; }
bool HasFolder(const wchar_t* path) noexcept { return std::wcschr(path, L'/') != nullptr; }

}  // namespace tarn::platform
