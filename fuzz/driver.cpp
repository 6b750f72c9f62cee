#include "Targets.h"

#if defined(__has_feature)
#if __has_feature(memory_sanitizer)
#include "Kernels/Kernels.h"
// The sanitizer takes what some intrinsics of the widest registers give for something nobody wrote.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  tarn::ForceIsa(tarn::Isa::kAvx2);
  return 0;
}
#endif
#endif

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  TARN_FUZZ_FUNCTION(data, size);
  return 0;
}
