#pragma once
// Messages for the person at the machine. There is one routine for all of them, so that a test or a program without a
// desktop can take them over.

namespace tarn {

using MessageRoutine = void (*)(const wchar_t* text, const wchar_t* caption);

/// Messages go to `routine` from now on, null: to the system. Returns the previous routine, null for the system.
MessageRoutine SetMessageRoutine(MessageRoutine routine) noexcept;

constexpr int kMessageLength = 4096;  // wide characters, the terminator included; longer texts are cut

/// Formats and shows a message; a null format gives a default text. Wide strings are %ls on every system.
void ShowMessage(const wchar_t* caption, const wchar_t* format, ...) noexcept;

}  // namespace tarn
