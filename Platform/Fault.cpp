#include "Platform/Fault.h"

#include <cwchar>

#include "Platform/Platform.h"

namespace tarn::fault {

constinit std::atomic<bool> armed{false};

namespace {

constexpr uint32_t kSites = 1024;  // a power of two; lines beyond that many are answered but not listed

constinit platform::CriticalSection section;
Schedule schedule;  // these are guarded by section
uint64_t counted = 0;
uint64_t answered = 0;
Site sites[kSites] = {};  // open addressing; a free place has no file
uint32_t siteCount = 0;

bool SameFile(const wchar_t* a, const wchar_t* b) noexcept { return a == b || std::wcscmp(a, b) == 0; }

/// The place of a site, made when it is new; null when the table is full. Several literals may hold one file's name, so
/// the text decides and takes no part in the hash.
Site* FindSite(Point point, Here here) noexcept {
  uint32_t index = (here.line * 2654435761u ^ static_cast<uint32_t>(point) * 40503u) % kSites;
  for (uint32_t probe = 0; probe < kSites; ++probe, index = (index + 1) % kSites) {
    Site& site = sites[index];
    if (!site.here.file) {
      site = {point, here, 0, 0};
      ++siteCount;
      return &site;
    }
    if (site.point == point && site.here.line == here.line && SameFile(site.here.file, here.file)) return &site;
  }
  return nullptr;
}

}  // namespace

void Arm(const Schedule& wanted) noexcept {
  platform::Guard guard(section);
  schedule = wanted;
  counted = 0;
  answered = 0;
  armed.store(true, std::memory_order_relaxed);
}

uint64_t Disarm() noexcept {
  platform::Guard guard(section);
  armed.store(false, std::memory_order_relaxed);
  return counted;
}

uint64_t Answered() noexcept {
  platform::Guard guard(section);
  return answered;
}

uint32_t Sites(Site* target, uint32_t room) noexcept {
  platform::Guard guard(section);
  uint32_t filled = 0;
  for (uint32_t index = 0; index < kSites && filled < room; ++index)
    if (sites[index].here.file) target[filled++] = sites[index];
  return siteCount;
}

void ClearSites() noexcept {
  platform::Guard guard(section);
  for (Site& site : sites) site = {};
  siteCount = 0;
}

Answer AskArmed(Point point, Here here) noexcept {
  platform::Guard guard(section);
  // The schedule may have gone since the caller looked.
  if (!armed.load(std::memory_order_relaxed) || !(schedule.points & Mask(point))) return Answer::kPass;
  ++counted;
  const bool chosen =
      schedule.first != 0 && counted >= schedule.first && counted <= schedule.last && schedule.answer != Answer::kPass;
  if (chosen) ++answered;
  if (Site* site = FindSite(point, {here.line, here.file ? here.file : L"?"})) {
    ++site->calls;
    if (chosen) ++site->refused;
    if (counted <= schedule.traceRoom) schedule.trace[counted - 1] = {point, static_cast<uint16_t>(site - sites)};
  }
  return chosen ? schedule.answer : Answer::kPass;
}

}  // namespace tarn::fault
