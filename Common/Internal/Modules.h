#pragma once
// Libraries that lie beside this one.

#include "Platform/Platform.h"

namespace tarn {

/// Null when it is not there or cannot be loaded. Only beside this library: one from the search path or the working
/// directory could be anybody's.
inline void* OpenModuleBeside(const wchar_t* name) noexcept {
  constexpr uint32_t kPathRoom = 4096;
  wchar_t path[kPathRoom];
  if (!platform::OwnDirectory(path, kPathRoom)) return nullptr;
  uint32_t length = 0;
  while (path[length]) ++length;
  for (uint32_t i = 0;; ++i, ++length) {
    if (length == kPathRoom) return nullptr;
    path[length] = name[i];
    if (!name[i]) return platform::ModuleOpen(path);
  }
}

}  // namespace tarn
