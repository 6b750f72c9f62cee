#pragma once
// Fault gates: every allocation, section, view and file call asks here first whether it may succeed. Disarmed, which is
// always so outside tests, a gate is one predictable branch; it is compiled into the shipped library so that the code
// under test is the code that ships.

#include <atomic>
#include <cstdint>

#include "Platform/Here.h"

namespace tarn::fault {

enum class Point : uint8_t { kMemory, kBlock, kSection, kView, kOpen, kRead, kWrite, kSeek, kSize, kClose, kCount };

constexpr uint32_t Mask(Point point) noexcept { return 1u << static_cast<uint32_t>(point); }
constexpr uint32_t kAllPoints = (1u << static_cast<uint32_t>(Point::kCount)) - 1;
constexpr uint32_t kMemoryPoints =
    Mask(Point::kMemory) | Mask(Point::kBlock) | Mask(Point::kSection) | Mask(Point::kView);
constexpr uint32_t kFilePoints = kAllPoints & ~kMemoryPoints;

enum class Answer : uint8_t {
  kPass,
  kRefuse,         // the call fails; a file call with an input/output error
  kDiskFull,       // a file call fails because the disk is full; elsewhere like kRefuse
  kShort,          // a read or write moves half of the bytes; elsewhere passes
  kZero,           // a read or write moves nothing and reports 0; elsewhere passes
  kWrongPosition,  // a seek lands one byte off; elsewhere passes
  kInterrupt,      // the system call is interrupted once and must be repeated; elsewhere passes
};

/// One counted call: which site asked, by a number that lasts until ClearSites.
struct Traced {
  Point point;
  uint16_t site;
};

struct Schedule {
  uint64_t first = 0;           // number of the first call answered, counted from 1; 0 answers none (only counts)
  uint64_t last = ~uint64_t{};  // number of the last call answered
  Answer answer = Answer::kRefuse;
  uint32_t points = kAllPoints;  // gates that count; the others pass
  Traced* trace = nullptr;       // gets the calls in their order, as far as there is room
  uint32_t traceRoom = 0;
};

/// Starts counting at 0 under a schedule; replaces the previous one. Every thread's calls count.
void Arm(const Schedule& schedule) noexcept;
/// Lets everything pass again. Returns the number of calls counted.
uint64_t Disarm() noexcept;
/// Calls answered with something else than kPass since Arm.
uint64_t Answered() noexcept;

struct Site {
  Point point;
  Here here;
  uint64_t calls;    // since the table was cleared
  uint64_t refused;  // of them, answered by a schedule
};
/// Source lines that asked a gate while armed. Returns how many there are; fills at most `room`.
uint32_t Sites(Site* sites, uint32_t room) noexcept;
void ClearSites() noexcept;

extern std::atomic<bool> armed;
Answer AskArmed(Point point, Here here) noexcept;

[[nodiscard]] inline Answer Ask(Point point, Here here) noexcept {
  if (!armed.load(std::memory_order_relaxed)) [[likely]]
    return Answer::kPass;
  return AskArmed(point, here);
}
/// For gates that know only success and failure.
[[nodiscard]] inline bool Refused(Point point, Here here) noexcept {
  const Answer answer = Ask(point, here);
  return answer == Answer::kRefuse || answer == Answer::kDiskFull;
}

}  // namespace tarn::fault
