#pragma once
// libtiff writing and reading a one-bit page of one strip in memory.

#include <cstdint>
#include <vector>

#include "PageImage.h"

namespace bench {

enum class TiffScheme { kPackBits, kGroup4 };

class TiffPeer {
 public:
  TiffPeer(const PageImage& page, TiffScheme scheme);
  void Compress();
  void Expand();
  [[nodiscard]] uint64_t PackedBytes() const { return packed_.size(); }
  [[nodiscard]] uint64_t FileBytes() const { return file_.size(); }

 private:
  uint32_t width_;
  uint32_t height_;
  TiffScheme scheme_;
  std::vector<uint8_t> packed_;  // rows of whole bytes
  std::vector<uint8_t> expanded_;
  std::vector<uint8_t> file_;
};

}  // namespace bench
