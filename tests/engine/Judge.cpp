#include "engine/Judge.h"

#include <cstdlib>
#include <cstring>
#include <map>

namespace tarn::engine {
namespace {

constexpr uint32_t kTraceRoom = 1 << 16;  // calls of one operation

/// Pixels and figures of a record, and the record itself less what the row functions own in it.
struct Snapshot {
  BitmapHandle record;
  Bytes contents;
  Bytes rows;
  uint32_t type = 0;
  int64_t tileSize = 0;
  uint32_t tiles = 0;
  uint32_t conventional = 0;
  uint32_t maxMapped = 0;
};

/// Strips that were read or written are held in another way afterwards: back to the one way that its rows lead to.
void Settle(const BitmapHandle& record, Snapshot& shot) {
  if (!(record.Flags & T_FLAG_SUPER_COMPRESSED)) return;
  BitmapHandle copy = record;
  T_CompactBitmap(&copy);
  shot.record.Size = copy.Size;
}

std::string Take(const BitmapHandle& record, Snapshot& shot) {
  shot = {};
  shot.record = record;
  shot.record.CachedRow = 0;
  shot.record.CachedRowOffset = 0;
  if (!(record.Flags & T_FLAG_ALLOCATED)) return {};
  T_GetBitmapMemoryInfo(&record, &shot.type, &shot.tileSize, &shot.tiles, &shot.conventional, &shot.maxMapped, nullptr);
  std::string wrong = ReadPixels(record, shot.rows);
  if (wrong.empty()) wrong = Contents(record, shot.contents);
  Settle(record, shot);
  return wrong;
}

/// Each bit is the old one or the new one.
bool Between(const Bytes& rows, const Bytes& old, const Bytes& fresh) {
  if (rows.size() != old.size() || rows.size() != fresh.size()) return false;
  for (size_t i = 0; i < rows.size(); ++i)
    if ((rows[i] ^ old[i]) & (rows[i] ^ fresh[i])) return false;
  return true;
}

bool WasUnpacked(const BitmapHandle& record, const Snapshot& before) {
  return before.type == TYPE_COMPRESSED && !(record.Flags & T_FLAG_COMPRESSED);
}

/// The fields and figures of storage as they were before.
void ForgetStorage(Snapshot& after, const Snapshot& before) {
  after.record.MemoryHandle = before.record.MemoryHandle;
  after.record.Data = before.record.Data;
  after.record.Flags = before.record.Flags;
  after.record.DataOffset = before.record.DataOffset;
  after.type = before.type;
}

std::string CompareRecords(const char* name, const BitmapHandle& record, const Snapshot& before, bool rowsMayDiffer,
                           uint32_t leaves, const Bytes& fresh) {
  Snapshot after;
  std::string wrong = Take(record, after);
  if (!wrong.empty()) return std::string(name) + ": " + wrong + "; ";
  if ((leaves & kNoPalette) && !after.record.Palette) {
    after.record.Palette = before.record.Palette;
    after.record.Colors = before.record.Colors;
    after.contents = before.contents;
  }
  if (rowsMayDiffer) {
    if (!Between(after.rows, before.rows, fresh)) wrong += "rows are neither old nor new; ";
    if (before.type == TYPE_COMPRESSED || before.type == TYPE_SUPERCOMPRESSED)
      after.record.Size = before.record.Size;  // follows the rows
    if ((leaves & kUnpacked) && WasUnpacked(record, before)) ForgetStorage(after, before);
  } else if (after.rows != before.rows) {
    wrong += "pixels differ; ";
  } else if (after.contents != before.contents) {
    wrong += "contents differ; ";
  }
  if (std::memcmp(&after.record, &before.record, sizeof after.record) != 0) {
    const auto* const a = reinterpret_cast<const uint8_t*>(&before.record);
    const auto* const b = reinterpret_cast<const uint8_t*>(&after.record);
    size_t at = 0;
    while (a[at] == b[at]) ++at;
    wrong += "the record differs at byte " + std::to_string(at) + "; ";
  }
  if (after.type != before.type || after.tileSize != before.tileSize || after.tiles != before.tiles ||
      after.conventional != before.conventional || after.maxMapped != before.maxMapped)
    wrong += "the storage figures differ; ";
  return wrong.empty() ? wrong : std::string(name) + ": " + wrong;
}

std::string Prepare(Work& work, const Case& test) {
  if (test.operation.kinds) {
    std::string wrong = work.subject.Make(test.kind, test.shape, test.seed);
    if (!wrong.empty()) return wrong;
  }
  if (test.operation.prepare) test.operation.prepare(work);
  return {};
}

/// Everything that a call that succeeded made.
std::string Result(Work& work, const Case& test, Reference& reference) {
  std::string wrong;
  for (const BitmapHandle* record : {&work.subject.record, &work.other.record, &work.made}) {
    Bytes contents;
    const std::string problem = Contents(*record, contents);
    if (!problem.empty()) wrong += problem + "; ";
    reference.result.insert(reference.result.end(), contents.begin(), contents.end());
  }
  if (work.subject.record.Flags & T_FLAG_ALLOCATED) ReadPixels(work.subject.record, reference.subjectRows);
  if (work.other.record.Flags & T_FLAG_ALLOCATED) ReadPixels(work.other.record, reference.otherRows);
  if (test.operation.finish) test.operation.finish(work);
  reference.result.insert(reference.result.end(), work.buffer.begin(), work.buffer.end());
  return wrong;
}

void ForgetSomeViews(World& before, const World& after) {
  if (after.held.views < before.held.views) before.held.views = after.held.views;
  before.held.viewBytes = after.held.viewBytes;
}

/// Numbers of the calls to answer. A loop over rows asks from the same sites for each of them, so what a site's calls
/// in the midst meet is what their neighbours meet.
std::vector<uint64_t> CallsToAnswer(const std::vector<uint16_t>& trace) {
  constexpr uint32_t kEach = 6;  // calls of a site that are answered before any is left out
  std::map<uint16_t, uint32_t> all;
  for (const uint16_t site : trace) ++all[site];
  std::map<uint16_t, uint32_t> soFar;
  std::vector<uint64_t> numbers;
  for (size_t call = 0; call < trace.size(); ++call) {
    const uint32_t number = ++soFar[trace[call]];
    const bool ofThePowers = (number & (number - 1)) == 0;
    if (EveryFault() || number <= kEach || ofThePowers || number + 2 > all[trace[call]]) numbers.push_back(call + 1);
  }
  return numbers;
}

bool Documented(const Operation& operation, const Work& work, int64_t status) {
  for (const int64_t failure : operation.failures)
    if (status == failure) return true;
  return operation.shortCounts && status >= 0 && status < operation.Wanted(work);
}

}  // namespace

std::string Text(const Case& test) {
  std::string text = std::string(test.operation.name) + ", ";
  if (test.operation.kinds) text += std::string(NameOf(test.kind)) + ", ";
  return text + Text(test.shape) + ", seed " + std::to_string(test.seed);
}

std::vector<uint16_t> Reference::Trace(uint32_t points) const {
  std::vector<uint16_t> sites;
  for (const fault::Traced& call : calls)
    if (fault::Mask(call.point) & points) sites.push_back(call.site);
  return sites;
}

std::string RunBeside(const Scene& scene, const Case& test, Bytes& result) {
  Work work(scene, test.kind, test.shape, test.seed);
  std::string wrong = Prepare(work, test);
  if (wrong.empty()) {
    const int64_t status = test.operation.call(work);
    Reference reference;
    if (test.operation.Succeeded(work, status))
      wrong = Result(work, test, reference);
    else
      wrong = "fails: " + std::to_string(status);
    result = std::move(reference.result);
  }
  return wrong.empty() ? wrong : Text(test) + ": " + wrong;
}

std::string MakeReference(const Scene& scene, const Case& test, Reference& reference) {
  const World start = LookAround(scene);
  std::string wrong;
  {
    Work work(scene, test.kind, test.shape, test.seed);
    wrong = Prepare(work, test);
    if (!wrong.empty()) return wrong;
    reference.calls.resize(kTraceRoom);
    fault::Arm({.trace = reference.calls.data(), .traceRoom = kTraceRoom});
    const int64_t status = test.operation.call(work);
    const uint64_t calls = fault::Disarm();
    if (calls > kTraceRoom) return std::to_string(calls) + " calls are more than can be listed";
    reference.calls.resize(calls);
    if (!test.operation.Succeeded(work, status)) return "fails without a fault: " + std::to_string(status);
    wrong = Result(work, test, reference);
  }
  const std::string left = Changes(start, LookAround(scene));
  return left.empty() ? wrong : wrong + "after the end without a fault: " + left + LiveObjects();
}

std::string RunWithFault(const Scene& scene, const Case& test, const Reference& reference, const Trial& trial,
                         uint64_t first, bool& answered) {
  const Operation& operation = test.operation;
  const World start = LookAround(scene);
  std::string wrong;
  {
    Work work(scene, test.kind, test.shape, test.seed);
    wrong = Prepare(work, test);
    if (!wrong.empty()) return wrong;
    Snapshot subject;
    Snapshot other;
    Take(work.subject.record, subject);
    Take(work.other.record, other);
    World before = LookAround(scene);
    const uint64_t last = trial.span == Span::kForEver ? ~uint64_t{} : first + (trial.span == Span::kTwice);
    fault::Arm({.first = first, .last = last, .answer = trial.answer, .points = trial.points});
    int64_t status = operation.call(work);
    answered = fault::Answered() > 0;
    fault::Disarm();
    if (!operation.Succeeded(work, status)) {
      if (!answered) wrong += "fails without a fault; ";
      if (trial.answer == fault::Answer::kInterrupt) wrong += "fails after an interruption; ";
      if (!Documented(operation, work, status)) wrong += "an undocumented result: " + std::to_string(status) + "; ";
      const uint32_t leaves = operation.leaves;
      wrong +=
          CompareRecords("subject", work.subject.record, subject, leaves & kSubjectRows, leaves, reference.subjectRows);
      wrong += CompareRecords("other", work.other.record, other, leaves & kOtherRows, leaves, reference.otherRows);
      if (work.made.Flags & T_FLAG_ALLOCATED) wrong += "what was not made is marked as allocated; ";
      if (operation.afterFailure) wrong += operation.afterFailure(work);
      World after = LookAround(scene);
      if (leaves & kNoPalette) --before.ledger.objects, --before.held.movableBlocks;
      if (leaves & kFewerViews) ForgetSomeViews(before, after);
      if (leaves & kPartialFile) after.files = before.files;
      if ((leaves & kUnpacked) &&
          (WasUnpacked(work.subject.record, subject) || WasUnpacked(work.other.record, other))) {
        before.ledger.objects = after.ledger.objects;
        before.held = after.held;
      }
      // Rows that were nothing but zeros have got strips.
      if (((leaves & kSubjectRows) && subject.type == TYPE_SUPERCOMPRESSED) ||
          ((leaves & kOtherRows) && other.type == TYPE_SUPERCOMPRESSED))
        before.ledger.objects = after.ledger.objects;
      const std::string changes = Changes(before, after);
      if (!changes.empty()) wrong += "after the failure: " + changes;
      status = operation.call(work);
      if (!operation.Succeeded(work, status)) wrong += "then fails without a fault: " + std::to_string(status) + "; ";
    }
    Reference outcome;
    wrong += Result(work, test, outcome);
    const bool cut = operation.endsAtNothing && trial.answer == fault::Answer::kZero;
    if (!cut && outcome.result != reference.result) wrong += "the result differs; ";
  }
  const std::string left = Changes(start, LookAround(scene));
  if (!left.empty()) wrong += "after the end: " + left + LiveObjects();
  return wrong;
}

bool EveryFault() {
  static const bool every = std::getenv("TARN_EVERY_FAULT") != nullptr;
  return every;
}

std::string SweepCase(const Scene& scene, const Case& test, const Reference& reference, const Trial& trial,
                      SweepFigures& figures) {
  ++figures.cases;
  for (const uint64_t first : CallsToAnswer(reference.Trace(trial.points))) {
    bool answered = false;
    const std::string wrong = RunWithFault(scene, test, reference, trial, first, answered);
    if (!wrong.empty())
      return Text(test) + ", call " + std::to_string(first) + ", answer " +
             std::to_string(static_cast<int>(trial.answer)) + ", span " + std::to_string(static_cast<int>(trial.span)) +
             ": " + wrong;
    figures.faults += answered;
  }
  return {};
}

}  // namespace tarn::engine
