#include "Targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  TARN_FUZZ_FUNCTION(data, size);
  return 0;
}
