#pragma once
// The instruction sets that kernels are written for. A case that runs on each skips those that this processor lacks.

#include <gtest/gtest.h>

#include "Kernels/Kernels.h"

namespace tarn::test {

constexpr Isa kLevels[] = {Isa::kPortable, Isa::kAvx2, Isa::kAvx512};
static_assert(sizeof kLevels == static_cast<size_t>(Isa::kCount));

inline const char* LevelName(Isa level) {
  constexpr const char* kNames[] = {"Portable", "Avx2", "Avx512"};
  return kNames[static_cast<size_t>(level)];
}

/// For INSTANTIATE_TEST_SUITE_P.
inline std::string NameOfLevel(const testing::TestParamInfo<Isa>& info) { return LevelName(info.param); }

}  // namespace tarn::test
