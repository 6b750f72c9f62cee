#pragma once
// The fuzz targets. Each takes one input and aborts with a line on standard error when something does not hold.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

void FuzzRuns(const uint8_t* data, size_t size);
void FuzzStorage(const uint8_t* data, size_t size);
void FuzzRecords(const uint8_t* data, size_t size);
void FuzzRedirect(const uint8_t* data, size_t size);
void FuzzConvert(const uint8_t* data, size_t size);
void FuzzDib(const uint8_t* data, size_t size);
void FuzzCodec(const uint8_t* data, size_t size);

namespace tarn::fuzz {

/// Reads numbers from the front of an input; zeros when it is used up.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : at_(data), end_(data + size) {}
  bool Empty() const { return at_ == end_; }
  size_t Left() const { return static_cast<size_t>(end_ - at_); }
  uint8_t Byte() { return at_ == end_ ? uint8_t{0} : *at_++; }
  uint16_t Word() { return static_cast<uint16_t>(Byte() | Byte() << 8); }
  uint32_t Long() { return Word() | static_cast<uint32_t>(Word()) << 16; }
  /// 0 .. below - 1
  uint32_t Below(uint32_t below) { return Word() % below; }

 private:
  const uint8_t* at_;
  const uint8_t* end_;
};

inline void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

}  // namespace tarn::fuzz
