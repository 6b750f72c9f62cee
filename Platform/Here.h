#pragma once
// Where a tracked call stands in the source: the line and the file's path relative to the source tree.

#include <cstdint>

#define TARN_WIDE_INNER(text) L##text
#define TARN_WIDE(text) TARN_WIDE_INNER(text)
#define TARN_HERE \
  ::tarn::Here { __LINE__, TARN_WIDE(__FILE__) }

namespace tarn {

struct Here {
  uint32_t line;
  const wchar_t* file;  // a literal: lives as long as the library
};

}  // namespace tarn
