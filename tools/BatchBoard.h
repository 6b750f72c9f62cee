#pragma once
// What the processes of a batch tell each other: a board in shared memory that says who works on what, and messages
// about the pictures that are through.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarn::tool {

/// How a picture went.
struct BatchResult {
  uint32_t item = 0;
  int code = 0;         // exit code of its class, 0: its output is there
  std::string file;     // of a failure
  std::string reason;   // of a failure
  std::string printed;  // what the commands had to tell
  uint64_t outputBytes = 0;
};

/// One block of shared memory, made before the processes part. A worker may die between any two writes to it: each
/// field means something by itself.
class BatchBoard {
 public:
  static constexpr size_t kLabelBytes = 160;
  struct Worker {
    std::atomic<uint32_t> item;  // that it works on, plus 1; 0: none
    std::atomic<uint32_t> percent;
    std::atomic<uint32_t> labels;  // counts up with every label; odd while one is written
    char label[kLabelBytes];
  };

  /// Throws std::bad_alloc.
  BatchBoard(uint32_t items, int workers);
  ~BatchBoard();
  BatchBoard(const BatchBoard&) = delete;
  BatchBoard& operator=(const BatchBoard&) = delete;

  uint32_t Items() const noexcept { return items_; }
  Worker& At(int worker) noexcept { return workers_[worker]; }
  /// The next picture that nobody has taken; none when all are, or when it is time to stop.
  std::optional<uint32_t> Take(int worker) noexcept;
  /// The worker has taken a picture.
  void Claim(uint32_t item, int worker) noexcept { owners_[item] = static_cast<uint16_t>(worker + 1); }
  bool Owns(uint32_t item, int worker) const noexcept { return owners_[item] == worker + 1; }
  bool AllTaken() const noexcept { return head_->next.load() >= items_; }

  void Stop() noexcept { head_->stopped = true; }
  /// From here on a picture that fails is the last one to be begun.
  void StopOnFailure() noexcept { head_->stopsOnFailure = true; }
  void Failed() noexcept {
    if (head_->stopsOnFailure) Stop();
  }
  bool Stopped() const noexcept { return head_->stopped; }

  void SetLabel(int worker, std::string_view label) noexcept;
  std::string Label(int worker) const;

 private:
  struct Head {
    std::atomic<uint32_t> next;
    std::atomic<bool> stopped;
    std::atomic<bool> stopsOnFailure;
  };

  uint32_t items_;
  size_t bytes_;
  void* block_;
  Head* head_;
  Worker* workers_;
  std::atomic<uint16_t>* owners_;  // worker plus 1
};

/// A result as bytes in a pipe; texts are cut at 16 KB.
std::string Packed(const BatchResult& result);
/// Takes the first whole result off `bytes`.
bool Unpack(std::string& bytes, BatchResult& result);

}  // namespace tarn::tool
