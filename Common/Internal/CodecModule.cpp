#include "Common/Internal/CodecModule.h"

#include "Platform/Platform.h"

namespace tarn {
namespace {

#if defined(_WIN32)
constexpr wchar_t kCodecName[] = L"TFCMP15X.DLL";
#else
constexpr wchar_t kCodecName[] = L"libtfcmp15x.so";
#endif
constexpr uint32_t kPathRoom = 4096;

constinit platform::CriticalSection codecSection;
constinit void* codecModule = nullptr;
constinit CodecEntries codecEntries = {nullptr, nullptr};

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

// It knows the record of this release.
bool Answers(const CodecEntries& entries) noexcept {
  T_CodecBuffer job = {};
  job.StructSize = sizeof job;
  job.BytesPerLine = 4;
  job.Height = 1;
  job.BitsPerPixel = 8;
  return entries.save(&job) == SUCCESS && job.DataBytes != 0 && job.WorkBytes != 0 && entries.load(&job) == SUCCESS;
}

}  // namespace

bool LoadCodec(CodecEntries& entries) noexcept {
  const platform::Guard guard(codecSection);
  if (!codecModule) {
    wchar_t path[kPathRoom];
    if (!CodecPath(path)) return false;
    void* const module = platform::ModuleIsWhole(path) ? platform::ModuleOpen(path) : nullptr;
    if (!module) return false;
    codecEntries.save = reinterpret_cast<T_CodecFunction>(platform::ModuleSymbol(module, "fltSaveBuffer"));
    codecEntries.load = reinterpret_cast<T_CodecFunction>(platform::ModuleSymbol(module, "fltLoadBuffer"));
    if (!codecEntries.save || !codecEntries.load || !Answers(codecEntries)) {
      platform::ModuleClose(module);
      return false;
    }
    codecModule = module;
  }
  entries = codecEntries;
  return true;
}

void UnloadCodec() noexcept {
  const platform::Guard guard(codecSection);
  platform::ModuleClose(codecModule);
  codecModule = nullptr;
}

}  // namespace tarn
