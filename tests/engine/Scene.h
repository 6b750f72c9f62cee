#pragma once
// What surrounds an operation under test: a temporary directory of its own and a thread whose callbacks are set; and a
// look at all that an operation could leave behind.

#include <string>
#include <vector>

#include "Common/Internal/Ledger.h"
#include "Platform/Platform.h"
#include "engine/Picture.h"

namespace tarn::engine {

/// A new directory for temporary files; removed with everything in it.
class OwnDirectory {
 public:
  OwnDirectory();
  ~OwnDirectory();
  OwnDirectory(const OwnDirectory&) = delete;
  OwnDirectory& operator=(const OwnDirectory&) = delete;
  const std::wstring& Name() const { return name_; }
  std::vector<std::wstring> Files() const;

 private:
  std::wstring name_;
};

/// Lives on one thread, which has its settings back afterwards. The ledger records meanwhile, and strips have few rows:
/// both for all threads, so that the others' scenes leave that to the first one's.
class Scene {
 public:
  enum class Place : bool { kFirst, kOther };
  explicit Scene(Place place = Place::kFirst);
  ~Scene();
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;
  const OwnDirectory& Directory() const { return directory_; }

 private:
  Place place_;
  OwnDirectory directory_;
  ThresholdScope thresholds_;
  std::wstring before_;  // the thread's temporary directory
  T_StatusCallback status_ = nullptr;
  T_StatusCallback copy_ = nullptr;
  void* statusData_ = nullptr;
  void* copyData_ = nullptr;
};

/// Everything that an operation that failed must leave as it was.
struct World {
  ledger::Totals ledger;
  platform::Counters held;
  std::vector<std::wstring> files;
  Bytes settings;
};
World LookAround(const Scene& scene);
/// What changed from one look to the next; nothing when nothing did.
std::string Changes(const World& before, const World& after);
/// Live objects and the lines that made them.
std::string LiveObjects();

}  // namespace tarn::engine
