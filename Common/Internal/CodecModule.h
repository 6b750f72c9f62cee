#pragma once
// The codec library of super-compressed bitmaps, loaded from the library's own directory when it is first needed.

#include "tarn/codec.h"

namespace tarn {

struct CodecEntries {
  T_CodecFunction save;
  T_CodecFunction load;
};

/// False when there is no codec library that can be used. What was loaded stays so until UnloadCodec; what failed is
/// tried again by the next call.
bool LoadCodec(CodecEntries& entries) noexcept;
/// When the library itself goes.
void UnloadCodec() noexcept;

}  // namespace tarn
