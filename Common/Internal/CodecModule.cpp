#include "Common/Internal/CodecModule.h"

#include "Common/Internal/Modules.h"
#include "Platform/Platform.h"

namespace tarn {
namespace {

#if defined(_WIN32)
constexpr wchar_t kCodecName[] = L"TFCMP15X.DLL";
#else
constexpr wchar_t kCodecName[] = L"libtfcmp15x.so";
#endif

constinit platform::CriticalSection codecSection;
constinit void* codecModule = nullptr;
constinit CodecEntries codecEntries = {nullptr, nullptr};

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
    void* const module = OpenModuleBeside(kCodecName);
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
