// Super-compressed storage is kept by a codec library that is looked for beside this one.

#include "Common/Internal/Storage.h"
#include "Platform/Platform.h"

namespace tarn {
namespace {

#if defined(_WIN32)
constexpr wchar_t kCodecName[] = L"TFCMP15X.DLL";
#else
constexpr wchar_t kCodecName[] = L"libtfcmp15x.so";
#endif
constexpr uint32_t kPathRoom = 4096;

// Only beside this library: a codec from the search path or the working directory could be anybody's.
bool CodecPath(wchar_t* path) noexcept {
  if (!platform::OwnDirectory(path, kPathRoom)) return false;
  uint32_t length = 0;
  while (path[length]) ++length;
  for (uint32_t i = 0;; ++i, ++length) {
    if (length == kPathRoom) return false;
    path[length] = kCodecName[i];
    if (!kCodecName[i]) return true;
  }
}

}  // namespace

Status CreateSuperStorage(BitmapHandle&) noexcept {
  wchar_t path[kPathRoom];
  if (!CodecPath(path)) return ERR_LIBRARY_NOT_LOADED;
  void* const codec = platform::ModuleOpen(path);
  if (!codec) return ERR_LIBRARY_NOT_LOADED;
  // A codec without a store that this release can drive is as good as none.
  platform::ModuleClose(codec);
  return ERR_LIBRARY_NOT_LOADED;
}

}  // namespace tarn
