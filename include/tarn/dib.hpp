/** @file
 *  Device-independent bitmaps as owned blocks. Part of tarn.hpp.
 */
#ifndef TARN_DIB_HPP
#define TARN_DIB_HPP

#include <cstring>
#include <span>
#include <utility>

#include "dib.h"
#include "memory.h"
#include "result.hpp"

namespace tarn {
inline namespace v15 {

/** A movable block that holds a device-independent bitmap: header, colour table, rows. It is locked while this owns it.
 */
class Dib {
 public:
  Dib() noexcept = default;
  Dib(Dib&& other) noexcept
      : block_(std::exchange(other.block_, nullptr)),
        address_(std::exchange(other.address_, nullptr)),
        bytes_(std::exchange(other.bytes_, 0)) {}
  Dib& operator=(Dib&& other) noexcept {
    Dib moved(std::move(other));
    std::swap(block_, moved.block_);
    std::swap(address_, moved.address_);
    std::swap(bytes_, moved.bytes_);
    return *this;
  }
  ~Dib() {
    if (void* const block = release(); block) T_OsFreeHandle(number(block), __LINE__, L"tarn/dib.hpp");
  }

  /** A block with a copy of these bytes, such as a BMP file has behind its first 14. Bitmap::fromDib tests them.
   *  @return ERR_INVALID_PARAMETER (no bytes); ERR_NO_MEMORY. */
  static Result<Dib> copyOf(std::span<const uint8_t> bytes) noexcept {
    if (bytes.empty()) return Failure{ERR_INVALID_PARAMETER};
    const uint64_t block = T_OsAllocHandle(T_BLOCK_MOVABLE, bytes.size(), __LINE__, L"tarn/dib.hpp");
    if (!block) return Failure{ERR_NO_MEMORY};
    Dib made;
    made.take(reinterpret_cast<void*>(block), bytes.size());
    if (!made.address_) return Failure{ERR_NO_MEMORY};
    std::memcpy(made.address_, bytes.data(), bytes.size());
    return made;
  }

  /** Takes over a block that T_ConvertToDIB made. */
  static Dib adopt(void* block) noexcept {
    Dib made;
    made.take(block, 0);
    made.bytes_ = made.measure();
    return made;
  }
  /** Gives the block away, unlocked; null when there is none. Whoever has it frees it with T_OsFreeHandle. */
  void* release() noexcept {
    if (address_) T_OsUnlockHandle(number(block_), __LINE__, L"tarn/dib.hpp");
    address_ = nullptr;
    bytes_ = 0;
    return std::exchange(block_, nullptr);
  }

  /** Takes over a movable block of so many bytes. */
  static Dib adopt(void* block, size_t bytes) noexcept {
    Dib made;
    made.take(block, bytes);
    return made;
  }

  bool empty() const noexcept { return !block_; }
  /** Header, colour table and rows. */
  std::span<const uint8_t> bytes() const noexcept { return {address_, bytes_}; }
  std::span<uint8_t> bytes() noexcept { return {address_, bytes_}; }

 private:
  static uint64_t number(void* block) noexcept { return reinterpret_cast<uint64_t>(block); }
  void take(void* block, size_t bytes) noexcept {
    block_ = block;
    address_ = static_cast<uint8_t*>(T_OsLockHandle(number(block), __LINE__, L"tarn/dib.hpp"));
    bytes_ = address_ ? bytes : 0;
  }
  template <class T>
  T field(size_t offset) const noexcept {
    T value;
    std::memcpy(&value, address_ + offset, sizeof value);
    return value;
  }
  /** The length of what T_ConvertToDIB makes: 40 bytes of header, the table, rows in whole words. */
  size_t measure() const noexcept {
    if (!address_) return 0;
    const auto width = static_cast<uint64_t>(field<int32_t>(4));
    const int64_t height = field<int32_t>(8);
    const uint64_t bits = field<uint16_t>(14), stated = field<uint32_t>(32);
    const uint64_t colors = stated ? stated : bits <= 8 ? uint64_t{1} << bits : 0;
    return 40 + colors * 4 + (width * bits + 31) / 32 * 4 * static_cast<uint64_t>(height < 0 ? -height : height);
  }

  void* block_ = nullptr;
  uint8_t* address_ = nullptr;
  size_t bytes_ = 0;
};

}  // namespace v15
}  // namespace tarn

#endif
