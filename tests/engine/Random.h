#pragma once
// The one source of chance in tests and fuzz targets: seeded, the same on every system. Whoever draws from it prints
// the seed with a failure; TARN_SEED in the environment replaces the seed of a run.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace tarn::engine {

/// Two numbers as one, so that a case's seed follows from the run's and the case's own figures.
constexpr uint64_t Mix(uint64_t a, uint64_t b) {
  uint64_t z = a + 0x9E3779B97F4A7C15u * (b + 1);
  z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9u;
  z = (z ^ z >> 27) * 0x94D049BB133111EBu;
  return z ^ z >> 31;
}

class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint64_t Next() { return Mix(state_++, 0); }
  uint8_t Byte() { return static_cast<uint8_t>(Next()); }
  /// 0 .. n - 1; 0 for n = 0.
  uint64_t Below(uint64_t n) { return n ? Next() % n : 0; }
  int32_t Between(int32_t low, int32_t high) {
    return static_cast<int32_t>(low + static_cast<int64_t>(Below(static_cast<uint64_t>(int64_t{high} - low) + 1)));
  }
  bool OneIn(uint64_t n) { return Below(n) == 0; }
  template <class T, size_t N>
  const T& Pick(const T (&values)[N]) {
    return values[Below(N)];
  }

 private:
  uint64_t state_;
};

/// The run's seed.
inline uint64_t RunSeed() {
  const char* const wanted = std::getenv("TARN_SEED");
  return wanted ? std::strtoull(wanted, nullptr, 0) : 20100611;
}

inline std::string SeedText() { return "TARN_SEED=" + std::to_string(RunSeed()); }

}  // namespace tarn::engine
