#pragma once
// Zstandard, one frame at a time, in memory that the caller brings. Each frame carries its size and a checksum.

#include <cstdint>

namespace tarn::codec {

/// The most that a frame of so many bytes can need.
uint64_t FrameBound(uint64_t bytes) noexcept;
/// Memory that CompressFrame works in, for frames of up to so many bytes, and that ExpandFrame works in.
uint64_t CompressWork(uint64_t bytes) noexcept;
uint64_t ExpandWork() noexcept;

/// Work areas begin at a multiple of 8. Returns the bytes of the frame, 0 when it did not fit or the work area is too
/// small.
uint64_t CompressFrame(uint8_t* target, uint64_t room, const uint8_t* source, uint64_t bytes, void* work,
                       uint64_t workBytes) noexcept;
/// True when the frame is whole and holds exactly `bytes` bytes; nothing is written beyond them.
bool ExpandFrame(uint8_t* target, uint64_t bytes, const uint8_t* frame, uint64_t frameBytes, void* work,
                 uint64_t workBytes) noexcept;

}  // namespace tarn::codec
