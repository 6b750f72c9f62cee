#pragma once
// What a piece of code holds, and refusing its calls one by one.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "Common/Internal/Ledger.h"
#include "Platform/Fault.h"
#include "Platform/Platform.h"

namespace tarn::test {

/// Records in the ledger while it lives; what was held before does not count.
class Recording {
 public:
  Recording() noexcept : before_(platform::Held()) { ledger::StartRecording(); }
  ~Recording() { ledger::StopRecording(); }
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;

  /// Empty when as much is held as at the start, else what is there.
  std::string Left() const {
    std::string left;
    ledger::ForEachLive(
        [](const void*, ledger::Kind kind, Here here, void* context) {
          std::string file;
          for (const wchar_t* c = here.file; c && *c; ++c) file += static_cast<char>(*c);
          *static_cast<std::string*>(context) +=
              "kind " + std::to_string(int(kind)) + " of " + file + ":" + std::to_string(here.line) + "; ";
        },
        &left);
    const ledger::Totals totals = ledger::Now();
    if (totals.lost) left += std::to_string(totals.lost) + " objects could not be recorded; ";
    if (totals.unknownRemoves) left += std::to_string(totals.unknownRemoves) + " unknown releases; ";
    const platform::Counters now = platform::Held();
    const auto compare = [&](const char* name, int64_t is, int64_t was) {
      if (is != was) left += std::string(name) + " " + std::to_string(is - was) + "; ";
    };
    compare("block bytes", now.blockBytes, before_.blockBytes);
    compare("blocks", now.blocks, before_.blocks);
    compare("view bytes", now.viewBytes, before_.viewBytes);
    compare("views", now.views, before_.views);
    compare("sections", now.sections, before_.sections);
    compare("movable blocks", now.movableBlocks, before_.movableBlocks);
    compare("files", now.files, before_.files);
    compare("palettes", now.palettes, before_.palettes);
    return left;
  }

 private:
  platform::Counters before_;
};

/// Arms a schedule while it lives.
class Armed {
 public:
  explicit Armed(const fault::Schedule& schedule) noexcept { fault::Arm(schedule); }
  ~Armed() { fault::Disarm(); }
  Armed(const Armed&) = delete;
  Armed& operator=(const Armed&) = delete;
};

/// Runs `attempt` with its call 1, 2, ... answered by `answer` until a run has no such call. After each run, with the
/// gates open again, judge(result, answered) looks at it. Returns the number of calls that were answered.
template <class Attempt, class Judge>
uint64_t AnswerEachCall(fault::Answer answer, uint32_t points, Attempt attempt, Judge judge) {
  for (uint64_t n = 1; n < 100000; ++n) {
    SCOPED_TRACE("call " + std::to_string(n));
    fault::Arm({.first = n, .last = n, .answer = answer, .points = points});
    const auto result = attempt();
    const bool answered = fault::Answered() > 0;
    fault::Disarm();
    judge(result, answered);
    if (!answered) return n - 1;
  }
  ADD_FAILURE() << "no end of calls";
  return 0;
}

template <class Attempt, class Judge>
uint64_t RefuseEachCall(Attempt attempt, Judge judge) {
  return AnswerEachCall(fault::Answer::kRefuse, fault::kAllPoints, attempt, judge);
}

}  // namespace tarn::test
